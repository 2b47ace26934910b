#include "band_path.h"

#include <algorithm>
#include <cmath>

namespace silicon {

std::vector<PathPoint> BandPath(int intervals) {
  struct Corner {
    const char* label;
    Vec3 k;
  };
  // K is the one of its star that lies at U - (1,1,1).
  const std::vector<std::vector<Corner>> branches = {
      {{"L", {0.5, 0.5, 0.5}},
       {"Gamma", {0.0, 0.0, 0.0}},
       {"X", {1.0, 0.0, 0.0}},
       {"U", {1.0, 0.25, 0.25}}},
      {{"K", {0.0, -0.75, -0.75}}, {"Gamma", {0.0, 0.0, 0.0}}}};

  std::vector<PathPoint> path;
  double length = 0.0;
  for (const std::vector<Corner>& branch : branches) {
    path.push_back({branch.front().k, length, branch.front().label});
    for (std::size_t i = 1; i < branch.size(); ++i) {
      const Vec3& from = branch[i - 1].k;
      const Vec3& to = branch[i].k;
      const double distance = Distance(from, to);
      const int steps = std::max(1, static_cast<int>(std::lround(intervals * distance)));
      for (int step = 1; step <= steps; ++step) {
        const double t = static_cast<double>(step) / steps;
        const Vec3 k = {from[0] + t * (to[0] - from[0]), from[1] + t * (to[1] - from[1]),
                        from[2] + t * (to[2] - from[2])};
        path.push_back({k, length + t * distance, step == steps ? branch[i].label : ""});
      }
      length += distance;
    }
  }
  return path;
}

} // namespace silicon
