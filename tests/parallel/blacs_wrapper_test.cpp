// Process grids over the whole job and parts of it, the block-cyclic layout, and raw reductions.
#include "parallel/blacs_wrapper.h"
#include "parallel/mpi_wrapper.h"
#include "support/scalars.h"

#include <array>
#include <cmath>
#include <new>
#include <vector>

using namespace VesTest;
using Ves::BlacsBase;

namespace {

/// Communicators made and not yet freed, and all that were made, by anybody in this program.
int alive = 0, made = 0;

int Counted(int code, const MPI_Comm* result) {
  if (*result != MPI_COMM_NULL) ++alive, ++made;
  return code;
}

} // namespace

// The profiling interface: libraries, too, call these instead of MPI's own.
extern "C" {
int MPI_Comm_dup(MPI_Comm comm, MPI_Comm* result) {
  return Counted(PMPI_Comm_dup(comm, result), result);
}
int MPI_Comm_create(MPI_Comm comm, MPI_Group group, MPI_Comm* result) {
  return Counted(PMPI_Comm_create(comm, group, result), result);
}
int MPI_Comm_split(MPI_Comm comm, int color, int key, MPI_Comm* result) {
  return Counted(PMPI_Comm_split(comm, color, key, result), result);
}
int MPI_Comm_free(MPI_Comm* comm) {
  --alive;
  return PMPI_Comm_free(comm);
}
}

namespace {

const MPI_Comm world = MPI_COMM_WORLD;

/// Processes of the same color, in the order of the world or against it.
MPI_Comm Part(int color, bool reversed = false) {
  MPI_Comm part = MPI_COMM_NULL;
  MPI_Comm_split(world, color, reversed ? -RankIn(world) : RankIn(world), &part);
  return part;
}

/// Indices below n whose block falls to process me of a line of q.
int Dealt(int n, int nb, int me, int q) {
  int count = 0;
  for (int i = 0; i < n; ++i)
    count += (i / nb) % q == me ? 1 : 0;
  return count;
}

/// The grid of comm is square, row by row in rank order, and the descriptor is that of order n.
void InitAndExpect(BlacsBase& grid, MPI_Comm comm, int n) {
  std::array<int, 9> desc{};
  grid.InitDesc(desc.data(), comm, n);
  const int q = static_cast<int>(std::sqrt(SizeOf(comm) + 0.5)), rank = RankIn(comm);
  const int nb = std::min((n + q - 1) / q, 64);
  const bool inside = rank < q * q;
  EXPECT_TRUE(grid.gridReady);
  EXPECT_EQ(grid.inGrid, inside);
  EXPECT_EQ(grid.myrow, inside ? rank / q : -1);
  EXPECT_EQ(grid.mycol, inside ? rank % q : -1);
  EXPECT_EQ(grid.locRows, inside ? Dealt(n, nb, rank / q, q) : 0);
  EXPECT_EQ(grid.locCols, inside ? Dealt(n, nb, rank % q, q) : 0);
  EXPECT_EQ(grid.maxLocRows, Dealt(n, nb, 0, q));
  EXPECT_EQ(grid.maxLocCols, Dealt(n, nb, 0, q));
  EXPECT_EQ(grid.lld, std::max(grid.locRows, 1));
  if (!inside) return;
  EXPECT_EQ(grid.nprow, q);
  EXPECT_EQ(grid.npcol, q);
  EXPECT_EQ(desc, (std::array<int, 9>{1, grid.ictxt, n, n, nb, nb, 0, 0, grid.lld}));
}

template <typename Scalar>
struct BlacsWrapperTest : testing::Test {};
TYPED_TEST_SUITE(BlacsWrapperTest, AllScalars);

/// Every shape is as computed. Building a grid costs communicators, using it again costs none.
TEST(BlacsBaseTest, RebuildsOnlyForAnotherGroupOrOrder) {
  const bool alone = SizeOf(world) == 1;
  const int before = alive;
  {
    BlacsBase grid;
    MPI_Comm twin = MPI_COMM_NULL, backwards = Part(0, true), part = Part(RankIn(world) == 0);
    MPI_Comm_dup(world, &twin);
    const struct {
      const char* why;
      MPI_Comm comm;
      int n;
      bool rebuilt;
    } calls[] = {{"first: one block for each", world, 100, true},
                 {"identical: blocks of 64", world, 1000, false},
                 {"congruent: nothing for most", twin, 1, false},
                 {"another order", backwards, 129, !alone},
                 {"a part of it", part, 70, !alone},
                 {"the same part", part, 2, false},
                 {"whole again", world, 65, !alone}};
    for (const auto& call : calls) {
      SCOPED_TRACE(call.why);
      const int madeBefore = made;
      InitAndExpect(grid, call.comm, call.n);
      EXPECT_EQ(made > madeBefore, call.rebuilt);
    }
    for (MPI_Comm* comm : {&twin, &backwards, &part})
      MPI_Comm_free(comm);
  }
  EXPECT_EQ(alive, before) << "communicators leak";
}

/// Mapping a grid must not wait for processes outside the communicator.
TEST(BlacsBaseTest, PartOfTheJobWhileTheOthersWait) {
  for (const int outsiders : {1, SizeOf(world) / 2}) {
    const bool inside = RankIn(world) >= outsiders || SizeOf(world) == 1;
    MPI_Comm part = Part(inside ? 1 : 0);
    if (inside) {
      BlacsBase grid;
      InitAndExpect(grid, part, 100);
    }
    MPI_Barrier(world);
    MPI_Comm_free(&part);
  }
}

/// The caller may free a communicator between calls, and MPI may give its handle to another group.
TEST(BlacsBaseTest, FreedAndReplacedCommunicators) {
  const int before = alive, rank = RankIn(world);
  {
    BlacsBase grid;
    for (int round = 0; round < 60; ++round) {
      MPI_Comm part = Part(round % 3 == 0 ? 0 : (round % 3 == 1 ? rank % 2 : (rank > 0 ? 1 : 0)));
      InitAndExpect(grid, part, 90);
      MPI_Comm_free(&part);
    }
  }
  EXPECT_EQ(alive, before) << "communicators leak";
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
  const int n = 131, ld = n + 2;
  Ves::BlacsWrapper<TypeParam> grid;
  InitAndExpect(grid, world, n);
  std::vector<TypeParam> whole(static_cast<std::size_t>(ld * n)), rest(whole.size());
  for (int j = 0; j < n; ++j)
    for (int i = 0; i < n; ++i)
      whole.data()[i + j * ld] = HashedNumber<TypeParam>(i, j);
  std::vector<TypeParam> piece(static_cast<std::size_t>(grid.lld * grid.locCols));
  grid.AssembleLocalData(whole.data(), ld, piece.data());
  if (grid.inGrid && grid.locRows > grid.nb) {
    EXPECT_EQ(piece[static_cast<std::size_t>(grid.nb)],
              HashedNumber<TypeParam>(grid.nb * (grid.myrow + grid.nprow), grid.nb * grid.mycol));
  }
  grid.DistributeLocalData(rest.data(), ld, piece.data());
  Ves::MpiWrapper<TypeParam>::AllReduce(rest.data(), rest.size(), MPI_SUM, world);
  EXPECT_EQ(rest, whole);
}

TYPED_TEST(BlacsWrapperTest, RawReductions) {
  std::vector<TypeParam> data{Number<TypeParam>(1.0, 2.0), Number<TypeParam>(RankIn(world), -1.0)};
  Ves::MpiWrapper<TypeParam>::AllReduce(data.data(), 2, MPI_SUM, world);
  const int p = SizeOf(world);
  EXPECT_EQ(data[0], Number<TypeParam>(p, 2.0 * p));
  EXPECT_EQ(data[1], Number<TypeParam>(p * (p - 1) / 2.0, -p));
  // Neither call reaches MPI: process 0 alone would wait for ever.
  if (RankIn(world) > 0) return;
  Ves::MpiWrapper<TypeParam>::AllReduce(nullptr, 2, MPI_SUM, world);
  EXPECT_THROW(Ves::MpiWrapper<TypeParam>::AllReduce(data.data(), 1UL << 31, MPI_SUM, world),
               std::bad_array_new_length);
}

} // namespace
