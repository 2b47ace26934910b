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
/// of the iterations, where f = 1/3 with a T, which the steps soon exhaust, and 1/50 without:
/// Laplacians in two and three dimensions with incomplete Cholesky factors took 0.53 to 0.66, 0.29
/// to 0.46, 0.21 to 0.46 and 0.12 to 0.49 of them with 1, 3, 4 and 10 steps, without a T 0.52 to
/// 0.56, 0.26 to 0.28, 0.20 to 0.22 and 0.09 to 0.15. With a T f is that of those that gain least:
/// a step too many costs more than one too few. The first applications are T alone; where
/// steps could pay that cost nothing beside the operators, the next ones make one, and then m has
/// the smallest C(m) N(m), where that is well below the cost of T alone.
class VES_EXPORT InnerPace {
public:
  static constexpr int chosenByTimes = -1, mostChosen = 12;
  static constexpr double worthwhile = 0.85; ///< of the cost of T alone

  /// Times are those of the operators of one run, T absent where there is none.
  InnerPace(int asked, const MeteredOperator& matA, const MeteredOperator& matB,
            const MeteredOperator& matT)
      : m_asked(asked), m_matA(matA), m_matB(matB), m_matT(matT) {}

  /// An application to x begins. \return its steps, the same on all processes: collective where
  /// they are chosen in it
  int Begin(const VesVectorBase& x);
  /// What was done since it began is not of it.
  void Resume() { m_begin = Now(); }
  void End();
  /// What has been settled, for another run on the same problem; chosenByTimes where nothing has.
  int Settled() const;
  /// Makes what another run has settled. The same on all processes.
  void TakeOver(int settled) {
    if (m_asked == chosenByTimes) m_asked = settled;
  }

  /// By times of a column: o, t and s.
  static int Choose(double other, double alone, double step, bool hasT);

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

  /// Applications without steps, the first of which is like no other, and then with one.
  static constexpr int nAlone = 3, nStepped = 2;
  int m_asked;
  const MeteredOperator &m_matA, &m_matB, &m_matT;
  int m_nBegun = 0, m_columns = 0, m_chosen = 0;
  Clock m_begin, m_end;                ///< of the last application
  Times m_alone, m_stepped, m_outside; ///< in the applications of both kinds, and between them
};

} // namespace Ves

#endif
