#include "run_monitor.h"

#include <mpi.h>

#include <algorithm>
#include <csignal>

namespace VesTools {
namespace {

volatile std::sig_atomic_t isInterrupted = 0;

// The second interrupt ends the program as usual.
void OnInterrupt(int) {
  isInterrupted = 1;
  std::signal(SIGINT, SIG_DFL);
}

} // namespace

RunMonitor::RunMonitor(ProgressStyle style, double timeLimit, int pairs)
    : m_progress(style), m_timeLimit(timeLimit), m_pairs(pairs), m_start(MPI_Wtime()),
      m_oldHandler(std::signal(SIGINT, OnInterrupt)) {}

RunMonitor::~RunMonitor() {
  std::signal(SIGINT, m_oldHandler);
}

bool RunMonitor::Note(const VesProgress& progress) {
  const double now = MPI_Wtime() - m_start;
  m_progress.Note(progress, m_pairs, now);
  m_history.push_back({progress.iteration,
                       std::min(progress.converged, m_pairs),
                       progress.columnsA,
                       {progress.residuals, progress.residuals + m_pairs}});
  if (isInterrupted != 0)
    m_stop = Stop::interrupt;
  else if (m_timeLimit > 0.0 && now > m_timeLimit)
    m_stop = Stop::timeLimit;
  return m_stop != Stop::none;
}

} // namespace VesTools
