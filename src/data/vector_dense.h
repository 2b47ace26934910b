#ifndef VES_DATA_VECTOR_DENSE_H
#define VES_DATA_VECTOR_DENSE_H

#include "../kernel/math_kernel.h"
#include "assertion.h"
#include "vector_base.h"

#include <cstddef>
#include <vector>

namespace Ves {

/// The library's one type for numbers: a block of nCols columns of nRows entries, column-major.
/// - A tall block (eigenvectors, images, residuals) is distributed by rows over comm.
/// - A small matrix (Gram, Rayleigh-Ritz, factor) is held whole by every process.
/// - A column of scalars (eigenvalues, norms) has nCols = 1.
/// Storage is the block's own after AllocateMem; storage given by SetValues and views made by
/// SubVector are never freed, and a view must be taken into a block that owns nothing.
///
/// Return codes are fixed per operation. "Dense" below: a dense block of the same scalar type.
template <typename Scalar>
class VES_EXPORT VectorDense : public VesVectorBase {
public:
  Scalar* values = nullptr; ///< entry (i, j) is values[i + j ld]
  int ld = 1;               ///< leading dimension, at least 1; the caller keeps it >= nRows
  bool ownsValues = false;  ///< values came from AllocateMem

  VectorDense();
  /// Shape without storage; leadingDim below 1 becomes 1, here and wherever it is set.
  VectorDense(MPI_Comm rowComm, MPI_Comm secondComm, int rows, int cols, int leadingDim);
  /// A view of the rectangle of parent that starts at (rowOffset, colOffset) and lies inside it.
  VectorDense(const VectorDense& parent, int rowOffset, int colOffset, int rows, int cols);
  ~VectorDense() override;

  /// \name Shape and storage
  /// The setters change the named fields, touch no memory and check nothing.
  /// @{
  void SetLd(int leadingDim);
  void SetDims(int rows, int cols, int leadingDim);
  void SetShape(MPI_Comm rowComm, MPI_Comm secondComm, int rows, int cols, int leadingDim);
  void SetValues(Scalar* storage) { values = storage; }
  int GetLd() const { return ld; }
  Scalar* GetValues() const { return values; }
  Scalar& operator()(int i, int j = 0) const { return values[Offset(i, j)]; }
  /// First entry of a column; null where there is no storage.
  Scalar* Column(int j) const { return values == nullptr ? nullptr : values + Offset(0, j); }

  bool IsDataEmpty() const override { return values == nullptr; }
  /// Same shape, communicators and leading dimension, and both dense.
  bool CompareShape(const VesVectorBase& other) const override;
  /// CompareShape and the same storage: two views of one thing.
  bool IsEqual(const VesVectorBase& other) const override;
  bool operator==(const VesVectorBase& other) const override { return IsEqual(other); }
  bool operator!=(const VesVectorBase& other) const override { return !IsEqual(other); }

  /// Releases what it owns and allocates ld x nCols entries, 64-byte aligned and uninitialised,
  /// with a column of slack behind them.
  /// Throws std::bad_array_new_length when their number is negative or no address space has them.
  VesReturnCode AllocateMem() override;
  /// Releases owned storage. The address is kept: allocate or set storage before the next use.
  VesReturnCode FreeMem() override;
  /// Takes over communicators and dimensions, without storage. \return -4 other is not dense; 0
  VesReturnCode DuplicateShape(const VesVectorBase& other) override;
  /// Becomes a view of the rectangle of other that starts at (rowOffset, colOffset).
  /// \return -2 the rectangle lies outside other; -4 other is not dense; 0
  VesReturnCode SubVector(const VesVectorBase& other, int rowOffset, int colOffset, int rows,
                          int cols) override;
  /// @}

  /// \name Fills, scalings, diagonal, copy
  /// Entries between nRows and ld are never touched.
  /// @{
  VesReturnCode Set2Val(const Scalar& alpha);
  VesReturnCode Set2Zero() override;
  /// Normally distributed entries: one stream over the columns, fixed by seed % 4096 and the
  /// local shape. seed >= 0. \return 0 on an empty block; -6 no storage; 0
  VesReturnCode Set2Random(int seed);
  /// \return 0 on an empty block; -6 no storage; 0
  VesReturnCode ScaleByVal(const Scalar& alpha);
  /// Column j times factors[j]. \return -1 factors is not nCols x 1; -5 not dense; 0
  VesReturnCode ScaleByVec(const VesVectorBase& factors) override;
  /// Becomes diag(diagonal). \return -1 not square or diagonal not nCols x 1; -5 not dense; 0
  VesReturnCode SetDiag(const VesVectorBase& diagonal) override;
  /// This column becomes the diagonal of matrix. \return -1 shapes disagree; -5 not dense; 0
  VesReturnCode GetDiag(const VesVectorBase& matrix) override;
  /// Copies the entries of a block of the same dimensions; other must not overlap this block.
  /// \return -1 dimensions or communicators differ; -4 not dense; 0
  VesReturnCode CopyData(const VesVectorBase& other) override;
  /// @}

  /// \name Norms and whole-block reductions
  /// @{
  /// This column (k x 1) becomes the 2-norms of the k columns of vecX: of the distributed columns
  /// when global (collective over this comm), of the local rows otherwise.
  /// \return -6 this is not k x 1; -4 vecX is not dense; 0
  VesReturnCode Norm(const VesVectorBase& vecX, bool global = true) override;
  /// Scales each column x_j of this block to x_j^H y_j = 1, and y_j by the same factor when vecY
  /// is a second block; with the block itself as vecY, to unit 2-norm. A zero column becomes NaN.
  /// Collective over this comm when global. \return -6 dimensions differ; 0
  VesReturnCode Normalize(VesVectorBase& vecY, bool global = true) override;
  /// Its two halves: x_j^H y_j over the local rows, and one entry more that is zero, so that there
  /// is storage to reduce; and both blocks scaled by the roots of the sums.
  std::vector<Scalar> LocalProducts(const VectorDense& y) const;
  void ScaleToUnit(VectorDense& y, const std::vector<Scalar>& sums);
  /// In-place reduction of all ld x nCols entries, those between nRows and ld included.
  /// Collective over overComm. \return the code of MPI, of the first call that fails where these
  /// are more than an int counts
  VesReturnCode AllReduce(MPI_Op op, MPI_Comm overComm) override;
  /// Broadcast of all ld x nCols entries from process 0. Collective. \return the code of MPI
  VesReturnCode BroadCast(MPI_Comm overComm) override;
  /// @}

  /// \name Products and checks
  /// @{
  /// this = alpha op(X) op(Y) + beta this. 'N' or 'n' takes an operand as it is, any other
  /// character its transposed shape; characters go to BLAS unchanged.
  /// \return -6 shapes disagree; -4 an operand is not dense; 0
  VesReturnCode Gemm(const VesVectorBase& vecX, const VesVectorBase& vecY, char transa = 'N',
                     char transb = 'N', int alpha = 1, int beta = 0) override;
  /// this = X^H Y, summed over this comm when global (one reduction, collective).
  /// \return as Gemm
  VesReturnCode InnerProduct(const VesVectorBase& vecX, const VesVectorBase& vecY,
                             bool global = true) override;
  /// this = op(M)^-1 this (side 'L') or this op(M)^-1 (side 'R').
  /// \return -1 M is not square; -6 M does not fit, or side is neither; -4 M is not dense; 0
  VesReturnCode TriangularSolve(const VesVectorBase& vecM, char side, char uplo, char trans,
                                char diag) override;
  /// this = X + sign Y diag(D); this may be X. \return -6 shapes disagree; -4 not dense; 0
  VesReturnCode ScaleAdd(const VesVectorBase& vecX, const VesVectorBase& vecY,
                         const VesVectorBase& vecD, int sign) override;
  /// Moves the columns j with |flags[j]| < |tol| to the front and counts them; neither group
  /// keeps its order, and flags (nCols x 1) is not permuted.
  /// \return -1 flags is not nCols x 1; -7 a block has no storage; -5 not dense; 0
  VesReturnCode PermuteCols(const VesVectorBase& flags, double tol, int& count) override;
  /// this = A X - B X diag(lambda), with X itself for B X when B is the empty operator.
  /// Collective as far as A and B are. \return -6 shapes disagree; 0
  VesReturnCode EigResidual(const VesMatrixBase& matA, const VesMatrixBase& matB,
                            const VesVectorBase& vecX, const VesVectorBase& lambda) override;
  /// error = max_j ||(Y^H X - I) e_j|| / sqrt(nY), this block being Y; without the identity when
  /// minusIdentity is false. Collective over comm: one reduction when global, one broadcast;
  /// nothing when this block has no columns.
  VesReturnCode CheckOrthogonality(const VesVectorBase& vecX, double& error, bool minusIdentity,
                                   bool global) const override;
  /// The same of this block as Y^H X itself, from which the identity is subtracted. Local.
  double OrthogonalityError(bool minusIdentity);
  /// The same for groups of columns: group b owns nXs[b] columns of X from dispX[b] and nYs[b]
  /// columns of this block from dispY[b]; errors holds an entry per group. One reduction for all
  /// groups when global, no broadcast. A group with nYs[b] = 0 yields NaN.
  VesReturnCode CheckBatchOrthogonality(const VesVectorBase& vecX, const std::vector<int>& dispY,
                                        const std::vector<int>& nYs, const std::vector<int>& dispX,
                                        const std::vector<int>& nXs, std::vector<double>& errors,
                                        bool minusIdentity, bool global) const override;
  /// @}

private:
  std::size_t Offset(int i, int j) const {
    return static_cast<std::size_t>(i) + static_cast<std::size_t>(j) * static_cast<std::size_t>(ld);
  }
  VesReturnCode Gram(const VectorDense& x);
  std::size_t NumEntries() const;
};

/// A dense block of the given scalar type.
template <typename Scalar>
bool IsDense(const VesVectorBase& vec) {
  VesScalarType scalarType = VES_DOUBLE;
  MathKernel<Scalar>::SetScalarType(scalarType);
  return vec.storageType == VES_VECTOR_DENSE && vec.scalarType == scalarType;
}

template <typename Scalar, typename... Others>
bool AllDense(const VesVectorBase& first, const Others&... others) {
  return IsDense<Scalar>(first) && (IsDense<Scalar>(others) && ...);
}

/// The typed block behind a base reference; throws std::bad_cast when it is none.
template <typename Scalar>
const VectorDense<Scalar>& AsDense(const VesVectorBase& vec) {
  return dynamic_cast<const VectorDense<Scalar>&>(vec);
}
template <typename Scalar>
VectorDense<Scalar>& AsDense(VesVectorBase& vec) {
  return dynamic_cast<VectorDense<Scalar>&>(vec);
}

VES_EXTERN_TEMPLATE(VectorDense);

} // namespace Ves

#endif
