#include "parallel.h"

namespace VesTools {
namespace {

std::string BroadcastFrom(int root, std::string text, MPI_Comm comm) {
  auto length = static_cast<int>(text.size());
  MPI_Bcast(&length, 1, MPI_INT, root, comm);
  text.resize(static_cast<std::size_t>(length));
  MPI_Bcast(text.data(), length, MPI_CHAR, root, comm);
  return text;
}

} // namespace

int Rank(MPI_Comm comm) {
  int rank = 0;
  MPI_Comm_rank(comm, &rank);
  return rank;
}

int Size(MPI_Comm comm) {
  int size = 0;
  MPI_Comm_size(comm, &size);
  return size;
}

long long Sum(long long value, MPI_Comm comm) {
  MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_LONG_LONG, MPI_SUM, comm);
  return value;
}

double Sum(double value, MPI_Comm comm) {
  MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_DOUBLE, MPI_SUM, comm);
  return value;
}

double Largest(double value, MPI_Comm comm) {
  MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_DOUBLE, MPI_MAX, comm);
  return value;
}

std::string Broadcast(const std::string& text, MPI_Comm comm) {
  return BroadcastFrom(0, text, comm);
}

void AgreeOn(const std::string& complaint, ExitCode code, MPI_Comm comm) {
  const int size = Size(comm);
  int first = complaint.empty() ? size : Rank(comm);
  MPI_Allreduce(MPI_IN_PLACE, &first, 1, MPI_INT, MPI_MIN, comm);
  if (first < size) throw Error(code, BroadcastFrom(first, complaint, comm));
}

} // namespace VesTools
