#ifndef VES_SOLVER_SELF_CHECK_H
#define VES_SOLVER_SELF_CHECK_H

#include "../data/imaged.h"
#include "progress_watch.h"
#include "tolerances.h"

#include <limits>
#include <utility>
#include <vector>

namespace Ves {

template <typename Scalar>
class BlockSolver;

/// What watches over a run and what it may claim in the end: the room of all that is done for
/// trust. It reads the solver that it belongs to; what it decided is the same on all processes.
/// Turned off by the caller (VesSolverSetSelfCheck) it neither asks for restarts nor ends a run,
/// but where no direction is left, and believes what the steps claim.
template <typename Scalar>
class VES_EXPORT SelfCheck {
public:
  using Block = VectorDense<Scalar>;
  using Pairs = Imaged<Scalar>;
  using Limit = Tolerances<Scalar>;

  explicit SelfCheck(const BlockSolver<Scalar>& run) : m_run(run) {}

  /// Forgets the run before.
  void Begin();
  bool IsOn() const;

  /// \name The end of a run
  /// @{
  void Stop() { m_end = End::stopped; }      ///< the monitor asks for it
  void Satisfy() { m_end = End::satisfied; } ///< the wanted pairs have converged, others have not
  /// No further progress is possible.
  void CallStagnated() {
    if (!IsStopped() && !IsSatisfied()) m_end = End::stagnated;
  }
  void GoOn() { m_end = End::open; } ///< from stagnation, with other pairs
  bool IsOver() const { return m_end != End::open; }
  bool IsStopped() const { return m_end == End::stopped; }
  bool IsSatisfied() const { return m_end == End::satisfied; }
  bool IsStagnated() const { return m_end == End::stagnated; }
  /// An operator maps finite columns to others.
  void BlameOperators() { m_areOperatorsBroken = true; }
  /// Where a run broke off on numbers that are not finite: an operator is to blame, unless X itself
  /// is not. Collective then.
  void FindCulprit(const Block& vecX);
  VesSolverReason Reason(int wanted) const;
  /// @}

  /// \name Restarts
  /// A restart makes all afresh from the vectors alone; after the first one a run takes more care:
  /// more passes, and images of B made afresh between them.
  ///
  ///   sound   -- rotation not orthonormal, or asked for --> restart, then careful
  ///   careful -- the same                               --> restart
  ///   restart -- mostFutile in a row                    --> stagnated
  ///
  /// Restarts are asked for by WatchProgress, where residuals come to a stand, and by a solver that
  /// puts random columns in the place of strays. Careful stays so until the next run.
  /// @{
  void RequestRestart() { m_isRestartDue = true; }
  bool IsRestartDue() const { return m_isRestartDue; }
  bool TakeRequest() { return std::exchange(m_isRestartDue, false); }
  void NoteRestart() {
    m_isRestartDue = false;
    m_isCareful = true;
  }
  bool IsCareful() const { return m_isCareful; }
  /// A restart that does not halve the largest residual of one shortly before was futile; several
  /// in a row have met what rounding allows.
  void JudgeRestart(double largestResidual);
  void ForgetRestarts() { m_nJudged = m_nFutile = 0; }
  /// @}

  /// \name Progress
  /// @{
  /// To be asked once an iteration. Where in a window no unconverged pair has halved its residual
  /// and all are at the floor of rounding, or none has improved by a tenth, a restart is due, once
  /// until one more converges. Where after it none improves, the operators are applied to the next
  /// pair. The run has stagnated if the images have drifted by so much of its residual that this is
  /// noise, and two more restarts did not help; or if nothing improves for long. The active vectors
  /// are the pairs first, first + 1, ...; scratch is a column with an image under B. Collective.
  void WatchProgress(const VesMatrixBase& matA, const VesMatrixBase& matB, const Pairs& active,
                     int first, const Block& values, const Pairs& scratch);
  /// A window has just passed that lowered the residuals by less than a quarter in the mean.
  bool IsSlow() const { return m_isSlow; }
  /// An iteration has so many directions. Without any, more often in a row than allowed, nothing
  /// can change X any more.
  void NoteDirections(int count, int allowedIdle);
  /// @}

  /// \name Claims
  /// @{
  double ClaimBound(Scalar value) const;
  /// Leading pairs that pass the convergence test on their final residuals. Of those claimed
  /// before, each counts that stays below twice the threshold: a last rotation mixes residuals of
  /// equal values, and images that were made afresh differ by rounding errors from those tested.
  int CountConverged(const Block& residuals, const Block& values, const Block& before, Block& flags,
                     int claimed) const;
  /// Residuals are tested so close to rounding errors that images which were only updated cannot
  /// bear claims out.
  bool IsTight(const Block& vecBX, const Block& values) const;
  /// Where nothing could change the values, their standing still says nothing: the estimates of
  /// pairs become unknown whose residuals are beyond rounding errors.
  void ForgetValues(const Block& residuals, const Block& vecBX, const Block& estimates) const;
  /// What is left of claims that rest on values after a rotation, which brings all pairs in order:
  /// the leading pairs whose values are those of the first claimed ones in before.
  int StandingClaims(const Block& before, int claimed, const Block& after) const;

  /// In an unfinished run a locked pair that others have overtaken may stand in the place of one
  /// still on its way.
  struct Overtaken {
    int locked = std::numeric_limits<int>::max(); ///< pairs locked before the first such pair
    int below = std::numeric_limits<int>::max();  ///< values well below the lowest such pair
  };
  /// What is well below the value of each locked pair, taken before a last rotation mixes them, in
  /// the order of locking; nothing without the self-check. Collective.
  std::vector<double> LockedBounds(const Block& vectors, const Block& values) const;
  /// Finds the pairs below whose bound there are more values than pairs that were locked before
  /// them. Collective where there are bounds.
  Overtaken FindOvertaken(const std::vector<double>& bounds, const Block& values) const;

  /// For a run that ends with all pairs converged. The last one was found last, as the highest of
  /// those then active, and nothing below it is missing; but a wrong vector of the guess may have
  /// been locked before the lower ones were found and stand in the place of one. Brings the highest
  /// pairs above the last one, at most so many, behind it, with their values, residuals and the
  /// columns of the basis that holds them. Collective where values are out of order.
  /// \return their number
  int MoveStraysLast(const Block& values, const Pairs& basis, int most);
  /// @}

private:
  enum class End { open, stagnated, satisfied, stopped };

  double ImageNoise(const VesMatrixBase& matA, const VesMatrixBase& matB, const Pairs& pair,
                    Scalar value, const Pairs& scratch) const;
  void JudgeStandstill(bool isAtFloor, bool isNoise, bool hasDrifted);
  double Stretch(const Pairs& active, const std::vector<double>& normsBX) const;
  bool AreBelow(const std::vector<double>& norms, int first, const Block& values,
                double factor) const;
  std::vector<double> Resolutions(const Block& vectors, const Block& values) const;

  const BlockSolver<Scalar>& m_run;
  End m_end = End::open;
  bool m_areOperatorsBroken = false;
  bool m_isRestartDue = false, m_isCareful = false;
  int m_nJudged = 0, m_nFutile = 0; ///< restarts, and futile ones in a row
  int m_restartIter = 0;            ///< iteration of the last one
  double m_restartResidual = 0.0;   ///< largest residual after it
  ProgressWatch m_watch;
  bool m_isSlow = false;
  int m_nIdle = 0; ///< iterations in a row without directions
  int m_nKept = 0; ///< leading pairs that were left when strays were taken out, in any order
};

VES_EXTERN_TEMPLATE(SelfCheck);

} // namespace Ves

#endif
