/* What a C caller can ask beyond the pairs: version and texts, monitor, costs and reasons of a run,
   the check of its pairs, and the setters that go with them. The model is tridiag(-1, 2, -1), with
   mass matrix tridiag(1, 4, 1) / 6 in generalized problems. */
#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <ves.h>

enum { nPairs = 4, nTotal = 120, nMost = nTotal };

static int failures = 0, rank = 0, size = 1;
static const VesSolverType solvers[] = {VES_LOBPCG, VES_LOBPCG_BATCH, VES_PPCG};
static const char* const solverNames[] = {"LOBPCG", "LOBPCG_BATCH", "PPCG"};
static char context[80] = ""; /* the case that is being tested */

#define CHECK(condition)                                                                           \
  do {                                                                                             \
    if (!(condition)) {                                                                            \
      ++failures;                                                                                  \
      fprintf(stderr, "process %d, line %d, %s: %s\n", rank, __LINE__, context, #condition);       \
    }                                                                                              \
  } while (0)

/* ------------------------------------------------------------------ what the library reduces */

static long long reductions = 0, bytesReduced = 0;

/* Stands before the routine of MPI. */
int MPI_Allreduce(const void* from, void* to, int count, MPI_Datatype type, MPI_Op op,
                  MPI_Comm comm) {
  int bytes = 0;
  MPI_Type_size(type, &bytes);
  ++reductions;
  bytesReduced += (long long)count * bytes;
  return PMPI_Allreduce(from, to, count, type, op, comm);
}

/* ------------------------------------------------------------------ the model problem */

typedef struct Tridiagonal {
  double diagonal, off;
  long long columns;      /* that it was applied to on this process */
  double seconds;         /* in this routine */
  int spoilAt, spoilRank; /* first call that returns the spoiled entry, where */
  double spoiled;
  int calls;
} Tridiagonal;

static void apply(void* data, void* xv, void* yv, int n, int k, int ld) {
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

typedef struct Log {
  int calls, last;       /* of the monitor, and the iteration of the last one */
  int stopAt, stopRank;  /* where it answers that the run is to end */
  int mostLocked;        /* before the last call */
  int locked, converged; /* at the last call */
  double values[nPairs], residuals[nPairs];
  const Tridiagonal* A;
} Log;

static int follow(void* data, const VesProgress* at) {
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

/* A solver with its operators and blocks. The rows grow with the rank. */
typedef struct Run {
  VesSolver solver;
  VesMatrix A, B, T;
  VesVector X, D;
  Tridiagonal a, b, t;
  int n, first;
  double x[nMost * nPairs], d[nPairs];
  VesReturnCode code;
  VesSolverReason reason;
  VesSolverStats stats;
  int iter, nConv;
  Log log;
} Run;

static VesMatrix newOperator(Tridiagonal* op) {
  VesMatrix matrix = NULL;
  CHECK(VesMatrixCreate(&matrix, VES_DOUBLE, VES_MATRIX_SHELL) == 0);
  CHECK(VesMatrixSetShellMatVec(matrix, op, apply) == 0);
  return matrix;
}

static VesVector newBlock(int n, int k, double* values, int ld) {
  VesVector block = NULL;
  CHECK(VesVectorCreate(&block, VES_DOUBLE, VES_VECTOR_DENSE) == 0);
  CHECK(VesVectorSetDim(block, n, k) == 0);
  CHECK(VesVectorDenseSetValues(block, values, ld) == 0);
  return block;
}

static void openRun(Run* r, int s) {
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

static void solve(Run* r, bool generalized) {
  for (int j = 0; j < nPairs; ++j)
    for (int i = 0; i < r->n; ++i)
      r->x[j * r->n + i] = numberAt((unsigned)(r->first + i), (unsigned)j);
  r->a.columns = r->b.columns = r->t.columns = 0;
  r->a.seconds = r->b.seconds = r->t.seconds = 0;
  reductions = bytesReduced = 0;
  VesSolverSetProblemType(r->solver, generalized ? VES_PROBLEM_GENERALIZED : VES_PROBLEM_STANDARD);
  r->code = VesRunSolver(r->solver, r->A, r->B, r->T, r->X, r->D);
  CHECK(VesGetSolverReason(r->solver, &r->reason) == 0);
  CHECK(VesGetSolverStats(r->solver, &r->stats) == 0);
  VesGetSolverIter(r->solver, &r->iter);
  VesGetSolverConv(r->solver, &r->nConv);
}

static void closeRun(Run* r) {
  VesSolverDestroy(r->solver);
  VesMatrixDestroy(r->A);
  VesMatrixDestroy(r->B);
  VesMatrixDestroy(r->T);
  VesVectorDestroy(r->X);
  VesVectorDestroy(r->D);
  context[0] = '\0';
}

/* Residual norms of all pairs, and the largest entry of |X^T B X - I|. */
static void recompute(Run* r, bool generalized, double* norms, double* orthoError) {
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

/* ------------------------------------------------------------------ texts */

static void testTexts(void) {
  const VesReturnCode codes[] = {0, -1, -2, -4, -5, -6, -7, -3, 1, 99}; /* unknown from -3 on */
  const VesSolverReason reasons[] = {0, 1, 2, 3, 4, 5, 6, (VesSolverReason)-1}; /* from 6 on */
  CHECK(strcmp(VesGetVersion(), PROJECT_VERSION) == 0);
  for (int i = 0; i < 10; ++i) {
    CHECK(strlen(VesErrorString(codes[i])) > 3);
    for (int j = 0; j < i; ++j)
      CHECK((strcmp(VesErrorString(codes[i]), VesErrorString(codes[j])) == 0) == (j >= 7));
  }
  for (int i = 0; i < 8; ++i) {
    CHECK(strlen(VesReasonString(reasons[i])) > 3);
    for (int j = 0; j < i; ++j)
      CHECK((strcmp(VesReasonString(reasons[i]), VesReasonString(reasons[j])) == 0) == (j >= 6));
  }
}

/* ------------------------------------------------------------------ monitor and costs */

static void testMonitorOfAWholeRun(int s, bool generalized) {
  Run r;
  double norms[nPairs], orthoError;
  openRun(&r, s);
  VesSolverSetMonitor(r.solver, follow, &r.log);
  solve(&r, generalized);
  CHECK(r.code == 0 && r.nConv == nPairs && r.reason == VES_REASON_CONVERGED);
  CHECK(r.log.calls == r.iter + 1 && r.log.converged == nPairs);
  recompute(&r, generalized, norms, &orthoError);
  for (int j = 0; j < nPairs; ++j) {
    CHECK(j == 0 || r.log.values[j - 1] <= r.log.values[j]);
    CHECK(fabs(r.log.values[j] - r.d[j]) < 1e-12);
    CHECK(r.log.residuals[j] < 1e-6 && fabs(r.log.residuals[j] - norms[j]) < 1e-10);
  }

  double without[nPairs]; /* a monitor that only watches changes nothing, and can be removed */
  memcpy(without, r.d, sizeof(without));
  const int calls = r.log.calls;
  VesSolverSetMonitor(r.solver, NULL, NULL);
  solve(&r, generalized);
  CHECK(r.log.calls == calls && memcmp(without, r.d, sizeof(without)) == 0);
  closeRun(&r);
}

static void testMonitorEndsARun(int s) {
  Run r;
  openRun(&r, s);
  solve(&r, false);
  const int wholeIter = r.iter;
  VesSolverSetMonitor(r.solver, follow, &r.log);
  const struct {
    int at, stopRank; /* the last process is also the first when there is but one */
  } rows[] = {{0, 0}, {3, 0}, {0, size - 1}, {3, size - 1}};
  for (int i = 0; i < 4; ++i) {
    const bool ends = rows[i].stopRank == 0;
    r.log.calls = 0;
    r.log.stopAt = rows[i].at;
    r.log.stopRank = rows[i].stopRank;
    solve(&r, false);
    CHECK(r.code == 0 && r.reason == (ends ? VES_REASON_MONITOR : VES_REASON_CONVERGED));
    CHECK(r.iter == (ends ? rows[i].at : wholeIter) && r.log.last == r.iter);
    for (int j = 0; j < nPairs; ++j)
      CHECK(isfinite(r.d[j]));
  }
  closeRun(&r);
}

static void testMonitorOnSomeProcesses(int s) {
  Run r;
  openRun(&r, s);
  solve(&r, false);
  double before[nPairs];
  memcpy(before, r.d, sizeof(before));
  for (int lone = 0; size > 1 && lone < size; lone += size - 1) {
    VesSolverSetMonitor(r.solver, rank == lone ? follow : NULL, &r.log);
    solve(&r, false);
    CHECK(r.code == VES_ERR_MISMATCH && r.log.calls == 0);
    CHECK(memcmp(before, r.d, sizeof(before)) == 0);
  }
  closeRun(&r);
}

static void testCosts(int s, bool generalized) {
  Run r;
  openRun(&r, s);
  const VesSolverStats none = {0};
  VesSolverReason reason = 77;
  memset(&r.stats, 1, sizeof(r.stats));
  CHECK(VesGetSolverReason(r.solver, &reason) == 0 && reason == VES_REASON_NONE);
  CHECK(VesGetSolverStats(r.solver, &r.stats) == 0);
  CHECK(memcmp(&r.stats, &none, sizeof(none)) == 0);
  for (int run = 0; run < 2; ++run) { /* the second one starts from zero */
    solve(&r, generalized);
    const VesSolverStats* c = &r.stats;
    CHECK(c->columnsA == r.a.columns && c->columnsB == r.b.columns && c->columnsT == r.t.columns);
    CHECK(c->columnsA > 0 && c->columnsT > 0 && (c->columnsB > 0) == generalized);
    /* The checks before a run agree on their verdict in one more. */
    CHECK(c->reductions <= reductions && reductions <= c->reductions + 1);
    CHECK(c->bytesReduced <= bytesReduced && bytesReduced < c->bytesReduced + 64);
    CHECK(c->secondsOperators >= r.a.seconds + r.b.seconds + r.t.seconds - 1e-6);
    CHECK(c->secondsDense > 0 && c->secondsOperators + c->secondsDense <= c->secondsTotal);
  }
  closeRun(&r);
}

/* ------------------------------------------------------------------ reasons */

static void testReasons(int s) {
  Run r;
  double norms[nPairs], orthoError;
  openRun(&r, s);
  VesSolverSetMaxIter(r.solver, 3);
  solve(&r, false);
  CHECK(r.reason == VES_REASON_ITERATIONS && r.nConv < nPairs && r.iter >= 3);

  VesSolverSetMaxIter(r.solver, 2000);
  VesSolverSetThreshold(r.solver, 1e-17); /* below all rounding errors */
  solve(&r, true);
  CHECK(r.reason == VES_REASON_STAGNATED && r.nConv < nPairs && r.iter < 1000);
  recompute(&r, true, norms, &orthoError);
  for (int j = 0; j < nPairs; ++j)
    CHECK(norms[j] < 1e-12);
  closeRun(&r);
}

/* Which operator, at which of its calls, returns what on one process. */
static void testNonfinite(int s) {
  const struct {
    char op;
    int call;
    double entry;
  } rows[] = {{'A', 1, NAN}, {'A', 4, NAN},      {'A', 4, INFINITY}, {'B', 1, NAN},
              {'B', 4, NAN}, {'B', 4, INFINITY}, {'T', 2, NAN},      {'T', 2, INFINITY}};
  for (int i = 0; i < 8; ++i) {
    Run r;
    openRun(&r, s);
    snprintf(context, sizeof(context), "%s, call %d of %c: %g", solverNames[s], rows[i].call,
             rows[i].op, rows[i].entry);
    Tridiagonal* op = rows[i].op == 'A' ? &r.a : rows[i].op == 'B' ? &r.b : &r.t;
    op->spoilAt = rows[i].call;
    op->spoilRank = size - 1;
    op->spoiled = rows[i].entry;
    solve(&r, true);
    CHECK(r.code == 0 && r.reason == VES_REASON_NONFINITE && r.nConv < nPairs && r.iter < 50);
    closeRun(&r);
  }
}

/* Four pairs of a problem of three rows. */
static void testMissingRank(int s) {
  Run r;
  openRun(&r, s);
  r.n = size == 1 ? 3 : 1;
  if (size == 1 || size == 3) {
    VesVectorSetDim(r.X, r.n, nPairs);
    VesVectorDenseSetValues(r.X, r.x, r.n);
    solve(&r, false);
    CHECK(r.code == 0 && r.reason == VES_REASON_STAGNATED && r.nConv == 3);
    CHECK(fabs(r.d[0] - (2 - sqrt(2))) < 1e-12 && isinf(r.d[3]));
  }
  closeRun(&r);
}

/* ------------------------------------------------------------------ check of pairs */

static void testCheckEigenpairs(int s, bool generalized) {
  Run r;
  openRun(&r, s);
  solve(&r, generalized);
  const char* const spoiled[] = {"nothing", "a norm", "an overlap", "a value"};
  for (int i = 0; i < 4; ++i) {
    double norms[nPairs], mine = 0, myError, residual = -1, orthoError = -1;
    snprintf(context, sizeof(context), "%s, spoiled: %s", solverNames[s], spoiled[i]);
    for (int at = 0; at < r.n; ++at) {
      if (i == 1) r.x[3 * r.n + at] *= 1.001;
      if (i == 2) r.x[2 * r.n + at] += 0.01 * r.x[at];
    }
    if (i == 3) r.d[1] += 0.02;
    recompute(&r, generalized, norms, &myError);
    for (int j = 0; j < nPairs; ++j)
      mine = fmax(mine, norms[j]);
    CHECK(VesCheckEigenpairs(r.A, generalized ? r.B : NULL, r.X, r.D, &residual, &orthoError) == 0);
    CHECK(fabs(residual - mine) < 1e-13 && fabs(orthoError - myError) < 1e-13);
    CHECK(i > 0 || (residual < 1e-6 && orthoError < 1e-12));
  }
  const struct {
    int valueAt, spoilRank; /* a value, or an entry of one process */
  } rows[] = {{0, -1}, {3, -1}, {-1, 0}, {-1, size - 1}};
  for (int i = 0; i < 4; ++i) {
    double keptX = r.x[r.n + 1], keptD = 0, residual = 0, orthoError = 0;
    if (rows[i].valueAt >= 0) {
      keptD = r.d[rows[i].valueAt];
      r.d[rows[i].valueAt] = NAN;
    } else if (rank == rows[i].spoilRank)
      r.x[r.n + 1] = NAN;
    snprintf(context, sizeof(context), "%s, NaN %d", solverNames[s], i);
    CHECK(VesCheckEigenpairs(r.A, r.B, r.X, r.D, &residual, &orthoError) == 0);
    CHECK(isnan(residual) && isnan(orthoError) == (rows[i].valueAt < 0));
    r.x[r.n + 1] = keptX;
    if (rows[i].valueAt >= 0) r.d[rows[i].valueAt] = keptD;
  }
  closeRun(&r);
}

/* Everything is wrong at first, on the last process; mending one fault shows the next. */
static void testCodesOfCheck(void) {
  Run r;
  double residual = -1, orthoError = -1;
  openRun(&r, 0);
  solve(&r, false);
  VesMatrix bare = NULL;
  VesVector empty = NULL, other = NULL;
  VesMatrixCreate(&bare, VES_DOUBLE, VES_MATRIX_SHELL);
  VesVectorReplicate(r.X, &empty, false, false);
  VesVectorCreate(&other, VES_FLOAT, VES_VECTOR_DENSE);
  CHECK(VesCheckEigenpairs(NULL, NULL, r.X, r.D, NULL, NULL) == VES_ERR_INVALID_VALUE);
  CHECK(VesCheckEigenpairs(r.A, NULL, NULL, r.D, NULL, NULL) == VES_ERR_INVALID_VALUE);
  CHECK(VesCheckEigenpairs(r.A, NULL, r.X, NULL, NULL, NULL) == VES_ERR_INVALID_VALUE);
  CHECK(VesCheckEigenpairs(r.A, NULL, r.X, other, NULL, &orthoError) == VES_ERR_NULL_POINTER);
  CHECK(VesCheckEigenpairs(r.A, NULL, r.X, other, &residual, NULL) == VES_ERR_NULL_POINTER);
  const bool isHere = rank == size - 1;
  if (isHere) {
    VesVectorSetDim(r.D, nPairs - 1, 1);
    VesVectorDenseSetValues(r.X, r.x, r.n - 1);
  }
  const struct {
    const char* fault;
    VesMatrix A, B;
    VesVector X, D;
    VesReturnCode code;
  } rows[] = {{"D of floats", bare, bare, empty, other, VES_ERR_MISMATCH},
              {"no routine of A", bare, NULL, r.X, r.D, VES_ERR_NULL_POINTER},
              {"no routine of B", r.A, bare, r.X, r.D, VES_ERR_NULL_POINTER},
              {"X without storage", r.A, r.B, empty, r.D, VES_ERR_NULL_POINTER},
              {"ld below the rows", r.A, r.B, r.X, r.D, VES_ERR_INVALID_VALUE}};
  for (int i = 0; i < 5; ++i) {
    snprintf(context, sizeof(context), "%s", rows[i].fault);
    CHECK(VesCheckEigenpairs(isHere ? rows[i].A : r.A, isHere ? rows[i].B : r.B,
                             isHere ? rows[i].X : r.X, isHere ? rows[i].D : r.D, &residual,
                             &orthoError) == rows[i].code);
  }
  snprintf(context, sizeof(context), "beyond 32 bits");
  if (isHere) VesVectorDenseSetValues(r.X, r.x, INT_MAX / 2);
  CHECK(VesCheckEigenpairs(r.A, r.B, r.X, r.D, &residual, &orthoError) == VES_ERR_INVALID_VALUE);
  snprintf(context, sizeof(context), "D too short");
  VesVectorDenseSetValues(r.X, r.x, r.n);
  CHECK(VesCheckEigenpairs(r.A, r.B, r.X, r.D, &residual, &orthoError) == VES_ERR_INCOMPATIBLE);
  CHECK(residual == -1 && orthoError == -1);
  VesVectorDestroy(empty);
  VesVectorDestroy(other);
  VesMatrixDestroy(bare);
  closeRun(&r);
}

/* ------------------------------------------------------------------ setters */

static void testFortranCommunicators(void) {
  Run r;
  openRun(&r, 0);
  const MPI_Fint world = MPI_Comm_c2f(MPI_COMM_WORLD), self = MPI_Comm_c2f(MPI_COMM_SELF);
  CHECK(VesVectorSetComm_f(NULL, 2, MPI_Comm_c2f(MPI_COMM_NULL)) == VES_ERR_NULL_POINTER);
  CHECK(VesVectorSetComm_f(r.X, 2, MPI_Comm_c2f(MPI_COMM_NULL)) == VES_ERR_INVALID_VALUE);
  CHECK(VesVectorSetComm_f(r.X, 2, self) == VES_ERR_UNSUPPORTED);
  /* A run takes X and D only on the same communicators. */
  const MPI_Comm given[2] = {MPI_COMM_SELF, MPI_COMM_WORLD}; /* other than those at creation */
  r.a.off = 0;
  for (int slot = 0; slot < 2; ++slot) {
    CHECK(VesVectorSetComm(r.D, slot, given[slot]) == 0);
    solve(&r, false);
    CHECK(r.code == VES_ERR_MISMATCH);
    CHECK(VesVectorSetComm_f(r.X, slot, slot == 0 ? self : world) == 0);
    solve(&r, false);
    CHECK(r.code == VES_GOOD);
  }
  closeRun(&r);
}

static void testCodesOfSetters(int s) {
  Run r;
  openRun(&r, s);
  VesSolverReason reason = 77;
  VesSolverStats stats;
  size_t bytes = 5;
  CHECK(VesGetSolverReason(NULL, &reason) == VES_ERR_NULL_POINTER && reason == 77);
  CHECK(VesGetSolverReason(r.solver, NULL) == VES_ERR_NULL_POINTER);
  CHECK(VesGetSolverStats(NULL, &stats) == VES_ERR_NULL_POINTER);
  CHECK(VesGetSolverStats(r.solver, NULL) == VES_ERR_NULL_POINTER);
  CHECK(VesSolverSetMonitor(NULL, follow, NULL) == VES_ERR_NULL_POINTER);
  CHECK(VesSolverSetSelfCheck(NULL, true) == VES_ERR_NULL_POINTER);
  CHECK(VesSolverSetLockFactor(NULL, 2) == VES_ERR_NULL_POINTER);
  CHECK(VesSolverSetLockDetectorType(NULL, 4) == VES_ERR_NULL_POINTER);
  CHECK(VesSolverSetRankRevealerType(NULL, 2) == VES_ERR_NULL_POINTER);
  CHECK(VesSolverMemory(NULL, -1, -1, false, &bytes) == VES_ERR_NULL_POINTER);
  CHECK(VesSolverMemory(r.solver, -1, -1, false, NULL) == VES_ERR_NULL_POINTER);
  CHECK(VesSolverMemory(r.solver, -1, 1, false, &bytes) == VES_ERR_INVALID_VALUE);
  CHECK(VesSolverMemory(r.solver, 1, -1, false, &bytes) == VES_ERR_INVALID_VALUE && bytes == 5);
  CHECK(VesSolverMemory(r.solver, 0, 0, false, &bytes) == 0);

  /* None of the refused values may show in the run: it is the same as with the defaults. */
  const double factors[] = {-0.01, 1.01, NAN};
  double untouched[nPairs];
  solve(&r, false);
  memcpy(untouched, r.d, sizeof(untouched));
  const long long columns = r.stats.columnsA;
  for (int i = 0; i < 3; ++i)
    CHECK(VesSolverSetLockFactor(r.solver, factors[i]) == VES_ERR_INVALID_VALUE);
  for (int kind = -1; kind < 6; ++kind) {
    if (kind < 0 || kind > VES_RESIDUALS_OR_EIGENVALUES)
      CHECK(VesSolverSetLockDetectorType(r.solver, (VesConvergeDetectorType)kind) ==
            VES_ERR_UNSUPPORTED);
    if (kind < 0 || kind > VES_SVD_QR)
      CHECK(VesSolverSetRankRevealerType(r.solver, (VesOrthogonalizerType)kind) ==
            VES_ERR_UNSUPPORTED);
    else
      CHECK(VesSolverSetRankRevealerType(r.solver, (VesOrthogonalizerType)kind) ==
            0); /* no step uses it */
  }
  /* What is the solver's own choice may be chosen. */
  CHECK(VesSolverSetLockDetectorType(r.solver, VES_RESIDUALS) == 0);
  CHECK(VesSolverSetLockFactor(r.solver, 0.01) == 0);
  solve(&r, false);
  CHECK(r.stats.columnsA == columns && memcmp(untouched, r.d, sizeof(untouched)) == 0);
  closeRun(&r);
}

static void testLocking(int s) {
  Run r;
  openRun(&r, s);
  VesSolverSetMonitor(r.solver, follow, &r.log);
  solve(&r, false);
  const long long columns = r.stats.columnsA;
  const struct {
    double factor;
    VesConvergeDetectorType type;
    bool locks;
  } rows[] = {{0, VES_RESIDUALS, false}, /* no norm is below 0 */
              {1, VES_RESIDUALS, true},
              {1, VES_RELATIVE_RESIDUALS, false}}; /* the lowest values are far below 1 */
  for (int i = 0; i < 3; ++i) {
    snprintf(context, sizeof(context), "%s, locking %d", solverNames[s], i);
    r.log.calls = r.log.mostLocked = r.log.locked = 0;
    CHECK(VesSolverSetLockDetectorType(r.solver, rows[i].type) == 0);
    CHECK(VesSolverSetLockFactor(r.solver, rows[i].factor) == 0);
    solve(&r, false);
    CHECK(r.code == 0 && r.nConv == nPairs && (r.log.mostLocked > 0) == rows[i].locks);
    CHECK(!rows[i].locks || r.stats.columnsA <= columns);
  }
  closeRun(&r);
}

static void testSelfCheckLeavesSoundRunsAlone(int s, bool generalized) {
  static Run on, off;
  openRun(&on, s);
  openRun(&off, s);
  CHECK(VesSolverSetSelfCheck(off.solver, false) == 0);
  solve(&on, generalized);
  solve(&off, generalized);
  CHECK(on.nConv == nPairs && on.iter == off.iter && off.nConv == nPairs);
  CHECK(memcmp(on.d, off.d, sizeof(on.d)) == 0 && memcmp(on.x, off.x, sizeof(on.x)) == 0);
  CHECK(off.stats.reductions < on.stats.reductions); /* what the checks cost */
  closeRun(&on);
  closeRun(&off);
}

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &size);
  testTexts();
  testCodesOfCheck();
  testFortranCommunicators();
  for (int s = 0; s < 3; ++s) {
    for (int generalized = 0; generalized < 2; ++generalized) {
      testMonitorOfAWholeRun(s, generalized != 0);
      testCosts(s, generalized != 0);
      testCheckEigenpairs(s, generalized != 0);
      testSelfCheckLeavesSoundRunsAlone(s, generalized != 0);
    }
    testMonitorEndsARun(s);
    testMonitorOnSomeProcesses(s);
    testReasons(s);
    testNonfinite(s);
    testMissingRank(s);
    testCodesOfSetters(s);
    testLocking(s);
  }
  PMPI_Allreduce(MPI_IN_PLACE, &failures, 1, MPI_INT, MPI_SUM, MPI_COMM_WORLD);
  if (rank == 0) printf("%d failed checks\n", failures);
  MPI_Finalize();
  return failures == 0 ? 0 : 1;
}
