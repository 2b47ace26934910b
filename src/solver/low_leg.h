#ifndef VES_SOLVER_LOW_LEG_H
#define VES_SOLVER_LOW_LEG_H

#include "../data/lowered_operator.h"
#include "../interface/solver_base.h"

#include <memory>
#include <vector>

namespace Ves {

template <typename Scalar>
class BlockSolver;

/// The first leg of a run, made in single precision by a twin of the solver. What it leaves is a
/// guess like any other: whatever goes wrong in it costs time, never the result. It ends where
/// single precision has no more to give: a pair has converged at the threshold of the run or at a
/// floor of rounding errors, which gives way where residuals come to a stand close above it.
/// All decisions are the same on all processes.
template <typename Scalar>
class VES_EXPORT LowLeg {
public:
  using Block = VectorDense<Scalar>;
  using Low = LowType<Scalar>;
  using LowBlock = VectorDense<Low>;

  /// Of the run that it belongs to, with its blocks shaped like vecQ.
  LowLeg(const BlockSolver<Scalar>& run, const Block& vecQ);
  ~LowLeg();

  /// Replaces the guess where that is a gain. Collective over both communicators.
  void Run(const VesMatrixBase& matA, const VesMatrixBase& matB, const VesMatrixBase& matP,
           Block& vecQ);

  int Iterations() const;
  int InnerSteps() const; ///< that it settled on
  long long ColumnsA() const;
  bool IsStopped() const { return m_isStopped != 0; } ///< the monitor of the run asked for its end
  /// Adds what the leg has cost to the costs of the run.
  void AddTo(VesSolverStats& stats) const;

  /// Forecast of the bytes that the leg takes, until Run returns.
  static std::size_t Memory(const BlockSolver<Scalar>& run, int nRows, int nCols, bool generalized);

private:
  void Configure();
  bool Lower(const Block& vecQ);
  static bool LowerColumns(const Block& from, LowBlock& to);
  void Raise(Block& vecQ) const;
  void Release();
  bool IsGain() const;
  static int Follow(void* self, const VesProgress* progress);
  void NoteResiduals(const VesProgress& progress);
  bool IsAtEnd(const VesProgress& progress) const;
  void AdjustThreshold(const VesProgress& progress);

  const BlockSolver<Scalar>& m_run;
  std::unique_ptr<BlockSolver<Low>> m_twin;
  LowBlock m_vecX, m_vecD, m_vecY; ///< vectors, values, and what the run deflates
  ColumnScratch<Scalar> m_scratch;
  int m_isStopped = 0;
  std::vector<double> m_first, m_last; ///< residual of each pair when first and last known
  double m_floor;                      ///< multiple of rounding errors that residuals are held to
  double m_best = 0.0;                 ///< residual of the next pair, when it last fell
  int m_converged = -1, m_nIdle = 0;   ///< pairs; iterations in which it did not fall
};

VES_EXTERN_TEMPLATE(LowLeg);

} // namespace Ves

#endif
