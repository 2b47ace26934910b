#ifndef VES_TOOLS_SVG_H
#define VES_TOOLS_SVG_H

#include <cstddef>
#include <ostream>
#include <string>
#include <vector>

namespace VesTools {

/// Where a panel of a picture is on the page.
struct Frame {
  double left, right, top, bottom;
};

void DrawText(std::ostream& out, const char* anchor, double x, double y, const std::string& text,
              const char* kind = "tick");
void DrawLine(std::ostream& out, const char* kind, double x1, double y1, double x2, double y2);
void DrawBox(std::ostream& out, const Frame& frame, const std::string& attributes);

/// A panel's title, border and the names of its axes.
void DrawFrame(std::ostream& out, const Frame& frame, const std::string& title,
               const std::string& x, const std::string& y);

/// From blue for the first pair to orange for the last.
std::string ColourOf(std::size_t pair, std::size_t pairs);

/// The smallest step of 1, 2 or 5 times a power of ten that gives at most ten ticks: a whole one.
int TickStep(int range);

/// Ticks of at most as many round numbers within the range, which must not be empty.
std::vector<double> Ticks(double low, double high, int most);

} // namespace VesTools

#endif
