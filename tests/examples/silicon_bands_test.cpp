#include "band_structure.h"
#include "communicator.h"
#include "error.h"
#include "hamiltonian.h"
#include "reference_energies.h"
#include "starting_bands.h"
#include "supercell.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <sstream>
#include <string>

using namespace silicon;

namespace {

const MPI_Comm comm = MPI_COMM_WORLD;

// Below the 1e-6 Ry that the energies are compared to, so that the comparison has a meaning.
SolverOptions TightOptions() {
  SolverOptions options;
  options.threshold = 1e-7;
  return options;
}

int SumOverProcesses(int value) {
  MPI_Allreduce(MPI_IN_PLACE, &value, 1, MPI_INT, MPI_SUM, comm);
  return value;
}

std::string Describe(const ReferencePoint& point) {
  std::ostringstream text;
  text << point.name << " at " << point.cutoff << " Ry";
  return text.str();
}

// A smooth function of the wave vector and the column, different in every component.
Complex Sample(const Vec3& q, int column) {
  const double phase = 1.3 * q[0] - 0.7 * q[1] + 2.1 * q[2] + 0.9 * column;
  return std::polar(1.0 / (1.0 + Dot(q, q)), phase);
}

// y = H x for the samples by the direct sum over G - G', all plane waves taken from the list.
Complex DirectProduct(const Crystal& crystal, const Vec3& k, const std::vector<Index3>& sphere,
                      const Index3& g, int column) {
  Complex sum = crystal.KineticEnergy(k, g) * Sample(crystal.WaveVector(k, g), column);
  for (const Index3& other : sphere) {
    const Vec3 d = crystal.WaveVector({}, {g[0] - other[0], g[1] - other[1], g[2] - other[2]});
    const Index3 hkl = {int(std::lround(d[0])), int(std::lround(d[1])), int(std::lround(d[2]))};
    if (Distance(d, {double(hkl[0]), double(hkl[1]), double(hkl[2])}) > 1e-9) continue;
    sum += PotentialCoefficient(hkl) * Sample(crystal.WaveVector(k, other), column);
  }
  return sum;
}

// The G of all processes.
std::vector<Index3> WholeSphere(const PlaneWaves& basis) {
  std::vector<Index3> mine;
  for (const PlaneWave& wave : basis.Local())
    mine.push_back(wave.g);
  const int bytes = static_cast<int>(mine.size() * sizeof(Index3));
  std::vector<int> counts(static_cast<std::size_t>(Size(comm)));
  MPI_Allgather(&bytes, 1, MPI_INT, counts.data(), 1, MPI_INT, comm);
  std::vector<int> offsets(counts.size(), 0);
  std::partial_sum(counts.begin(), counts.end() - 1, offsets.begin() + 1);
  std::vector<Index3> all(static_cast<std::size_t>(basis.Size()));
  MPI_Allgatherv(mine.data(), bytes, MPI_BYTE, all.data(), counts.data(), offsets.data(), MPI_BYTE,
                 comm);
  return all;
}

// A block of samples with leading dimension ld.
Coefficients SampleBlock(const Crystal& crystal, const PlaneWaves& basis, int nCols, int ld) {
  Coefficients x(static_cast<std::size_t>(ld) * static_cast<std::size_t>(nCols), {7.0, -7.0});
  for (int j = 0; j < nCols; ++j) {
    for (int i = 0; i < basis.LocalSize(); ++i) {
      const Index3& g = basis.Local()[static_cast<std::size_t>(i)].g;
      x[static_cast<std::size_t>(i + j * ld)] =
          Sample(crystal.WaveVector(basis.WaveVector(), g), j);
    }
  }
  return x;
}

struct Case {
  Crystal crystal;
  Vec3 k;
  double cutoff;
};

std::vector<Case> Cases() {
  return {{Crystal::PrimitiveCell(), {0.2, 0.1, 0.35}, 5.0},
          {Crystal::PrimitiveCell(), {0.0, -0.75, -0.75}, 10.0},
          {Crystal::PrimitiveCell(), {}, 0.5}, // one plane wave
          {Crystal::Supercell(1), {}, 5.0},
          {Crystal::Supercell(2), {}, 1.5}};
}

TEST(SiliconPlaneWaves, EveryProcessOfTheFftHoldsSome) {
  for (const auto& [crystal, k, cutoff] : Cases()) {
    const PlaneWaves basis(crystal, k, cutoff, comm);
    const SlabLayout& layout = basis.Layout();
    EXPECT_EQ(basis.LocalSize() > 0, Rank(comm) < layout.processes);
    EXPECT_GE(layout.processes * layout.block, basis.Grid()[0]);
    EXPECT_LT((layout.processes - 1) * layout.block, basis.Grid()[0]);
    for (const PlaneWave& wave : basis.Local()) {
      EXPECT_EQ(basis.Owner(wave.g), Rank(comm));
      EXPECT_EQ(basis.Local()[static_cast<std::size_t>(basis.Row(wave.g))].g, wave.g);
    }
  }
}

// Five planes of waves on a grid of seven. Three slabs carry 21, 21 and 17 waves; four would leave
// 31 of them on one slab of two planes, and seven could not avoid the empty planes.
TEST(SiliconPlaneWaves, SlabsAreBalancedAndNoneIsEmpty) {
  const std::vector<int> waves = {7, 14, 17, 14, 7};
  for (const int processes : {3, 4, 7, 64}) {
    const SlabLayout layout = ChooseSlabs(waves, 7, processes);
    EXPECT_EQ(layout.processes, 3);
    EXPECT_EQ(layout.block, 3);
  }
  EXPECT_EQ(ChooseSlabs(waves, 7, 1).processes, 1);
  EXPECT_EQ(ChooseSlabs({1}, 3, 5).processes, 1);
}

TEST(SiliconHamiltonian, FftProductIsTheDirectSum) {
  for (const auto& [crystal, k, cutoff] : Cases()) {
    const PlaneWaves basis(crystal, k, cutoff, comm);
    SCOPED_TRACE(std::to_string(basis.Size()) + " plane waves");
    const std::vector<Index3> sphere = WholeSphere(basis);
    Hamiltonian hamiltonian(crystal, basis, comm);
    for (const int nCols : {1, 8, 11}) {
      const int rows = basis.LocalSize();
      const int ld = rows + 3;
      const Coefficients x = SampleBlock(crystal, basis, nCols, ld);
      Coefficients y(x.size(), {5.0, 5.0});
      hamiltonian.Apply(x.data(), y.data(), nCols, ld);
      double largest = 0.0;
      for (int j = 0; j < nCols; ++j) {
        for (int i = 0; i < rows; ++i) {
          const Index3& g = basis.Local()[static_cast<std::size_t>(i)].g;
          const Complex difference =
              y[static_cast<std::size_t>(i + j * ld)] - DirectProduct(crystal, k, sphere, g, j);
          largest = std::max(largest, std::abs(difference));
        }
        for (int i = rows; i < ld; ++i) {
          EXPECT_EQ(y[static_cast<std::size_t>(i + j * ld)], Complex(5.0, 5.0));
        }
      }
      EXPECT_LT(largest, 1e-13) << nCols << " columns";
    }
  }
}

TEST(SiliconHamiltonian, ProcessesWithoutPlaneWavesAreNotNeeded) {
  const Crystal crystal = Crystal::PrimitiveCell();
  const ReferencePoint& gamma = *FindReference("Gamma", 5.0);
  const PlaneWaves basis(crystal, gamma.k, gamma.cutoff, comm);
  EXPECT_TRUE(Size(comm) < 5 || basis.Layout().processes < Size(comm));
  const Bands bands = SolveBands(crystal, gamma.k, gamma.cutoff, 8, TightOptions(), nullptr, comm);
  EXPECT_TRUE(bands.levels.Accepted(1e-7));
  EXPECT_LT(LargestDeviation(bands.levels.energies, gamma.energies.data(), 16), 1e-6);
}

// Three blocks of all sixteen levels nearly fill the space at 5 Ry; half of them leave room.
TEST(SiliconBands, EnergiesAreThoseOfTheReference) {
  for (const ReferencePoint& point : referencePoints) {
    SCOPED_TRACE(Describe(point));
    const int count = point.cutoff < 10.0 ? 8 : 16;
    const Bands bands = SolveBands(Crystal::PrimitiveCell(), point.k, point.cutoff, count,
                                   TightOptions(), nullptr, comm);
    EXPECT_EQ(bands.levels.Count(), count);
    EXPECT_TRUE(bands.levels.Accepted(1e-7)) << bands.levels.LargestResidual();
    EXPECT_LT(LargestDeviation(bands.levels.energies, point.energies.data(), 16), 1e-6);
  }
}

// 59 plane waves at Gamma below 5 Ry, none at L below 1e-3 Ry, some 10^12 below 1e9 Ry.
TEST(SiliconBands, TooManyBandsAreRefused) {
  const Crystal crystal = Crystal::PrimitiveCell();
  EXPECT_THROW(SolveBands(crystal, {}, 5.0, 60, {}, nullptr, comm), Error);
  EXPECT_THROW(SolveBands(crystal, {0.5, 0.5, 0.5}, 1e-3, 1, {}, nullptr, comm), Error);
  EXPECT_THROW(PlaneWaves(crystal, {}, 1e9, comm), Error);
}

TEST(SiliconBands, CoefficientsFollowTheirWaveVectors) {
  const Crystal crystal = Crystal::PrimitiveCell();
  const PlaneWaves from(crystal, {1.0, 0.25, 0.25}, 10.0, comm);
  const Coefficients old = SampleBlock(crystal, from, 3, from.LocalSize());
  for (const Vec3& step : {Vec3{0.0, 0.0, 0.0}, Vec3{0.0, 0.1, -0.2}, Vec3{-1.0, -1.0, -1.0}}) {
    const Vec3& k = from.WaveVector();
    const Vec3 kNew = {k[0] + step[0], k[1] + step[1], k[2] + step[2]};
    // The step from U to K is a reciprocal lattice vector, -(b1 + b2 + b3).
    const int shift = step[0] < 0.0 ? -1 : 0;
    const PlaneWaves to(crystal, kNew, 10.0, comm);
    const Coefficients carried = CarryOver(old, from, to, crystal, 3, comm);
    ASSERT_EQ(carried.size(), to.Local().size() * 3);
    int found = 0;
    for (std::size_t i = 0; i < carried.size(); ++i) {
      const std::size_t row = i % to.Local().size();
      const int column = static_cast<int>(i / to.Local().size());
      const Index3& g = to.Local()[row].g;
      const Index3 oldG = {g[0] + shift, g[1] + shift, g[2] + shift};
      const Complex expected =
          from.Contains(oldG) ? Sample(crystal.WaveVector(k, oldG), column) : 0.0;
      EXPECT_EQ(carried[i], expected);
      if (expected != 0.0) ++found;
    }
    EXPECT_GT(SumOverProcesses(found), 3 * from.Size() / 2);
  }
}

// Bands cross between the points of symmetry, so that a solver that only follows the symmetries of
// its starting block arrives with the wrong ones.
TEST(SiliconBands, PathArrivesAtTheReference) {
  for (const double cutoff : {5.0, 10.0}) {
    std::ostringstream lines;
    Progress progress(lines, false);
    const std::vector<PathPoint> path = BandPath(6);
    const BandStructure structure = SolvePath(path, cutoff, 8, TightOptions(), progress, comm);
    ASSERT_EQ(structure.size(), path.size());
    for (const auto& [point, levels] : structure) {
      EXPECT_TRUE(levels.Accepted(1e-7));
      const ReferencePoint* reference = FindReference(point.label, cutoff);
      if (reference == nullptr) continue;
      SCOPED_TRACE(Describe(*reference));
      EXPECT_LT(LargestDeviation(levels.energies, reference->energies.data(), 8), 1e-6);
    }
    const std::vector<double>& u = FindPoint(structure, "U").levels.energies;
    EXPECT_LT(LargestDeviation(FindPoint(structure, "K").levels.energies, u.data(), u.size()),
              1e-6);
    const std::string text = lines.str();
    EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), std::ptrdiff_t(path.size()));
  }
}

TEST(SiliconBands, GapIsThatOfTheLiterature) {
  std::ostringstream lines;
  Progress progress(lines, false);
  std::vector<PathPoint> path = BandPath(20);
  path.erase(std::find_if(path.begin(), path.end(),
                          [](const PathPoint& point) { return point.label == "U"; }),
             path.end());
  const BandStructure structure = SolvePath(path, 20.0, 6, TightOptions(), progress, comm);
  const std::optional<Gap> gap = FindGap(structure);
  ASSERT_TRUE(gap);
  EXPECT_EQ(gap->top->point.label, "Gamma");
  EXPECT_NEAR(gap->bottom->point.k[0], 0.85, 0.051);
  // The literature gives two decimals.
  EXPECT_NEAR((gap->conductionBottom - gap->valenceTop) * rydbergInEv, referenceGap, 0.005);
}

TEST(SiliconSupercell, LevelsAreTheFoldedBands) {
  for (const double cutoff : {5.0, 10.0}) {
    std::ostringstream lines;
    Progress progress(lines, false);
    const std::vector<double> folded = FoldedLevels(1, cutoff, 16, TightOptions(), progress, comm);
    const Crystal crystal = Crystal::Supercell(1);
    const Bands bands = SolveBands(crystal, {}, cutoff, 16, TightOptions(), nullptr, comm);
    EXPECT_TRUE(bands.levels.Accepted(1e-7));
    EXPECT_LT(LargestDeviation(bands.levels.energies, folded.data(), 16), 1e-6);
  }
}

TEST(SiliconSupercell, FoldedLevelsAreCompleteForUnevenCounts) {
  // More levels than the first attempt finds below the highest band of every point.
  std::ostringstream lines;
  Progress progress(lines, false);
  const std::vector<double> folded = FoldedLevels(1, 5.0, 24, TightOptions(), progress, comm);
  std::vector<double> reference;
  for (const char* name : {"Gamma", "X", "X", "X"}) {
    const auto& energies = FindReference(name, 5.0)->energies;
    reference.insert(reference.end(), energies.begin(), energies.end());
  }
  std::sort(reference.begin(), reference.end());
  EXPECT_LT(LargestDeviation(folded, reference.data(), 24), 1e-6);
}

} // namespace
