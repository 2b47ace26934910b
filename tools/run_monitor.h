#ifndef VES_TOOLS_RUN_MONITOR_H
#define VES_TOOLS_RUN_MONITOR_H

#include "progress.h"

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

/// What a monitor ends a run for.
enum class Stop { none, timeLimit, interrupt };

/// Follows a run: keeps its history, shows where it stands, ends it after the time limit or on the
/// first interrupt.
class RunMonitor {
public:
  /// \param timeLimit  seconds; 0: none
  /// \param pairs      wanted: guards behind them are left out
  RunMonitor(ProgressStyle style, double timeLimit, int pairs);
  ~RunMonitor();
  RunMonitor(const RunMonitor&) = delete;
  RunMonitor& operator=(const RunMonitor&) = delete;

  /// \return whether the run has to end
  bool Note(const VesProgress& progress);

  const History& GetHistory() const { return m_history; }

  /// Of this process; that of process 0 counts.
  Stop GetStop() const { return m_stop; }

private:
  Progress m_progress;
  double m_timeLimit;
  int m_pairs;
  double m_start;
  Stop m_stop = Stop::none;
  void (*m_oldHandler)(int);
  History m_history;
};

} // namespace VesTools

#endif
