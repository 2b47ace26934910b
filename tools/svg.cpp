#include "svg.h"

#include <cmath>

namespace VesTools {
namespace {

std::string Escaped(const std::string& text) {
  std::string result;
  for (const char c : text)
    result += c == '&' ? "&amp;" : c == '<' ? "&lt;" : std::string(1, c);
  return result;
}

} // namespace

void DrawText(std::ostream& out, const char* anchor, double x, double y, const std::string& text,
              const char* kind) {
  out << "<text class=\"" << kind << "\" text-anchor=\"" << anchor << "\" x=\"" << x << "\" y=\""
      << y << "\">" << Escaped(text) << "</text>\n";
}

void DrawLine(std::ostream& out, const char* kind, double x1, double y1, double x2, double y2) {
  out << "<line class=\"" << kind << "\" x1=\"" << x1 << "\" y1=\"" << y1 << "\" x2=\"" << x2
      << "\" y2=\"" << y2 << "\"/>\n";
}

void DrawBox(std::ostream& out, const Frame& frame, const std::string& attributes) {
  out << "<rect " << attributes << " x=\"" << frame.left << "\" y=\"" << frame.top << "\" width=\""
      << frame.right - frame.left << "\" height=\"" << frame.bottom - frame.top << "\"/>\n";
}

void DrawFrame(std::ostream& out, const Frame& frame, const std::string& title,
               const std::string& x, const std::string& y) {
  DrawBox(out, frame, "class=\"frame\"");
  DrawText(out, "start", frame.left, frame.top - 10.0, title, "panel");
  DrawText(out, "middle", 0.5 * (frame.left + frame.right), frame.bottom + 38.0, x);
  out << "<text text-anchor=\"middle\" transform=\"translate(" << frame.left - 82.0 << ' '
      << 0.5 * (frame.top + frame.bottom) << ") rotate(-90)\">" << Escaped(y) << "</text>\n";
}

std::string ColourOf(std::size_t pair, std::size_t pairs) {
  const double part = pairs > 1 ? double(pair) / double(pairs - 1) : 0.0;
  const auto mix = [&](int from, int to) {
    return std::to_string(from + static_cast<int>(part * (to - from)));
  };
  return "rgb(" + mix(31, 220) + " " + mix(90, 120) + " " + mix(148, 30) + ")";
}

int TickStep(int range) {
  for (int decade = 1;; decade *= 10)
    for (const int factor : {1, 2, 5})
      if (range <= 10LL * factor * decade || decade > range) return factor * decade;
}

std::vector<double> Ticks(double low, double high, int most) {
  double step = std::pow(10.0, std::floor(std::log10((high - low) / most)));
  for (const double factor : {1.0, 2.0, 5.0, 10.0})
    if ((high - low) / (factor * step) <= most) {
      step *= factor;
      break;
    }
  std::vector<double> ticks;
  for (double tick = std::ceil(low / step); tick * step <= high; tick += 1.0)
    ticks.push_back(tick == 0.0 ? 0.0 : tick * step); // no negative zero
  return ticks;
}

} // namespace VesTools
