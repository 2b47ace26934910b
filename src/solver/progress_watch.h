#ifndef VES_SOLVER_PROGRESS_WATCH_H
#define VES_SOLVER_PROGRESS_WATCH_H

#include <ves.h>

#include <cmath>
#include <vector>

namespace Ves {

/// Follows the residuals of the pairs that have not converged, in windows of iterations. What it
/// remembers holds while most pairs stay unconverged; it is forgotten when one more converges or
/// pairs come in, since the open ones are then others. Local: the last bits of norms may differ
/// between processes, of which one is to decide.
class VES_EXPORT ProgressWatch {
public:
  static constexpr int window = 20; ///< iterations

  enum Gain { none, tenth, half }; ///< the most that a pair has improved by
  struct Finding {
    Gain gain = none;
    bool isSlow = false; ///< residuals have fallen by less than a quarter in the mean
  };

  /// Where pairs [nConv, last) are open.
  void Begin(int nConv, int last);
  /// Takes the residuals of an iteration. \return a window has passed
  bool Note(const std::vector<double>& residuals, int nConv, int last);
  /// What the window has brought; to be asked once for each.
  Finding Take(const std::vector<double>& residuals, int nConv, int last);

  int idleWindows = 0; ///< in a row without improvement, as decided
  int nRestarts = 0;   ///< on account of noise

private:
  int m_mostConv = 0, m_last = 0; ///< most pairs that have stood before, and known
  int m_tests = 0;                ///< iterations
  Gain m_gain = none;
  double m_meanLog = HUGE_VAL;          ///< mean logarithm of the residuals one window before
  std::vector<double> m_best, m_halved; ///< residuals, the largest first, at their last gains
};

} // namespace Ves

#endif
