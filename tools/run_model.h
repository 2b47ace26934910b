// What an iteration costs on many processes, by formulas in the widths of its blocks.
#ifndef VES_TOOLS_RUN_MODEL_H
#define VES_TOOLS_RUN_MODEL_H

#include <ves.h>

#include <vector>

namespace VesTools {

/// What one process, on a core of its own, does in a second, and how it talks to the others.
struct Machine {
  double latency = 0.0;   ///< seconds until a message arrives
  double bandwidth = 0.0; ///< bytes a second of a message
  double memory = 0.0;    ///< bytes a second read or written by products on tall blocks
  double flops = 0.0;     ///< operations a second of these products
  double dense = 0.0;     ///< operations a second of small eigenproblems
  double row = 0.0;       ///< seconds that A and T take for one row of a column
};

/// An iteration whose active columns all have a residual and a direction.
struct RunShape {
  VesSolverType solver = VES_LOBPCG;
  double order = 0.0;  ///< rows of all processes
  double active = 0.0; ///< columns of X
  double locked = 0.0; ///< columns before them
  double block = 0.0;  ///< columns of a sub-block of PPCG
  double period = 5.0; ///< iterations from one full step of PPCG to the next
  int passes = 1;      ///< of orthogonalization, at most
  bool hasT = false, hasB = false, isComplex = false;
};

/// A reduction to all processes, or a broadcast.
struct Collective {
  const char* of = "";
  double count = 0.0; ///< an iteration
  double bytes = 0.0; ///< of one
};

/// Of all collectives in a list.
struct CollectiveSums {
  double count = 0.0, bytes = 0.0;
};
CollectiveSums SumsOf(const std::vector<Collective>& collectives);

struct DenseProblem {
  double count = 0.0; ///< an iteration, on every process
  double order = 0.0;
};

/// Of an iteration, real additions and multiplications and bytes of all processes together.
struct Counts {
  double columns = 0.0;         ///< that A and T are applied to
  double operations = 0.0;      ///< of products on tall blocks
  double bytesMoved = 0.0;      ///< between memory and these products
  double operationsOfOne = 1.0; ///< real ones of an operation with its numbers
  std::vector<DenseProblem> dense;
  std::vector<Collective> reductions, broadcasts;

  double DenseOperations() const; ///< on every process
};

Counts CountsOf(const RunShape& shape);

/// Seconds of an iteration.
struct Cost {
  double operators = 0.0, products = 0.0, dense = 0.0;
  double collectives = 0.0; ///< reductions and broadcasts

  double Total() const { return operators + products + dense + collectives; }
  void Add(const Cost& other, double weight);
};

/// Rows are shared equally; dense problems are solved by every process for itself.
Cost CostOf(const RunShape& shape, const Machine& machine, int processes);

/// Of an iteration in the mean over those of a run.
Cost MeanCostOf(const std::vector<RunShape>& course, const Machine& machine, int processes);

/// Of one collective, where the shorter way is taken: each step carries all of it, or it goes by
/// halves and back.
double SecondsOfCollective(double bytes, const Machine& machine, int processes);

/// 1, 2, 4, ... and 10,000.
const std::vector<int>& ForecastProcesses();

} // namespace VesTools

#endif
