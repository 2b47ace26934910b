// Blocks that one process has no memory for: all refuse alike, none waits, and nothing is lost.
#include "support/gallery.h"

#include <cstdlib>
#include <new>

namespace {

int blocksLeft = -1; ///< that this process can still have; -1 for any number
int liveBlocks = 0;

} // namespace

// Storage of blocks is the only aligned one; the library finds these first.
void* operator new(std::size_t size, std::align_val_t alignment) {
  if (blocksLeft == 0) throw std::bad_alloc();
  if (blocksLeft > 0) --blocksLeft;
  ++liveBlocks;
  const std::size_t unit = static_cast<std::size_t>(alignment);
  return std::aligned_alloc(unit, (size / unit + 1) * unit);
}
void operator delete(void* block, std::align_val_t) noexcept {
  --liveBlocks;
  std::free(block);
}

using namespace VesTest;

namespace {

/// Two replicas of a problem over halves of the job, or one over all of it.
struct Shortage : testing::TestWithParam<bool> {
  const int rank = RankIn(world), size = SizeOf(world);
  const int half = GetParam() && size > 1 ? size / 2 : size;
  const Part comm{rank / half}, second{rank % half};

  /// One run with memory for so many blocks on the last process of the job.
  static void Run(Pairs<double>& p, Problem<double>& on, VesSolver solver, int blocks) {
    p.FillRandom();
    blocksLeft = RankIn(world) == SizeOf(world) - 1 ? blocks : -1;
    on.Run(p, solver);
    blocksLeft = -1;
  }
};

TEST_P(Shortage, RunsAreRefusedWhole) {
  for (const auto type : allSolvers)
    for (const bool generalized : {false, true}) {
      Problem<double> on = OnBox<double>({7, 8}, generalized, false, Deal::even, comm);
      const SolverHandle solver = MakeSolver<double>({type, 5}, generalized);
      Pairs<double> sound(on.rows, 5), p(on.rows, 5);
      sound.second = p.second = second;
      Run(sound, on, solver.get(), -1);
      EXPECT_EQ(sound.nConv, sound.k);
      p.FillRandom();
      const std::vector<double> guess = p.X, D = p.D, values = sound.D;
      const int live = liveBlocks, last = generalized ? 12 : 10; // of the workspace, from 0 on
      for (const int nth : {0, 5, last}) {
        SCOPED_TRACE(testing::Message()
                     << "solver " << type << ", B " << generalized << ", block " << nth);
        const long columns = on.A.columns;
        Run(p, on, solver.get(), nth);
        EXPECT_EQ(p.code, VES_ERR_INVALID_VALUE);
        EXPECT_TRUE(p.iter == sound.iter && p.nConv == sound.nConv && p.reason == sound.reason);
        EXPECT_TRUE(p.X == guess && p.D == D);
        EXPECT_EQ(on.A.columns, columns);
        EXPECT_EQ(liveBlocks, live);
      }
      Run(sound, on, solver.get(), -1);
      EXPECT_EQ(sound.D, values);
    }
}

TEST_P(Shortage, ChecksAreRefusedWhole) {
  Problem<double> on = OnBox<double>({7, 8}, true, false, Deal::even, comm);
  Pairs<double> p(on.rows, 5);
  p.FillRandom();
  const MatrixHandle a = MakeMatrix(&on.A), b = MakeMatrix(on.B.get());
  const VectorHandle x = MakeVector(comm.comm, on.rows.local, p.k, p.X.data(), p.ld),
                     d = MakeVector(comm.comm, p.k, 1, p.D.data(), p.k);
  for (const VesVector block : {x.get(), d.get()})
    EXPECT_EQ(VesVectorSetComm(block, 1, second), VES_GOOD);
  const int live = liveBlocks;
  for (const int nth : {0, 3}) {
    double residual = -1, orthoError = -1;
    blocksLeft = rank == 0 ? nth : -1; // of one replica: no other waits
    const VesReturnCode expected = rank / half == 0 ? VES_ERR_INVALID_VALUE : VES_GOOD;
    EXPECT_EQ(VesCheckEigenpairs(a.get(), b.get(), x.get(), d.get(), &residual, &orthoError),
              expected);
    EXPECT_EQ(residual == -1 && orthoError == -1, expected != VES_GOOD);
    blocksLeft = -1;
    EXPECT_EQ(liveBlocks, live);
  }
  VesVector made = nullptr;
  ASSERT_EQ(VesVectorReplicate(x.get(), &made, true, false), VES_GOOD);
  const VectorHandle r(made);
  for (const int nth : {0, 1}) { // judged by each process for itself
    blocksLeft = nth;
    EXPECT_EQ(VesEigResidual(a.get(), b.get(), x.get(), d.get(), made), VES_ERR_INVALID_VALUE);
    blocksLeft = -1;
    EXPECT_EQ(liveBlocks, live + 1);
  }
  EXPECT_EQ(VesEigResidual(a.get(), b.get(), x.get(), d.get(), made), VES_GOOD);
}

INSTANTIATE_TEST_SUITE_P(OneJobAndReplicas, Shortage, testing::Bool());

} // namespace
