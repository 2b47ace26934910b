#include "progress.h"

#include "parallel.h"

#include <sys/ioctl.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace VesTools {
namespace {

constexpr double secondsOfLine = 0.1, secondsOfLines = 1.0;
constexpr double partOfRun = 0.02; // between plain lines, so that a log of hours stays readable
constexpr const char* eraseLine = "\r\033[K";

bool HasEscapeCodes() {
  const char* terminal = std::getenv("TERM");
  return terminal != nullptr && *terminal != '\0' && std::string(terminal) != "dumb";
}

// Asked for each time, since people resize their terminals.
std::size_t TerminalWidth() {
  winsize size{};
  const bool isKnown = ioctl(STDERR_FILENO, TIOCGWINSZ, &size) == 0 && size.ws_col > 0;
  return isKnown ? size.ws_col : 80;
}

std::string Describe(const VesProgress& progress, int pairs, double now) {
  double largest = 0.0;
  for (int j = 0; j < pairs; ++j)
    if (!std::isnan(progress.residuals[j])) largest = std::max(largest, progress.residuals[j]);
  char text[160];
  std::snprintf(text, sizeof(text),
                "iteration %d: %d of %d pairs converged, largest residual %.1e, %.1f s",
                progress.iteration, std::min(progress.converged, pairs), pairs, largest, now);
  return text;
}

} // namespace

ProgressStyle ChooseProgress(const OutputOptions& output, MPI_Comm comm) {
  if (Rank(comm) != 0 || output.isQuiet) return ProgressStyle::none;
  if (output.showsProgress) return ProgressStyle::lines;
  if (isatty(STDERR_FILENO) == 0) return ProgressStyle::none;
  return HasEscapeCodes() ? ProgressStyle::line : ProgressStyle::lines;
}

std::string CutTo(const std::string& text, std::size_t width) {
  if (text.size() <= width) return text;
  // A separator may begin right behind what fits.
  const std::size_t comma = text.rfind(", ", width);
  return text.substr(0, comma == std::string::npos ? width : comma);
}

Progress::~Progress() {
  if (m_style == ProgressStyle::line && m_lastShown >= 0.0) std::fputs(eraseLine, stderr);
}

bool Progress::IsDue(double now) const {
  if (m_style == ProgressStyle::none) return false;
  const double pause =
      m_style == ProgressStyle::line ? secondsOfLine : std::max(secondsOfLines, partOfRun * now);
  return m_lastShown < 0.0 || now - m_lastShown >= pause;
}

void Progress::Note(const VesProgress& progress, int pairs, double now) {
  if (!IsDue(now)) return;
  const std::string text = Describe(progress, pairs, now);
  if (m_style == ProgressStyle::lines)
    std::fprintf(stderr, "%s\n", text.c_str());
  else // the last column would begin a new line on some terminals
    std::fprintf(stderr, "%s%s", eraseLine, CutTo(text, TerminalWidth() - 1).c_str());
  std::fflush(stderr);
  m_lastShown = now;
}

} // namespace VesTools
