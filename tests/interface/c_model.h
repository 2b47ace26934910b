/* The model problem of the tests from C: tridiag(-1, 2, -1), with mass matrix tridiag(1, 4, 1) / 6 in
   generalized problems. The rows grow with the rank. */
#ifndef VES_TESTS_INTERFACE_C_MODEL_H
#define VES_TESTS_INTERFACE_C_MODEL_H

#include <ves.h>

enum { nPairs = 4, nTotal = 120, nMost = nTotal };

extern int failures, rank, size;
extern const VesSolverType solvers[3];
extern const char* const solverNames[3];
extern char context[80]; /* the case that is being tested */

void fail(int line, const char* condition);

#define CHECK(condition)                                                                           \
  do {                                                                                             \
    if (!(condition)) fail(__LINE__, #condition);                                                  \
  } while (0)

typedef struct Tridiagonal {
  double diagonal, off;
  long long columns;      /* that it was applied to on this process */
  double seconds;         /* in this routine */
  int spoilAt, spoilRank; /* first call that returns the spoiled entry, where */
  double spoiled;
  int calls;
} Tridiagonal;

void apply(void* data, void* xv, void* yv, int n, int k, int ld);

typedef struct Log {
  int calls, last;       /* of the monitor, and the iteration of the last one */
  int stopAt, stopRank;  /* where it answers that the run is to end */
  int mostLocked;        /* before the last call */
  int locked, converged; /* at the last call */
  double values[nPairs], residuals[nPairs];
  const Tridiagonal* A;
} Log;

/* A monitor with a Log as its data. */
int follow(void* data, const VesProgress* at);

/* A solver with its operators and blocks. */
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

VesMatrix newOperator(Tridiagonal* op);
VesVector newBlock(int n, int k, double* values, int ld);
void openRun(Run* r, int s);
void solve(Run* r, bool generalized);
void closeRun(Run* r);

/* Residual norms of all pairs, and the largest entry of |X^T B X - I|. */
void recompute(Run* r, bool generalized, double* norms, double* orthoError);

/* In report_codes.c: the check of pairs, and the setters. */
void testCheckAndSetters(void);

#endif
