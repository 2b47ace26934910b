// What only PPCG has: sub-blocks, soft and hard locking, its parameters.
#include "solver/ppcg.h"
#include "support/gallery.h"

using namespace VesTest;

namespace {

Settings Ppcg(int nBands, int width = 0) {
  Settings s{VES_PPCG, nBands, 1e-5, 400};
  s.width = width;
  return s;
}

const Ints box{10, 11, 12};

TEST(Ppcg, NumbersOfPairsAroundTheSubBlock) {
  Problem<double> on = OnBox<double>(box, false);
  const struct {
    int width;
    Ints pairs;
  } cases[] = {{64, {1, 63, 64, 65}}, {7, {1, 6, 7, 8, 22}}};
  for (const auto& c : cases)
    for (const int nBands : c.pairs)
      SolveAll(on, Ppcg(nBands, c.width));
}

/// The same pairs whatever is set, but for fewer products with locking.
TEST(Ppcg, PeriodsPassesAndSoftLocking) {
  const struct {
    int nBands, width, period, passes, locking;
    bool isGeneralized;
  } cases[] = {{24, 10, 5, 1, 0, false}, {24, 10, 5, 1, 1, false}, {24, 10, 5, 1, 2, false},
               {14, 6, 1, 1, 0, true},   {14, 6, 1, 3, 2, false},  {14, 6, 5, 2, 0, true},
               {14, 6, 0, 1, 2, true},   {14, 6, 0, 2, 1, true},   {14, 6, 0, 3, 0, false}};
  std::vector<long> columns;
  for (const auto& c : cases) {
    Problem<Wide> on = OnBox<Wide>(box, c.isGeneralized);
    Settings s = Ppcg(c.nBands, c.width);
    s.maxOrthoIter = c.passes;
    SCOPED_TRACE(testing::Message() << s << ", period " << c.period << ", soft locking "
                                    << c.locking << ", generalized " << c.isGeneralized);
    const SolverHandle solver = MakeSolver<Wide>(s, c.isGeneralized);
    EXPECT_EQ(VesSolverSetPPCGRRPeriod(solver.get(), c.period), VES_GOOD);
    EXPECT_EQ(VesSolverSetPPCGSoftLocking(solver.get(), c.locking), VES_GOOD);
    Pairs<Wide> p = SolveBy(solver.get(), on, s.nBands);
    ExpectAllConverged(p, on, s.threshold);
    columns.push_back(on.A.columns);
    if (on.rows.local == 0) columns.back() = -static_cast<long>(columns.size()); // none, descending
  }
  EXPECT_TRUE(columns[2] < columns[1] && columns[1] < columns[0]);
}

/// Pairs that pass the lock test long before are locked only by iterations 5, 10, 15, ...
TEST(Ppcg, LocksForGoodOnlyAfterARotation) {
  Problem<Wide> on = OnBox<Wide>(box, false);
  int locked = 0;
  for (int maxIter = 1; maxIter <= 16; ++maxIter) {
    const SolverHandle solver = MakeSolver<Wide>({VES_PPCG, 20, 0.05, maxIter}, false);
    EXPECT_EQ(VesSolverSetPPCGLockFactor(solver.get(), 1.0), VES_GOOD);
    EXPECT_EQ(SolveBy(solver.get(), on, 20).iter, maxIter);
    const auto& ppcg = dynamic_cast<Ves::PPCG<Wide>&>(*solver);
    const bool rotated = maxIter > 1 && (maxIter - 1) % 5 == 0;
    EXPECT_EQ(ppcg.isRotated, rotated);
    EXPECT_TRUE(rotated || ppcg.nDeflated == locked);
    locked = ppcg.nDeflated;
  }
  EXPECT_GT(locked, 0);
}

/// Near the end of a run in single precision steps have norms of some 1e-5: without them as
/// conjugate directions it takes more columns, and some pairs do not come down at all.
TEST(Ppcg, SmallStepsAreDirections) {
  Problem<float> on = OnBox<float>(box, false);
  const struct {
    double threshold;
    long mostColumns; // of four runs: above 3000 and 5400 where steps below 5e-4 are dropped
  } cases[] = {{1e-3, 2600}, {1e-4, 5000}};
  for (const auto& c : cases) {
    on.A.columns = 0;
    for (unsigned seed = 0; seed < 4; ++seed) {
      const Pairs<float> p = Solve(on, {VES_PPCG, 10, c.threshold, 600}, RandomGuess<float>(seed));
      EXPECT_EQ(p.nConv, p.k) << "threshold " << c.threshold << " seed " << seed;
    }
    EXPECT_LE(on.A.columns, c.mostColumns) << "threshold " << c.threshold;
  }
}

TEST(OwnSettings, Defaults) {
  const auto defaults = [](VesSolverType type) {
    return MakeSolver<float>({type}, false)->OwnSettings();
  };
  EXPECT_EQ(defaults(VES_PPCG), (std::array<int, 3>{0, 64, 5})) << "soft locking, width, period";
  EXPECT_EQ(defaults(VES_LOBPCG_BATCH), (std::array<int, 3>{256, 0})) << "limit, start";
}

} // namespace
