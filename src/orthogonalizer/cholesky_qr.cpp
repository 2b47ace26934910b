#include "cholesky_qr.h"

#include "../cholesky/scalapack_chol.h"
#include "../data/imaged.h"
#include "../data/replicate.h"
#include "../parallel/blacs_wrapper.h"
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
      [&](bool) { return this->CholQR(vecX, vecBX, vecAX, colRank, global); },
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
      [&](bool) { return this->BatchCholQR(vecX, vecBX, vecAX, dispX, nXs, global); },
      [&] {
        VES_ASSERT_GOOD(
            vecX.CheckBatchOrthogonality(vecBX, dispX, nXs, dispX, nXs, errors, true, global));
        return LargestError(errors, nXs);
      });
}

template <typename Scalar>
VesReturnCode CholeskyQR<Scalar>::CholQR(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                         VectorDense<Scalar>& vecAX, int& colRank, bool global) {
  std::vector<int> ranks{vecX.nCols};
  const VesReturnCode code = BatchCholQR(vecX, vecBX, vecAX, {0}, ranks, global);
  colRank = ranks.front();
  return code;
}

template <typename Scalar>
VesReturnCode CholeskyQR<Scalar>::BatchCholQR(VectorDense<Scalar>& vecX, VectorDense<Scalar>& vecBX,
                                              VectorDense<Scalar>& vecAX,
                                              const std::vector<int>& dispX, std::vector<int>& nXs,
                                              bool global) {
  const Imaged<Scalar> all(vecX, vecBX, vecAX);
  const auto grams = TakeOrForm(this->knownGrams, vecX, {dispX, nXs}, vecBX, {dispX, nXs}, global);
  const std::vector<int> infos = Factorize(*grams, nXs);
  for (std::size_t j = 0; j < nXs.size(); ++j) {
    nXs[j] = ColumnRank(infos[j], nXs[j]);
    const VectorDense<Scalar> factor((*grams)[j], 0, 0, nXs[j], nXs[j]);
    all.Columns(dispX[j], nXs[j]).ForEach([&](VectorDense<Scalar>& x) {
      VES_ASSERT_GOOD(x.TriangularSolve(factor, 'R', 'U', 'N', 'N'));
    });
  }
  return VES_GOOD;
}

/// Several small matrices are factorized by every process, and the factors of process 0 count, in
/// two broadcasts whatever their number. \return the info of each
template <typename Scalar>
std::vector<int> CholeskyQR<Scalar>::Factorize(GroupProducts<Scalar>& grams,
                                               const std::vector<int>& widths) {
  const bool isLocal = widths.size() > 1 && grams.Packed().nRows < gridFrom;
  std::vector<int> infos(widths.size(), -1);
  for (std::size_t j = 0; j < widths.size(); ++j) {
    VectorDense<Scalar> gram = grams[j];
    if (isLocal) gram.SetShape(MPI_COMM_SELF, MPI_COMM_SELF, gram.nRows, gram.nCols, gram.ld);
    VES_ASSERT_GOOD(this->CholeskyFactorizer->RunChol(gram, infos[j], 'U'));
  }
  if (isLocal) {
    VectorDense<Scalar>& all = grams.Packed();
    Replicate(all);
    Replicate(infos.data(), static_cast<int>(infos.size()), all.comm, all.auxComm);
  }
  return infos;
}

VES_INSTANTIATE(CholeskyQR);

} // namespace Ves
