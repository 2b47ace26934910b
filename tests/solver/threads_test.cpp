// Runs whose work on tall blocks is shared by threads.
#include "data/imaged.h"
#include "kernel/provider_threads.h"
#include "parallel/thread_team.h"
#include "support/gallery.h"

#include <cstring>

using namespace VesTest;

namespace {

template <typename Scalar>
class ThreadsTest : public testing::Test {
  void SetUp() override {
    if (!Ves::ThreadTeam::IsAvailable()) GTEST_SKIP() << "built without OpenMP";
  }
};
TYPED_TEST_SUITE(ThreadsTest, AllScalars);

template <typename Scalar>
using Block = Ves::VectorDense<Scalar>;

template <typename Scalar>
Block<Scalar>& Shaped(Block<Scalar>& block, int rows, int cols, int seed) {
  block.SetShape(MPI_COMM_SELF, MPI_COMM_SELF, rows, cols, rows + 3);
  EXPECT_EQ(block.AllocateMem(), VES_GOOD);
  EXPECT_EQ(block.Set2Random(seed), VES_GOOD);
  return block;
}

/// What operations that are shared leave: sums over rows, and the blocks.
template <typename Scalar>
struct Results {
  Block<Scalar> x, y, z, gram, cross, norms;

  Results(int rows, int cols, int threads) {
    const Ves::ThreadTeam team(threads);
    Shaped(x, rows, cols, 1);
    Shaped(y, rows, cols, 2);
    Shaped(z, rows, cols, 3);
    for (Block<Scalar>* const small : {&gram, &cross})
      Shaped(*small, cols, cols, 4);
    Shaped(norms, cols, 1, 5);
    gram.InnerProduct(x, x, false);
    cross.InnerProduct(x, y, false);
    norms.Norm(x, false);
    Block<Scalar> unit;
    Shaped(unit, cols, cols, 6);
    z.Gemm(x, unit, 'N', 'N', -1, 1);
    for (int j = 0; j < cols; ++j)
      unit(j, j) = Number<Scalar>(3.0);
    y.TriangularSolve(unit, 'R', 'U', 'N', 'N');
    y.ScaleAdd(z, y, norms, -1);
    x.CopyData(y);
    x.ScaleByVec(norms);
    y.Normalize(y, false);
    Block<Scalar> band;
    Shaped(band, std::min(rows, 1024), cols, 7);
    Ves::Imaged<Scalar>(z, z).Rotate(unit, band); // in place
  }
};

template <typename Scalar>
void ExpectNear(const Block<Scalar>& a, const Block<Scalar>& b, double error) {
  for (int j = 0; j < a.nCols; ++j)
    for (int i = 0; i < a.nRows; ++i)
      ASSERT_LE(std::abs(Wide(a(i, j)) - Wide(b(i, j))), error) << "entry " << i << ", " << j;
}

/// Shares of any number of rows are those of one thread, sums over rows to rounding.
TYPED_TEST(ThreadsTest, BlocksAreThoseOfOneThread) {
  constexpr double eps = std::numeric_limits<ves::Real<TypeParam>>::epsilon();
  for (const int rows : {0, 1, 511, 1023, 1024, 1537, 2050})
    for (const int cols : {1, 2, 5}) {
      SCOPED_TRACE(testing::Message() << rows << " rows, " << cols << " columns");
      const Results<TypeParam> one(rows, cols, 1), three(rows, cols, 3), again(rows, cols, 3);
      ExpectNear(one.gram, three.gram, 50 * eps * rows);
      ExpectNear(one.cross, three.cross, 50 * eps * rows);
      ExpectNear(three.gram, again.gram, 0.0);
      for (const auto block : {&Results<TypeParam>::norms, &Results<TypeParam>::x,
                               &Results<TypeParam>::y, &Results<TypeParam>::z})
        ExpectNear(one.*block, three.*block, rows > 0 ? 50 * eps * rows : 0.0);
    }
}

/// Runs with a team end as those without, twice with the same bits, and leave the threads of BLAS
/// as they were.
TYPED_TEST(ThreadsTest, RunsEndAsThoseOfOneThread) {
  const int ofBlas = Ves::ProviderThreads::Change(2);
  auto on = OnBox<TypeParam>({10, 11, 12}, true, true);
  for (const auto solver : allSolvers) {
    SCOPED_TRACE(testing::Message() << "solver " << solver);
    Settings s = WithinReach<TypeParam>(solver, 5);
    s.width = 3;
    std::vector<Pairs<TypeParam>> runs;
    for (const int threads : {0, 2, 2}) {
      const SolverHandle run = MakeSolver<TypeParam>(s, true);
      ASSERT_EQ(VesSolverSetThreads(run.get(), threads), VES_GOOD);
      runs.push_back(SolveBy(run.get(), on, 5));
      EXPECT_EQ(runs.back().nConv, 5);
      EXPECT_EQ(Ves::ProviderThreads::Change(0), ofBlas > 0 ? 2 : 0);
      for (int j = 0; j < 5; ++j)
        EXPECT_NEAR(runs.back().Value(j), on.exact.data()[j],
                    ByPrecision<TypeParam>(1e-8, 1e-3) * on.exact.data()[j]);
    }
    EXPECT_EQ(std::memcmp(runs[1].X.data(), runs[2].X.data(), runs[1].X.size() * sizeof(TypeParam)),
              0);
  }
  Ves::ProviderThreads::Change(ofBlas);
}

/// Routines find the threads of BLAS as the caller has them, also where a run begins in single
/// precision, and a team is as large as they are many.
TYPED_TEST(ThreadsTest, RoutinesFindTheThreadsOfBlas) {
  const int ofBlas = Ves::ProviderThreads::Change(2), expected = ofBlas > 0 ? 2 : 0;
  auto on = OnBox<TypeParam>({6, 7, 8}, true);
  int calls = 0;
  const ves::Operator<TypeParam> looking([&](auto x, auto y) {
    ++calls;
    EXPECT_EQ(Ves::ProviderThreads::Change(0), expected);
    for (int j = 0; j < x.cols(); ++j)
      for (int i = 0; i < x.rows(); ++i)
        y(i, j) = x(i, j);
  });
  for (const bool isMixed : {false, isDouble<TypeParam>}) {
    Settings s = WithinReach<TypeParam>(VES_LOBPCG, 4);
    s.maxIter = 5;
    const SolverHandle run = MakeSolver<TypeParam>(s, true);
    EXPECT_EQ(VesSolverSetThreads(run.get(), -1), VES_GOOD);
    EXPECT_EQ(VesSolverSetMixedPrecision(run.get(), isMixed), VES_GOOD);
    Pairs<TypeParam> p(on.rows, 4);
    p.FillRandom();
    p.RunOn(run.get(), MakeMatrix(&on.A).get(), MakeMatrix(on.B.get()).get(), looking.handle());
    EXPECT_EQ(p.code, VES_GOOD);
    EXPECT_GT(calls, 0);
    EXPECT_EQ(Ves::ProviderThreads::Change(0), expected);
  }
  Ves::ProviderThreads::Change(ofBlas);
}

} // namespace
