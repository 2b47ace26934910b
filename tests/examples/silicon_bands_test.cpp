#include "band_structure.h"
#include "error.h"
#include "reference_energies.h"
#include "starting_bands.h"
#include "supercell.h"

#include <ves_groups.hpp>

#include <gtest/gtest.h>

#include <algorithm>
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

// What the bands of the primitive cell fold to in the smallest supercell.
std::vector<double> Folded(double cutoff, int count) {
  std::ostringstream lines;
  return FoldedLevels(1, cutoff, count, TightOptions(), lines, comm);
}

// A smooth function of the wave vector and the column, different in every component.
Complex Sample(const Vec3& q, int column) {
  const double phase = 1.3 * q[0] - 0.7 * q[1] + 2.1 * q[2] + 0.9 * column;
  return std::polar(1.0 / (1.0 + Dot(q, q)), phase);
}

Coefficients SampleBlock(const Crystal& crystal, const PlaneWaves& basis, int nCols) {
  Coefficients x;
  for (int j = 0; j < nCols; ++j)
    for (const PlaneWave& wave : basis.Local())
      x.push_back(Sample(crystal.WaveVector(basis.WaveVector(), wave.g), j));
  return x;
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

// Three blocks of all sixteen levels nearly fill the space at 5 Ry; half of them leave room.
TEST(SiliconBands, EnergiesAreThoseOfTheReference) {
  for (const ReferencePoint& point : referencePoints) {
    SCOPED_TRACE(testing::Message() << point.name << " at " << point.cutoff << " Ry");
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
  const Coefficients old = SampleBlock(crystal, from, 3);
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
    const std::vector<PathPoint> path = BandPath(6);
    const BandStructure structure = SolvePath(path, cutoff, 8, TightOptions(), lines, comm);
    ASSERT_EQ(structure.size(), path.size());
    for (const auto& [point, levels] : structure) {
      EXPECT_TRUE(levels.Accepted(1e-7));
      const ReferencePoint* reference = FindReference(point.label, cutoff);
      if (reference == nullptr) continue;
      SCOPED_TRACE(testing::Message() << point.label << " at " << cutoff << " Ry");
      EXPECT_LT(LargestDeviation(levels.energies, reference->energies.data(), 8), 1e-6);
    }
    const std::vector<double>& u = FindPoint(structure, "U").levels.energies;
    EXPECT_LT(LargestDeviation(FindPoint(structure, "K").levels.energies, u.data(), u.size()),
              1e-6);
    const std::string end = std::to_string(path.size()) + " of " + std::to_string(path.size());
    EXPECT_EQ(lines.str().find(end) != std::string::npos, ves::rankIn(comm) == 0);
  }
}

TEST(SiliconSupercell, LevelsAreTheFoldedBands) {
  for (const double cutoff : {5.0, 10.0}) {
    const std::vector<double> folded = Folded(cutoff, 16);
    const Bands bands =
        SolveBands(Crystal::Supercell(1), {}, cutoff, 16, TightOptions(), nullptr, comm);
    EXPECT_TRUE(bands.levels.Accepted(1e-7));
    EXPECT_LT(LargestDeviation(bands.levels.energies, folded.data(), 16), 1e-6);
  }
}

// More levels than the first attempt finds below the highest band of every point.
TEST(SiliconSupercell, FoldedLevelsAreCompleteForUnevenCounts) {
  std::vector<double> reference;
  for (const char* name : {"Gamma", "X", "X", "X"}) {
    const auto& energies = FindReference(name, 5.0)->energies;
    reference.insert(reference.end(), energies.begin(), energies.end());
  }
  std::sort(reference.begin(), reference.end());
  EXPECT_LT(LargestDeviation(Folded(5.0, 24), reference.data(), 24), 1e-6);
}

} // namespace
