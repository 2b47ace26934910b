#ifndef VES_TOOLS_PROGRESS_H
#define VES_TOOLS_PROGRESS_H

#include "options.h"

#include <mpi.h>
#include <ves.h>

#include <string>

namespace VesTools {

/// How a run is shown on the standard error while it lasts.
enum class ProgressStyle {
  none,
  line, ///< one line of a terminal, written over again and again
  lines ///< plain lines, at most one a second and fewer in a long run
};

/// On process 0 lines where they are asked for or a terminal knows no escape codes, a line on other
/// terminals; else none.
ProgressStyle ChooseProgress(const OutputOptions& output, MPI_Comm comm);

/// As many parts of a text, which ", " separates, as fit into a width; of the first what fits.
std::string CutTo(const std::string& text, std::size_t width);

/// Shows where a run stands. What it wrote over is gone at the end.
class Progress {
public:
  explicit Progress(ProgressStyle style) : m_style(style) {}
  ~Progress();
  Progress(const Progress&) = delete;
  Progress& operator=(const Progress&) = delete;

  /// \param pairs  wanted: guards behind them are left out
  /// \param now    seconds since the start
  void Note(const VesProgress& progress, int pairs, double now);

private:
  bool IsDue(double now) const;

  ProgressStyle m_style;
  double m_lastShown = -1.0;
};

} // namespace VesTools

#endif
