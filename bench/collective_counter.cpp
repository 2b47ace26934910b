// Stands between the library and MPI by the profiling interface: every program that links this file
// counts.
#include "collective_counter.h"

#include <mpi.h>

#include <cstdlib>

namespace {

VesBench::Collectives counted;

/// Spins: a process that sleeps comes late by more than such times.
void Delay() {
  static const char* const text = std::getenv("VES_BENCH_DELAY_US");
  static const double seconds = text != nullptr ? 1e-6 * std::atof(text) : 0.0;
  if (seconds <= 0.0) return;
  for (const double start = PMPI_Wtime(); PMPI_Wtime() - start < seconds;) {
  }
}

/// After a collective on comm.
void Note(long long& kind, std::map<long long, long long>& bySize, int count, MPI_Datatype type,
          MPI_Comm comm) {
  int size = 0, bytes = 0;
  PMPI_Comm_size(comm, &size);
  if (size < 2) return;
  PMPI_Type_size(type, &bytes);
  ++kind;
  ++bySize[static_cast<long long>(count) * bytes];
  Delay();
}

} // namespace

extern "C" {

int MPI_Allreduce(const void* send, void* receive, int count, MPI_Datatype type, MPI_Op op,
                  MPI_Comm comm) {
  const int code = PMPI_Allreduce(send, receive, count, type, op, comm);
  Note(counted.reductions, counted.reductionsBySize, count, type, comm);
  return code;
}

int MPI_Bcast(void* buffer, int count, MPI_Datatype type, int root, MPI_Comm comm) {
  const int code = PMPI_Bcast(buffer, count, type, root, comm);
  Note(counted.broadcasts, counted.broadcastsBySize, count, type, comm);
  return code;
}

} // extern "C"

namespace VesBench {

Collectives CountedCollectives() {
  return counted;
}

} // namespace VesBench
