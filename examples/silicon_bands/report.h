#ifndef SILICON_REPORT_H
#define SILICON_REPORT_H

#include "band_structure.h"

#include <ostream>
#include <vector>

namespace silicon {

/// Prints the energies at L, Gamma and X in eV above the valence band top beside the reference
/// values of this cut-off, and the indirect gap beside the literature's.
void PrintTable(std::ostream& out, const BandStructure& structure, double cutoff);

/// Largest deviation of the energies at L, Gamma and X from the reference, in Ry; zero without a
/// reference for this cut-off.
double DeviationFromReference(const BandStructure& structure, double cutoff);

/// Prints every point whose bands are not accepted.
/// \return whether there was none
bool ReportUnconverged(std::ostream& out, const BandStructure& structure, double threshold);

/// One line per k point: path length and k in 2 pi / a, then all energies in Ry, then in eV above
/// the valence band top.
void WriteCsv(std::ostream& out, const BandStructure& structure);

/// One line per level of a supercell beside the folded level of the primitive cell, in Ry.
void WriteSupercellCsv(std::ostream& out, const Levels& levels, const std::vector<double>& folded);

} // namespace silicon

#endif
