#include "entries.h"

#include "parallel.h"

#include <algorithm>
#include <limits>
#include <numeric>
#include <tuple>

namespace VesTools {
namespace {

template <typename Scalar>
bool IsBefore(const Entry<Scalar>& a, const Entry<Scalar>& b) {
  return std::tie(a.row, a.column) < std::tie(b.row, b.column);
}

template <typename Scalar>
bool IsSamePlace(const Entry<Scalar>& a, const Entry<Scalar>& b) {
  return a.row == b.row && a.column == b.column;
}

/// How many items go to every process and where they begin.
struct Parts {
  explicit Parts(std::size_t processes) : counts(processes, 0), begins(processes, 0) {}
  void SetBegins() { std::partial_sum(counts.begin(), counts.end() - 1, begins.begin() + 1); }
  std::vector<int> counts, begins;
};

} // namespace

std::string Place(int row, int column) {
  return "(" + std::to_string(row + 1) + ", " + std::to_string(column + 1) + ")";
}

int OwnerOf(int row, const RowOffsets& offsets) {
  return static_cast<int>(std::upper_bound(offsets.begin(), offsets.end(), row) - offsets.begin()) -
         1;
}

RowOffsets EvenRows(int rows, int processes) {
  RowOffsets offsets;
  for (long long r = 0; r <= processes; ++r)
    offsets.push_back(static_cast<int>(rows * r / processes));
  return offsets;
}

template <typename Scalar>
void Order(std::vector<Entry<Scalar>>& entries) {
  if (!std::is_sorted(entries.begin(), entries.end(), IsBefore<Scalar>))
    std::sort(entries.begin(), entries.end(), IsBefore<Scalar>);
}

// One MPI_Reduce for the rows of each process, which need no room on the others for longer.
template <typename Scalar>
std::vector<long long> CountByRows(const std::vector<Entry<Scalar>>& entries,
                                   const RowOffsets& offsets, MPI_Comm comm) {
  std::vector<long long> counts, own;
  auto entry = entries.begin();
  for (int r = 0; r < Size(comm); ++r) {
    const int first = offsets[static_cast<std::size_t>(r)];
    const int last = offsets[static_cast<std::size_t>(r) + 1];
    counts.assign(static_cast<std::size_t>(last - first), 0);
    for (; entry != entries.end() && entry->row < last; ++entry)
      ++counts[static_cast<std::size_t>(entry->row - first)];
    if (r == Rank(comm)) own.resize(counts.size());
    MPI_Reduce(counts.data(), own.data(), last - first, MPI_LONG_LONG, MPI_SUM, r, comm);
  }
  return own;
}

RowOffsets BalancedRows(std::vector<long long> counts, const RowOffsets& even, MPI_Comm comm) {
  const int size = Size(comm), first = even[static_cast<std::size_t>(Rank(comm))];
  std::vector<long long> weight = std::move(counts);
  for (long long& w : weight)
    ++w;
  std::partial_sum(weight.begin(), weight.end(), weight.begin());
  const long long mine = weight.empty() ? 0 : weight.back(), all = Sum(mine, comm);
  long long before = 0;
  MPI_Exscan(&mine, &before, 1, MPI_LONG_LONG, MPI_SUM, comm);
  if (Rank(comm) == 0) before = 0;
  // Each place that parts the weights lies in the rows of one process.
  RowOffsets offsets(even.size(), 0);
  for (int r = 1; r < size; ++r) {
    const long long share = all / size * r + all % size * r / size - before;
    if (share < 0 || share >= mine) continue;
    const auto end = std::upper_bound(weight.begin(), weight.end(), share);
    offsets[static_cast<std::size_t>(r)] = first + static_cast<int>(end - weight.begin());
  }
  offsets.back() = even.back();
  MPI_Allreduce(MPI_IN_PLACE, offsets.data(), size + 1, MPI_INT, MPI_MAX, comm);
  return offsets;
}

// MPI_Alltoall, AgreeOn, MPI_Alltoallv.
template <typename Scalar>
void GatherRows(std::vector<Entry<Scalar>>& entries, const RowOffsets& offsets, MPI_Comm comm) {
  Order(entries);
  if (Size(comm) == 1) return;
  Parts sent(offsets.size() - 1), received(offsets.size() - 1);
  for (const Entry<Scalar>& entry : entries)
    ++sent.counts[static_cast<std::size_t>(OwnerOf(entry.row, offsets))];
  MPI_Alltoall(sent.counts.data(), 1, MPI_INT, received.counts.data(), 1, MPI_INT, comm);
  const long long total = std::accumulate(received.counts.begin(), received.counts.end(), 0LL);
  constexpr long long most = std::numeric_limits<int>::max();
  const bool fits = total <= most && static_cast<long long>(entries.size()) <= most;
  AgreeOn(fits ? "" : "a process would hold more than 2^31 entries: use more processes", exitInput,
          comm);
  std::vector<Entry<Scalar>> result(static_cast<std::size_t>(total));
  sent.SetBegins();
  received.SetBegins();
  MPI_Datatype type = MPI_DATATYPE_NULL;
  MPI_Type_contiguous(sizeof(Entry<Scalar>), MPI_BYTE, &type);
  MPI_Type_commit(&type);
  MPI_Alltoallv(entries.data(), sent.counts.data(), sent.begins.data(), type, result.data(),
                received.counts.data(), received.begins.data(), type, comm);
  MPI_Type_free(&type);
  entries = std::move(result);
  Order(entries);
}

template <typename Scalar>
void MoveToOwners(EntryList<Scalar>& matrix, const RowOffsets& offsets, MPI_Comm comm) {
  GatherRows(matrix.entries, offsets, comm);
  const auto twice =
      std::adjacent_find(matrix.entries.begin(), matrix.entries.end(), IsSamePlace<Scalar>);
  std::string complaint;
  if (twice != matrix.entries.end())
    complaint = matrix.name + ": entry " + Place(twice->row, twice->column) + " is given twice" +
                (matrix.isHermitian && twice->row != twice->column
                     ? " (a file of one triangle must not hold the other)"
                     : "");
  AgreeOn(complaint, exitInput, comm);
}

#define VES_INSTANTIATE_ENTRIES(Scalar)                                                            \
  template void Order(std::vector<Entry<Scalar>>&);                                                \
  template std::vector<long long> CountByRows(const std::vector<Entry<Scalar>>&,                   \
                                              const RowOffsets&, MPI_Comm);                        \
  template void GatherRows(std::vector<Entry<Scalar>>&, const RowOffsets&, MPI_Comm);              \
  template void MoveToOwners(EntryList<Scalar>&, const RowOffsets&, MPI_Comm);
VES_INSTANTIATE_ENTRIES(double)
VES_INSTANTIATE_ENTRIES(std::complex<double>)

} // namespace VesTools
