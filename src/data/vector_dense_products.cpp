#include "vector_dense.h"

#include "matrix_base.h"
#include "shared_products.h"

#include <algorithm>
#include <numeric>
#include <vector>

namespace Ves {

namespace {

template <typename Real>
[[gnu::always_inline]] inline Real FusedMultiplyAdd(Real a, Real b, Real c) {
  return std::fma(a, b, c);
}

template <typename Real>
[[gnu::always_inline]] inline std::complex<Real> FusedMultiplyAdd(const std::complex<Real>& a,
                                                                  const std::complex<Real>& b,
                                                                  const std::complex<Real>& c) {
  return {std::fma(-a.imag(), b.imag(), std::fma(a.real(), b.real(), c.real())),
          std::fma(a.imag(), b.real(), std::fma(a.real(), b.imag(), c.imag()))};
}

/// r := x + (sign y) d for one column, a fused multiply-add an entry. Compiled once for any
/// processor and once for those that have the instruction, where the call of a library routine
/// would take longer than the pass over memory; the results are the same.
template <typename Scalar>
[[gnu::always_inline]] inline void AddScaled(int n, const Scalar* x, const Scalar* y, Scalar d,
                                             RealType<Scalar> sign, Scalar* r) {
  for (int i = 0; i < n; ++i)
    r[i] = FusedMultiplyAdd(sign * y[i], d, x[i]);
}

template <typename Scalar>
void AddScaledAnywhere(int n, const Scalar* x, const Scalar* y, Scalar d, RealType<Scalar> sign,
                       Scalar* r) {
  AddScaled(n, x, y, d, sign, r);
}

#ifdef __x86_64__
template <typename Scalar>
[[gnu::target("avx2,fma")]] void AddScaledByInstruction(int n, const Scalar* x, const Scalar* y,
                                                        Scalar d, RealType<Scalar> sign,
                                                        Scalar* r) {
  AddScaled(n, x, y, d, sign, r);
}
#endif

template <typename Scalar>
auto ColumnUpdate() {
#ifdef __x86_64__
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("fma"))
    return AddScaledByInstruction<Scalar>;
#endif
  return AddScaledAnywhere<Scalar>;
}

/// Largest modulus of the entries of a column; NaN when one is a NaN.
template <typename Scalar>
double LargestModulus(const VectorDense<Scalar>& column) {
  double largest = 0.0;
  for (int i = 0; i < column.nRows; ++i) {
    const double modulus = static_cast<double>(std::abs(column(i)));
    if (!(modulus <= largest) && !std::isnan(largest)) largest = modulus;
  }
  return largest;
}

std::size_t Index(int i) {
  return static_cast<std::size_t>(i);
}

bool IsPlain(char trans) {
  return trans == 'N' || trans == 'n';
}

} // namespace

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::Gemm(const VesVectorBase& vecX, const VesVectorBase& vecY,
                                        char transa, char transb, int alpha, int beta) {
  const int m = IsPlain(transa) ? vecX.nRows : vecX.nCols;
  const int k = IsPlain(transa) ? vecX.nCols : vecX.nRows;
  const int k2 = IsPlain(transb) ? vecY.nRows : vecY.nCols;
  const int n = IsPlain(transb) ? vecY.nCols : vecY.nRows;
  if (k != k2 || this->nRows != m || this->nCols != n) return VES_ERR_INCOMPATIBLE;
  if (!AllDense<Scalar>(vecX, vecY)) return VES_ERR_UNSUPPORTED;
  const VectorDense& x = AsDense<Scalar>(vecX);
  const VectorDense& y = AsDense<Scalar>(vecY);
  const auto typedAlpha = static_cast<Scalar>(static_cast<RealType<Scalar>>(alpha));
  const auto typedBeta = static_cast<Scalar>(static_cast<RealType<Scalar>>(beta));
  if (!IsPlain(transa) && IsPlain(transb) && beta == 0) {
    SumOverRows<Scalar>(k, {values, m, n, ld}, [&](int first, int rows, const auto& sum) {
      MathKernel<Scalar>::Gemm(&transa, &transb, &m, &n, &rows, &typedAlpha, x.values + first,
                               &x.ld, y.values + first, &y.ld, &typedBeta, sum.values, &sum.ld);
    });
    return VES_GOOD;
  }
  InShares(Shares(m, IsPlain(transa) ? leastRows : m), [&](int, int first, int rows) {
    MathKernel<Scalar>::Gemm(&transa, &transb, &rows, &n, &k, &typedAlpha, x.values + first, &x.ld,
                             y.values, &y.ld, &typedBeta, values + first, &ld);
  });
  return VES_GOOD;
}

/// this = X^H X: one triangle, then its mirror image.
template <typename Scalar>
VesReturnCode VectorDense<Scalar>::Gram(const VectorDense& x) {
  const int n = x.nCols;
  if (this->nRows != n || this->nCols != n) return VES_ERR_INCOMPATIBLE;
  SumOverRows<Scalar>(x.nRows, {values, n, n, ld}, [&](int first, int rows, const auto& sum) {
    MathKernel<Scalar>::Herk("U", "C", &n, &rows, &MathConstants<RealType<Scalar>>::ONE,
                             x.values + first, &x.ld, &MathConstants<RealType<Scalar>>::ZERO,
                             sum.values, &sum.ld);
  });
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < j; ++i)
      (*this)(j, i) = Conjugate((*this)(i, j));
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::InnerProduct(const VesVectorBase& vecX,
                                                const VesVectorBase& vecY, bool global) {
  const bool isGram = IsDense<Scalar>(vecX) && vecX.IsEqual(vecY);
  const VesReturnCode code =
      isGram ? Gram(AsDense<Scalar>(vecX)) : this->Gemm(vecX, vecY, 'C', 'N', 1, 0);
  if (code != VES_GOOD || !global) return code;
  return this->AllReduce(MPI_SUM, this->comm);
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::TriangularSolve(const VesVectorBase& vecM, char side, char uplo,
                                                   char trans, char diag) {
  if (vecM.nRows != vecM.nCols) return VES_ERR_INVALID_VALUE;
  const bool fits =
      (side == 'L' && vecM.nRows == this->nRows) || (side == 'R' && vecM.nRows == this->nCols);
  if (!fits) return VES_ERR_INCOMPATIBLE;
  if (!IsDense<Scalar>(vecM)) return VES_ERR_UNSUPPORTED;
  const VectorDense& m = AsDense<Scalar>(vecM);
  const Shares shares(this->nRows, side == 'R' ? leastRows : this->nRows);
  InShares(shares, [&](int, int first, int rows) {
    MathKernel<Scalar>::Trsm(&side, &uplo, &trans, &diag, &rows, &this->nCols,
                             &MathConstants<Scalar>::ONE, m.values, &m.ld, values + first, &ld);
  });
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::ScaleAdd(const VesVectorBase& vecX, const VesVectorBase& vecY,
                                            const VesVectorBase& vecD, int sign) {
  if (!this->CompareDims(vecX) || !this->CompareDims(vecY) || vecD.nRows != this->nCols)
    return VES_ERR_INCOMPATIBLE;
  if (!AllDense<Scalar>(vecX, vecY, vecD)) return VES_ERR_UNSUPPORTED;
  const VectorDense& x = AsDense<Scalar>(vecX);
  const VectorDense& y = AsDense<Scalar>(vecY);
  const VectorDense& d = AsDense<Scalar>(vecD);
  const auto typedSign = static_cast<RealType<Scalar>>(sign);
  const auto update = ColumnUpdate<Scalar>();
  ShareColumns(this->nRows, this->nCols, [&](int j) {
    update(this->nRows, x.Column(j), y.Column(j), d(j), typedSign, Column(j));
  });
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::PermuteCols(const VesVectorBase& flags, double tol, int& count) {
  if (flags.nRows != this->nCols || flags.nCols != 1) return VES_ERR_INVALID_VALUE;
  if (IsDataEmpty() || flags.IsDataEmpty()) return VES_ERR_NULL_POINTER;
  if (!IsDense<Scalar>(flags)) return VES_ERR_MISMATCH;
  const VectorDense& v = AsDense<Scalar>(flags);
  const auto isFlagged = [&](int j) { return static_cast<double>(std::abs(v(j))) < std::abs(tol); };
  count = 0;
  for (int j = 0; j < this->nCols; ++j)
    count += isFlagged(j) ? 1 : 0;

  std::vector<Scalar> space(Index(this->nRows));
  const auto copy = [&](const Scalar* from, Scalar* to) {
    MathKernel<Scalar>::Copy(&this->nRows, from, &MathConstants<int>::ONE, to,
                             &MathConstants<int>::ONE);
  };
  // Flags keep their places, so a swapped pair is passed by both cursors.
  for (int i = 0, r = this->nCols - 1; i < r;) {
    while (i < this->nCols && isFlagged(i))
      ++i;
    while (r >= 0 && !isFlagged(r))
      --r;
    if (i < r) {
      copy(Column(i), space.data());
      copy(Column(r), Column(i));
      copy(space.data(), Column(r));
      ++i;
      --r;
    }
  }
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::EigResidual(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                               const VesVectorBase& vecX,
                                               const VesVectorBase& lambda) {
  if (!this->CompareDims(vecX)) return VES_ERR_INCOMPATIBLE;
  if (lambda.nRows != vecX.nCols || lambda.nCols != 1) return VES_ERR_INCOMPATIBLE;
  VectorDense vecAX, vecBX;
  VES_ASSERT_GOOD(vecAX.DuplicateShape(vecX));
  VES_ASSERT_GOOD(vecBX.DuplicateShape(vecX));
  // All storage first: an operator may wait for a process that finds none.
  VES_ASSERT_GOOD(vecAX.AllocateMem());
  if (matB.IsPresent()) VES_ASSERT_GOOD(vecBX.AllocateMem());
  VES_ASSERT_GOOD(matA.Apply(vecX, vecAX));
  if (matB.IsPresent()) {
    VES_ASSERT_GOOD(matB.Apply(vecX, vecBX));
    this->ScaleAdd(vecAX, vecBX, lambda, -1);
    VES_ASSERT_GOOD(vecBX.FreeMem());
  } else {
    this->ScaleAdd(vecAX, vecX, lambda, -1);
  }
  VES_ASSERT_GOOD(vecAX.FreeMem());
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::CheckOrthogonality(const VesVectorBase& vecX, double& error,
                                                      bool minusIdentity, bool global) const {
  if (this->nCols == 0) {
    error = 0.0;
    return VES_GOOD;
  }
  const int nY = this->nCols, nX = vecX.nCols;
  VectorDense vecM;
  VES_ASSERT_GOOD(vecM.DuplicateShape(vecX));
  vecM.SetDims(nY, nX, nY);
  VES_ASSERT_GOOD(vecM.AllocateMem());
  VES_ASSERT_GOOD(vecM.InnerProduct(*this, vecX, global));
  error = vecM.OrthogonalityError(minusIdentity);
  MPI_Bcast(&error, 1, MPI_DOUBLE, 0, this->comm);
  VES_ASSERT_GOOD(vecM.FreeMem());
  return VES_GOOD;
}

template <typename Scalar>
double VectorDense<Scalar>::OrthogonalityError(bool minusIdentity) {
  VectorDense norms(this->comm, this->auxComm, this->nCols, 1, this->nCols);
  VES_ASSERT_GOOD(norms.AllocateMem());
  for (int j = 0; minusIdentity && j < std::min(this->nRows, this->nCols); ++j)
    (*this)(j, j) -= MathConstants<Scalar>::ONE;
  VES_ASSERT_GOOD(norms.Norm(*this, false));
  return LargestModulus(norms) / std::sqrt(static_cast<double>(this->nRows));
}

template <typename Scalar>
VesReturnCode VectorDense<Scalar>::CheckBatchOrthogonality(
    const VesVectorBase& vecX, const std::vector<int>& dispY, const std::vector<int>& nYs,
    const std::vector<int>& dispX, const std::vector<int>& nXs, std::vector<double>& errors,
    bool minusIdentity, bool global) const {
  if (nXs.empty()) return VES_GOOD;
  const int maxNY = *std::max_element(nYs.begin(), nYs.end());
  std::vector<int> offsetX(nXs.size(), 0);
  std::partial_sum(nXs.begin(), nXs.end() - 1, offsetX.begin() + 1);
  const int sumNX = offsetX.back() + nXs.back();

  VectorDense vecM(vecX.comm, vecX.auxComm, maxNY, sumNX, maxNY);
  VES_ASSERT_GOOD(vecM.AllocateMem());
  VES_ASSERT_GOOD(vecM.Set2Zero());
  for (std::size_t j = 0; j < nXs.size(); ++j) {
    VectorDense subM, subX, subY;
    VES_ASSERT_GOOD(subM.SubVector(vecM, 0, offsetX[j], nYs[j], nXs[j]));
    VES_ASSERT_GOOD(subX.SubVector(vecX, 0, dispX[j], vecX.nRows, nXs[j]));
    VES_ASSERT_GOOD(subY.SubVector(*this, 0, dispY[j], this->nRows, nYs[j]));
    VES_ASSERT_GOOD(subM.InnerProduct(subY, subX, false));
  }
  if (global) VES_ASSERT_GOOD(vecM.AllReduce(MPI_SUM, vecM.comm));
  for (std::size_t j = 0; j < nXs.size(); ++j) {
    VectorDense subM;
    VES_ASSERT_GOOD(subM.SubVector(vecM, 0, offsetX[j], nYs[j], nXs[j]));
    errors[j] = subM.OrthogonalityError(minusIdentity);
  }
  VES_ASSERT_GOOD(vecM.FreeMem());
  return VES_GOOD;
}

VES_INSTANTIATE(VectorDense);

} // namespace Ves
