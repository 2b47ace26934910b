#include "mpi_meter.h"

MpiMeter mpiMeter = {0};

static void note(char kind, int count, MPI_Datatype type, MPI_Comm comm) {
  if (mpiMeter.note) mpiMeter.note(kind, count, type, comm);
}

static int countMade(int code, const MPI_Comm* made) {
  if (code == MPI_SUCCESS && *made != MPI_COMM_NULL) {
    ++mpiMeter.commsMade;
    ++mpiMeter.commsAlive;
  }
  return code;
}

int MPI_Allreduce(const void* from, void* to, int count, MPI_Datatype type, MPI_Op op,
                  MPI_Comm comm) {
  int bytes = 0;
  PMPI_Type_size(type, &bytes);
  ++mpiMeter.reductions;
  mpiMeter.bytesReduced += (long long)count * bytes;
  note('r', count, type, comm);
  return PMPI_Allreduce(from, to, count, type, op, comm);
}
int MPI_Bcast(void* data, int count, MPI_Datatype type, int root, MPI_Comm comm) {
  note('b', count, type, comm);
  return PMPI_Bcast(data, count, type, root, comm);
}
int MPI_Reduce(const void* from, void* to, int count, MPI_Datatype type, MPI_Op op, int root,
               MPI_Comm comm) {
  note('o', count, type, comm);
  return PMPI_Reduce(from, to, count, type, op, root, comm);
}
int MPI_Barrier(MPI_Comm comm) {
  note('w', 0, MPI_BYTE, comm);
  return PMPI_Barrier(comm);
}
int MPI_Comm_dup(MPI_Comm comm, MPI_Comm* made) {
  note('d', 0, MPI_BYTE, comm);
  return countMade(PMPI_Comm_dup(comm, made), made);
}
int MPI_Comm_create(MPI_Comm comm, MPI_Group group, MPI_Comm* made) {
  note('c', 0, MPI_BYTE, comm);
  return countMade(PMPI_Comm_create(comm, group, made), made);
}
int MPI_Comm_split(MPI_Comm comm, int color, int key, MPI_Comm* made) {
  note('s', 0, MPI_BYTE, comm);
  return countMade(PMPI_Comm_split(comm, color, key, made), made);
}
int MPI_Comm_free(MPI_Comm* comm) {
  note('f', 0, MPI_BYTE, *comm);
  --mpiMeter.commsAlive;
  return PMPI_Comm_free(comm);
}
