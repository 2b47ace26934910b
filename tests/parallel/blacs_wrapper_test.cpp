// Process grids over the whole job and parts of it, and the block-cyclic layout.
#include "parallel/blacs_wrapper.h"
#include "parallel/mpi_wrapper.h"
#include "support/mpi_meter.h"
#include "support/scalars.h"

#include <array>
#include <cmath>
#include <new>
#include <vector>

using namespace VesTest;
using Ves::BlacsBase;

namespace {

const MPI_Comm world = MPI_COMM_WORLD;

/// Processes of the same color, in the order of the world or against it.
MPI_Comm Part(int color, bool reversed = false) {
  MPI_Comm part = MPI_COMM_NULL;
  MPI_Comm_split(world, color, reversed ? -RankIn(world) : RankIn(world), &part);
  return part;
}

/// The grid of comm is square, row by row in rank order, and the descriptor is that of order n.
void InitAndExpect(BlacsBase& grid, MPI_Comm comm, int n) {
  std::array<int, 9> desc{};
  grid.InitDesc(desc.data(), comm, n);
  const int q = static_cast<int>(std::sqrt(SizeOf(comm) + 0.5)), rank = RankIn(comm);
  const int nb = std::min((n + q - 1) / q, 64), row = rank / q, col = rank % q;
  const auto dealt = [&](int me) { // indices whose block falls to process me of a line
    int count = 0;
    for (int i = 0; i < n; ++i)
      count += (i / nb) % q == me ? 1 : 0;
    return count;
  };
  const int locRows = row < q ? dealt(row) : 0, locCols = row < q ? dealt(col) : 0;
  EXPECT_EQ(grid.inGrid, row < q);
  EXPECT_EQ((std::array{grid.locRows, grid.locCols, grid.maxLocRows, grid.maxLocCols, grid.lld}),
            (std::array{locRows, locCols, dealt(0), dealt(0), std::max(locRows, 1)}));
  if (row >= q) return;
  EXPECT_EQ((std::array{grid.nprow, grid.npcol, grid.myrow, grid.mycol}),
            (std::array{q, q, row, col}));
  EXPECT_EQ(desc, (std::array{1, grid.ictxt, n, n, nb, nb, 0, 0, grid.lld}));
}

template <typename Scalar>
struct BlacsWrapperTest : testing::Test {};
TYPED_TEST_SUITE(BlacsWrapperTest, AllScalars);

/// Building a grid costs communicators, using it again costs none.
TEST(BlacsBaseTest, RebuildsOnlyForAnotherGroupOrOrder) {
  BlacsBase grid;
  MPI_Comm twin = MPI_COMM_NULL, backwards = Part(0, true), part = Part(RankIn(world) == 0);
  MPI_Comm_dup(world, &twin);
  const auto rebuilds = [&](MPI_Comm comm, int n) {
    const int before = mpiMeter.commsMade;
    InitAndExpect(grid, comm, n);
    return mpiMeter.commsMade > before;
  };
  EXPECT_TRUE(rebuilds(world, 100)) << "one block for each process";
  EXPECT_FALSE(rebuilds(world, 1000)) << "blocks of 64";
  EXPECT_FALSE(rebuilds(twin, 1)) << "congruent; nothing for most processes";
  EXPECT_EQ(rebuilds(backwards, 129), SizeOf(world) > 1);
  EXPECT_EQ(rebuilds(part, 70), SizeOf(world) > 1);
  EXPECT_EQ(rebuilds(world, 65), SizeOf(world) > 1);
  for (MPI_Comm* comm : {&twin, &backwards, &part})
    MPI_Comm_free(comm);
}

/// At once, or while process 0 waits. Of freed communicators MPI gives the handles to other groups.
TEST(BlacsBaseTest, PartsOfTheJobOneAfterTheOther) {
  const int before = mpiMeter.commsAlive, rank = RankIn(world);
  for (int cycle = 0; cycle < 20; ++cycle) {
    BlacsBase grid;
    for (const int parts : {1, 2, 0}) {
      MPI_Comm part = Part(parts == 0 ? std::min(rank, 1) : rank % parts);
      if (parts > 0 || rank > 0) InitAndExpect(grid, part, 90);
      MPI_Barrier(world);
      MPI_Comm_free(&part);
    }
  }
  EXPECT_EQ(mpiMeter.commsAlive, before) << "communicators leak";
}

/// One process works alone in between; its next call together with the others must not hang.
TEST(BlacsBaseTest, OneProcessAloneInBetween) {
  BlacsBase grid;
  for (const int loner : {0, SizeOf(world) - 1}) {
    InitAndExpect(grid, world, 65);
    if (RankIn(world) == loner) InitAndExpect(grid, MPI_COMM_SELF, 65);
    InitAndExpect(grid, world, 65);
  }
}

/// Every process cuts out its piece, puts it back into zeros, and the sum is the whole again.
TYPED_TEST(BlacsWrapperTest, PiecesMakeTheWhole) {
  using Mpi = Ves::MpiWrapper<TypeParam>;
  const int n = 131, ld = n + 2;
  Ves::BlacsWrapper<TypeParam> grid;
  InitAndExpect(grid, world, n);
  std::vector<TypeParam> whole(static_cast<std::size_t>(ld * n)), rest(whole.size());
  for (int at = 0; at < ld * n; ++at)
    whole.data()[at] = at % ld < n ? HashedNumber<TypeParam>(at % ld, at / ld) : TypeParam(0);
  std::vector<TypeParam> piece(static_cast<std::size_t>(grid.lld * grid.locCols));
  grid.AssembleLocalData(whole.data(), ld, piece.data());
  if (grid.inGrid && grid.locRows > grid.nb) {
    EXPECT_EQ(piece.data()[grid.nb], // the second block of rows
              HashedNumber<TypeParam>(grid.nb * (grid.myrow + grid.nprow), grid.nb * grid.mycol));
  }
  grid.DistributeLocalData(rest.data(), ld, piece.data());
  Mpi::AllReduce(rest.data(), rest.size(), MPI_SUM, world);
  EXPECT_EQ(rest, whole);
  if (RankIn(world) > 0) return;
  Mpi::AllReduce(nullptr, 2, MPI_SUM, world); // neither call may reach MPI
  EXPECT_THROW(Mpi::AllReduce(rest.data(), 1UL << 31, MPI_SUM, world), std::bad_array_new_length);
}

} // namespace
