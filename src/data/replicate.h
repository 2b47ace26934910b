#ifndef VES_DATA_REPLICATE_H
#define VES_DATA_REPLICATE_H

#include "../parallel/mpi_wrapper.h"
#include "vector_base.h"

namespace Ves {

/// Values of process 0 for all: over the rows, then over the second communicator, whose processes
/// hold replicas that may deal their rows out differently and so differ in rounding. Collective
/// over both.
template <typename Value>
void Replicate(Value* values, int count, MPI_Comm rowComm, MPI_Comm secondComm) {
  for (const MPI_Comm comm : {rowComm, secondComm})
    MPI_Bcast(values, count, MpiType<Value>(), 0, comm);
}

/// The same over the communicators of a block, for a number or for all of the block.
template <typename Value>
void Replicate(Value& value, const VesVectorBase& block) {
  Replicate(&value, 1, block.comm, block.auxComm);
}
inline void Replicate(VesVectorBase& block) {
  for (const MPI_Comm comm : {block.comm, block.auxComm})
    block.BroadCast(comm);
}

} // namespace Ves

#endif
