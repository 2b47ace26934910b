#include "entries.h"

#include "parallel.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>
#include <sstream>
#include <tuple>

namespace VesTools {
namespace {

// Entries of A and of its conjugate transpose may differ by this part of the largest entry.
constexpr double hermitianTolerance = 1e-12;

bool IsBefore(const Entry& a, const Entry& b) {
  return std::tie(a.row, a.column) < std::tie(b.row, b.column);
}

bool IsSamePlace(const Entry& a, const Entry& b) {
  return a.row == b.row && a.column == b.column;
}

std::string Place(const Entry& entry) {
  return "(" + std::to_string(entry.row + 1) + ", " + std::to_string(entry.column + 1) + ")";
}

std::vector<int> Displacements(const std::vector<int>& counts) {
  std::vector<int> displs(counts.size(), 0);
  std::partial_sum(counts.begin(), counts.end() - 1, displs.begin() + 1);
  return displs;
}

// MPI_Alltoall, MPI_Alltoallv; the result is ordered.
std::vector<Entry> Exchange(std::vector<Entry> entries, const RowOffsets& offsets, MPI_Comm comm) {
  std::sort(entries.begin(), entries.end(), IsBefore);
  const std::size_t size = offsets.size() - 1;
  std::vector<int> sent(size, 0), received(size, 0);
  for (const Entry& entry : entries)
    ++sent[static_cast<std::size_t>(OwnerOf(entry.row, offsets))];
  MPI_Alltoall(sent.data(), 1, MPI_INT, received.data(), 1, MPI_INT, comm);
  const long long total = std::accumulate(received.begin(), received.end(), 0LL);
  constexpr long long most = std::numeric_limits<int>::max();
  const bool fits = total <= most && static_cast<long long>(entries.size()) <= most;
  AgreeOn(fits ? "" : "a process would hold more than 2^31 entries: use more processes", exitInput,
          comm);
  std::vector<Entry> result(static_cast<std::size_t>(total));
  const std::vector<int> from = Displacements(sent), to = Displacements(received);
  MPI_Datatype type = MPI_DATATYPE_NULL;
  MPI_Type_contiguous(sizeof(Entry), MPI_BYTE, &type);
  MPI_Type_commit(&type);
  MPI_Alltoallv(entries.data(), sent.data(), from.data(), type, result.data(), received.data(),
                to.data(), type, comm);
  MPI_Type_free(&type);
  std::sort(result.begin(), result.end(), IsBefore);
  return result;
}

std::vector<Entry> ConjugateTransposed(std::vector<Entry> entries) {
  for (Entry& entry : entries)
    entry = {entry.column, entry.row, std::conj(entry.value)};
  return entries;
}

double LargestEntry(const std::vector<Entry>& entries, MPI_Comm comm) {
  double largest = 0.0;
  for (const Entry& entry : entries)
    largest = std::max(largest, std::abs(entry.value));
  return Largest(largest, comm);
}

struct Mismatch {
  Entry entry{}, transposed{};
  double size = 0.0;
};

std::string Describe(const Mismatch& worst) {
  std::ostringstream text;
  const auto print = [&](const std::complex<double>& value) {
    if (value.imag() == 0.0)
      text << value.real();
    else
      text << value;
  };
  text << "the matrix is not Hermitian: entry " << Place(worst.entry) << " is ";
  print(worst.entry.value);
  const bool isDiagonal = worst.entry.row == worst.entry.column;
  text << (isDiagonal ? ", but its conjugate is " : ", but the conjugate of its mirror image is ");
  print(worst.transposed.value);
  return text.str();
}

// Of an entry and its mirror image the larger one is named.
Mismatch LargerFirst(const Entry& entry, const Entry& other, double difference) {
  if (std::abs(entry.value) >= std::abs(other.value)) return {entry, other, difference};
  return {{other.column, other.row, std::conj(other.value)},
          {entry.column, entry.row, std::conj(entry.value)},
          difference};
}

// The mean of A and its conjugate transpose, both ordered, and their largest difference.
std::vector<Entry> Merge(const std::vector<Entry>& a, const std::vector<Entry>& b,
                         Mismatch& worst) {
  std::vector<Entry> mean;
  mean.reserve(a.size());
  for (auto i = a.begin(), j = b.begin(); i != a.end() || j != b.end();) {
    const bool hasA = j == b.end() || (i != a.end() && !IsBefore(*j, *i));
    const bool hasB = i == a.end() || (j != b.end() && !IsBefore(*i, *j));
    const Entry& place = hasA ? *i : *j;
    const Entry entry = {place.row, place.column, hasA ? i->value : 0.0};
    const Entry other = {place.row, place.column, hasB ? j->value : 0.0};
    const double difference = std::abs(entry.value - other.value);
    if (difference > worst.size) worst = LargerFirst(entry, other, difference);
    mean.push_back({place.row, place.column, 0.5 * (entry.value + other.value)});
    if (hasA) ++i;
    if (hasB) ++j;
  }
  return mean;
}

} // namespace

int OwnerOf(int row, const RowOffsets& offsets) {
  return static_cast<int>(std::upper_bound(offsets.begin(), offsets.end(), row) - offsets.begin()) -
         1;
}

RowOffsets BalancedRows(const std::vector<const EntryList*>& matrices, MPI_Comm comm) {
  const int rows = matrices.front()->rows, size = Size(comm);
  std::vector<long long> weight(static_cast<std::size_t>(rows), 0);
  for (const EntryList* matrix : matrices)
    for (const Entry& entry : matrix->entries)
      ++weight[static_cast<std::size_t>(entry.row)];
  MPI_Allreduce(MPI_IN_PLACE, weight.data(), rows, MPI_LONG_LONG, MPI_SUM, comm);
  for (long long& w : weight)
    ++w;
  std::partial_sum(weight.begin(), weight.end(), weight.begin());
  RowOffsets offsets{0};
  for (int r = 1; r < size; ++r) {
    const long long share = weight.back() / size * r + weight.back() % size * r / size;
    const auto end = std::upper_bound(weight.begin(), weight.end(), share);
    offsets.push_back(static_cast<int>(end - weight.begin()));
  }
  offsets.push_back(rows);
  return offsets;
}

void GatherRows(EntryList& matrix, const RowOffsets& offsets, MPI_Comm comm) {
  matrix.entries = Exchange(std::move(matrix.entries), offsets, comm);
}

void MoveToOwners(EntryList& matrix, const RowOffsets& offsets, MPI_Comm comm) {
  GatherRows(matrix, offsets, comm);
  const auto twice = std::adjacent_find(matrix.entries.begin(), matrix.entries.end(), IsSamePlace);
  std::string complaint;
  if (twice != matrix.entries.end())
    complaint = matrix.name + ": entry " + Place(*twice) + " is given twice" +
                (matrix.isHermitian && twice->row != twice->column
                     ? " (a file of one triangle must not hold the other)"
                     : "");
  AgreeOn(complaint, exitInput, comm);
}

void RequireHermitian(EntryList& matrix, const RowOffsets& offsets, MPI_Comm comm) {
  if (matrix.isHermitian) return;
  const double tolerance = hermitianTolerance * LargestEntry(matrix.entries, comm);
  const std::vector<Entry> transposed =
      Exchange(ConjugateTransposed(matrix.entries), offsets, comm);
  Mismatch worst;
  matrix.entries = Merge(matrix.entries, transposed, worst);
  const double largest = Largest(worst.size, comm);
  const bool speaks = largest > tolerance && worst.size == largest;
  AgreeOn(speaks ? matrix.name + ": " + Describe(worst) : "", exitInput, comm);
  matrix.isHermitian = true;
}

void TurnIntoLaplacian(EntryList& graph, const RowOffsets& offsets, MPI_Comm comm) {
  const int first = offsets[static_cast<std::size_t>(Rank(comm))];
  const int last = offsets[static_cast<std::size_t>(Rank(comm)) + 1];
  std::vector<double> degree(static_cast<std::size_t>(last - first), 0.0);
  std::vector<Entry> laplacian;
  std::string complaint;
  for (const Entry& edge : graph.entries) {
    if (edge.row == edge.column) continue;
    if (edge.value.real() < 0.0 || edge.value.imag() != 0.0)
      complaint = graph.name + ": the weight of edge " + Place(edge) + " is not a number >= 0";
    degree[static_cast<std::size_t>(edge.row - first)] += edge.value.real();
    laplacian.push_back({edge.row, edge.column, -edge.value.real()});
  }
  AgreeOn(complaint, exitInput, comm);
  for (int row = first; row < last; ++row)
    laplacian.push_back({row, row, degree[static_cast<std::size_t>(row - first)]});
  std::sort(laplacian.begin(), laplacian.end(), IsBefore);
  graph.entries = std::move(laplacian);
  graph.isComplex = false;
}

} // namespace VesTools
