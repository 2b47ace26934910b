#include "svd_qr.h"

#include "../eigensolver/scalapack_diag.h"
#include "pass_loop.h"

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

/// sub := vec V diag(d), where sub is the leading columns of vec; vecT is scratch of its shape.
template <typename Scalar>
void RotateAndScale(VectorDense<Scalar>& vecT, const VectorDense<Scalar>& vec,
                    const VectorDense<Scalar>& subM, const VectorDense<Scalar>& subD,
                    VectorDense<Scalar>& subX) {
  VES_ASSERT_GOOD(vecT.Gemm(vec, subM));
  VES_ASSERT_GOOD(subX.CopyData(vecT));
  VES_ASSERT_GOOD(subX.ScaleByVec(subD));
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
      [&] { return this->SvQR(vecX, vecBX, vecAX, colRank, global); },
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
      [&] { return this->BatchSvQR(vecX, vecBX, vecAX, dispX, nXs, global); },
      [&] {
        VES_ASSERT_GOOD(
            vecX.CheckBatchOrthogonality(vecBX, dispX, nXs, dispX, nXs, errors, true, global));
        return LargestError(errors, nXs);
      });
}

template <typename Scalar>
VesReturnCode SvdQR<Scalar>::SvQR(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                  VectorDense<Scalar>& vecAX, int& colRank, bool global) {
  const ImageUpdates images(vecX, vecBX, vecAX);
  const int n = vecX.nCols;
  int info = -1;
  VectorDense<Scalar> vecM, vecD, vecT, subM, subD, subX, subBX, subAX;
  VES_ASSERT_GOOD(vecM.DuplicateShape(vecX));
  VES_ASSERT_GOOD(vecD.DuplicateShape(vecX));
  vecM.SetDims(n, n, n);
  vecD.SetDims(n, 1, n);
  VES_ASSERT_GOOD(vecM.AllocateMem());
  VES_ASSERT_GOOD(vecD.AllocateMem());
  VES_ASSERT_GOOD(vecM.InnerProduct(vecX, vecBX, global));
  VES_ASSERT_GOOD(vecM.ScaleByVal(MathConstants<Scalar>::NEG_ONE));
  VES_ASSERT_GOOD(this->DenseEigenSolver->RunEvd(vecM, vecD, info));
  colRank = 0;
  if (info != 0) return VES_ERR_INCOMPATIBLE;
  VES_ASSERT_GOOD(vecD.ScaleByVal(MathConstants<Scalar>::NEG_ONE));
  colRank = InvertSingularValues(vecD);

  VES_ASSERT_GOOD(vecT.DuplicateShape(vecX));
  vecT.SetDims(vecX.nRows, colRank, vecX.nRows);
  VES_ASSERT_GOOD(vecT.AllocateMem());
  VES_ASSERT_GOOD(subM.SubVector(vecM, 0, 0, vecM.nRows, colRank));
  VES_ASSERT_GOOD(subD.SubVector(vecD, 0, 0, colRank, 1));
  VES_ASSERT_GOOD(subX.SubVector(vecX, 0, 0, vecX.nRows, colRank));
  VES_ASSERT_GOOD(subBX.SubVector(vecBX, 0, 0, vecBX.nRows, colRank));
  VES_ASSERT_GOOD(subAX.SubVector(vecAX, 0, 0, vecAX.nRows, colRank));
  RotateAndScale(vecT, vecX, subM, subD, subX);
  if (images.needB) RotateAndScale(vecT, vecBX, subM, subD, subBX);
  if (images.needA) RotateAndScale(vecT, vecAX, subM, subD, subAX);
  VES_ASSERT_GOOD(vecT.FreeMem());
  VES_ASSERT_GOOD(vecD.FreeMem());
  VES_ASSERT_GOOD(vecM.FreeMem());
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode SvdQR<Scalar>::BatchSvQR(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                       VectorDense<Scalar>& vecAX, const std::vector<int>& dispX,
                                       std::vector<int>& nXs, bool global) {
  const ImageUpdates images(vecX, vecBX, vecAX);
  const GroupLayout layout(nXs, nXs);
  VectorDense<Scalar> vecM, vecD, vecT, subM, subD, subT, subX, subX1;
  VES_ASSERT_GOOD(vecM.DuplicateShape(vecX));
  VES_ASSERT_GOOD(vecD.DuplicateShape(vecX));
  VES_ASSERT_GOOD(vecT.DuplicateShape(vecX));
  vecM.SetDims(layout.maxRows, layout.sumCols, layout.maxRows);
  vecD.SetDims(layout.maxRows, 1, layout.maxRows);
  vecT.SetDims(vecX.nRows, layout.maxRows, vecX.nRows);
  VES_ASSERT_GOOD(vecM.AllocateMem());
  VES_ASSERT_GOOD(vecD.AllocateMem());
  VES_ASSERT_GOOD(vecT.AllocateMem());
  VES_ASSERT_GOOD(vecM.Set2Zero());
  for (std::size_t j = 0; j < nXs.size(); ++j) {
    VES_ASSERT_GOOD(subM.SubVector(vecM, 0, layout.offsets[j], nXs[j], nXs[j]));
    VES_ASSERT_GOOD(subX.SubVector(vecX, 0, dispX[j], vecX.nRows, nXs[j]));
    VES_ASSERT_GOOD(subX1.SubVector(vecBX, 0, dispX[j], vecBX.nRows, nXs[j]));
    VES_ASSERT_GOOD(subM.InnerProduct(subX, subX1, false));
  }
  if (global) VES_ASSERT_GOOD(vecM.AllReduce(MPI_SUM, vecM.comm));

  for (std::size_t j = 0; j < nXs.size(); ++j) {
    int info = -1;
    VES_ASSERT_GOOD(subM.SubVector(vecM, 0, layout.offsets[j], nXs[j], nXs[j]));
    VES_ASSERT_GOOD(subD.SubVector(vecD, 0, 0, nXs[j], 1));
    VES_ASSERT_GOOD(subM.ScaleByVal(MathConstants<Scalar>::NEG_ONE));
    VES_ASSERT_GOOD(this->DenseEigenSolver->RunEvd(subM, subD, info));
    if (info != 0) {
      nXs[j] = 0;
      continue;
    }
    VES_ASSERT_GOOD(subD.ScaleByVal(MathConstants<Scalar>::NEG_ONE));
    const int colRank = InvertSingularValues(subD);
    VES_ASSERT_GOOD(subM.SubVector(vecM, 0, layout.offsets[j], nXs[j], colRank));
    VES_ASSERT_GOOD(subD.SubVector(vecD, 0, 0, colRank, 1));
    VES_ASSERT_GOOD(subT.SubVector(vecT, 0, 0, vecX.nRows, colRank));
    const auto rotate = [&](VectorDense<Scalar>& vec) {
      VES_ASSERT_GOOD(subX.SubVector(vec, 0, dispX[j], vec.nRows, nXs[j]));
      VES_ASSERT_GOOD(subX1.SubVector(vec, 0, dispX[j], vec.nRows, colRank));
      RotateAndScale(subT, subX, subM, subD, subX1);
    };
    rotate(vecX);
    if (images.needB) rotate(vecBX);
    if (images.needA) rotate(vecAX);
    nXs[j] = colRank;
  }
  VES_ASSERT_GOOD(vecT.FreeMem());
  VES_ASSERT_GOOD(vecD.FreeMem());
  VES_ASSERT_GOOD(vecM.FreeMem());
  return VES_GOOD;
}

VES_INSTANTIATE(SvdQR);

} // namespace Ves
