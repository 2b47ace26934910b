#include "progress_watch.h"

#include <algorithm>
#include <functional>
#include <limits>
#include <utility>

namespace Ves {

void ProgressWatch::Begin(int nConv, int last) {
  if (nConv <= m_mostConv && last <= m_last) return;
  const int mostConv = std::max(nConv, m_mostConv);
  *this = ProgressWatch();
  m_mostConv = mostConv;
  m_last = last;
}

/// Compares with the best that stood at the same place among the residuals, the largest first:
/// pairs change places, and the good residual of one would be held against another.
bool ProgressWatch::Note(const std::vector<double>& residuals, int nConv, int last) {
  constexpr double unknown = std::numeric_limits<double>::infinity();
  std::vector<double> norms(residuals.begin() + nConv, residuals.begin() + last);
  for (double& norm : norms)
    if (std::isnan(norm)) norm = unknown; // says nothing of rounding
  std::sort(norms.begin(), norms.end(), std::greater<>());
  const auto note = [&](std::vector<double>& best, double factor, Gain gain) {
    best.resize(residuals.size(), unknown);
    for (std::size_t j = 0; j < norms.size(); ++j) {
      if (norms[j] > factor * best[j]) continue;
      best[j] = norms[j];
      m_gain = std::max(m_gain, gain);
    }
  };
  note(m_best, 0.9, tenth);
  note(m_halved, 0.5, half);
  return ++m_tests % window == 0;
}

auto ProgressWatch::Take(const std::vector<double>& residuals, int nConv, int last) -> Finding {
  constexpr double quarter = 0.75, smallest = std::numeric_limits<double>::min();
  double sum = 0.0;
  for (auto j = static_cast<std::size_t>(nConv); j < static_cast<std::size_t>(last); ++j)
    sum += std::log(std::max(residuals[j], smallest));
  const double before = std::exchange(m_meanLog, sum / (last - nConv));
  return {std::exchange(m_gain, none), m_meanLog > before + std::log(quarter)};
}

} // namespace Ves
