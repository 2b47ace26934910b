/* The lowest states of a particle in a harmonic trap, -1/2 u'' + x^2/2 u = e u, by second
 * differences: an operator and a preconditioner that share their state, rows on all processes but
 * perhaps the last, and a failure inside the operator. Runs on up to 200 processes. */
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <ves.h>

enum { points = 199, pairs = 6 };
static const double length = 16;

struct Trap {
  MPI_Comm peers;           /* the processes that hold rows */
  int below, above;         /* neighbours among them */
  int n, first;             /* rows here */
  double beside;            /* entries beside the diagonal */
  double diagonal[points];  /* of the rows here */
  double pivots[points];    /* of the factors of the rows and columns here */
  int callsLeft, hasFailed; /* the operator fails after so many calls */
};

static void apply(void* data, void* xv, void* yv, int n, int k, int ld) {
  struct Trap* trap = data;
  trap->hasFailed |= trap->callsLeft-- <= 0;
  for (long j = 0; j < k; ++j) {
    const double* x = (const double*)xv + j * ld;
    double *y = (double*)yv + j * ld, left = 0, right = 0;
    MPI_Sendrecv(&x[n - 1], 1, MPI_DOUBLE, trap->above, 0, &left, 1, MPI_DOUBLE, trap->below, 0,
                 trap->peers, MPI_STATUS_IGNORE);
    MPI_Sendrecv(&x[0], 1, MPI_DOUBLE, trap->below, 1, &right, 1, MPI_DOUBLE, trap->above, 1,
                 trap->peers, MPI_STATUS_IGNORE);
    for (int i = 0; i < n; ++i)
      y[i] = trap->diagonal[i] * x[i] +
             trap->beside * ((i > 0 ? x[i - 1] : left) + (i + 1 < n ? x[i + 1] : right));
    for (int i = 0; trap->hasFailed && i < n; ++i)
      y[i] = NAN; /* the neighbours got their rows, and the run ends on all processes */
  }
}

/* Solves with the rows and columns of A that are here, without messages. */
static void precondition(void* data, void* xv, void* yv, int n, int k, int ld) {
  const struct Trap* trap = data;
  for (long j = 0; j < k; ++j) {
    const double* x = (const double*)xv + j * ld;
    double* y = (double*)yv + j * ld;
    for (int i = 0; i < n; ++i)
      y[i] = x[i] - (i > 0 ? trap->beside / trap->pivots[i - 1] * y[i - 1] : 0);
    for (int i = n - 1; i >= 0; --i)
      y[i] = (y[i] - (i + 1 < n ? trap->beside * y[i + 1] : 0)) / trap->pivots[i];
  }
}

static void setUp(struct Trap* trap) {
  int rank, size, rankOfPeers = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &size);
  const int holders = size > 2 ? size - 1 : size; /* the last of three or more holds no rows */
  trap->first = rank < holders ? points * rank / holders : points;
  trap->n = rank < holders ? points * (rank + 1) / holders - trap->first : 0;
  MPI_Comm_split(MPI_COMM_WORLD, trap->n > 0 ? 0 : MPI_UNDEFINED, rank, &trap->peers);
  if (trap->n > 0) MPI_Comm_rank(trap->peers, &rankOfPeers);
  trap->below = rankOfPeers > 0 ? rankOfPeers - 1 : MPI_PROC_NULL;
  trap->above = rankOfPeers + 1 < holders ? rankOfPeers + 1 : MPI_PROC_NULL;
  const double h = length / (points + 1);
  trap->beside = -1 / (2 * h * h);
  for (int i = 0; i < trap->n; ++i) {
    const double x = h * (trap->first + i + 1) - length / 2;
    trap->diagonal[i] = 1 / (h * h) + x * x / 2;
    trap->pivots[i] =
        trap->diagonal[i] - (i > 0 ? trap->beside * trap->beside / trap->pivots[i - 1] : 0);
  }
}

/* What the command line program and the Python package choose; normA is an estimate. */
static void configure(VesSolver solver, double normA) {
  VesSolverSetThreshold(solver, 1e-8 * normA);
  VesSolverSetMaxIter(solver, 1000);
  VesSolverSetLockFactor(solver, 1);
  VesSolverSetMaxOrthoIter(solver, 2);
  VesSetDenseEigenSolverType(solver, VES_LAPACK_DIAG);
}

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  static struct Trap trap;
  setUp(&trap);
  static double vectors[points * pairs], values[pairs];
  VesMatrix A, T;
  VesVector X, D;
  VesSolver solver;
  VesMatrixCreate(&A, VES_DOUBLE, VES_MATRIX_SHELL);
  VesMatrixSetShellMatVec(A, &trap, apply);
  VesMatrixCreate(&T, VES_DOUBLE, VES_MATRIX_SHELL);
  VesMatrixSetShellMatVec(T, &trap, precondition);
  VesVectorCreate(&X, VES_DOUBLE, VES_VECTOR_DENSE);
  VesVectorSetDim(X, trap.n, pairs);
  VesVectorDenseSetValues(X, vectors, points);
  VesVectorCreate(&D, VES_DOUBLE, VES_VECTOR_DENSE);
  VesVectorSetDim(D, pairs, 1);
  VesVectorDenseSetValues(D, values, pairs);
  VesSolverCreate(&solver, VES_DOUBLE, VES_LOBPCG);
  const double normA = -4 * trap.beside + length * length / 8;
  configure(solver, normA);

  int wrong = 0;
  for (int failing = 0; failing <= 1; ++failing) {
    for (int i = 0; i < points * pairs; ++i)
      vectors[i] = rand() / (double)RAND_MAX - 0.5;
    trap.callsLeft = failing && trap.first == 0 ? 5 : 1000000; /* on one process alone */
    trap.hasFailed = 0;
    VesSolverReason reason;
    int converged = 0;
    const VesReturnCode code = VesRunSolver(solver, A, NULL, T, X, D);
    VesGetSolverConv(solver, &converged);
    VesGetSolverReason(solver, &reason);
    wrong += code != VES_GOOD || converged != (failing ? 0 : pairs) ||
             reason != (failing ? VES_REASON_NONFINITE : VES_REASON_CONVERGED);
    for (int j = 0; !failing && j < pairs; ++j)
      wrong += fabs(values[j] - (j + 0.5)) > 0.02; /* what the differences leave to h^2 */
    if (trap.first == 0) printf("%d pairs, %s\n", converged, VesReasonString(reason));
  }
  VesSolverDestroy(solver);
  VesVectorDestroy(D);
  VesVectorDestroy(X);
  VesMatrixDestroy(T);
  VesMatrixDestroy(A);
  if (trap.peers != MPI_COMM_NULL) MPI_Comm_free(&trap.peers);
  MPI_Finalize();
  return wrong;
}
