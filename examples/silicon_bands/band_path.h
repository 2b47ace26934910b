#ifndef SILICON_BAND_PATH_H
#define SILICON_BAND_PATH_H

#include "crystal.h"

#include <string>
#include <vector>

namespace silicon {

/// One wave vector of a path through the Brillouin zone.
struct PathPoint {
  Vec3 k;            ///< in 2 pi / a
  double length;     ///< of the path up to here, in 2 pi / a
  std::string label; ///< name of a point of symmetry, else empty
};

/// The path L - Gamma - X - U | K - Gamma. U and K differ by a reciprocal lattice vector and stand
/// at the same length, one after the other.
/// \param intervals  on Gamma - X; the other segments get theirs in proportion to their lengths
std::vector<PathPoint> BandPath(int intervals);

} // namespace silicon

#endif
