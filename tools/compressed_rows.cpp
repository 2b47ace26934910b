#include "compressed_rows.h"

#include "parallel.h"

#include <algorithm>
#include <cmath>
#include <sstream>
#include <tuple>

namespace VesTools {
namespace {

// Entries of A and of its conjugate transpose may differ by this part of the largest entry.
constexpr double hermitianTolerance = 1e-12;

template <typename Scalar>
struct Mismatch {
  Entry<Scalar> entry{}, transposed{};
  double size = 0.0;
};

template <typename Scalar>
std::string Describe(const Mismatch<Scalar>& worst) {
  std::ostringstream text;
  const auto print = [&](const std::complex<double>& value) {
    if (value.imag() == 0.0)
      text << value.real();
    else
      text << value;
  };
  const Entry<Scalar>& entry = worst.entry;
  text << "the matrix is not Hermitian: entry " << Place(entry.row, entry.column) << " is ";
  print(entry.value);
  text << (entry.row == entry.column ? ", but its conjugate is "
                                     : ", but the conjugate of its mirror image is ");
  print(worst.transposed.value);
  return text.str();
}

// Of an entry and its mirror image the larger one is named.
template <typename Scalar>
Mismatch<Scalar> LargerFirst(const Entry<Scalar>& entry, const Entry<Scalar>& other,
                             double difference) {
  if (std::abs(entry.value) >= std::abs(other.value)) return {entry, other, difference};
  return {{other.column, other.row, Conjugate(other.value)},
          {entry.column, entry.row, Conjugate(entry.value)},
          difference};
}

/// Of the conjugate transpose, with the owners of its rows. Collective.
template <typename Scalar>
std::vector<Entry<Scalar>> ConjugateTransposed(const CompressedRows<Scalar>& matrix,
                                               const RowOffsets& offsets, MPI_Comm comm) {
  std::vector<Entry<Scalar>> entries;
  entries.reserve(matrix.values.size());
  matrix.ForEach([&](int row, int column, const Scalar& value) {
    entries.push_back({column, row, Conjugate(value)});
  });
  GatherRows(entries, offsets, comm);
  return entries;
}

/// The mean of rows and of entries that are ordered, of the same rows, and what differs most.
template <typename Scalar>
class Mean {
public:
  Mean(const CompressedRows<Scalar>& a, const std::vector<Entry<Scalar>>& b) : m_b(b.begin()) {
    result.name = a.name;
    result.first = a.first;
    result.Reserve(a.starts.size(), std::max(a.values.size(), b.size()));
    a.ForEach([&](int row, int column, const Scalar& value) {
      const auto place = std::tie(row, column);
      for (; m_b != b.end() && std::tie(m_b->row, m_b->column) < place; ++m_b)
        Add({m_b->row, m_b->column, Scalar(0)}, m_b->value);
      const bool hasB = m_b != b.end() && std::tie(m_b->row, m_b->column) == place;
      Add({row, column, value}, hasB ? (m_b++)->value : Scalar(0));
    });
    for (; m_b != b.end(); ++m_b)
      Add({m_b->row, m_b->column, Scalar(0)}, m_b->value);
    EndRowsBefore(a.first + a.Rows());
  }

  CompressedRows<Scalar> result;
  Mismatch<Scalar> worst;

private:
  void EndRowsBefore(int row) {
    while (result.first + result.Rows() < row)
      result.EndRow();
  }
  void Add(const Entry<Scalar>& entry, const Scalar& other) {
    const double difference = std::abs(entry.value - other);
    if (difference > worst.size)
      worst = LargerFirst(entry, {entry.row, entry.column, other}, difference);
    EndRowsBefore(entry.row);
    result.Append(entry.column, 0.5 * (entry.value + other));
  }

  typename std::vector<Entry<Scalar>>::const_iterator m_b;
};

} // namespace

template <typename Scalar>
CompressedRows<Scalar> Compress(EntryList<Scalar>&& matrix, int first, int last) {
  const std::vector<Entry<Scalar>> entries = std::move(matrix.entries);
  CompressedRows<Scalar> rows;
  rows.name = matrix.name;
  rows.first = first;
  rows.isHermitian = matrix.isHermitian;
  rows.Reserve(static_cast<std::size_t>(last - first), entries.size());
  auto entry = entries.begin();
  for (int row = first; row < last; ++row) {
    for (; entry != entries.end() && entry->row == row; ++entry)
      rows.Append(entry->column, entry->value);
    rows.EndRow();
  }
  return rows;
}

template <typename Scalar>
void RequireHermitian(CompressedRows<Scalar>& matrix, const RowOffsets& offsets, MPI_Comm comm) {
  if (matrix.isHermitian) return;
  double largest = 0.0;
  for (const Scalar& value : matrix.values)
    largest = std::max(largest, std::abs(value));
  const double tolerance = hermitianTolerance * Largest(largest, comm);
  Mean<Scalar> mean(matrix, ConjugateTransposed(matrix, offsets, comm));
  const double worst = Largest(mean.worst.size, comm);
  const bool speaks = worst > tolerance && mean.worst.size == worst;
  AgreeOn(speaks ? matrix.name + ": " + Describe(mean.worst) : "", exitInput, comm);
  matrix = std::move(mean.result);
  matrix.isHermitian = true;
}

template <typename Scalar>
void RequirePositiveDiagonal(const CompressedRows<Scalar>& b, MPI_Comm comm) {
  std::vector<bool> isPositive(static_cast<std::size_t>(b.Rows()), false);
  b.ForEach([&](int row, int column, const Scalar& value) {
    if (row == column && std::real(value) > 0.0)
      isPositive[static_cast<std::size_t>(row - b.first)] = true;
  });
  const auto bad = std::find(isPositive.begin(), isPositive.end(), false);
  std::string complaint;
  if (bad != isPositive.end()) {
    const int row = b.first + static_cast<int>(bad - isPositive.begin());
    complaint = b.name + ": B is not positive definite: its diagonal entry " + Place(row, row) +
                " is not above 0";
  }
  AgreeOn(complaint, exitInput, comm);
}

template <typename Scalar>
CompressedRows<double> LaplacianOf(const CompressedRows<Scalar>& graph, MPI_Comm comm) {
  std::vector<double> degree(static_cast<std::size_t>(graph.Rows()), 0.0);
  EntryList<double> laplacian;
  laplacian.name = graph.name;
  laplacian.isHermitian = true;
  laplacian.entries.reserve(graph.values.size() + degree.size());
  std::string complaint;
  graph.ForEach([&](int row, int column, const Scalar& weight) {
    if (row == column) return;
    if (!(std::real(weight) >= 0.0) || std::imag(weight) != 0.0)
      complaint =
          graph.name + ": the weight of edge " + Place(row, column) + " is not a number >= 0";
    degree[static_cast<std::size_t>(row - graph.first)] += std::real(weight);
    laplacian.entries.push_back({row, column, -std::real(weight)});
  });
  AgreeOn(complaint, exitInput, comm);
  for (int i = 0; i < graph.Rows(); ++i)
    laplacian.entries.push_back(
        {graph.first + i, graph.first + i, degree[static_cast<std::size_t>(i)]});
  Order(laplacian.entries);
  return Compress(std::move(laplacian), graph.first, graph.first + graph.Rows());
}

#define VES_INSTANTIATE_ROWS(Scalar)                                                               \
  template CompressedRows<Scalar> Compress(EntryList<Scalar>&&, int, int);                         \
  template void RequireHermitian(CompressedRows<Scalar>&, const RowOffsets&, MPI_Comm);            \
  template void RequirePositiveDiagonal(const CompressedRows<Scalar>&, MPI_Comm);                  \
  template CompressedRows<double> LaplacianOf(const CompressedRows<Scalar>&, MPI_Comm);
VES_INSTANTIATE_ROWS(double)
VES_INSTANTIATE_ROWS(std::complex<double>)

} // namespace VesTools
