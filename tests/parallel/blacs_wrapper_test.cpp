// Process grids over the whole job and parts of it, and their descriptors.
#include "parallel/blacs_wrapper.h"
#include "support/mpi_meter.h"
#include "support/processes.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>

using namespace VesTest;
using Ves::BlacsBase;

namespace {

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

/// Building a grid costs communicators, using it again costs none.
TEST(BlacsBaseTest, RebuildsOnlyForAnotherGroupOrOrder) {
  BlacsBase grid;
  const Part twin(0), backwards(0, -RankIn(world)), part(RankIn(world) == 0);
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
  for (const int loner : {0, SizeOf(world) - 1}) { // whose next call with the others must not hang
    if (RankIn(world) == loner) InitAndExpect(grid, self, 65);
    InitAndExpect(grid, world, 65);
  }
}

} // namespace
