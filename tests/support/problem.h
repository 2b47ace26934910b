// Model problems with known eigenvalues, distributed by rows.
#ifndef VES_TESTS_SUPPORT_PROBLEM_H
#define VES_TESTS_SUPPORT_PROBLEM_H

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
  MPI_Comm comm = MPI_COMM_WORLD;
  MPI_Comm holders = MPI_COMM_NULL; ///< the processes that hold rows
  int n = 0, first = 0, local = 0;
  std::vector<int> counts, displs; ///< over holders

  Rows(int rows, MPI_Comm over, Deal deal = Deal::even) : comm(over), n(rows) {
    const int p = SizeOf(comm), rank = RankIn(comm);
    std::vector<double> weights(static_cast<std::size_t>(p));
    for (int r = 0; r < p; ++r)
      weights[static_cast<std::size_t>(r)] =
          deal == Deal::even ? 1.0 : (deal == Deal::growing ? r + 1.0 : (r % 2 == 0 ? 1.0 : 0.0));
    const double total = std::accumulate(weights.begin(), weights.end(), 0.0);
    const auto upTo = [&](int r) {
      return static_cast<int>(
          n * std::accumulate(weights.begin(), weights.begin() + r, 0.0) / total + 0.5);
    };
    first = upTo(rank);
    local = upTo(rank + 1) - first;
    MPI_Comm_split(comm, local > 0 ? 0 : MPI_UNDEFINED, rank, &holders);
    if (holders == MPI_COMM_NULL) return;
    counts.resize(static_cast<std::size_t>(SizeOf(holders)));
    displs = counts;
    MPI_Allgather(&local, 1, MPI_INT, counts.data(), 1, MPI_INT, holders);
    std::partial_sum(counts.begin(), counts.end() - 1, displs.begin() + 1);
  }
  Rows(const Rows&) = delete;
  Rows& operator=(const Rows&) = delete;
  ~Rows() {
    if (holders != MPI_COMM_NULL) MPI_Comm_free(&holders);
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

  /// One gather for the whole block: on more processes than cores it is what a product costs.
  void Apply(const Scalar* x, Scalar* y, int nCols, int ld) const {
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

  /// All rows (n x nCols) on every process that holds some.
  std::vector<Scalar> Gather(const Scalar* x, int nCols, int ld) const {
    const auto at = [](int row, int column, int rowsOf) {
      return row + static_cast<std::ptrdiff_t>(column) * rowsOf;
    };
    const int bytes = static_cast<int>(sizeof(Scalar)) * nCols;
    std::vector<int> counts = rows.counts, displs = rows.displs;
    for (std::size_t r = 0; r < counts.size(); ++r) {
      counts[r] *= bytes;
      displs[r] *= bytes;
    }
    const std::size_t size = static_cast<std::size_t>(rows.n) * static_cast<std::size_t>(nCols);
    std::vector<Scalar> mine(size), parts(size), whole(size);
    for (int j = 0; j < nCols; ++j)
      std::copy_n(x + at(0, j, ld), rows.local, mine.data() + at(0, j, rows.local));
    MPI_Allgatherv(mine.data(), rows.local * bytes, MPI_BYTE, parts.data(), counts.data(),
                   displs.data(), MPI_BYTE, rows.holders);
    for (std::size_t r = 0; r < counts.size(); ++r)
      for (int j = 0; j < nCols; ++j)
        std::copy_n(parts.data() + at(rows.displs[r] * nCols, 0, 0) + at(0, j, rows.counts[r]),
                    rows.counts[r], whole.data() + at(rows.displs[r], j, rows.n));
    return whole;
  }

  static void Shell(void* self, void* x, void* y, int nRows, int nCols, int ld) {
    auto* op = static_cast<SparseOperator*>(self);
    op->Apply(static_cast<const Scalar*>(x), static_cast<Scalar*>(y), nCols, ld);
    op->columns += nCols;
    if (op->spoil) op->spoil(static_cast<Scalar*>(y), nRows, nCols, ld);
  }
};

/// Row of a real symmetric matrix, turned into D^H A D with unit phases D for complex types: the
/// entries become truly complex and the eigenvalues stay.
template <typename Scalar>
typename SparseOperator<Scalar>::Row Phased(int i,
                                            const std::vector<std::pair<int, double>>& realRow) {
  typename SparseOperator<Scalar>::Row row;
  for (const auto& [j, a] : realRow) {
    const double angle = 0.7 * (j - i) + 0.3 * (j * 1.7 * j - i * 1.7 * i) / 50.0;
    const bool diagonal = i == j;
    row.emplace_back(j,
                     Number<Scalar>(Ves::isComplex<Scalar> && !diagonal ? a * std::cos(angle) : a,
                                    diagonal ? 0.0 : a * std::sin(angle)));
  }
  return row;
}

/// Tensor-product problems on a box of up to three dimensions, Dirichlet boundary, last index
/// fastest: the (2 d + 1)-point Laplacian with unit spacing, or linear elements (stiffness and
/// mass), whose rows are products of the tridiagonal factors.
struct Box {
  std::vector<int> dims;

  int Order() const { return std::accumulate(dims.begin(), dims.end(), 1, std::multiplies<>()); }

  std::vector<int> IndexOf(int row) const {
    std::vector<int> index(dims.size());
    for (std::size_t d = dims.size(); d-- > 0; row /= dims[d])
      index[d] = row % dims[d];
    return index;
  }

  std::vector<std::pair<int, double>> Laplacian(int row) const {
    std::vector<std::pair<int, double>> entries{{row, 2.0 * static_cast<double>(dims.size())}};
    const std::vector<int> index = IndexOf(row);
    for (int d = static_cast<int>(dims.size()) - 1, stride = 1; d >= 0; --d) {
      const auto axis = static_cast<std::size_t>(d);
      if (index[axis] > 0) entries.emplace_back(row - stride, -1.0);
      if (index[axis] < dims[axis] - 1) entries.emplace_back(row + stride, -1.0);
      stride *= dims[axis];
    }
    return entries;
  }

  /// Row of the product over all axes of tridiag(off, diagonal, off) with the pair of the axis.
  std::vector<std::pair<int, double>>
  Tensor(int row, const std::vector<std::pair<double, double>>& factors) const {
    std::vector<std::pair<int, double>> entries{{0, 1.0}};
    const std::vector<int> index = IndexOf(row);
    for (std::size_t d = 0; d < dims.size(); ++d) {
      std::vector<std::pair<int, double>> next;
      for (const auto& [at, a] : entries)
        for (int step = -1; step <= 1; ++step) {
          const int i = index[d] + step;
          if (i < 0 || i >= dims[d]) continue;
          next.emplace_back(at * dims[d] + i,
                            a * (step == 0 ? factors[d].first : factors[d].second));
        }
      entries = next;
    }
    return entries;
  }

  std::vector<std::pair<int, double>> Mass(int row) const {
    return Tensor(row, std::vector<std::pair<double, double>>(dims.size(), {4.0 / 6, 1.0 / 6}));
  }

  std::vector<std::pair<int, double>> Stiffness(int row) const {
    std::vector<std::pair<int, double>> sum;
    for (std::size_t d = 0; d < dims.size(); ++d) {
      std::vector<std::pair<double, double>> factors(dims.size(), {4.0 / 6, 1.0 / 6});
      factors[d] = {2.0, -1.0};
      for (const auto& entry : Tensor(row, factors)) {
        const auto same = std::find_if(sum.begin(), sum.end(),
                                       [&](const auto& s) { return s.first == entry.first; });
        if (same == sum.end())
          sum.push_back(entry);
        else
          same->second += entry.second;
      }
    }
    return sum;
  }

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
};

/// A = U diag(values) U^H with U = I - 2 u u^H: every eigenvalue known, the matrix full, its
/// eigenvectors the columns of U.
template <typename Scalar>
struct Reflected {
  std::vector<double> values;
  std::vector<Scalar> u;

  explicit Reflected(std::vector<double> spectrum) : values(std::move(spectrum)), u(values.size()) {
    double norm = 0.0;
    for (std::size_t i = 0; i < u.size(); ++i) {
      u[i] = HashedNumber<Scalar>(static_cast<int>(i), 3, 11);
      norm += static_cast<double>(std::norm(u[i]));
    }
    for (Scalar& x : u)
      x *= Number<Scalar>(1.0 / std::sqrt(norm));
  }

  Scalar Vector(int i, int j) const {
    const auto r = static_cast<std::size_t>(i), c = static_cast<std::size_t>(j);
    return Number<Scalar>(i == j ? 1.0 : 0.0) - Number<Scalar>(2.0) * u[r] * Conj(u[c]);
  }

  typename SparseOperator<Scalar>::Row Row(int i) const {
    typename SparseOperator<Scalar>::Row row;
    for (int j = 0; j < static_cast<int>(values.size()); ++j) {
      Scalar sum{};
      for (int k = 0; k < static_cast<int>(values.size()); ++k)
        sum +=
            Vector(i, k) * Number<Scalar>(values[static_cast<std::size_t>(k)]) * Conj(Vector(j, k));
      row.emplace_back(j, sum);
    }
    return row;
  }

  std::vector<double> Sorted() const {
    std::vector<double> sorted = values;
    std::sort(sorted.begin(), sorted.end());
    return sorted;
  }
};

inline std::vector<double> Spectrum(int n, const std::function<double(int)>& value) {
  std::vector<double> values;
  for (int i = 0; i < n; ++i)
    values.push_back(value(i));
  return values;
}

} // namespace VesTest

#endif
