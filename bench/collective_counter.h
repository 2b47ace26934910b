#ifndef VES_BENCH_COLLECTIVE_COUNTER_H
#define VES_BENCH_COLLECTIVE_COUNTER_H

#include <map>

namespace VesBench {

/// Collectives that this process took part in with at least one other, so far.
struct Collectives {
  long long reductions = 0;                                              ///< MPI_Allreduce
  long long broadcasts = 0;                                              ///< MPI_Bcast
  std::map<long long, long long> reductionsBySize{}, broadcastsBySize{}; ///< by their bytes
};

/// Each of them takes VES_BENCH_DELAY_US microseconds longer, where the environment has that: a
/// network of that latency.
Collectives CountedCollectives();

} // namespace VesBench

#endif
