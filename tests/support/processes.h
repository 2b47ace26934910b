// The processes of a job, parts of them, and what they agree on.
#ifndef VES_TESTS_SUPPORT_PROCESSES_H
#define VES_TESTS_SUPPORT_PROCESSES_H

#include <mpi.h>

#include <cstring>
#include <vector>

namespace VesTest {

inline const MPI_Comm world = MPI_COMM_WORLD, self = MPI_COMM_SELF;

inline int RankIn(MPI_Comm comm) {
  int rank = 0;
  MPI_Comm_rank(comm, &rank);
  return rank;
}

inline int SizeOf(MPI_Comm comm) {
  int size = 0;
  MPI_Comm_size(comm, &size);
  return size;
}

/// The processes of one color, in the order of their keys; none of MPI_UNDEFINED.
struct Part {
  MPI_Comm comm = MPI_COMM_NULL;

  explicit Part(int color, int key = 0, MPI_Comm of = world) {
    MPI_Comm_split(of, color, key, &comm);
  }
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;
  ~Part() {
    if (comm != MPI_COMM_NULL) MPI_Comm_free(&comm);
  }
  operator MPI_Comm() const { return comm; }
};

/// The bytes are those of process 0 of comm.
template <typename T>
bool IsSameOver(MPI_Comm comm, const std::vector<T>& here) {
  std::vector<T> there = here;
  const std::size_t bytes = here.size() * sizeof(T);
  PMPI_Bcast(there.data(), static_cast<int>(bytes), MPI_BYTE, 0, comm);
  return bytes == 0 || std::memcmp(there.data(), here.data(), bytes) == 0;
}

} // namespace VesTest

#endif
