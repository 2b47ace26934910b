#ifndef VES_SOLVER_INNER_PACE_H
#define VES_SOLVER_INNER_PACE_H

#include "../data/metered_operator.h"

#include <algorithm>

namespace Ves {

/// How many inner steps a preconditioner makes: as many as asked for, or as pay by the times of
/// this run. With m steps an iteration costs a column of the block
///   C(m) = o + t + m s,
/// t in T alone, s in a step with A, B and T, o in the rest, with its images under A and B, and the
/// run takes
///   N(m) = (1 / (m + 1) + f) / (1 + f)
/// of the iterations, where f = 0.7 |log rho|: rho is what an iteration with T alone leaves of the
/// residuals, and runs that are fast already have little to gain. On Laplacians, elements and plane
/// waves runs of some 130, 65, 45, 35, 30 and 20 iterations had rho = 0.83, 0.77, 0.71, 0.57, 0.6
/// and 0.42 here, and one step took 0.52, 0.54, 0.63, 0.69, 0.63 and 1.1 of the iterations, two
/// 0.30, 0.39, 0.48, 0.66, 0.53 and 1; without a T it was 0.89, and 3 and 10 steps took 0.26 to
/// 0.28 and 0.09 to 0.15. The first applications are T alone, and rho is that of the last of them; where
/// steps that cost nothing beside the operators could pay, the next ones make one, and then m has
/// the smallest C(m) N(m), where that is well below the cost of T alone.
class VES_EXPORT InnerPace {
public:
  static constexpr int chosenByTimes = -1, mostChosen = 12;
  static constexpr double worthwhile = 0.95; ///< of the cost of T alone

  /// Times are those of the operators of one run, T absent where there is none.
  InnerPace(int asked, const MeteredOperator& matA, const MeteredOperator& matB,
            const MeteredOperator& matT)
      : m_asked(asked), m_matA(matA), m_matB(matB), m_matT(matT) {}

  /// An application to x begins. \return its steps, the same on all processes: collective where
  /// they are chosen in it
  int Begin(const VesVectorBase& x);
  /// Whether the pace wants to know the size of a column of the residuals that it is to begin with.
  bool IsWatching() const {
    return m_asked == chosenByTimes && (m_nBegun == firstWatched || m_nBegun == nAlone);
  }
  void Watch(double size);
  /// What was done since it began is not of it.
  void Resume() { m_begin = Now(); }
  void End();
  /// What has been settled, for another run on the same problem; chosenByTimes where nothing has.
  int Settled() const;
  /// Makes what another run has settled. The same on all processes.
  void TakeOver(int settled) {
    if (m_asked == chosenByTimes) m_asked = settled;
  }

  /// By times of a column: o, t and s, and f.
  static int Choose(double other, double alone, double step, double exhaustion);

private:
  /// Seconds since some moment, in the operators and beside them.
  struct Clock {
    double operators = 0.0, beside = 0.0;
  };
  Clock Now() const;
  /// Mean times of a column.
  struct Times {
    Clock sum;
    int count = 0;
    void Add(const Clock& from, const Clock& to, int columns);
    double Operators() const { return sum.operators / std::max(count, 1); }
    double Whole() const { return (sum.operators + sum.beside) / std::max(count, 1); }
  };
  bool CouldPay() const;

  /// Applications without steps, the first of which is like no other and the next ones smooth the
  /// guess, and then with one.
  static constexpr int firstWatched = 6, nAlone = 9, nStepped = 2;
  int m_asked;
  const MeteredOperator &m_matA, &m_matB, &m_matT;
  int m_nBegun = 0, m_columns = 0, m_chosen = 0;
  double m_size = 0.0, m_exhaustion = 0.0; ///< of the residuals; f
  Clock m_begin, m_end;                    ///< of the last application
  Times m_alone, m_stepped, m_outside;     ///< in the applications of both kinds, and between them
};

} // namespace Ves

#endif
