#include "plot.h"

#include "detectors.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>
#include <string>

namespace VesTools {
namespace {

constexpr double width = 760.0, height = 480.0;
constexpr double left = 76.0, right = 740.0, top = 46.0, bottom = 430.0;

constexpr const char* style = R"(<style>
  text { font-family: "Helvetica Neue", Helvetica, Arial, sans-serif; font-size: 13px; fill: #222; }
  .title { font-size: 16px; font-weight: 600; }
  .grid { stroke: #e4e4e4; }
  .frame { fill: none; stroke: #222; }
  .threshold { stroke: #c2472b; stroke-dasharray: 6 4; }
  .pair { fill: none; stroke-width: 1.3; stroke-linejoin: round; }
</style>
)";

/// Maps iterations and residuals to the page.
struct Axes {
  int iterations;
  int low, high; ///< decades

  double X(double iteration) const { return left + (right - left) * iteration / iterations; }
  double Y(double residual) const {
    return bottom - (bottom - top) * (std::log10(residual) - low) / (high - low);
  }
};

bool IsDrawn(double residual) {
  return residual > 0.0 && std::isfinite(residual);
}

Axes FitAxes(const RunResult& result) {
  double low = result.settings.threshold, high = low;
  for (const HistoryEntry& entry : result.history)
    for (const double residual : entry.residuals)
      if (IsDrawn(residual)) {
        low = std::min(low, residual);
        high = std::max(high, residual);
      }
  const int last = result.history.empty() ? 1 : result.history.back().iteration;
  const int floor = static_cast<int>(std::floor(std::log10(low)));
  return {std::max(last, 1), floor,
          std::max(static_cast<int>(std::ceil(std::log10(high))), floor + 1)};
}

void Text(std::ostream& out, const char* anchor, double x, double y, const std::string& text,
          const char* kind = "tick") {
  out << "<text class=\"" << kind << "\" text-anchor=\"" << anchor << "\" x=\"" << x << "\" y=\""
      << y << "\">" << text << "</text>\n";
}

void Line(std::ostream& out, const char* kind, double x1, double y1, double x2, double y2) {
  out << "<line class=\"" << kind << "\" x1=\"" << x1 << "\" y1=\"" << y1 << "\" x2=\"" << x2
      << "\" y2=\"" << y2 << "\"/>\n";
}

// The smallest step of 1, 2 or 5 times a power of ten that gives at most ten ticks.
int TickStep(int range) {
  for (int decade = 1;; decade *= 10)
    for (const int factor : {1, 2, 5})
      if (range <= 10LL * factor * decade || decade > range) return factor * decade;
}

void DrawAxes(std::ostream& out, const Axes& axes) {
  const int decades = TickStep(axes.high - axes.low);
  for (int decade = axes.low; decade <= axes.high; decade += decades) {
    const double y = axes.Y(std::pow(10.0, decade));
    Line(out, "grid", left, y, right, y);
    Text(out, "end", left - 8.0, y + 4.0, "1e" + std::to_string(decade));
  }
  const int step = TickStep(axes.iterations);
  for (int iteration = 0; iteration <= axes.iterations; iteration += step)
    Text(out, "middle", axes.X(iteration), bottom + 18.0, std::to_string(iteration));
  Text(out, "middle", 0.5 * (left + right), bottom + 40.0, "iteration");
  out << "<text text-anchor=\"middle\" transform=\"translate(20 " << 0.5 * (top + bottom)
      << ") rotate(-90)\">residual</text>\n";
}

// From blue for the lowest pair to orange for the highest.
std::string Colour(std::size_t pair, std::size_t pairs) {
  const double part = pairs > 1 ? double(pair) / double(pairs - 1) : 0.0;
  std::ostringstream text;
  const auto mix = [&](int from, int to) { return from + static_cast<int>(part * (to - from)); };
  text << "rgb(" << mix(31, 220) << ' ' << mix(90, 120) << ' ' << mix(148, 30) << ")";
  return text.str();
}

// A line breaks where a residual is not known.
void DrawPairs(std::ostream& out, const RunResult& result, const Axes& axes) {
  const std::size_t pairs = result.values.size();
  for (std::size_t j = 0; j < pairs; ++j) {
    out << "<path class=\"pair\" stroke=\"" << Colour(j, pairs) << "\" d=\"";
    bool isBroken = true;
    for (const HistoryEntry& entry : result.history) {
      const double residual = entry.residuals[j];
      if (IsDrawn(residual))
        out << (isBroken ? 'M' : 'L') << axes.X(entry.iteration) << ' ' << axes.Y(residual);
      isBroken = !IsDrawn(residual);
    }
    out << "\"/>\n";
  }
}

std::string Escaped(const std::string& text) {
  std::string result;
  for (const char c : text)
    result += c == '&' ? "&amp;" : c == '<' ? "&lt;" : std::string(1, c);
  return result;
}

} // namespace

void WritePlot(std::ostream& out, const RunResult& result) {
  const Axes axes = FitAxes(result);
  out << std::fixed << std::setprecision(1) << R"(<svg xmlns="http://www.w3.org/2000/svg" width=")"
      << width << R"(" height=")" << height << R"(" viewBox="0 0 )" << width << ' ' << height
      << "\">\n"
      << style << R"(<rect width="100%" height="100%" fill="#fff"/>)"
      << "\n";
  Text(out, "start", left, 28.0,
       Escaped(result.title) + ": " + std::to_string(result.values.size()) + " pairs", "title");
  DrawAxes(out, axes);
  DrawPairs(out, result, axes);
  const double threshold = axes.Y(result.settings.threshold);
  if (DetectorOf(result.detector).bound == ResidualBound::absolute)
    Line(out, "threshold", left, threshold, right, threshold);
  out << "<rect class=\"frame\" x=\"" << left << "\" y=\"" << top << "\" width=\"" << right - left
      << "\" height=\"" << bottom - top << "\"/>\n</svg>\n";
}

} // namespace VesTools
