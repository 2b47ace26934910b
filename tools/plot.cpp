#include "plot.h"

#include "detectors.h"
#include "report.h"
#include "svg.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <limits>
#include <string>
#include <utility>
#include <vector>

namespace VesTools {
namespace {

constexpr double width = 820.0, height = 740.0;
// The margin beside the residuals names the threshold, so that no line crosses the words.
constexpr Frame residualFrame{100.0, 716.0, 84.0, 420.0};
constexpr Frame valueFrame{100.0, 400.0, 506.0, 684.0};
constexpr Frame costFrame{570.0, 740.0, 506.0, 684.0};

constexpr const char* style = R"(<style>
  text { font-family: "Helvetica Neue", Helvetica, Arial, sans-serif; font-size: 13px; fill: #222; }
  .title { font-size: 16px; font-weight: 600; }
  .panel { font-size: 14px; font-weight: 600; }
  .grid { stroke: #e4e4e4; }
  .frame { fill: none; stroke: #222; }
  .threshold { stroke: #c2472b; stroke-dasharray: 6 4; }
  text.threshold { fill: #c2472b; stroke: none; }
  .pair { fill: none; stroke-width: 1.3; stroke-linejoin: round; stroke-linecap: round; }
  .cost { fill: #7d8ba1; }
</style>
)";

/// Maps iterations and residuals to the page.
struct Axes {
  int iterations;
  int low, high; ///< decades

  double X(double iteration) const {
    return residualFrame.left + (residualFrame.right - residualFrame.left) * iteration / iterations;
  }
  double Y(double residual) const {
    return residualFrame.bottom -
           (residualFrame.bottom - residualFrame.top) * (std::log10(residual) - low) / (high - low);
  }
};

bool IsDrawn(double residual) {
  return residual > 0.0 && std::isfinite(residual);
}

bool IsThresholdDrawn(const RunResult& result) {
  return DetectorOf(result.detector).bound == ResidualBound::absolute &&
         IsDrawn(result.settings.threshold);
}

Axes FitAxes(const RunResult& result) {
  double low = std::numeric_limits<double>::max(), high = 0.0;
  const auto include = [&](double residual) {
    if (!IsDrawn(residual)) return;
    low = std::min(low, residual);
    high = std::max(high, residual);
  };
  if (IsThresholdDrawn(result)) include(result.settings.threshold);
  for (const HistoryEntry& entry : result.history)
    for (const double residual : entry.residuals)
      include(residual);
  if (high == 0.0) low = high = 1.0;
  const int last = result.history.empty() ? 1 : result.history.back().iteration;
  const int floor = static_cast<int>(std::floor(std::log10(low)));
  return {std::max(last, 1), floor,
          std::max(static_cast<int>(std::ceil(std::log10(high))), floor + 1)};
}

void DrawAxes(std::ostream& out, const Axes& axes) {
  const Frame& frame = residualFrame;
  const int decades = TickStep(axes.high - axes.low);
  for (int decade = axes.low; decade <= axes.high; decade += decades) {
    const double y = axes.Y(std::pow(10.0, decade));
    DrawLine(out, "grid", frame.left, y, frame.right, y);
    DrawText(out, "end", frame.left - 8.0, y + 4.0, "1e" + std::to_string(decade));
  }
  const int step = TickStep(axes.iterations);
  for (int iteration = 0; iteration <= axes.iterations; iteration += step)
    DrawText(out, "middle", axes.X(iteration), frame.bottom + 18.0, std::to_string(iteration));
}

// A line breaks where a residual is not known.
void DrawPairs(std::ostream& out, const RunResult& result, const Axes& axes) {
  const std::size_t pairs = result.values.size();
  for (std::size_t j = 0; j < pairs; ++j) {
    out << "<path class=\"pair\" stroke=\"" << ColourOf(j, pairs) << "\" d=\"";
    bool isBroken = true;
    for (const HistoryEntry& entry : result.history) {
      const double residual = entry.residuals[j];
      if (IsDrawn(residual)) {
        out << (isBroken ? 'M' : 'L') << axes.X(entry.iteration) << ' ' << axes.Y(residual);
        if (isBroken) out << "h0"; // one that stands alone is a dot
      }
      isBroken = !IsDrawn(residual);
    }
    out << "\"/>\n";
  }
}

// Colours by name, in the row above the residuals.
void DrawLegend(std::ostream& out, std::size_t pairs) {
  const double right = residualFrame.right, y = residualFrame.top - 10.0;
  const std::string last = "pair " + std::to_string(pairs);
  if (pairs < 2) return;
  const double bar = right - 12.0 - 8.0 * static_cast<double>(last.size());
  const std::size_t steps = std::min<std::size_t>(pairs, 12);
  const double each = 96.0 / static_cast<double>(steps);
  for (std::size_t i = 0; i < steps; ++i) {
    const double x = bar - 96.0 + each * static_cast<double>(i);
    DrawBox(out, {x, x + each, y - 9.0, y}, "fill=\"" + ColourOf(i, steps) + "\"");
  }
  DrawText(out, "end", bar - 104.0, y, "pair 1");
  DrawText(out, "start", bar + 8.0, y, last);
}

void DrawResiduals(std::ostream& out, const RunResult& result) {
  const Axes axes = FitAxes(result);
  DrawAxes(out, axes);
  DrawPairs(out, result, axes);
  if (IsThresholdDrawn(result)) {
    const double threshold = result.settings.threshold, y = axes.Y(threshold);
    DrawLine(out, "threshold", residualFrame.left, y, residualFrame.right, y);
    DrawText(out, "start", residualFrame.right + 8.0, y - 3.0, "threshold", "threshold");
    DrawText(out, "start", residualFrame.right + 8.0, y + 13.0, Short(threshold), "threshold");
  }
  DrawLegend(out, result.values.size());
  DrawFrame(out, residualFrame, "Residuals", "iteration", "residual");
}

std::pair<double, double> RangeOf(const std::vector<double>& values) {
  double low = std::numeric_limits<double>::max(), high = std::numeric_limits<double>::lowest();
  for (const double value : values)
    if (std::isfinite(value)) {
      low = std::min(low, value);
      high = std::max(high, value);
    }
  if (low > high) low = high = 0.0;
  // Values closer than labels can tell are no range.
  const double size = std::max(std::abs(low), std::abs(high));
  const bool isRange = high - low > 1e-4 * size;
  const double margin = isRange ? 0.05 * (high - low) : size > 0.0 ? 0.1 * size : 1.0;
  return {low - margin, high + margin};
}

// Those that did not converge are hollow.
void DrawValues(std::ostream& out, const RunResult& result) {
  const Frame& frame = valueFrame;
  const auto pairs = static_cast<int>(result.values.size());
  const auto [low, high] = RangeOf(result.values);
  const double bottom = low, range = high - low;
  const auto x = [&](double pair) {
    return frame.left + (frame.right - frame.left) * (pair - 0.5) / std::max(pairs, 1);
  };
  const auto y = [&](double value) {
    return frame.bottom - (frame.bottom - frame.top) * (value - bottom) / range;
  };
  const double largest = std::max(std::abs(low), std::abs(high));
  const int digits = std::clamp(static_cast<int>(std::log10(largest / range)) + 3, 3, 15);
  for (const double tick : Ticks(low, high, 6)) {
    DrawLine(out, "grid", frame.left, y(tick), frame.right, y(tick));
    DrawText(out, "end", frame.left - 8.0, y(tick) + 4.0, Short(tick, digits));
  }
  for (int pair = TickStep(pairs); pair <= pairs; pair += TickStep(pairs))
    DrawText(out, "middle", x(pair), frame.bottom + 18.0, std::to_string(pair));
  for (int j = 0; j < pairs; ++j) {
    const auto at = static_cast<std::size_t>(j);
    if (!std::isfinite(result.values[at])) continue;
    const std::string colour = ColourOf(at, result.values.size());
    out << "<circle cx=\"" << x(j + 1) << "\" cy=\"" << y(result.values[at])
        << "\" r=\"3.5\" fill=\"" << (j < result.converged ? colour : "#fff") << "\" stroke=\""
        << colour << "\"/>\n";
  }
  const bool hasAll = result.converged >= pairs;
  DrawFrame(out, frame, hasAll ? "Eigenvalues" : "Eigenvalues (hollow: not converged)", "pair",
            "eigenvalue");
}

void DrawCosts(std::ostream& out, const RunResult& result) {
  std::vector<std::pair<const char*, double>> costs = {{"A", result.secondsA}};
  if (result.stats.columnsB > 0) costs.emplace_back("B", result.secondsB);
  if (result.stats.columnsT > 0) costs.emplace_back("preconditioner", result.secondsT);
  costs.emplace_back("small problems", result.stats.secondsDense);
  costs.emplace_back("products of blocks", SecondsOfBlocks(result.stats));
  double longest = 0.0;
  for (const auto& cost : costs)
    longest = std::max(longest, cost.second);
  const Frame& frame = costFrame;
  const double row = (frame.bottom - frame.top) / 5.0;
  double top = frame.top;
  for (const auto& [name, seconds] : costs) {
    const double part = longest > 0.0 ? seconds / longest : 0.0;
    const double right = frame.left + part * (frame.right - frame.left);
    DrawText(out, "end", frame.left - 8.0, top + 0.5 * row + 4.0, name);
    DrawBox(out, {frame.left, right, top + 8.0, top + row - 8.0}, "class=\"cost\"");
    DrawText(out, "start", right + 6.0, top + 0.5 * row + 4.0, Short(seconds) + " s");
    top += row;
  }
  DrawText(out, "start", frame.left - 124.0, frame.top - 10.0,
           "Time, " + Short(result.stats.secondsTotal, 3) + " s in all", "panel");
}

// The middle of a long one is left out.
std::string TitleOf(const std::string& title) {
  constexpr std::size_t most = 64, end = 24;
  if (title.size() <= most) return title;
  const std::size_t from = title.size() - end;
  return title.substr(0, most - end) + "..." + title.substr(from);
}

} // namespace

void WritePlot(std::ostream& out, const RunResult& result) {
  out << std::fixed << std::setprecision(1) << R"(<svg xmlns="http://www.w3.org/2000/svg" width=")"
      << width << R"(" height=")" << height << R"(" viewBox="0 0 )" << width << ' ' << height
      << "\">\n"
      << style << R"(<rect width="100%" height="100%" fill="#fff"/>)"
      << "\n";
  const std::size_t pairs = result.values.size();
  DrawText(out, "start", residualFrame.left, 36.0,
           TitleOf(result.title) + ": " + std::to_string(pairs) +
               (pairs == 1 ? " pair in " : " pairs in ") + std::to_string(result.iterations) +
               (result.iterations == 1 ? " iteration" : " iterations"),
           "title");
  DrawResiduals(out, result);
  DrawValues(out, result);
  DrawCosts(out, result);
  out << "</svg>\n";
}

} // namespace VesTools
