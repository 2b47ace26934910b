#include "svd_qr.h"

#include "../eigensolver/scalapack_diag.h"
#include "pass_loop.h"

#include <algorithm>

namespace Ves {

namespace {

/// Counts the leading singular values above the floor and replaces the eigenvalues behind them
/// by their inverses. The root of a negative eigenvalue is a NaN, which ends the count.
template <typename Scalar>
int InvertSingularValues(VectorDense<Scalar>& vecD) {
  int colRank = 0;
  while (colRank < vecD.nRows) {
    const RealType<Scalar> singular = std::sqrt(std::real(vecD(colRank)));
    if (!(static_cast<double>(singular) > SvdQR<Scalar>::singularFloor)) break;
    vecD(colRank) = 1 / singular;
    ++colRank;
  }
  return colRank;
}

} // namespace

template <typename Scalar>
SvdQR<Scalar>::SvdQR() : DenseEigenSolver(std::make_unique<ScaLapackDiag<Scalar>>()) {}

template <typename Scalar>
VesReturnCode SvdQR<Scalar>::Run4Dense(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                       VectorDense<Scalar>& vecAX, const VesMatrixBase&,
                                       int& colRank, bool global, int maxOrthoIter,
                                       double threshold) {
  return RepeatPasses(
      maxOrthoIter, threshold, vecX.auxComm,
      [&](bool) { return this->SvQR(vecX, vecBX, vecAX, colRank, global); },
      [&] {
        double error = 0.0;
        VES_ASSERT_GOOD(vecX.CheckOrthogonality(vecBX, error, true, global));
        return error;
      });
}

template <typename Scalar>
VesReturnCode SvdQR<Scalar>::RunBatch4Dense(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                            VectorDense<Scalar>& vecAX,
                                            const std::vector<int>& dispX, std::vector<int>& nXs,
                                            const VesMatrixBase&, bool global, int maxOrthoIter,
                                            double threshold) {
  std::vector<double> errors(nXs.size(), 0.0);
  return RepeatPasses(
      maxOrthoIter, threshold, vecX.auxComm,
      [&](bool) { return this->BatchSvQR(vecX, vecBX, vecAX, dispX, nXs, global); },
      [&] {
        VES_ASSERT_GOOD(
            vecX.CheckBatchOrthogonality(vecBX, dispX, nXs, dispX, nXs, errors, true, global));
        return LargestError(errors, nXs);
      });
}

template <typename Scalar>
VesReturnCode SvdQR<Scalar>::SvQR(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                  VectorDense<Scalar>& vecAX, int& colRank, bool global) {
  std::vector<int> ranks{vecX.nCols};
  const bool isDone = RunGroups(vecX, vecBX, vecAX, {0}, ranks, global);
  colRank = ranks.front();
  return isDone ? VES_GOOD : VES_ERR_INCOMPATIBLE;
}

template <typename Scalar>
VesReturnCode SvdQR<Scalar>::BatchSvQR(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                       VectorDense<Scalar>& vecAX, const std::vector<int>& dispX,
                                       std::vector<int>& nXs, bool global) {
  RunGroups(vecX, vecBX, vecAX, dispX, nXs, global);
  return VES_GOOD;
}

/// \return every Gram matrix could be decomposed
template <typename Scalar>
bool SvdQR<Scalar>::RunGroups(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                              VectorDense<Scalar>& vecAX, const std::vector<int>& dispX,
                              std::vector<int>& nXs, bool global) {
  const Imaged<Scalar> all(vecX, vecBX, vecAX);
  const auto grams = TakeOrForm(this->knownGrams, vecX, {dispX, nXs}, vecBX, {dispX, nXs}, global);
  bool areDone = true;
  for (std::size_t j = 0; j < nXs.size(); ++j) {
    const Imaged<Scalar> group = all.Columns(dispX[j], nXs[j]);
    nXs[j] = TransformGroup(group, (*grams)[j]);
    areDone = areDone && nXs[j] >= 0;
    nXs[j] = std::max(nXs[j], 0);
  }
  return areDone;
}

/// The leading columns of X := X V diag(lambda)^-1/2 with the Gram matrix V diag(lambda) V^H,
/// images alike. \return their number, or -1 where the matrix cannot be decomposed
template <typename Scalar>
int SvdQR<Scalar>::TransformGroup(const Imaged<Scalar>& group, VectorDense<Scalar> gram) {
  const int n = group.Count();
  VectorDense<Scalar> singular(gram.comm, gram.auxComm, n, 1, n);
  VES_ASSERT_GOOD(singular.AllocateMem());
  int info = -1;
  VES_ASSERT_GOOD(gram.ScaleByVal(MathConstants<Scalar>::NEG_ONE)); // the largest first
  VES_ASSERT_GOOD(this->DenseEigenSolver->RunEvd(gram, singular, info));
  if (info != 0) return -1;
  VES_ASSERT_GOOD(singular.ScaleByVal(MathConstants<Scalar>::NEG_ONE));
  const int colRank = InvertSingularValues(singular);
  const VectorDense<Scalar> rotation(gram, 0, 0, n, colRank), scales(singular, 0, 0, colRank, 1);
  const int rows = group.X.nRows;
  VectorDense<Scalar> rotated(gram.comm, gram.auxComm, rows, colRank, rows);
  VES_ASSERT_GOOD(rotated.AllocateMem()); // only now, when the decomposition has given its own back
  group.ForEachWith(group.Columns(0, colRank),
                    [&](const VectorDense<Scalar>& from, VectorDense<Scalar>& to) {
                      VES_ASSERT_GOOD(rotated.Gemm(from, rotation));
                      VES_ASSERT_GOOD(to.CopyData(rotated));
                      VES_ASSERT_GOOD(to.ScaleByVec(scales));
                    });
  return colRank;
}

VES_INSTANTIATE(SvdQR);

} // namespace Ves
