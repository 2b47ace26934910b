/* What a run says of itself: version and texts, monitor, costs, and the reason why it ended. */
#include "c_model.h"

#include "../support/mpi_meter.h"

#include <math.h>
#include <stdio.h>
#include <string.h>

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
    /* The checks before a run agree on their verdict in one more, its processes on memory in two. */
    CHECK(c->reductions <= mpiMeter.reductions && mpiMeter.reductions <= c->reductions + 3);
    CHECK(c->bytesReduced <= mpiMeter.bytesReduced &&
          mpiMeter.bytesReduced < c->bytesReduced + 256);
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

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  MPI_Comm_size(MPI_COMM_WORLD, &size);
  testTexts();
  testCheckAndSetters();
  for (int s = 0; s < 3; ++s) {
    for (int generalized = 0; generalized < 2; ++generalized) {
      testMonitorOfAWholeRun(s, generalized != 0);
      testCosts(s, generalized != 0);
    }
    testMonitorEndsARun(s);
    testMonitorOnSomeProcesses(s);
    testReasons(s);
    testNonfinite(s);
    testMissingRank(s);
  }
  PMPI_Allreduce(MPI_IN_PLACE, &failures, 1, MPI_INT, MPI_SUM, MPI_COMM_WORLD);
  if (rank == 0) printf("%d failed checks\n", failures);
  MPI_Finalize();
  return failures == 0 ? 0 : 1;
}
