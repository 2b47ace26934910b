#include "cholesky_qr.h"

#include "../cholesky/scalapack_chol.h"
#include "pass_loop.h"

namespace Ves {

namespace {

/// Columns of n that have a factor, from the info of the factorization.
int ColumnRank(int info, int n) {
  return info > 0 ? info - 1 : (info == 0 ? n : 0);
}

} // namespace

template <typename Scalar>
CholeskyQR<Scalar>::CholeskyQR() : CholeskyFactorizer(std::make_unique<ScaLapackChol<Scalar>>()) {}

template <typename Scalar>
VesReturnCode CholeskyQR<Scalar>::Run4Dense(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                            VectorDense<Scalar>& vecAX, const VesMatrixBase&,
                                            int& colRank, bool global, int maxOrthoIter,
                                            double threshold) {
  return RepeatPasses(
      maxOrthoIter, threshold, vecX.auxComm,
      [&] { return this->CholQR(vecX, vecBX, vecAX, colRank, global); },
      [&] {
        double error = 0.0;
        VES_ASSERT_GOOD(vecX.CheckOrthogonality(vecBX, error, true, global));
        return error;
      });
}

template <typename Scalar>
VesReturnCode
CholeskyQR<Scalar>::RunBatch4Dense(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                   VectorDense<Scalar>& vecAX, const std::vector<int>& dispX,
                                   std::vector<int>& nXs, const VesMatrixBase&, bool global,
                                   int maxOrthoIter, double threshold) {
  std::vector<double> errors(nXs.size(), 0.0);
  return RepeatPasses(
      maxOrthoIter, threshold, vecX.auxComm,
      [&] { return this->BatchCholQR(vecX, vecBX, vecAX, dispX, nXs, global); },
      [&] {
        VES_ASSERT_GOOD(
            vecX.CheckBatchOrthogonality(vecBX, dispX, nXs, dispX, nXs, errors, true, global));
        return LargestError(errors, nXs);
      });
}

template <typename Scalar>
VesReturnCode CholeskyQR<Scalar>::CholQR(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                         VectorDense<Scalar>& vecAX, int& colRank, bool global) {
  const ImageUpdates images(vecX, vecBX, vecAX);
  const int n = vecX.nCols;
  int info = -1;
  VectorDense<Scalar> vecM, subM, subX, subBX, subAX;
  VES_ASSERT_GOOD(vecM.DuplicateShape(vecX));
  vecM.SetDims(n, n, n);
  VES_ASSERT_GOOD(vecM.AllocateMem());
  VES_ASSERT_GOOD(vecM.InnerProduct(vecX, vecBX, global));
  VES_ASSERT_GOOD(this->CholeskyFactorizer->RunChol(vecM, info, 'U'));
  colRank = ColumnRank(info, n);

  VES_ASSERT_GOOD(subX.SubVector(vecX, 0, 0, vecX.nRows, colRank));
  VES_ASSERT_GOOD(subBX.SubVector(vecBX, 0, 0, vecBX.nRows, colRank));
  VES_ASSERT_GOOD(subAX.SubVector(vecAX, 0, 0, vecAX.nRows, colRank));
  VES_ASSERT_GOOD(subM.SubVector(vecM, 0, 0, colRank, colRank));
  VES_ASSERT_GOOD(subX.TriangularSolve(subM, 'R', 'U', 'N', 'N'));
  if (images.needB) VES_ASSERT_GOOD(subBX.TriangularSolve(subM, 'R', 'U', 'N', 'N'));
  if (images.needA) VES_ASSERT_GOOD(subAX.TriangularSolve(subM, 'R', 'U', 'N', 'N'));
  VES_ASSERT_GOOD(vecM.FreeMem());
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode CholeskyQR<Scalar>::BatchCholQR(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                              VectorDense<Scalar>& vecAX,
                                              const std::vector<int>& dispX, std::vector<int>& nXs,
                                              bool global) {
  const ImageUpdates images(vecX, vecBX, vecAX);
  const GroupLayout layout(nXs, nXs);
  VectorDense<Scalar> vecM, subM, subX, subBX, subAX;
  VES_ASSERT_GOOD(vecM.DuplicateShape(vecX));
  vecM.SetDims(layout.maxRows, layout.sumCols, layout.maxRows);
  VES_ASSERT_GOOD(vecM.AllocateMem());
  VES_ASSERT_GOOD(vecM.Set2Zero());
  for (std::size_t j = 0; j < nXs.size(); ++j) {
    VES_ASSERT_GOOD(subM.SubVector(vecM, 0, layout.offsets[j], nXs[j], nXs[j]));
    VES_ASSERT_GOOD(subX.SubVector(vecX, 0, dispX[j], vecX.nRows, nXs[j]));
    VES_ASSERT_GOOD(subBX.SubVector(vecBX, 0, dispX[j], vecBX.nRows, nXs[j]));
    VES_ASSERT_GOOD(subM.InnerProduct(subX, subBX, false));
  }
  if (global) VES_ASSERT_GOOD(vecM.AllReduce(MPI_SUM, vecM.comm));

  for (std::size_t j = 0; j < nXs.size(); ++j) {
    int info = -1;
    VES_ASSERT_GOOD(subM.SubVector(vecM, 0, layout.offsets[j], nXs[j], nXs[j]));
    VES_ASSERT_GOOD(this->CholeskyFactorizer->RunChol(subM, info, 'U'));
    nXs[j] = ColumnRank(info, nXs[j]);
    VES_ASSERT_GOOD(subM.SubVector(vecM, 0, layout.offsets[j], nXs[j], nXs[j]));
    VES_ASSERT_GOOD(subX.SubVector(vecX, 0, dispX[j], vecX.nRows, nXs[j]));
    VES_ASSERT_GOOD(subBX.SubVector(vecBX, 0, dispX[j], vecX.nRows, nXs[j]));
    VES_ASSERT_GOOD(subAX.SubVector(vecAX, 0, dispX[j], vecX.nRows, nXs[j]));
    VES_ASSERT_GOOD(subX.TriangularSolve(subM, 'R', 'U', 'N', 'N'));
    if (images.needB) VES_ASSERT_GOOD(subBX.TriangularSolve(subM, 'R', 'U', 'N', 'N'));
    if (images.needA) VES_ASSERT_GOOD(subAX.TriangularSolve(subM, 'R', 'U', 'N', 'N'));
  }
  VES_ASSERT_GOOD(vecM.FreeMem());
  return VES_GOOD;
}

VES_INSTANTIATE(CholeskyQR);

} // namespace Ves
