#include "run_monitor.h"

#include <mpi.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <cstdio>

namespace VesTools {
namespace {

constexpr double secondsBetweenLines = 0.1;

volatile std::sig_atomic_t isInterrupted = 0;

// The second interrupt ends the program as usual.
void OnInterrupt(int) {
  isInterrupted = 1;
  std::signal(SIGINT, SIG_DFL);
}

} // namespace

RunMonitor::RunMonitor(bool isLive, double timeLimit, int pairs)
    : m_isLive(isLive), m_timeLimit(timeLimit), m_pairs(pairs), m_start(MPI_Wtime()),
      m_oldHandler(std::signal(SIGINT, OnInterrupt)) {}

RunMonitor::~RunMonitor() {
  std::signal(SIGINT, m_oldHandler);
  if (m_isLive && m_lastShown >= 0.0) std::fputs("\r\033[K", stderr);
}

bool RunMonitor::Note(const VesProgress& progress) {
  const double now = MPI_Wtime() - m_start;
  if (m_isLive && now - m_lastShown >= secondsBetweenLines) Show(progress, now);
  m_history.push_back({progress.iteration,
                       std::min(progress.converged, m_pairs),
                       progress.columnsA,
                       {progress.residuals, progress.residuals + m_pairs}});
  return isInterrupted != 0 || (m_timeLimit > 0.0 && now > m_timeLimit);
}

void RunMonitor::Show(const VesProgress& progress, double now) {
  double largest = 0.0;
  for (int j = 0; j < m_pairs; ++j)
    if (!std::isnan(progress.residuals[j])) largest = std::max(largest, progress.residuals[j]);
  std::fprintf(stderr,
               "\r\033[Kiteration %d: %d of %d pairs converged, largest residual %.1e, %.1f s",
               progress.iteration, std::min(progress.converged, m_pairs), m_pairs, largest, now);
  std::fflush(stderr);
  m_lastShown = now;
}

} // namespace VesTools
