#include "pictures.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iomanip>
#include <sstream>

namespace {

constexpr int perRow = 3, levels = 6; // of colour, on either side of zero
constexpr double panel = 200.0, margin = 24.0;

// From blue over nearly white to red.
std::string Colour(int level) {
  const double strength = std::abs(level) / static_cast<double>(levels);
  const auto channel = [strength](double full) {
    return std::lround(245 + (full - 245) * strength);
  };
  std::ostringstream text;
  text << "rgb(" << channel(level > 0 ? 178 : 33) << ',' << channel(level > 0 ? 24 : 102) << ','
       << channel(level > 0 ? 43 : 172) << ')';
  return text.str();
}

// One path for each colour, made of the strips of nodes that have it.
void DrawMode(std::ostream& out, const Mode& mode, int pitch) {
  const auto [low, high] = std::minmax_element(mode.heights.begin(), mode.heights.end());
  const double scale = (levels + 0.5) / (-*low > *high ? *low : *high); // the sign is arbitrary
  const auto level = [&](int line, int i) {
    const double height = mode.heights[static_cast<std::size_t>(line * pitch + i)];
    return std::clamp(static_cast<int>(std::lround(scale * height)), -levels, levels);
  };
  for (int colour = -levels; colour <= levels; ++colour) {
    std::ostringstream strips;
    for (int line = 1; line + 1 < pitch; ++line) {
      const int width = line <= pitch / 2 ? pitch / 2 : pitch - 1;
      for (int i = 1, end; i < width; i = end) {
        for (end = i + 1; end < width && level(line, end) == level(line, i);)
          ++end;
        if (level(line, i) == colour)
          strips << 'M' << i << ' ' << pitch - 1 - line << 'h' << end - i << "v1h" << i - end
                 << 'z';
      }
    }
    if (!strips.str().empty())
      out << "<path fill=\"" << Colour(colour) << "\" d=\"" << strips.str() << "\"/>\n";
  }
}

} // namespace

bool DrawModes(const std::string& file, const std::vector<Mode>& modes, int pitch) {
  const int count = static_cast<int>(modes.size());
  const double step = panel + margin;
  std::ofstream out(file);
  out << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << perRow * step + margin
      << "\" height=\"" << (count + perRow - 1) / perRow * (step + margin)
      << "\" font-family=\"Helvetica, Arial, sans-serif\" font-size=\"14\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"#fff\"/>\n"
      << std::fixed;
  for (int j = 0; j < count; ++j) {
    const Mode& mode = modes[static_cast<std::size_t>(j)];
    out << std::setprecision(4) << "<g transform=\"translate(" << margin + j % perRow * step << ' '
        << margin + j / perRow * (step + margin) << ")\">\n<text x=\"0\" y=\"-6\">" << mode.value
        << "</text>\n<g transform=\"scale(" << panel / pitch
        << ")\" shape-rendering=\"crispEdges\">\n";
    DrawMode(out, mode, pitch);
    out << "</g>\n</g>\n";
  }
  out << "</svg>\n";
  return out.flush().good();
}
