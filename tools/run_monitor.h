#ifndef VES_TOOLS_RUN_MONITOR_H
#define VES_TOOLS_RUN_MONITOR_H

#include <ves.h>

#include <vector>

namespace VesTools {

/// What a run reported after its start and after each iteration.
struct HistoryEntry {
  int iteration = 0;
  int converged = 0;
  long long columnsA = 0;
  std::vector<double> residuals; ///< of all wanted pairs, NaN where unknown
};
using History = std::vector<HistoryEntry>;

/// Follows a run: keeps its history, shows a live line, ends it after the time limit or on the
/// first interrupt.
class RunMonitor {
public:
  /// \param isLive     show a line on the standard error
  /// \param timeLimit  seconds; 0: none
  /// \param pairs      wanted: guards behind them are left out
  RunMonitor(bool isLive, double timeLimit, int pairs);
  ~RunMonitor();
  RunMonitor(const RunMonitor&) = delete;
  RunMonitor& operator=(const RunMonitor&) = delete;

  /// \return whether the run has to end
  bool Note(const VesProgress& progress);

  const History& GetHistory() const { return m_history; }

private:
  void Show(const VesProgress& progress, double now);

  bool m_isLive;
  double m_timeLimit;
  int m_pairs;
  double m_start, m_lastShown = -1.0;
  void (*m_oldHandler)(int);
  History m_history;
};

} // namespace VesTools

#endif
