#include "deflation.h"

#include "../data/replicate.h"
#include "../parallel/run_meter.h"

#include <algorithm>
#include <cmath>
#include <limits>

namespace Ves {
namespace {

/// products := duals^H X on all processes.
template <typename Scalar>
void Multiply(const VectorDense<Scalar>& duals, const VectorDense<Scalar>& x,
              VectorDense<Scalar>& products) {
  products.SetShape(x.comm, x.auxComm, duals.nCols, x.nCols, duals.nCols);
  VES_ASSERT_GOOD(products.AllocateMem());
  VES_ASSERT_GOOD(products.InnerProduct(duals, x));
}

/// A column's norm in B; a NaN where B is not definite on it.
template <typename Scalar>
double NormInB(const Imaged<Scalar>& column) {
  VectorDense<Scalar> product;
  Multiply(column.BX, column.X, product);
  double norm = std::sqrt(static_cast<double>(std::real(product(0))));
  Replicate(&norm, 1, column.X.comm, column.X.auxComm);
  return norm;
}

template <typename Scalar>
void Divide(const Imaged<Scalar>& column, double divisor) {
  column.ForEach([&](VectorDense<Scalar>& block) {
    for (int i = 0; i < block.nRows; ++i)
      block(i, 0) /= static_cast<RealType<Scalar>>(divisor);
  });
}

/// The largest entry of a column on all processes, infinite where one is no number. Collective.
template <typename Scalar>
double LargestEntry(const VectorDense<Scalar>& column) {
  double largest = 0.0;
  for (int i = 0; i < column.nRows; ++i)
    for (const auto part : {std::real(column(i)), std::imag(column(i))})
      largest = std::isfinite(part) ? std::max(largest, std::abs(static_cast<double>(part)))
                                    : std::numeric_limits<double>::infinity();
  ReduceInPlace(&largest, 1, MPI_DOUBLE, MPI_MAX, column.comm);
  Replicate(&largest, 1, column.comm, column.auxComm);
  return largest;
}

} // namespace

template <typename Scalar>
WorkspacePlan<Scalar> Deflation<Scalar>::Plan(int nRows, int cols, bool generalized) {
  m_hasB = generalized;
  m_rank = 0;
  WorkspacePlan<Scalar> plan(nRows, nRows);
  plan.AddTall(m_y, cols);
  if (generalized) plan.AddTall(m_by, cols);
  return plan;
}

template <typename Scalar>
bool Deflation<Scalar>::Take(const Block& given, const VesMatrixBase& matB) {
  for (int j = 0; j < given.nCols; ++j) {
    const Pairs column = Columns(m_rank, 1);
    VES_ASSERT_GOOD(column.X.CopyData(Block(given, 0, j, given.nRows, 1)));
    if (!KeepIfIndependent(column, matB)) return false;
  }
  return true;
}

/// Collective. \return as Take
template <typename Scalar>
bool Deflation<Scalar>::KeepIfIndependent(const Pairs& column, const VesMatrixBase& matB) {
  const double largest = LargestEntry(column.X);
  if (largest == 0.0) return true;
  if (!std::isfinite(largest)) return false;
  Divide(Pairs(column.X, column.X), largest); // lest squares or images leave the range of numbers
  column.RefreshB(matB);
  double whole = NormInB(column);
  if (!(whole > 0.0) || !std::isfinite(whole)) return false;
  for (int pass = 0; pass < 3; ++pass) {
    Project(column);
    const double rest = NormInB(column);
    if (!(rest > independent * whole)) return true;
    Divide(column, rest);
    whole = 1.0;
  }
  ++m_rank;
  return true;
}

template <typename Scalar>
void Deflation<Scalar>::End() {
  m_rank = 0;
  for (Block* const block : {&m_y, &m_by})
    VES_ASSERT_GOOD(block->FreeMem());
}

template <typename Scalar>
double Deflation<Scalar>::Error(const Block& vecX) const {
  double error = 0.0;
  if (m_rank > 0)
    VES_ASSERT_GOOD(Columns(0, m_rank).BX.CheckOrthogonality(vecX, error, false, true));
  return error;
}

template <typename Scalar>
void Deflation<Scalar>::Project(const Pairs& pairs) const {
  if (m_rank == 0 || pairs.Count() == 0) return;
  const Pairs space = Columns(0, m_rank);
  Block products;
  Multiply(space.BX, pairs.X, products);
  VES_ASSERT_GOOD(pairs.X.Gemm(space.X, products, 'N', 'N', -1, 1));
  if (pairs.HasB()) VES_ASSERT_GOOD(pairs.BX.Gemm(space.BX, products, 'N', 'N', -1, 1));
}

template <typename Scalar>
void Deflation<Scalar>::ProjectImage(Block& image) const {
  if (m_rank == 0 || image.nCols == 0) return;
  const Pairs space = Columns(0, m_rank);
  Block products;
  Multiply(space.X, image, products);
  VES_ASSERT_GOOD(image.Gemm(space.BX, products, 'N', 'N', -1, 1));
}

template <typename Scalar>
DeflatedOperator<Scalar>::DeflatedOperator(const VesMatrixBase& inner,
                                           const Deflation<Scalar>& space, Gives gives)
    : m_inner(inner), m_space(space), m_gives(gives) {
  MathKernel<Scalar>::SetScalarType(scalarType);
  const bool isMade = space.Rank() > 0 && !inner.IsPresent();
  matrixType = isMade ? VES_MATRIX_SHELL : inner.matrixType;
  nRows = inner.nRows;
  nCols = inner.nCols;
  isCalledEverywhere = inner.isCalledEverywhere;
}

template <typename Scalar>
VesReturnCode DeflatedOperator<Scalar>::Apply(const VesVectorBase& x, VesVectorBase& y) const {
  const VesReturnCode code =
      m_inner.IsPresent() || m_space.Rank() == 0 ? m_inner.Apply(x, y) : y.CopyData(x);
  if (code != VES_GOOD || m_space.Rank() == 0) return code;
  auto& image = AsDense<Scalar>(y);
  if (m_gives == images)
    m_space.ProjectImage(image);
  else // the image under B of what T gives is made later
    for (int pass = 0; pass < 2; ++pass)
      m_space.Project({image, image});
  return VES_GOOD;
}

template <typename Scalar>
VesReturnCode DeflatingProjector<Scalar>::Run(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                                              VesVectorBase& vecY, VesVectorBase& vecBY,
                                              const VesMatrixBase& matB, bool global,
                                              int maxOrthoIter, double threshold) {
  if (global) m_space.Project({AsDense<Scalar>(vecY), AsDense<Scalar>(vecBY)});
  return m_inner->Run(vecX, vecBX, vecY, vecBY, matB, global, maxOrthoIter, threshold);
}

template <typename Scalar>
VesReturnCode
DeflatingProjector<Scalar>::RunBatch(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                                     VesVectorBase& vecY, VesVectorBase& vecBY,
                                     const Indices& dispX, const Indices& nXs, const Indices& dispY,
                                     const Indices& nYs, const VesMatrixBase& matB, bool global,
                                     int maxOrthoIter, double threshold) {
  const Imaged<Scalar> all(AsDense<Scalar>(vecY), AsDense<Scalar>(vecBY));
  for (std::size_t j = 0; global && j < dispY.size(); ++j)
    m_space.Project(all.Columns(dispY[j], nYs[j]));
  return m_inner->RunBatch(vecX, vecBX, vecY, vecBY, dispX, nXs, dispY, nYs, matB, global,
                           maxOrthoIter, threshold);
}

VES_INSTANTIATE(Deflation);
VES_INSTANTIATE(DeflatedOperator);
VES_INSTANTIATE(DeflatingProjector);

} // namespace Ves
