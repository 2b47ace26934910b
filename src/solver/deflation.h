#ifndef VES_SOLVER_DEFLATION_H
#define VES_SOLVER_DEFLATION_H

#include "../projector/ortho_projector.h"
#include "workspace_plan.h"

#include <memory>

namespace Ves {

/// A space that a run keeps out of its vectors, spanned by B-orthonormal columns Y: the run finds
/// the lowest pairs of P^H A P in the range of P = 1 - Y Y^H B. Without such a space the rank is 0
/// and nothing is projected, nor is anything collective.
template <typename Scalar>
class VES_EXPORT Deflation {
public:
  using Block = VectorDense<Scalar>;
  using Pairs = Imaged<Scalar>;

  int Rank() const { return m_rank; }
  /// Storage for so many columns, of which none are there yet.
  WorkspacePlan<Scalar> Plan(int nRows, int cols, bool generalized);
  /// Y from given columns, of which those that depend on others are left out. Y must have storage.
  /// Collective. \return a number of theirs or of their images is not finite, or B is not definite
  /// on them: there is no Y then
  bool Take(const Block& given, const VesMatrixBase& matB);
  /// Gives the storage back.
  void End();

  Block Vectors() const { return Block(m_y, 0, 0, m_y.nRows, m_rank); } ///< Y
  /// Largest |Y^H B X| by columns, as CheckOrthogonality gives it; 0 without a space. Collective.
  double Error(const Block& vecX) const;
  /// X := P X, images under B alike. Collective.
  void Project(const Pairs& pairs) const;
  /// Z := P^H Z, for images under A. Collective.
  void ProjectImage(Block& image) const;

private:
  /// A column of unit norm that keeps less depends on others: what is left is mostly rounding.
  static constexpr double independent =
      1e4 * static_cast<double>(std::numeric_limits<RealType<Scalar>>::epsilon());

  Pairs Columns(int first, int count) const {
    return Pairs(m_y, m_hasB ? m_by : m_y).Columns(first, count);
  }
  bool KeepIfIndependent(const Pairs& column, const VesMatrixBase& matB);

  Block m_y, m_by;
  bool m_hasB = false;
  int m_rank = 0;
};

/// A as seen through the projection, P^H A, or a preconditioner, P T; both for vectors and
/// residuals that are within the range. An absent preconditioner becomes P.
template <typename Scalar>
class VES_EXPORT DeflatedOperator final : public VesMatrixBase {
public:
  enum Gives { images, vectors };
  DeflatedOperator(const VesMatrixBase& inner, const Deflation<Scalar>& space, Gives gives);
  VesReturnCode Apply(const VesVectorBase& x, VesVectorBase& y) const override;

private:
  const VesMatrixBase& m_inner;
  const Deflation<Scalar>& m_space;
  Gives m_gives;
};

/// The projector of a run that first takes the space out of distributed blocks: all new directions
/// go through it. Those with images under A are made of others, without need.
template <typename Scalar>
class VES_EXPORT DeflatingProjector final : public VesOrthoProjector {
public:
  using Indices = std::vector<int>;
  DeflatingProjector(std::unique_ptr<VesOrthoProjector> inner, const Deflation<Scalar>& space)
      : m_inner(std::move(inner)), m_space(space) {
    scalarType = m_inner->scalarType;
  }
  std::unique_ptr<VesOrthoProjector> Release() { return std::move(m_inner); }
  VesOrthoProjector& Inner() { return *m_inner; }

  VesReturnCode Run(const VesVectorBase& vecX, const VesVectorBase& vecBX, VesVectorBase& vecY,
                    VesVectorBase& vecBY, const VesMatrixBase& matB, bool global, int maxOrthoIter,
                    double threshold) override;
  VesReturnCode Run(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                    const VesVectorBase& vecAX, VesVectorBase& vecY, VesVectorBase& vecBY,
                    VesVectorBase& vecAY, const VesMatrixBase& matB, bool global, int maxOrthoIter,
                    double threshold) override {
    return m_inner->Run(vecX, vecBX, vecAX, vecY, vecBY, vecAY, matB, global, maxOrthoIter,
                        threshold);
  }
  VesReturnCode RunBatch(const VesVectorBase& vecX, const VesVectorBase& vecBX, VesVectorBase& vecY,
                         VesVectorBase& vecBY, const Indices& dispX, const Indices& nXs,
                         const Indices& dispY, const Indices& nYs, const VesMatrixBase& matB,
                         bool global, int maxOrthoIter, double threshold) override;
  VesReturnCode RunBatch(const VesVectorBase& vecX, const VesVectorBase& vecBX,
                         const VesVectorBase& vecAX, VesVectorBase& vecY, VesVectorBase& vecBY,
                         VesVectorBase& vecAY, const Indices& dispX, const Indices& nXs,
                         const Indices& dispY, const Indices& nYs, const VesMatrixBase& matB,
                         bool global, int maxOrthoIter, double threshold) override {
    return m_inner->RunBatch(vecX, vecBX, vecAX, vecY, vecBY, vecAY, dispX, nXs, dispY, nYs, matB,
                             global, maxOrthoIter, threshold);
  }

private:
  std::unique_ptr<VesOrthoProjector> m_inner;
  const Deflation<Scalar>& m_space;
};

VES_EXTERN_TEMPLATE(Deflation);
VES_EXTERN_TEMPLATE(DeflatedOperator);
VES_EXTERN_TEMPLATE(DeflatingProjector);

} // namespace Ves

#endif
