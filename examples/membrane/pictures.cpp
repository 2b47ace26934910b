#include "pictures.h"

#include <algorithm>
#include <cmath>
#include <fstream>
#include <iomanip>
#include <map>
#include <sstream>

namespace {

constexpr int perRow = 3, levels = 8; // of colour, on either side of zero
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

// Crosses the sides of the cells of nodes where the heights pass a level, linearly along each side.
class Contours {
public:
  Contours(const std::vector<double>& heights, int pitch, double level, double sign)
      : heights_(heights), pitch_(pitch), level_(level), sign_(sign) {
    for (int line = 0; line + 1 < pitch; ++line)
      for (int i = 0; i + 1 < pitch; ++i)
        Enter(line * pitch + i);
  }

  // Closed, since heights are zero around the shape; those around holes run the other way.
  void Draw(std::ostream& out) {
    while (!next_.empty()) {
      char command = 'M';
      for (auto at = next_.begin(); at != next_.end(); at = next_.find(Take(at))) {
        DrawCrossing(out << command, at->first);
        command = 'L';
      }
      out << 'z';
    }
  }

private:
  // Of a side, which is twice its first node and one more if it goes up, the next on the line.
  using Crossings = std::map<int, int>;

  bool IsHigh(int node) const { return Height(node) > level_; }
  double Height(int node) const { return sign_ * heights_[static_cast<std::size_t>(node)]; }

  // Around the cell and leaving what is high, a line goes to where that is entered again.
  void Enter(int node) {
    const int corners[] = {node, node + 1, node + 1 + pitch_, node + pitch_, node};
    const int sides[] = {2 * node, 2 * (node + 1) + 1, 2 * (node + pitch_), 2 * node + 1};
    for (int j = 0; j < 4; ++j) {
      if (!IsHigh(corners[j]) || IsHigh(corners[j + 1])) continue;
      int end = (j + 1) % 4;
      while (!IsHigh(corners[end + 1]))
        end = (end + 1) % 4;
      next_[sides[j]] = sides[end];
    }
  }

  int Take(Crossings::iterator at) {
    const int to = at->second;
    next_.erase(at);
    return to;
  }

  void DrawCrossing(std::ostream& out, int side) const {
    const int node = side / 2, other = side % 2 == 0 ? node + 1 : node + pitch_;
    const double part = (level_ - Height(node)) / (Height(other) - Height(node));
    out << node % pitch_ + (side % 2 == 0 ? part : 0) << ' '
        << pitch_ - 1 - node / pitch_ - (side % 2 == 0 ? 0 : part);
  }

  const std::vector<double>& heights_;
  int pitch_;
  double level_, sign_;
  Crossings next_;
};

// The shape, and on it what is higher than each level, one upon another.
void DrawMode(std::ostream& out, const Mode& mode, int pitch) {
  const auto [low, high] = std::minmax_element(mode.heights.begin(), mode.heights.end());
  const double step = std::max(-*low, *high) / (levels + 0.5);
  const double sign = -*low > *high ? -1 : 1; // of a vector it is arbitrary
  const int whole = pitch - 1, half = whole / 2;
  out << "<path fill=\"" << Colour(0) << "\" d=\"M0 0H" << whole << 'V' << half << 'H' << half
      << 'V' << whole << "H0z\"/>\n";
  for (const int side : {-1, 1})
    for (int colour = 1; colour <= levels; ++colour) {
      out << "<path fill=\"" << Colour(side * colour) << "\" d=\"";
      Contours(mode.heights, pitch, (colour - 0.5) * step, sign * side).Draw(out);
      out << "\"/>\n";
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
        << "</text>\n<g transform=\"scale(" << panel / (pitch - 1) << ")\">\n"
        << std::setprecision(2);
    DrawMode(out, mode, pitch);
    out << "</g>\n</g>\n";
  }
  out << "</svg>\n";
  return out.flush().good();
}
