#ifndef VES_BENCH_COLLECTIVE_COUNTER_H
#define VES_BENCH_COLLECTIVE_COUNTER_H

namespace VesBench {

/// Collectives that this process took part in with at least one other, so far.
struct Collectives {
  long long reductions = 0; ///< MPI_Allreduce
  long long broadcasts = 0; ///< MPI_Bcast
};

Collectives CountedCollectives();

} // namespace VesBench

#endif
