/* Objects of PETSc as A, B and T: a plain program, since its errors are returned in C. */
#include <ves_petsc.h>

#include <math.h>
#include <stdio.h>
#include <stdlib.h>

static int failures = 0;

static void Expect(int isTrue, const char* what) {
  if (isTrue) return;
  fprintf(stderr, "FAILED: %s\n", what);
  ++failures;
}

/* The matrix (off, diagonal, off) of order n, all rows but few on the first processes: the last one
   has none where there are several. */
static Mat Chain(MPI_Comm comm, int n, double diagonal, double off) {
  int rank = 0, size = 1;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &size);
  const int holders = size > 1 ? size - 1 : 1;
  const PetscInt local = rank < holders ? n / holders + (rank < n % holders ? 1 : 0) : 0;
  Mat mat = NULL;
  PetscInt first = 0, last = 0;
  MatCreateAIJ(comm, local, local, n, n, 3, NULL, 2, NULL, &mat);
  MatGetOwnershipRange(mat, &first, &last);
  for (PetscInt i = first; i < last; ++i)
    for (PetscInt j = i > 0 ? i - 1 : 0; j <= i + 1 && j < n; ++j)
      MatSetValue(mat, i, j, i == j ? diagonal : off, INSERT_VALUES);
  MatAssemblyBegin(mat, MAT_FINAL_ASSEMBLY);
  MatAssemblyEnd(mat, MAT_FINAL_ASSEMBLY);
  return mat;
}

enum { order = 200, nPairs = 4 };

typedef struct {
  VesSolverReason reason;
  VesReturnCode code;
  double worst; /* error of a value */
  int iterations;
} Found;

/* Values of (2, -1) over (4, 1)/6, or over the identity. */
static Found Solve(Mat a, VesMatrix A, VesMatrix B, VesMatrix T) {
  Found found = {VES_REASON_NONE, VES_GOOD, 0.0, 0};
  const PetscInt rows = VesPetscLocalRows(a);
  PetscScalar d[nPairs];
  PetscScalar* const x = (PetscScalar*)malloc(sizeof(*x) * (size_t)(rows * nPairs + 1));
  PetscInt first = 0;
  MatGetOwnershipRange(a, &first, NULL);
  for (PetscInt j = 0; j < nPairs; ++j)
    for (PetscInt i = 0; i < rows; ++i)
      x[j * rows + i] = sin((double)((first + i + 1) * (j + 2) * 37 % 101));
  VesVector X = NULL, D = NULL;
  VesSolver solver = NULL;
  Expect(VesPetscBlockCreate(&X, a, nPairs, x) == VES_GOOD, "block");
  Expect(VesPetscValuesCreate(&D, a, nPairs, d) == VES_GOOD, "values");
  VesSolverCreate(&solver, VES_PETSC_SCALAR, VES_LOBPCG);
  VesSolverSetMaxIter(solver, 2000);
  VesSolverSetThreshold(solver, 1e-8);
  VesSolverSetProblemType(solver, B != NULL ? VES_PROBLEM_GENERALIZED : VES_PROBLEM_STANDARD);
  found.code = VesRunSolver(solver, A, B, T, X, D);
  VesGetSolverReason(solver, &found.reason);
  VesGetSolverIter(solver, &found.iterations);
  for (int j = 0; j < nPairs; ++j) {
    const double c = cos(acos(-1.0) * (j + 1) / (order + 1));
    const double exact = (2 - 2 * c) / (B != NULL ? (2 + c) / 3 : 1);
    const double error = fabs((double)PetscRealPart(d[j]) - exact);
    if (!(error <= found.worst)) found.worst = error;
  }
  VesSolverDestroy(solver);
  VesVectorDestroy(X);
  VesVectorDestroy(D);
  free(x);
  return found;
}

static PetscErrorCode Fails(Mat mat, Vec x, Vec y) {
  (void)mat;
  (void)x;
  (void)y;
  return PETSC_ERR_USER;
}

static void OnCommunicator(MPI_Comm comm) {
  Mat a = Chain(comm, order, 2.0, -1.0), b = Chain(comm, order, 4.0 / 6, 1.0 / 6), broken = NULL;
  KSP ksp = NULL;
  PC pc = NULL;
  KSPCreate(comm, &ksp);
  KSPSetOperators(ksp, a, a);
  KSPSetType(ksp, KSPPREONLY);
  KSPGetPC(ksp, &pc);
  PCSetType(pc, PCGAMG);
  KSPSetUp(ksp);
  VesPetscOperator A, B, T[2];
  Expect(VesPetscOperatorCreate(&A, (PetscObject)a) == VES_GOOD, "Mat");
  Expect(VesPetscOperatorCreate(&B, (PetscObject)b) == VES_GOOD, "Mat as B");
  Expect(VesPetscOperatorCreate(&T[0], (PetscObject)pc) == VES_GOOD, "PC");
  Expect(VesPetscOperatorCreate(&T[1], (PetscObject)ksp) == VES_GOOD, "KSP");
  for (int generalized = 0; generalized <= 1; ++generalized) {
    VesMatrix const mass = generalized ? B.matrix : NULL;
    const Found plain = Solve(a, A.matrix, mass, NULL);
    Expect(plain.reason == VES_REASON_CONVERGED && plain.worst < 1e-10, "without T");
    for (int i = 0; i < 2; ++i) {
      const Found helped = Solve(a, A.matrix, mass, T[i].matrix);
      Expect(helped.reason == VES_REASON_CONVERGED && helped.worst < 1e-10, "with T");
      Expect(2 * helped.iterations < plain.iterations, "T saves iterations");
    }
  }
  const PetscInt rows = VesPetscLocalRows(a);
  MatCreateShell(comm, rows, rows, order, order, NULL, &broken);
  MatShellSetOperation(broken, MATOP_MULT, (void (*)(void))Fails);
  VesPetscOperator C;
  Expect(VesPetscOperatorCreate(&C, (PetscObject)broken) == VES_GOOD, "Mat that fails");
  const Found failed = Solve(a, C.matrix, NULL, NULL);
  Expect(failed.reason == VES_REASON_NONFINITE && C.failure == PETSC_ERR_USER, "its failure");
  VesPetscOperator wrong;
  Expect(VesPetscOperatorCreate(&wrong, (PetscObject)A.x) == VES_ERR_INVALID_VALUE, "a Vec");
  VesPetscOperator* const all[] = {&A, &B, &T[0], &T[1], &C};
  for (int i = 0; i < 5; ++i)
    VesPetscOperatorDestroy(all[i]);
  MatDestroy(&a);
  MatDestroy(&b);
  MatDestroy(&broken);
  KSPDestroy(&ksp);
}

int main(int argc, char** argv) {
  int rank = 0;
  MPI_Comm half;
  PetscInitialize(&argc, &argv, NULL, NULL);
  PetscPushErrorHandler(PetscIgnoreErrorHandler, NULL);
  OnCommunicator(PETSC_COMM_WORLD);
  MPI_Comm_rank(PETSC_COMM_WORLD, &rank);
  MPI_Comm_split(PETSC_COMM_WORLD, rank % 2, 0, &half); /* both halves at the same time */
  OnCommunicator(half);
  MPI_Comm_free(&half);
  MPI_Allreduce(MPI_IN_PLACE, &failures, 1, MPI_INT, MPI_SUM, PETSC_COMM_WORLD);
  PetscFinalize();
  return failures > 0 ? 1 : 0;
}
