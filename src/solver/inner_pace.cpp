#include "inner_pace.h"

#include "../data/replicate.h"

#include <algorithm>
#include <cmath>

namespace Ves {

InnerPace::Clock InnerPace::Now() const {
  const double operators = m_matA.seconds + m_matB.seconds + m_matT.seconds;
  return {operators, MPI_Wtime() - operators};
}

void InnerPace::Add(Clock& part, const Clock& from, const Clock& to, int columns) {
  part.operators += (to.operators - from.operators) / std::max(columns, 1);
  part.beside += (to.beside - from.beside) / std::max(columns, 1);
}

int InnerPace::Begin(const VesVectorBase& x) {
  if (m_asked != chosenByTimes) return m_asked;
  m_begin = Now();
  m_columns = x.nCols;
  if (m_nBegun > 1 && m_nBegun <= nMeasured) Add(m_outside, m_end, m_begin, m_columns);
  if (m_nBegun == nMeasured) {
    m_chosen = Choose(m_inside.operators, m_inside.beside, m_outside.operators, m_outside.beside,
                      m_matT.IsPresent());
    Replicate(m_chosen, x);
  }
  ++m_nBegun;
  return m_chosen;
}

void InnerPace::End() {
  if (m_asked != chosenByTimes) return;
  m_end = Now();
  if (m_nBegun > 1 && m_nBegun <= nMeasured) Add(m_inside, m_begin, m_end, m_columns);
}

int InnerPace::Choose(double operators, double step, double images, double other, bool hasT) {
  const double floor = hasT ? 0.25 : 0.02;
  const auto cost = [&](int m) {
    return (other + images + m * (operators + step)) * (1.0 / m + floor) / (1.0 + floor);
  };
  int best = 0;
  double least = worthwhile * (other + operators);
  for (int m = 2; m <= mostChosen; ++m)
    if (cost(m) < least) {
      best = m;
      least = cost(m);
    }
  return best;
}

} // namespace Ves
