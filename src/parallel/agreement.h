#ifndef VES_PARALLEL_AGREEMENT_H
#define VES_PARALLEL_AGREEMENT_H

#include <mpi.h>
#include <ves.h>

#include <vector>

namespace Ves {

/// The worst verdict of all processes, or -5 where they do not agree on these numbers, so that none
/// starts what another has refused, or waits for an answer. Collective over comm: one reduction,
/// which no meter counts, of as many numbers on every process.
VES_EXPORT VesReturnCode AgreeOn(VesReturnCode verdict, const std::vector<int>& numbers,
                                 MPI_Comm comm);

/// The worst verdict, and a number becomes the largest of all processes, in one such reduction.
VES_EXPORT VesReturnCode AgreeOnLargest(VesReturnCode verdict, int& number, MPI_Comm comm);

/// The communicators are of the same processes in the same order: sums over one are sums over the
/// other. Local.
VES_EXPORT bool HaveSameProcesses(MPI_Comm a, MPI_Comm b);

} // namespace Ves

#endif
