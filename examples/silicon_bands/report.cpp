#include "report.h"

#include "reference_energies.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <iomanip>
#include <string>
#include <string_view>

namespace silicon {

namespace {

constexpr std::array<std::string_view, 3> tablePoints = {"L", "Gamma", "X"};

// In eV, to the five decimals of the table: rounding errors at the zero of energy leave no sign.
double ToEv(double energy) {
  return std::round(energy * rydbergInEv * 1e5) / 1e5 + 0.0;
}

// The valence band top of a reference is its highest valence level at Gamma.
void PrintReference(std::ostream& out, std::string_view name, double cutoff, std::size_t band) {
  const ReferencePoint* point = FindReference(name, cutoff);
  const ReferencePoint* gamma = FindReference("Gamma", cutoff);
  out << std::setw(11);
  if (point == nullptr || gamma == nullptr || band >= point->energies.size()) {
    out << '-';
    return;
  }
  out << ToEv(point->energies[band] - gamma->energies[valenceBands - 1]);
}

void PrintGap(std::ostream& out, const BandStructure& structure) {
  const std::optional<Gap> gap = FindGap(structure);
  if (!gap) {
    out << "No gap: it takes at least " << valenceBands + 1 << " bands.\n";
    return;
  }
  const Vec3& k = gap->bottom->point.k;
  out << "Indirect gap " << std::setprecision(3)
      << (gap->conductionBottom - gap->valenceTop) * rydbergInEv << " eV to k = ("
      << std::setprecision(2) << k[0] << ", " << k[1] << ", " << k[2] << "), literature "
      << referenceGap << " eV.\n";
}

} // namespace

void PrintTable(std::ostream& out, const BandStructure& structure, double cutoff) {
  const double zero = ValenceTop(structure);
  out << "\nEnergies in eV above the valence band top\n  band";
  for (const std::string_view name : tablePoints)
    out << std::setw(11) << name << "  reference";
  out << '\n' << std::fixed;
  const auto bands = static_cast<std::size_t>(structure.front().levels.Count());
  for (std::size_t band = 0; band < bands; ++band) {
    out << std::setw(6) << band + 1 << std::setprecision(5);
    for (const std::string_view name : tablePoints) {
      const Levels& levels = FindPoint(structure, name).levels;
      out << std::setw(11) << ToEv(levels.energies[band] - zero);
      PrintReference(out, name, cutoff, band);
    }
    out << '\n';
  }
  out << '\n';
  PrintGap(out, structure);
  out << std::defaultfloat << std::setprecision(2);
  if (FindReference("Gamma", cutoff) == nullptr) {
    out << "There is no reference for this cut-off, only for 5, 10 and 20 Ry.\n";
    return;
  }
  out << "Largest deviation from the reference energies: "
      << DeviationFromReference(structure, cutoff) << " Ry.\n";
}

double DeviationFromReference(const BandStructure& structure, double cutoff) {
  double largest = 0.0;
  for (const BandPoint& entry : structure) {
    const ReferencePoint* reference = FindReference(entry.point.label, cutoff);
    if (reference == nullptr) continue;
    largest = Larger(largest, LargestDeviation(entry.levels.energies, reference->energies.data(),
                                               reference->energies.size()));
  }
  return largest;
}

bool ReportUnconverged(std::ostream& out, const BandStructure& structure, double threshold) {
  bool accepted = true;
  for (const BandPoint& entry : structure) {
    const Levels& levels = entry.levels;
    if (levels.Accepted(threshold)) continue;
    accepted = false;
    const Vec3& k = entry.point.k;
    out << "Not converged at k = (" << k[0] << ", " << k[1] << ", " << k[2]
        << "): " << levels.converged << " of " << levels.Count() << " bands after "
        << levels.iterations << " iterations, largest residual " << levels.LargestResidual()
        << " Ry.\n";
  }
  return accepted;
}

void WriteCsv(std::ostream& out, const BandStructure& structure) {
  const double zero = ValenceTop(structure);
  const int bands = structure.front().levels.Count();
  out << "length,kx,ky,kz,label";
  for (int band = 1; band <= bands; ++band)
    out << ",e" << band << "_ry";
  for (int band = 1; band <= bands; ++band)
    out << ",e" << band << "_ev";
  out << '\n' << std::setprecision(12);
  for (const auto& [point, levels] : structure) {
    out << point.length << ',' << point.k[0] << ',' << point.k[1] << ',' << point.k[2] << ','
        << point.label;
    for (const double energy : levels.energies)
      out << ',' << energy;
    for (const double energy : levels.energies)
      out << ',' << (energy - zero) * rydbergInEv;
    out << '\n';
  }
}

void WriteSupercellCsv(std::ostream& out, const Levels& levels, const std::vector<double>& folded) {
  out << "band,energy_ry,folded_ry,residual_ry\n" << std::setprecision(12);
  for (std::size_t i = 0; i < folded.size(); ++i) {
    out << i + 1 << ',' << levels.energies[i] << ',' << folded[i] << ',' << levels.residuals[i]
        << '\n';
  }
}

} // namespace silicon
