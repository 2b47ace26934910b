#include "c_model.h"

#include "../support/mpi_meter.h"

#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

int failures = 0, rank = 0, size = 1;
const VesSolverType solvers[3] = {VES_LOBPCG, VES_LOBPCG_BATCH, VES_PPCG};
const char* const solverNames[3] = {"LOBPCG", "LOBPCG_BATCH", "PPCG"};
char context[80] = "";

void fail(int line, const char* condition) {
  ++failures;
  fprintf(stderr, "process %d, line %d, %s: %s\n", rank, line, context, condition);
}

/* ------------------------------------------------------------------ the model problem */
void apply(void* data, void* xv, void* yv, int n, int k, int ld) {
  Tridiagonal* op = data;
  const double start = MPI_Wtime();
  const bool isAlone = op->off == 0; /* then other processes need not be in the same run */
  const int below = rank > 0 && !isAlone ? rank - 1 : MPI_PROC_NULL,
            above = rank + 1 < size && !isAlone ? rank + 1 : MPI_PROC_NULL;
  double* sums = malloc(sizeof(double) * (size_t)n);
  for (int j = 0; j < k; ++j) {
    const double* x = (const double*)xv + (ptrdiff_t)j * ld;
    double left = 0, right = 0;
    MPI_Sendrecv(&x[n - 1], 1, MPI_DOUBLE, above, 0, &left, 1, MPI_DOUBLE, below, 0, MPI_COMM_WORLD,
                 MPI_STATUS_IGNORE);
    MPI_Sendrecv(&x[0], 1, MPI_DOUBLE, below, 1, &right, 1, MPI_DOUBLE, above, 1, MPI_COMM_WORLD,
                 MPI_STATUS_IGNORE);
    for (int i = 0; i < n; ++i)
      sums[i] = op->diagonal * x[i] +
                op->off * ((i > 0 ? x[i - 1] : left) + (i + 1 < n ? x[i + 1] : right));
    memcpy((double*)yv + (ptrdiff_t)j * ld, sums, sizeof(double) * (size_t)n);
  }
  free(sums);
  op->columns += k;
  if (++op->calls >= op->spoilAt && op->spoilAt > 0 && rank == op->spoilRank && k > 0)
    ((double*)yv)[n / 2] = op->spoiled;
  op->seconds += MPI_Wtime() - start;
}

int follow(void* data, const VesProgress* at) {
  Log* log = data;
  CHECK(at->iteration == log->calls);
  CHECK(at->wanted == nPairs);
  CHECK(0 <= at->converged && at->converged <= at->wanted);
  CHECK(at->locked >= 0 && at->active >= 0 && at->locked + at->active == at->wanted);
  CHECK(at->columnsA > 0 && at->columnsA == log->A->columns);
  if (log->locked > log->mostLocked) log->mostLocked = log->locked;
  ++log->calls;
  log->last = at->iteration;
  log->locked = at->locked;
  log->converged = at->converged;
  memcpy(log->values, at->values, sizeof(log->values));
  memcpy(log->residuals, at->residuals, sizeof(log->residuals));
  return at->iteration == log->stopAt && rank == log->stopRank ? 7 : 0;
}

VesMatrix newOperator(Tridiagonal* op) {
  VesMatrix matrix = NULL;
  CHECK(VesMatrixCreate(&matrix, VES_DOUBLE, VES_MATRIX_SHELL) == 0);
  CHECK(VesMatrixSetShellMatVec(matrix, op, apply) == 0);
  return matrix;
}

VesVector newBlock(int n, int k, double* values, int ld) {
  VesVector block = NULL;
  CHECK(VesVectorCreate(&block, VES_DOUBLE, VES_VECTOR_DENSE) == 0);
  CHECK(VesVectorSetDim(block, n, k) == 0);
  CHECK(VesVectorDenseSetValues(block, values, ld) == 0);
  return block;
}

void openRun(Run* r, int s) {
  memset(r, 0, sizeof(*r));
  snprintf(context, sizeof(context), "%s", solverNames[s]);
  const int parts = size * (size + 1) / 2;
  r->n = nTotal * (rank + 1) / parts;
  r->first = nTotal * (rank * (rank + 1) / 2) / parts;
  r->a = (Tridiagonal){.diagonal = 2, .off = -1};
  r->b = (Tridiagonal){.diagonal = 4.0 / 6, .off = 1.0 / 6};
  r->t = (Tridiagonal){.diagonal = 0.5};
  r->A = newOperator(&r->a);
  r->B = newOperator(&r->b);
  r->T = newOperator(&r->t);
  r->X = newBlock(r->n, nPairs, r->x, r->n);
  r->D = newBlock(nPairs, 1, r->d, nPairs);
  r->log.stopAt = -1;
  r->log.A = &r->a;
  CHECK(VesSolverCreate(&r->solver, VES_DOUBLE, solvers[s]) == 0);
  VesSolverSetMaxIter(r->solver, 1000);
}

/* Without pattern, from -1 to 1. */
static double numberAt(unsigned i, unsigned j) {
  unsigned h = i * 2654435761U ^ (j + 1) * 2246822519U;
  h = (h ^ (h >> 15)) * 3266489917U;
  return (double)(h ^ (h >> 16)) / 2147483648.0 - 1.0;
}

void solve(Run* r, bool generalized) {
  for (int j = 0; j < nPairs; ++j)
    for (int i = 0; i < r->n; ++i)
      r->x[j * r->n + i] = numberAt((unsigned)(r->first + i), (unsigned)j);
  r->a.columns = r->b.columns = r->t.columns = 0;
  r->a.seconds = r->b.seconds = r->t.seconds = 0;
  mpiMeter.reductions = mpiMeter.bytesReduced = 0;
  VesSolverSetProblemType(r->solver, generalized ? VES_PROBLEM_GENERALIZED : VES_PROBLEM_STANDARD);
  r->code = VesRunSolver(r->solver, r->A, r->B, r->T, r->X, r->D);
  CHECK(VesGetSolverReason(r->solver, &r->reason) == 0);
  CHECK(VesGetSolverStats(r->solver, &r->stats) == 0);
  VesGetSolverIter(r->solver, &r->iter);
  VesGetSolverConv(r->solver, &r->nConv);
}

void closeRun(Run* r) {
  VesSolverDestroy(r->solver);
  VesMatrixDestroy(r->A);
  VesMatrixDestroy(r->B);
  VesMatrixDestroy(r->T);
  VesVectorDestroy(r->X);
  VesVectorDestroy(r->D);
  context[0] = '\0';
}

void recompute(Run* r, bool generalized, double* norms, double* orthoError) {
  const size_t entries = (size_t)r->n * nPairs;
  double *ax = malloc(sizeof(double) * entries), *bx = malloc(sizeof(double) * entries);
  double gram[nPairs][nPairs] = {{0}};
  apply(&r->a, r->x, ax, r->n, nPairs, r->n);
  if (generalized)
    apply(&r->b, r->x, bx, r->n, nPairs, r->n);
  else
    memcpy(bx, r->x, sizeof(double) * entries);
  for (int j = 0; j < nPairs; ++j) {
    norms[j] = 0;
    for (int i = 0; i < r->n; ++i) {
      const int at = j * r->n + i;
      norms[j] += pow(ax[at] - r->d[j] * bx[at], 2);
      for (int l = 0; l < nPairs; ++l)
        gram[l][j] += r->x[l * r->n + i] * bx[at];
    }
  }
  PMPI_Allreduce(MPI_IN_PLACE, norms, nPairs, MPI_DOUBLE, MPI_SUM, MPI_COMM_WORLD);
  PMPI_Allreduce(MPI_IN_PLACE, gram, nPairs * nPairs, MPI_DOUBLE, MPI_SUM, MPI_COMM_WORLD);
  *orthoError = 0;
  for (int j = 0; j < nPairs; ++j) {
    norms[j] = sqrt(norms[j]);
    for (int l = 0; l < nPairs; ++l)
      *orthoError = fmax(*orthoError, fabs(gram[l][j] - (l == j)));
  }
  free(ax);
  free(bx);
}
