#include <stdio.h>
#include <stdlib.h>
#include <ves.h>

static void apply(void* data, void* x, void* y, int n, int k, int ld) { /* tridiag(-1, 2, -1) */
  (void)data;
  for (long j = 0; j < k; ++j) {
    const double* in = (const double*)x + j * ld;
    double* out = (double*)y + j * ld;
    for (int i = 0; i < n; ++i)
      out[i] = 2 * in[i] - (i > 0 ? in[i - 1] : 0) - (i + 1 < n ? in[i + 1] : 0);
  }
}

int main(int argc, char** argv) {
  enum { n = 100, k = 4 };
  static double vectors[n * k], values[k];
  for (int i = 0; i < n * k; ++i)
    vectors[i] = rand() / (double)RAND_MAX - 0.5; /* the guess */
  MPI_Init(&argc, &argv);
  VesMatrix A;
  VesVector X, D;
  VesSolver solver;
  VesMatrixCreate(&A, VES_DOUBLE, VES_MATRIX_SHELL);
  VesMatrixSetShellMatVec(A, NULL, apply);
  VesVectorCreate(&X, VES_DOUBLE, VES_VECTOR_DENSE);
  VesVectorSetDim(X, n, k);
  VesVectorDenseSetValues(X, vectors, n);
  VesVectorCreate(&D, VES_DOUBLE, VES_VECTOR_DENSE);
  VesVectorSetDim(D, k, 1);
  VesVectorDenseSetValues(D, values, k);
  VesSolverCreate(&solver, VES_DOUBLE, VES_LOBPCG);
  VesSolverSetMaxIter(solver, 500);
  int converged = 0;
  const VesReturnCode code = VesRunSolver(solver, A, NULL, NULL, X, D);
  VesGetSolverConv(solver, &converged);
  for (int j = 0; j < k; ++j)
    printf("%.10f\n", values[j]);
  VesSolverDestroy(solver);
  VesVectorDestroy(D);
  VesVectorDestroy(X);
  VesMatrixDestroy(A);
  MPI_Finalize();
  return code == VES_GOOD && converged == k ? 0 : 1;
}
