#ifndef VES_TOOLS_TIMED_OPERATOR_H
#define VES_TOOLS_TIMED_OPERATOR_H

#include "error.h"
#include "problem.h"

#include <mpi.h>
#include <ves.hpp>

#include <cstdio>
#include <exception>

namespace VesTools {

/// The routine as the library calls it; seconds is what it took and outlives it.
template <typename Scalar>
auto Timed(const BlockOperator<Scalar>& apply, double& seconds) {
  return [apply, &seconds](auto x, auto y) {
    const double start = MPI_Wtime();
    try {
      apply(x.data(), y.data(), x.cols(), x.ld());
    } catch (const std::exception& error) { // other processes may wait for the rest of it
      std::fprintf(stderr, "ves: %s\n", error.what());
      MPI_Abort(MPI_COMM_WORLD, exitInternal);
    }
    seconds += MPI_Wtime() - start;
  };
}

/// The operator of the library, none for an empty routine.
template <typename Scalar>
ves::Operator<Scalar> TimedOperator(const BlockOperator<Scalar>& apply, double& seconds,
                                    const BlockOperator<Low<Scalar>>& low = nullptr) {
  if (!apply) return {};
  ves::Operator<Scalar> made(Timed(apply, seconds));
  if (low) made.setLow(Timed(low, seconds));
  return made;
}

} // namespace VesTools

#endif
