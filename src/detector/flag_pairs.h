#ifndef VES_DETECTOR_FLAG_PAIRS_H
#define VES_DETECTOR_FLAG_PAIRS_H

#include "../data/vector_dense.h"
#include "converge_detector.h"

#include <cmath>
#include <limits>
#include <utility>
#include <vector>

namespace Ves {

/// The smallest bound that a norm can be held against: around the root of the smallest number the
/// squares of its entries are lost, and a norm of zero says nothing. Values of that size are held
/// to it, too: the directions that should move them come from such residuals.
template <typename Scalar>
double SmallestBound() {
  return 1e3 * std::sqrt(static_cast<double>(std::numeric_limits<RealType<Scalar>>::min()));
}

template <typename Scalar>
bool IsBelow(double norm, double bound) {
  return norm < bound && bound >= SmallestBound<Scalar>();
}

/// Norms of the k columns of vecR, distributed by rows. Collective over its comm.
template <typename Scalar>
std::vector<double> ColumnNorms(const VectorDense<Scalar>& vecR) {
  VectorDense<Scalar> normR(vecR.comm, vecR.auxComm, vecR.nCols, 1, vecR.nCols);
  VES_ASSERT_GOOD(normR.AllocateMem());
  VES_ASSERT_GOOD(normR.Norm(vecR));
  std::vector<double> norms(static_cast<std::size_t>(vecR.nCols));
  for (int j = 0; j < vecR.nCols; ++j)
    norms[static_cast<std::size_t>(j)] = static_cast<double>(std::abs(normR(j)));
  return norms;
}

/// The norms that a test is to read. Collective over vecR's comm unless they are known.
template <typename Scalar>
std::vector<double> TestedNorms(VesConvergeDetector& detector, const VectorDense<Scalar>& vecR) {
  std::vector<double> known = std::exchange(detector.knownNorms, {});
  if (known.size() == static_cast<std::size_t>(vecR.nCols)) return known;
  return ColumnNorms(vecR);
}

/// Flags the pairs j < nPairs that pass, counts them, makes the decision of process 0 of idxs's
/// auxComm everybody's, and counts the leading flags among the first nCols.
template <typename Scalar, typename Passes>
void FlagPairs(VectorDense<Scalar>& idxs, int nPairs, int nCols, Passes passes, int& total,
               int& nLeading) {
  VES_ASSERT_GOOD(idxs.Set2Zero());
  total = 0;
  for (int j = 0; j < nPairs; ++j)
    if (passes(j)) {
      idxs(j) = static_cast<Scalar>(2);
      ++total;
    }
  MPI_Bcast(&total, 1, MPI_INT, 0, idxs.auxComm);
  idxs.BroadCast(idxs.auxComm);
  nLeading = 0;
  while (nLeading < nCols && std::abs(idxs(nLeading)) > 1)
    ++nLeading;
}

} // namespace Ves

#endif
