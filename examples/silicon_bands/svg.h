#ifndef SILICON_SVG_H
#define SILICON_SVG_H

#include "band_structure.h"

#include <ostream>

namespace silicon {

/// Draws the bands along the path in eV above the valence band top, the gap shaded.
void WriteSvg(std::ostream& out, const BandStructure& structure, double cutoff);

} // namespace silicon

#endif
