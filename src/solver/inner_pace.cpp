#include "inner_pace.h"

#include "../data/replicate.h"

#include <algorithm>
#include <cmath>

namespace Ves {

InnerPace::Clock InnerPace::Now() const {
  const double operators = m_matA.seconds + m_matB.seconds + m_matT.seconds;
  return {operators, MPI_Wtime() - operators};
}

void InnerPace::Times::Add(const Clock& from, const Clock& to, int columns) {
  sum.operators += (to.operators - from.operators) / std::max(columns, 1);
  sum.beside += (to.beside - from.beside) / std::max(columns, 1);
  ++count;
}

int InnerPace::Begin(const VesVectorBase& x) {
  if (m_asked != chosenByTimes) return m_asked;
  m_begin = Now();
  m_columns = x.nCols;
  if (m_nBegun > 1) m_outside.Add(m_end, m_begin, m_columns);
  const bool isStepped = m_nBegun == nAlone + nStepped && m_chosen == 1;
  if (m_nBegun == nAlone) m_chosen = CouldPay() ? 1 : 0;
  if (isStepped)
    m_chosen = Choose(m_outside.Whole(), m_alone.Whole(), m_stepped.Whole() - m_alone.Whole(),
                      m_exhaustion);
  if (m_nBegun == nAlone || isStepped) Replicate(m_chosen, x);
  ++m_nBegun;
  return m_chosen;
}

void InnerPace::Watch(double size) {
  if (m_nBegun == nAlone)
    m_exhaustion = 0.7 * std::max(0.0, -std::log(size / m_size)) / (nAlone - firstWatched);
  m_size = size;
}

void InnerPace::End() {
  if (m_asked != chosenByTimes) return;
  m_end = Now();
  if (m_nBegun > 1 && m_nBegun <= nAlone) m_alone.Add(m_begin, m_end, m_columns);
  if (m_nBegun > nAlone && m_nBegun <= nAlone + nStepped) m_stepped.Add(m_begin, m_end, m_columns);
}

int InnerPace::Settled() const {
  const bool isDecided = m_nBegun > nAlone + nStepped || (m_nBegun > nAlone && m_chosen == 0);
  return m_asked == chosenByTimes && isDecided ? m_chosen : m_asked;
}

/// With steps that take no time but that of A, B and T, of which A and B take what they take in the
/// rest of an iteration.
bool InnerPace::CouldPay() const {
  return Choose(m_outside.Whole(), m_alone.Whole(), m_outside.Operators() + m_alone.Operators(),
                m_exhaustion) > 0;
}

int InnerPace::Choose(double other, double alone, double step, double exhaustion) {
  const auto cost = [&](int m) {
    return (other + alone + m * std::max(step, 0.0)) * (1.0 / (m + 1) + exhaustion) /
           (1.0 + exhaustion);
  };
  int best = 0;
  double least = worthwhile * (other + alone);
  for (int m = 1; m <= mostChosen; ++m)
    if (cost(m) < least) {
      best = m;
      least = cost(m);
    }
  return best;
}

} // namespace Ves
