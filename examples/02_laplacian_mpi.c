/* The six lowest eigenpairs of tridiag(-1, 2, -1): each process holds n rows of n p. */
#include <stdio.h>
#include <stdlib.h>
#include <ves.h>

static void laplacian(void* data, void* xv, void* yv, int n, int k, int ld) {
  MPI_Comm comm = *(MPI_Comm*)data;
  int rank, p;
  MPI_Comm_rank(comm, &rank);
  MPI_Comm_size(comm, &p);
  const int below = rank > 0 ? rank - 1 : MPI_PROC_NULL,
            above = rank + 1 < p ? rank + 1 : MPI_PROC_NULL;
  for (int j = 0; j < k; ++j) {
    const double* x = (double*)xv + (long)j * ld;
    double *y = (double*)yv + (long)j * ld, left = 0, right = 0;
    MPI_Sendrecv(&x[n - 1], 1, MPI_DOUBLE, above, 0, &left, 1, MPI_DOUBLE, below, 0, comm,
                 MPI_STATUS_IGNORE);
    MPI_Sendrecv(&x[0], 1, MPI_DOUBLE, below, 1, &right, 1, MPI_DOUBLE, above, 1, comm,
                 MPI_STATUS_IGNORE);
    for (int i = 0; i < n; ++i)
      y[i] = 2 * x[i] - (i > 0 ? x[i - 1] : left) - (i + 1 < n ? x[i + 1] : right);
  }
}

int main(int argc, char** argv) {
  enum { n = 100, k = 6 };
  double *X = malloc(sizeof(double) * n * k), D[k];
  MPI_Comm comm = MPI_COMM_WORLD;
  MPI_Init(&argc, &argv);
  for (int i = 0; i < n * k; ++i)
    X[i] = rand() / (double)RAND_MAX - 0.5; /* the initial guess */
  VesMatrix A;
  VesVector x, d;
  VesSolver solver;
  VesMatrixCreate(&A, VES_DOUBLE, VES_MATRIX_SHELL);
  VesMatrixSetShellMatVec(A, &comm, laplacian);
  VesVectorCreate(&x, VES_DOUBLE, VES_VECTOR_DENSE);
  VesVectorSetDim(x, n, k);
  VesVectorDenseSetValues(x, X, n);
  VesVectorCreate(&d, VES_DOUBLE, VES_VECTOR_DENSE);
  VesVectorSetDim(d, k, 1);
  VesVectorDenseSetValues(d, D, k);
  VesSolverCreate(&solver, VES_DOUBLE, VES_LOBPCG);
  VesSolverSetMaxIter(solver, 1000);
  int code = VesRunSolver(solver, A, NULL, NULL, x, d), converged = 0, rank;
  VesGetSolverConv(solver, &converged);
  MPI_Comm_rank(comm, &rank);
  for (int j = 0; rank == 0 && j < k; ++j)
    printf("%.10f\n", D[j]);
  VesSolverDestroy(solver);
  VesVectorDestroy(d);
  VesVectorDestroy(x);
  VesMatrixDestroy(A);
  free(X);
  MPI_Finalize();
  return code == VES_GOOD && converged == k ? 0 : 1;
}
