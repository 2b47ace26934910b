#ifndef SILICON_COMMUNICATOR_H
#define SILICON_COMMUNICATOR_H

#include <mpi.h>

namespace silicon {

/// The processes of a communicator that are members of a group, in the same order; MPI_COMM_NULL
/// on all others. Construction is collective over the parent, destruction over the group.
class Communicator {
public:
  Communicator(MPI_Comm parent, bool member) {
    MPI_Comm_split(parent, member ? 0 : MPI_UNDEFINED, 0, &comm_);
  }
  ~Communicator() {
    if (comm_ != MPI_COMM_NULL) MPI_Comm_free(&comm_);
  }
  Communicator(const Communicator&) = delete;
  Communicator& operator=(const Communicator&) = delete;

  MPI_Comm Get() const { return comm_; }

private:
  MPI_Comm comm_ = MPI_COMM_NULL;
};

inline int Rank(MPI_Comm comm) {
  int rank = 0;
  MPI_Comm_rank(comm, &rank);
  return rank;
}

inline int Size(MPI_Comm comm) {
  int size = 0;
  MPI_Comm_size(comm, &size);
  return size;
}

} // namespace silicon

#endif
