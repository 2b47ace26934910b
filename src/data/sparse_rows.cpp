#include "sparse_rows.h"

#include "../kernel/in_pieces.h"
#include "../kernel/math_kernel.h"
#include "../parallel/agreement.h"
#include "../parallel/thread_team.h"
#include "vector_base.h"

#include <algorithm>
#include <iterator>
#include <limits>

namespace Ves {
namespace {

/// Columns of a block for which an entry is read once: as many sums stay in registers.
constexpr int panelWidth = 4;

/// sum + a b, without the search for infinities that the product of the standard makes.
template <typename Number>
Number MultiplyAdd(const Number& sum, const Number& a, const Number& b) {
  if constexpr (isComplex<Number>)
    return {sum.real() + (a.real() * b.real() - a.imag() * b.imag()),
            sum.imag() + (a.real() * b.imag() + a.imag() * b.real())};
  else
    return sum + a * b;
}

/// y, of which only rows with entries are touched, := or += entries x for width columns. Entry
/// (i, j) of x is x[i row + j column]; y is column-major.
template <int width, bool adds, typename Scalar, typename Number>
void MultiplyPanel(const EntriesByRows<Scalar>& entries, const Number* x, std::ptrdiff_t row,
                   std::ptrdiff_t column, Number* y, std::ptrdiff_t ld) {
  ShareRows(static_cast<int>(entries.rows.size()), [&](int first, int count) {
    const auto* const rows = entries.rows.data() + first;
    std::size_t at = first > 0 ? rows[-1].end : 0;
    for (int i = 0; i < count; ++i) {
      Number sums[width] = {};
      for (; at < rows[i].end; ++at) {
        const auto value = static_cast<Number>(entries.values[at]);
        const Number* const from = x + entries.columns[at] * row;
        for (int j = 0; j < width; ++j)
          sums[j] = MultiplyAdd(sums[j], value, from[j * column]);
      }
      for (int j = 0; j < width; ++j) {
        Number& entry = y[rows[i].number + j * ld];
        entry = adds ? entry + sums[j] : sums[j];
      }
    }
  });
}

template <bool adds, typename Scalar, typename Number>
void MultiplyEntries(const EntriesByRows<Scalar>& entries, const Number* x, std::ptrdiff_t row,
                     std::ptrdiff_t column, Number* y, int nCols, std::ptrdiff_t ld) {
  if (entries.rows.empty()) return; // x may be null
  int j = 0;
  for (; j + panelWidth <= nCols; j += panelWidth)
    MultiplyPanel<panelWidth, adds>(entries, x + j * column, row, column, y + j * ld, ld);
  for (; j < nCols; ++j)
    MultiplyPanel<1, adds>(entries, x + j * column, row, column, y + j * ld, ld);
}

} // namespace

template <typename Scalar>
VesReturnCode GivenRows<Scalar>::Check() const {
  if (nRows < 0) return VES_ERR_INVALID_VALUE;
  if (nRows == 0) return VES_GOOD;
  if (starts == nullptr) return VES_ERR_NULL_POINTER;
  if (starts[0] != 0 || !std::is_sorted(starts, starts + nRows + 1)) return VES_ERR_INVALID_VALUE;
  const bool isComplete = columns != nullptr && values != nullptr;
  return Entries() == 0 || isComplete ? VES_GOOD : VES_ERR_NULL_POINTER;
}

template <typename Scalar>
bool GivenRows<Scalar>::HaveColumnsBelow(long long nCols) const {
  return std::all_of(columns, columns + Entries(),
                     [&](long long column) { return 0 <= column && column < nCols; });
}

// An agreement, and then as RowExchange::Connect.
template <typename Scalar>
std::unique_ptr<SparseRows<Scalar>>
SparseRows<Scalar>::Create(MPI_Comm comm, const GivenRows<Scalar>& given, VesReturnCode& code) {
  VesScalarType type = VES_DOUBLE;
  MathKernel<Scalar>::SetScalarType(type);
  std::unique_ptr<SparseRows> made(new SparseRows(comm, std::max(given.nRows, 0)));
  std::vector<long long> others;
  code = given.Check();
  if (code == VES_GOOD && !given.HaveColumnsBelow(made->m_exchange.TotalRows()))
    code = VES_ERR_INVALID_VALUE;
  if (code == VES_GOOD) try {
      others = made->ColumnsOfOthers(given);
      const bool isCounted = others.size() <= std::size_t{std::numeric_limits<int>::max()};
      if (isCounted) made->Take(given, others);
      code = isCounted ? VES_GOOD : VES_ERR_INVALID_VALUE;
    } catch (const std::exception&) { // std::bad_alloc, std::length_error
      code = VES_ERR_INVALID_VALUE;
    }
  code = AgreeOn(code, {type}, made->m_exchange.Comm());
  if (code == VES_GOOD) code = made->m_exchange.Connect(others, sizeof(Scalar));
  if (code != VES_GOOD) made.reset();
  return made;
}

/// Ascending.
template <typename Scalar>
std::vector<long long> SparseRows<Scalar>::ColumnsOfOthers(const GivenRows<Scalar>& given) const {
  const long long first = m_exchange.FirstRow(), end = m_exchange.EndRow();
  std::vector<long long> others;
  std::copy_if(given.columns, given.columns + given.Entries(), std::back_inserter(others),
               [&](long long column) { return column < first || column >= end; });
  std::sort(others.begin(), others.end());
  others.erase(std::unique(others.begin(), others.end()), others.end());
  return others;
}

/// Every row is among those of the own entries, which write y; the others add to it.
template <typename Scalar>
void SparseRows<Scalar>::Take(const GivenRows<Scalar>& given,
                              const std::vector<long long>& others) {
  const long long first = m_exchange.FirstRow(), end = m_exchange.EndRow();
  const auto isOwn = [&](long long column) { return first <= column && column < end; };
  const auto own = std::count_if(given.columns, given.columns + given.Entries(), isOwn);
  m_own.Reserve(own);
  m_others.Reserve(given.Entries() - own);
  m_own.rows.reserve(static_cast<std::size_t>(given.nRows));
  for (int i = 0; i < given.nRows; ++i) {
    const std::size_t before = m_others.values.size();
    for (long long at = given.starts[i]; at < given.starts[i + 1]; ++at) {
      const long long column = given.columns[at];
      const auto place =
          isOwn(column) ? column - first
                        : std::lower_bound(others.begin(), others.end(), column) - others.begin();
      EntriesByRows<Scalar>& entries = isOwn(column) ? m_own : m_others;
      entries.columns.push_back(static_cast<int>(place));
      entries.values.push_back(given.values[at]);
    }
    m_own.rows.push_back({i, m_own.values.size()});
    if (m_others.values.size() > before) m_others.rows.push_back({i, m_others.values.size()});
  }
}

template <typename Scalar>
bool SparseRows<Scalar>::Fits(const VesVectorBase& like) const {
  return like.nRows == m_nRows && HaveSameProcesses(like.comm, m_exchange.Comm());
}

template <typename Scalar>
template <typename Number>
void SparseRows<Scalar>::Multiply(const Number* x, Number* y, int nCols, int ld) const {
  InPieces(nCols, m_exchange.MostColumns(), [&](int first, int count) {
    const auto offset = static_cast<std::ptrdiff_t>(first) * ld;
    m_exchange.Begin(x + offset, count, ld);
    MultiplyEntries<false>(m_own, x + offset, 1, ld, y + offset, count, ld);
    const Number* const received = m_exchange.End<Number>();
    MultiplyEntries<true>(m_others, received, count, 1, y + offset, count, ld);
  });
}

VES_INSTANTIATE(SparseRows);

#define VES_INSTANTIATE_PRODUCT(Scalar, Number)                                                    \
  template VES_EXPORT void SparseRows<Scalar>::Multiply(const Number*, Number*, int, int) const
VES_INSTANTIATE_PRODUCT(double, double);
VES_INSTANTIATE_PRODUCT(double, float);
VES_INSTANTIATE_PRODUCT(float, float);
VES_INSTANTIATE_PRODUCT(std::complex<double>, std::complex<double>);
VES_INSTANTIATE_PRODUCT(std::complex<double>, std::complex<float>);
VES_INSTANTIATE_PRODUCT(std::complex<float>, std::complex<float>);

} // namespace Ves
