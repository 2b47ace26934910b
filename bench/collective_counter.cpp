// Stands between the library and MPI by the profiling interface: every program that links this file
// counts.
#include "collective_counter.h"

#include <mpi.h>

namespace {

VesBench::Collectives counted;

bool HasOthers(MPI_Comm comm) {
  int size = 0;
  PMPI_Comm_size(comm, &size);
  return size > 1;
}

} // namespace

extern "C" {

int MPI_Allreduce(const void* send, void* receive, int count, MPI_Datatype type, MPI_Op op,
                  MPI_Comm comm) {
  if (HasOthers(comm)) ++counted.reductions;
  return PMPI_Allreduce(send, receive, count, type, op, comm);
}

int MPI_Bcast(void* buffer, int count, MPI_Datatype type, int root, MPI_Comm comm) {
  if (HasOthers(comm)) ++counted.broadcasts;
  return PMPI_Bcast(buffer, count, type, root, comm);
}

} // extern "C"

namespace VesBench {

Collectives CountedCollectives() {
  return counted;
}

} // namespace VesBench
