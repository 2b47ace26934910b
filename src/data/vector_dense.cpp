#include "vector_dense.h"

#include "../parallel/messages.h"
#include "../parallel/mpi_wrapper.h"
#include "../parallel/run_meter.h"
#include "../parallel/thread_team.h"
#include "column_product.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <new>
#include <vector>

namespace Ves {

namespace {

constexpr std::align_val_t alignment{64};

} // namespace

// ---------------------------------------------------------------- shape and storage

template <typename Scalar>
VectorDense<Scalar>::VectorDense() {
  MathKernel<Scalar>::SetScalarType(this->scalarType);
}

template <typename Scalar>
VectorDense<Scalar>::VectorDense(MPI_Comm rowComm, MPI_Comm secondComm, int rows, int cols,
                                 int leadingDim)
    : VectorDense() {
  SetShape(rowComm, secondComm, rows, cols, leadingDim);
}

template <typename Scalar>
VectorDense<Scalar>::VectorDense(const VectorDense& parent, int rowOffset, int colOffset, int rows,
                                 int cols)
    : VectorDense() {
  VES_ASSERT_GOOD(this->SubVector(parent, rowOffset, colOffset, rows, cols));
}

template <typename Scalar>
VectorDense<Scalar>::~VectorDense() {
  VES_ASSERT_GOOD(this->FreeMem());
}

template <typename Scalar>
void VectorDense<Scalar>::SetLd(int leadingDim) {
  ld = std::max(leadingDim, 1);
}

template <typename Scalar>
void VectorDense<Scalar>::SetDims(int rows, int cols, int leadingDim) {
  this->nRows = rows;
  this->nCols = cols;
  SetLd(leadingDim);
}

template <typename Scalar>
void VectorDense<Scalar>::SetShape(MPI_Comm rowComm, MPI_Comm secondComm, int rows, int cols,
                                   int leadingDim) {
  this->comm = rowComm;
  this->auxComm = secondComm;
  SetDims(rows, cols, leadingDim);
}

template <typename Scalar>
bool VectorDense<Scalar>::CompareShape(const VesVectorBase& other) const {
  return IsDense<Scalar>(other) && IsDense<Scalar>(*this) && this->CompareDims(other) &&
         ld == AsDense<Scalar>(other).ld;
}

template <typename Scalar>
bool VectorDense<Scalar>::IsEqual(const VesVectorBase& other) const {
  return CompareShape(other) && values == AsDense<Scalar>(other).values;
}

/// ld x nCols, the entries that storage holds and whole-block communication sends.
template <typename Scalar>
std::size_t VectorDense<Scalar>::NumEntries() const {
  constexpr std::int64_t most = std::numeric_limits<std::ptrdiff_t>::max() / sizeof(Scalar);
  const std::int64_t entries = static_cast<std::int64_t>(ld) * this->nCols;
  if (entries < 0 || entries > most - ld) throw std::bad_array_new_length(); // with a column more
  return static_cast<std::size_t>(entries);
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::AllocateMem() {
  VES_ASSERT_GOOD(this->FreeMem());
  // One column of slack: matrix-vector kernels of OpenBLAS read up to a column past the end of a
  // matrix, which crashes where the next page is not mapped.
  const std::size_t entries = NumEntries() + static_cast<std::size_t>(ld);
  values = static_cast<Scalar*>(::operator new(entries * sizeof(Scalar), alignment));
  ownsValues = true;
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::FreeMem() {
  if (ownsValues && values != nullptr) ::operator delete(values, alignment);
  ownsValues = false;
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::DuplicateShape(const VesVectorBase& other) {
  if (!IsDense<Scalar>(other)) return VES_ERR_UNSUPPORTED;
  SetShape(other.comm, other.auxComm, other.nRows, other.nCols, AsDense<Scalar>(other).ld);
  values = nullptr;
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::SubVector(const VesVectorBase& other, int rowOffset,
                                             int colOffset, int rows, int cols) {
  const auto fits = [](int offset, int count, int limit) {
    return offset >= 0 && count >= 0 && offset <= limit && count <= limit - offset;
  };
  if (!fits(rowOffset, rows, other.nRows) || !fits(colOffset, cols, other.nCols))
    return VES_ERR_OUT_OF_RANGE;
  if (!IsDense<Scalar>(other)) return VES_ERR_UNSUPPORTED;
  const VectorDense& parent = AsDense<Scalar>(other);
  Scalar* const first =
      parent.values == nullptr ? nullptr : parent.values + parent.Offset(rowOffset, colOffset);
  SetShape(parent.comm, parent.auxComm, rows, cols, parent.ld);
  values = first;
  return VES_GOOD;
}

// ---------------------------------------------------------------- fills and scalings

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::Set2Val(const Scalar& alpha) {
  if (this->nCols == 0) return VES_GOOD;
  ShareRows(this->nRows, [&](int first, int rows) {
    MathKernel<Scalar>::Laset("A", &rows, &this->nCols, &alpha, &alpha, values + first, &ld);
  });
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::Set2Zero() {
  return Set2Val(MathConstants<Scalar>::ZERO);
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::Set2Random(int seed) {
  if (this->nRows == 0 || this->nCols == 0) return VES_GOOD;
  if (IsDataEmpty()) return VES_ERR_INCOMPATIBLE;
  // LAPACK wants words below 4096 and the last one odd; the seed carries over between columns.
  const int r = seed % 4096;
  int iseed[4] = {r, (r * r) % 4096, (2 * r) % 4096, (2 * r + 1) % 4096};
  const int normalDistribution = 3;
  for (int j = 0; j < this->nCols; ++j)
    MathKernel<Scalar>::Larnv(&normalDistribution, iseed, &this->nRows, Column(j));
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::ScaleByVal(const Scalar& alpha) {
  if (this->nRows == 0 || this->nCols == 0) return VES_GOOD;
  if (IsDataEmpty()) return VES_ERR_INCOMPATIBLE;
  ShareColumns(this->nRows, this->nCols, [&](int j) {
    MathKernel<Scalar>::Scal(&this->nRows, &alpha, Column(j), &MathConstants<int>::ONE);
  });
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::ScaleByVec(const VesVectorBase& factors) {
  if (factors.nRows != this->nCols || factors.nCols != 1) return VES_ERR_INVALID_VALUE;
  if (!IsDense<Scalar>(factors)) return VES_ERR_MISMATCH;
  const VectorDense& d = AsDense<Scalar>(factors);
  ShareColumns(this->nRows, this->nCols, [&](int j) {
    MathKernel<Scalar>::Scal(&this->nRows, &d(j), Column(j), &MathConstants<int>::ONE);
  });
  return VES_GOOD;
}

// ---------------------------------------------------------------- diagonal and copy

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::SetDiag(const VesVectorBase& diagonal) {
  if (diagonal.nRows != this->nRows || this->nRows != this->nCols || diagonal.nCols != 1)
    return VES_ERR_INVALID_VALUE;
  if (!IsDense<Scalar>(diagonal)) return VES_ERR_MISMATCH;
  const VectorDense& d = AsDense<Scalar>(diagonal);
  VES_ASSERT_GOOD(this->Set2Zero());
  for (int j = 0; j < this->nCols; ++j)
    (*this)(j, j) = d(j);
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::GetDiag(const VesVectorBase& matrix) {
  if (matrix.nRows != this->nRows || matrix.nRows != matrix.nCols || this->nCols != 1)
    return VES_ERR_INVALID_VALUE;
  if (!IsDense<Scalar>(matrix)) return VES_ERR_MISMATCH;
  const VectorDense& m = AsDense<Scalar>(matrix);
  for (int j = 0; j < this->nRows; ++j)
    (*this)(j) = m(j, j);
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::CopyData(const VesVectorBase& other) {
  if (!this->CompareDims(other)) return VES_ERR_INVALID_VALUE;
  if (!IsDense<Scalar>(other)) return VES_ERR_UNSUPPORTED;
  const VectorDense& source = AsDense<Scalar>(other);
  if (this->nCols == 0) return VES_GOOD;
  ShareRows(this->nRows, [&](int first, int rows) {
    MathKernel<Scalar>::Lacpy("A", &rows, &this->nCols, source.values + first, &source.ld,
                              values + first, &ld);
  });
  return VES_GOOD;
}

// ---------------------------------------------------------------- norms and reductions

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::Norm(const VesVectorBase& vecX, bool global) {
  if (vecX.nCols != this->nRows || this->nCols != 1) return VES_ERR_INCOMPATIBLE;
  if (!IsDense<Scalar>(vecX)) return VES_ERR_UNSUPPORTED;
  const VectorDense& x = AsDense<Scalar>(vecX);
  ShareColumns(x.nRows, x.nCols,
               [&](int j) { (*this)(j) = ColumnProduct(x.nRows, x.Column(j), x.Column(j)); });
  if (global) this->AllReduce(MPI_SUM, this->comm);
  for (int j = 0; j < this->nRows; ++j)
    (*this)(j) = std::sqrt((*this)(j));
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::Normalize(VesVectorBase& vecY, bool global) {
  if (!this->CompareDims(vecY)) return VES_ERR_INCOMPATIBLE;
  VectorDense& y = IsDense<Scalar>(vecY) ? AsDense<Scalar>(vecY) : *this;
  std::vector<Scalar> sums = LocalProducts(y);
  if (global) MpiWrapper<Scalar>::AllReduce(sums.data(), sums.size() - 1, MPI_SUM, this->comm);
  ScaleToUnit(y, sums);
  return VES_GOOD;
}

template <typename Scalar>
std::vector<Scalar> VectorDense<Scalar>::LocalProducts(const VectorDense& y) const {
  std::vector<Scalar> products(static_cast<std::size_t>(this->nCols) + 1);
  ShareColumns(this->nRows, this->nCols, [&](int j) {
    products[static_cast<std::size_t>(j)] = ColumnProduct(this->nRows, Column(j), y.Column(j));
  });
  return products;
}

template <typename Scalar>
void VectorDense<Scalar>::ScaleToUnit(VectorDense& y, const std::vector<Scalar>& sums) {
  const bool paired = !IsEqual(y);
  ShareColumns(this->nRows, this->nCols, [&](int j) {
    const Scalar factor = MathConstants<Scalar>::ONE / std::sqrt(sums[static_cast<std::size_t>(j)]);
    MathKernel<Scalar>::Scal(&this->nRows, &factor, Column(j), &MathConstants<int>::ONE);
    if (paired)
      MathKernel<Scalar>::Scal(&this->nRows, &factor, y.Column(j), &MathConstants<int>::ONE);
  });
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::AllReduce(MPI_Op op, MPI_Comm overComm) {
  return static_cast<VesReturnCode>(
      ReduceInPlace(values, NumEntries(), MpiType<Scalar>(), op, overComm));
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::BroadCast(MPI_Comm overComm) {
  const MPI_Datatype type = MpiType<Scalar>();
  return static_cast<VesReturnCode>(
      InMessages(values, NumEntries(), type, [&](void* start, int count) {
        return MPI_Bcast(start, count, type, 0, overComm);
      }));
}

VES_INSTANTIATE(VectorDense);

} // namespace Ves
