#include "svg.h"

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <sstream>
#include <string>

namespace silicon {

namespace {

constexpr double pageWidth = 880.0;
constexpr double pageHeight = 660.0;
constexpr double left = 84.0;
constexpr double right = 850.0;
constexpr double top = 70.0;
constexpr double bottom = 600.0;

constexpr const char* style = R"(<style>
  text { font-family: "Helvetica Neue", Helvetica, Arial, sans-serif; fill: #222; }
  .title { font-size: 19px; font-weight: 600; }
  .subtitle { font-size: 13px; fill: #666; }
  .tick { font-size: 14px; }
  .note { font-size: 12px; fill: #7a5c10; }
  .point { font-size: 17px; }
  .grid { stroke: #e4e4e4; stroke-width: 1; }
  .symmetry { stroke: #9a9a9a; stroke-width: 1; }
  .mark { stroke: #222; stroke-width: 1.2; }
  .frame { fill: none; stroke: #222; stroke-width: 1.2; }
  .gap { fill: #f3dc9b; fill-opacity: 0.55; }
  .band { fill: none; stroke-width: 2; stroke-linejoin: round; stroke-linecap: round; }
  .valence { stroke: #1f5a94; }
  .conduction { stroke: #c2472b; }
  .edge { stroke: #fff; stroke-width: 1.5; }
  .top { fill: #1f5a94; }
  .bottom { fill: #c2472b; }
</style>
)";

/// Maps path lengths and energies in eV to the page.
struct Axes {
  double length; ///< of the whole path
  double low;    ///< energy at the bottom, eV
  double high;   ///< energy at the top, eV
  double zero;   ///< valence band top, Ry

  double X(double pathLength) const { return left + (right - left) * pathLength / length; }
  double Y(double ev) const { return bottom - (bottom - top) * (ev - low) / (high - low); }
  double Ev(double energy) const { return (energy - zero) * rydbergInEv; }
};

Axes FitAxes(const BandStructure& structure) {
  double low = HUGE_VAL;
  double high = -HUGE_VAL;
  for (const BandPoint& entry : structure) {
    low = std::min(low, entry.levels.energies.front());
    high = std::max(high, entry.levels.energies.back());
  }
  Axes axes = {structure.back().point.length, 0.0, 0.0, ValenceTop(structure)};
  axes.low = std::floor(axes.Ev(low) - 0.5);
  axes.high = std::ceil(axes.Ev(high) + 0.5);
  return axes;
}

void Text(std::ostream& out, const char* kind, const char* anchor, double x, double y,
          const std::string& text) {
  out << "<text class=\"" << kind << "\" text-anchor=\"" << anchor << "\" x=\"" << x << "\" y=\""
      << y << "\">" << text << "</text>\n";
}

void Line(std::ostream& out, const char* kind, double x1, double y1, double x2, double y2) {
  out << "<line class=\"" << kind << "\" x1=\"" << x1 << "\" y1=\"" << y1 << "\" x2=\"" << x2
      << "\" y2=\"" << y2 << "\"/>\n";
}

// The smallest step of 1, 2 or 5 times a power of ten eV that gives at most fourteen ticks.
double TickStep(double range) {
  for (double decade = 1.0;; decade *= 10.0) {
    for (const double factor : {1.0, 2.0, 5.0}) {
      if (range <= 14.0 * factor * decade) return factor * decade;
    }
  }
}

void DrawEnergyAxis(std::ostream& out, const Axes& axes) {
  const double step = TickStep(axes.high - axes.low);
  const auto last = static_cast<int>(std::floor(axes.high / step));
  for (auto i = static_cast<int>(std::ceil(axes.low / step)); i <= last; ++i) {
    const double y = axes.Y(i * step);
    Line(out, "grid", left, y, right, y);
    Line(out, "mark", left, y, left + 6.0, y);
    Line(out, "mark", right - 6.0, y, right, y);
    const long value = std::lround(std::abs(i * step));
    Text(out, "tick", "end", left - 9.0, y + 5.0, (i < 0 ? "\u2212" : "") + std::to_string(value));
  }
  const double middle = 0.5 * (top + bottom);
  out << "<text class=\"point\" text-anchor=\"middle\" transform=\"translate(34 " << middle
      << ") rotate(-90)\"><tspan font-style=\"italic\">E</tspan> \u2212 "
      << "<tspan font-style=\"italic\">E</tspan><tspan dy=\"4\" font-size=\"12\">v</tspan>"
      << "<tspan dy=\"-4\"> (eV)</tspan></text>\n";
}

// Points of symmetry; two at the same length share a label, as in U | K.
void DrawPathAxis(std::ostream& out, const BandStructure& structure, const Axes& axes) {
  for (std::size_t i = 0; i < structure.size(); ++i) {
    const PathPoint& point = structure[i].point;
    if (point.label.empty()) continue;
    const auto symbol = [](const std::string& label) {
      return label == "Gamma" ? "\u0393" : label;
    };
    std::string label = symbol(point.label);
    while (i + 1 < structure.size() && structure[i + 1].point.length == point.length) {
      label += "\u2009|\u2009" + symbol(structure[++i].point.label);
    }
    const double x = axes.X(point.length);
    Line(out, "symmetry", x, top, x, bottom);
    Text(out, "point", "middle", x, bottom + 25.0, label);
  }
}

void DrawBands(std::ostream& out, const BandStructure& structure, const Axes& axes) {
  const auto bands = static_cast<std::size_t>(structure.front().levels.Count());
  for (std::size_t band = 0; band < bands; ++band) {
    out << "<path class=\"band "
        << (band < static_cast<std::size_t>(valenceBands) ? "valence" : "conduction") << "\" d=\"";
    char command = 'M';
    for (const auto& [point, levels] : structure) {
      out << command << axes.X(point.length) << ' ' << axes.Y(axes.Ev(levels.energies[band]));
      command = 'L';
    }
    out << "\"/>\n";
  }
}

std::string GapInEv(const Gap& gap) {
  std::ostringstream text;
  text << std::fixed << std::setprecision(2)
       << (gap.conductionBottom - gap.valenceTop) * rydbergInEv;
  return text.str();
}

// The gap is the one strip without bands: its name, when it fits, meets none.
void ShadeGap(std::ostream& out, const Gap& gap, const Axes& axes) {
  const double lower = axes.Y(axes.Ev(gap.valenceTop));
  const double upper = axes.Y(axes.Ev(gap.conductionBottom));
  if (upper >= lower) return;
  out << "<rect class=\"gap\" x=\"" << left << "\" y=\"" << upper << "\" width=\"" << right - left
      << "\" height=\"" << lower - upper << "\"/>\n";
  if (lower - upper < 13.0) return;
  Text(out, "note", "start", left + 14.0, 0.5 * (lower + upper) + 4.0,
       "indirect gap " + GapInEv(gap) + " eV");
}

void MarkGap(std::ostream& out, const Gap& gap, const Axes& axes) {
  const auto dot = [&](const BandPoint& at, double energy, const char* kind) {
    out << "<circle class=\"edge " << kind << "\" cx=\"" << axes.X(at.point.length) << "\" cy=\""
        << axes.Y(axes.Ev(energy)) << "\" r=\"5\"/>\n";
  };
  dot(*gap.top, gap.valenceTop, "top");
  dot(*gap.bottom, gap.conductionBottom, "bottom");
}

std::string Subtitle(double cutoff) {
  std::ostringstream text;
  text << "Empirical pseudopotential of Cohen and Bergstresser, plane waves up to " << cutoff
       << " Ry";
  return text.str();
}

} // namespace

void WriteSvg(std::ostream& out, const BandStructure& structure, double cutoff) {
  const Axes axes = FitAxes(structure);
  const std::optional<Gap> gap = FindGap(structure);
  out << std::fixed << std::setprecision(2) << R"(<svg xmlns="http://www.w3.org/2000/svg" width=")"
      << pageWidth << "\" height=\"" << pageHeight << "\" viewBox=\"0 0 " << pageWidth << ' '
      << pageHeight << "\">\n"
      << "<title>Band structure of silicon</title>\n"
      << style << "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n";
  Text(out, "title", "start", left, 34.0, "Band structure of silicon");
  Text(out, "subtitle", "start", left, 55.0, Subtitle(cutoff));
  if (gap) ShadeGap(out, *gap, axes);
  DrawEnergyAxis(out, axes);
  DrawPathAxis(out, structure, axes);
  DrawBands(out, structure, axes);
  if (gap) MarkGap(out, *gap, axes);
  out << "<rect class=\"frame\" x=\"" << left << "\" y=\"" << top << "\" width=\"" << right - left
      << "\" height=\"" << bottom - top << "\"/>\n</svg>\n";
}

} // namespace silicon
