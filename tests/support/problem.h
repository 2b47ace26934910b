// Model problems with known eigenvalues, distributed by rows.
#ifndef VES_TESTS_SUPPORT_PROBLEM_H
#define VES_TESTS_SUPPORT_PROBLEM_H

#include "parallel/mpi_wrapper.h"
#include "scalars.h"

#include <algorithm>
#include <cmath>
#include <functional>
#include <numeric>
#include <utility>
#include <vector>

namespace VesTest {

/// How n rows are dealt out: in nearly equal parts, growing with the rank, or all rows to the even
/// ranks, so that the odd ones hold none.
enum class Deal { even, growing, gaps };

struct Rows {
  MPI_Comm comm;
  int n, first, local;
  Part holders; ///< the processes that hold rows

  Rows(int rows, MPI_Comm over, Deal deal = Deal::even)
      : comm(over), n(rows), first(RowsOf(RankIn(over), deal)),
        local(RowsOf(RankIn(over) + 1, deal) - first),
        holders(local > 0 ? 0 : MPI_UNDEFINED, 0, over) {}

private:
  /// Of so many leading processes.
  int RowsOf(int processes, Deal deal) const {
    double mine = 0.0, total = 0.0;
    for (int r = 0; r < SizeOf(comm); ++r) {
      const double weight = deal == Deal::growing ? r + 1.0 : (deal == Deal::gaps ? 1 - r % 2 : 1);
      total += weight;
      if (r < processes) mine += weight;
    }
    return static_cast<int>(n * mine / total + 0.5);
  }
};

/// A sparse Hermitian operator given by its rows; the product gathers whole columns on the
/// processes that hold rows.
template <typename Scalar>
struct SparseOperator {
  using Row = std::vector<std::pair<int, Scalar>>;
  const Rows& rows;
  std::vector<Row> entries; ///< of the local rows
  long columns = 0;         ///< columns it was applied to on this process
  std::function<void(Scalar* y, int nRows, int nCols, int ld)> spoil; ///< fault of a test

  SparseOperator(const Rows& layout, const std::function<Row(int)>& rowOf) : rows(layout) {
    for (int i = 0; i < rows.local; ++i)
      entries.push_back(rowOf(rows.first + i));
  }

  void Apply(const Scalar* x, Scalar* y, int nCols, int ld) const {
    if (rows.local == 0) return;
    const std::vector<Scalar> whole = Gather(x, nCols, ld);
    for (int j = 0; j < nCols; ++j) {
      const Scalar* const column = whole.data() + static_cast<std::ptrdiff_t>(j) * rows.n;
      for (int i = 0; i < rows.local; ++i) {
        Scalar sum{};
        for (const auto& [k, a] : entries[static_cast<std::size_t>(i)])
          sum += a * column[k];
        y[static_cast<std::ptrdiff_t>(j) * ld + i] = sum;
      }
    }
  }

  /// All rows (n x nCols) on every process that holds some, by one reduction that meters leave out.
  std::vector<Scalar> Gather(const Scalar* x, int nCols, int ld) const {
    std::vector<Scalar> whole(static_cast<std::size_t>(rows.n) * static_cast<std::size_t>(nCols));
    for (int j = 0; j < nCols; ++j)
      std::copy_n(x + static_cast<std::ptrdiff_t>(j) * ld, rows.local,
                  whole.data() + static_cast<std::ptrdiff_t>(j) * rows.n + rows.first);
    PMPI_Allreduce(MPI_IN_PLACE, whole.data(), static_cast<int>(whole.size()),
                   Ves::MpiType<Scalar>(), MPI_SUM, rows.holders);
    return whole;
  }

  static void Shell(void* data, void* x, void* y, int nRows, int nCols, int ld) {
    auto* op = static_cast<SparseOperator*>(data);
    op->Apply(static_cast<const Scalar*>(x), static_cast<Scalar*>(y), nCols, ld);
    op->columns += nCols;
    if (op->spoil) op->spoil(static_cast<Scalar*>(y), nRows, nCols, ld);
  }
};

using RealRow = std::vector<std::pair<int, double>>;

/// Row of a real symmetric matrix, turned into D^H A D with unit phases D for complex types: the
/// entries become truly complex and the eigenvalues stay.
template <typename Scalar>
typename SparseOperator<Scalar>::Row Phased(int i, const RealRow& realRow) {
  typename SparseOperator<Scalar>::Row row;
  for (const auto& [j, a] : realRow) {
    const double angle = 0.7 * (j - i) + 0.3 * (j * 1.7 * j - i * 1.7 * i) / 50.0;
    const Wide turned = Ves::isComplex<Scalar> && i != j ? std::polar(1.0, angle) * a : a;
    row.emplace_back(j, Number<Scalar>(turned));
  }
  return row;
}

/// Rows of diag(value(0), value(1), ...).
template <typename Scalar, typename Value>
std::function<typename SparseOperator<Scalar>::Row(int)> DiagonalRows(Value value) {
  return [value](int i) {
    return typename SparseOperator<Scalar>::Row{{i, Number<Scalar>(value(i))}};
  };
}

/// Tensor-product problems on a box of up to three dimensions, Dirichlet boundary, last index
/// fastest: the (2 d + 1)-point Laplacian with unit spacing, or linear elements (stiffness and
/// mass), whose rows are products of the tridiagonal factors.
struct Box {
  Ints dims;

  int Order() const { return std::accumulate(dims.begin(), dims.end(), 1, std::multiplies<>()); }

  RealRow Laplacian(int row) const { return RowOf(row, 1.0, 0.0, &Entry::stiffness); }
  RealRow Stiffness(int row) const { return RowOf(row, 4.0 / 6, 1.0 / 6, &Entry::stiffness); }
  RealRow Mass(int row) const { return RowOf(row, 4.0 / 6, 1.0 / 6, &Entry::mass); }

  /// All eigenvalues in ascending order: sums over the axes of 4 sin^2(pi j / (2 (m + 1))), for
  /// elements divided by their masses 1 - (that value) / 6.
  std::vector<double> Eigenvalues(bool elements) const {
    std::vector<double> values{0.0};
    for (const int m : dims) {
      std::vector<double> next;
      for (const double v : values)
        for (int j = 1; j <= m; ++j) {
          const double s = std::sin(std::acos(-1.0) * j / (2.0 * (m + 1)));
          next.push_back(v + (elements ? 4 * s * s / (1 - 4 * s * s / 6) : 4 * s * s));
        }
      values = next;
    }
    std::sort(values.begin(), values.end());
    return values;
  }

private:
  struct Entry {
    int column;
    double mass, stiffness;
  };

  /// One of the two, made axis by axis from tridiagonal factors m = (off, diagonal, off) and
  /// k = (-1, 2, -1): the mass M x m, and the stiffness K x m + M x k.
  RealRow RowOf(int row, double diagonal, double off, double Entry::*which) const {
    std::vector<Entry> entries{{0, 1.0, 0.0}};
    int stride = Order();
    for (const int size : dims) {
      stride /= size;
      const int index = row / stride % size;
      std::vector<Entry> next;
      for (const Entry& e : entries)
        for (int i = std::max(index - 1, 0); i < std::min(index + 2, size); ++i) {
          const double m = i == index ? diagonal : off, k = i == index ? 2.0 : -1.0;
          next.push_back({e.column * size + i, e.mass * m, e.stiffness * m + e.mass * k});
        }
      entries = next;
    }
    RealRow result;
    for (const Entry& e : entries)
      if (e.*which != 0.0) result.emplace_back(e.column, e.*which);
    return result;
  }
};

/// A = U diag(values) U^H with U = I - 2 u u^H: every eigenvalue known, the matrix full, its
/// eigenvectors the columns of U.
template <typename Scalar>
struct Reflected {
  std::vector<double> values;
  std::vector<Wide> u;

  explicit Reflected(std::vector<double> spectrum) : values(std::move(spectrum)) {
    double square = 0.0;
    for (int i = 0; i < static_cast<int>(values.size()); ++i) {
      u.emplace_back(HashedNumber<Scalar>(i, 3, 11));
      square += std::norm(u.back());
    }
    for (Wide& x : u)
      x /= std::sqrt(square);
  }

  Scalar Vector(int i, int j) const {
    return Number<Scalar>((i == j ? 1.0 : 0.0) - 2.0 * Outer(i, j));
  }

  typename SparseOperator<Scalar>::Row Row(int i) const {
    double mean = 0.0;
    for (std::size_t k = 0; k < u.size(); ++k)
      mean += std::norm(u[k]) * values[k];
    typename SparseOperator<Scalar>::Row row;
    for (int j = 0; j < static_cast<int>(values.size()); ++j) {
      const double a = values.data()[i], b = values.data()[j];
      row.emplace_back(j,
                       Number<Scalar>((i == j ? a : 0.0) + Outer(i, j) * (4 * mean - 2 * (a + b))));
    }
    return row;
  }

private:
  Wide Outer(int i, int j) const { return u.data()[i] * std::conj(u.data()[j]); }
};

inline std::vector<double> Spectrum(int n, const std::function<double(int)>& value) {
  std::vector<double> values;
  for (int i = 0; i < n; ++i)
    values.push_back(value(i));
  return values;
}

} // namespace VesTest

#endif
