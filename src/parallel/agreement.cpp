#include "agreement.h"

namespace Ves {

VesReturnCode AgreeOn(VesReturnCode verdict, const std::vector<int>& numbers, MPI_Comm comm) {
  std::vector<int> maxima{-static_cast<int>(verdict)};
  for (const int number : numbers) {
    maxima.push_back(number);
    maxima.push_back(~number); // falls where the number grows, and fits for every int
  }
  MPI_Allreduce(MPI_IN_PLACE, maxima.data(), static_cast<int>(maxima.size()), MPI_INT, MPI_MAX,
                comm);
  for (std::size_t i = 1; i < maxima.size() && maxima[0] == 0; i += 2)
    if (maxima[i] != ~maxima[i + 1]) return VES_ERR_MISMATCH;
  return static_cast<VesReturnCode>(-maxima[0]);
}

VesReturnCode AgreeOnLargest(VesReturnCode verdict, int& number, MPI_Comm comm) {
  int maxima[] = {-static_cast<int>(verdict), number};
  MPI_Allreduce(MPI_IN_PLACE, maxima, 2, MPI_INT, MPI_MAX, comm);
  number = maxima[1];
  return static_cast<VesReturnCode>(-maxima[0]);
}

bool HaveSameProcesses(MPI_Comm a, MPI_Comm b) {
  int result = MPI_UNEQUAL;
  MPI_Comm_compare(a, b, &result);
  return result == MPI_IDENT || result == MPI_CONGRUENT;
}

} // namespace Ves
