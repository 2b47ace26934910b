/* The check of pairs, and the setters beyond those of the class interface's defaults. */
#include "c_model.h"

#include <limits.h>
#include <math.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

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
  size_t bytes = 5;
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

void testCheckAndSetters(void) {
  testCodesOfCheck();
  testFortranCommunicators();
  for (int s = 0; s < 3; ++s) {
    for (int generalized = 0; generalized < 2; ++generalized) {
      testCheckEigenpairs(s, generalized != 0);
      testSelfCheckLeavesSoundRunsAlone(s, generalized != 0);
    }
    testCodesOfSetters(s);
    testLocking(s);
  }
}
