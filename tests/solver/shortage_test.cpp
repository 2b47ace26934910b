// Blocks that one process has no memory for: all refuse alike, none waits, and nothing is lost.
#include "support/correctness.h"

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

using Operator = SparseOperator<double>;

struct Outcome {
  VesReturnCode code = VES_GOOD;
  int iter = -1, nConv = -1;
  VesSolverReason reason = VES_REASON_NONE;
};

/// Two replicas of a problem over halves of the job, or one over all of it.
struct Shortage : testing::TestWithParam<bool> {
  const int rank = RankIn(MPI_COMM_WORLD), size = SizeOf(MPI_COMM_WORLD);
  const int half = GetParam() && size > 1 ? size / 2 : size;
  MPI_Comm comm = Part(rank / half), second = Part(rank % half);
  const Box box{{7, 8}};
  const Rows rows{box.Order(), comm};
  Operator A{rows, [this](int i) { return Phased<double>(i, box.Stiffness(i)); }};
  Operator B{rows, [this](int i) { return Phased<double>(i, box.Mass(i)); }};
  const MatrixHandle a = MakeMatrix(&A), b = MakeMatrix(&B);
  Pairs<double> p{rows, 5};
  const VectorHandle x = MakeVector(comm, rows.local, p.k, p.X.data(), p.ld),
                     d = MakeVector(comm, p.k, 1, p.D.data(), p.k);

  Shortage() {
    for (const VesVector block : {x.get(), d.get()})
      EXPECT_EQ(VesVectorSetComm(block, 1, second), VES_GOOD);
  }
  ~Shortage() override {
    MPI_Comm_free(&comm);
    MPI_Comm_free(&second);
  }
  static MPI_Comm Part(int color) {
    MPI_Comm part = MPI_COMM_NULL;
    MPI_Comm_split(MPI_COMM_WORLD, color, 0, &part);
    return part;
  }
  /// The last process of the job alone has memory for this many blocks.
  void LeaveBlocks(int count) const { blocksLeft = rank == size - 1 ? count : -1; }

  Outcome Run(VesSolver solver) {
    Outcome o;
    p.FillRandom();
    o.code = VesRunSolver(solver, a.get(), b.get(), nullptr, x.get(), d.get());
    blocksLeft = -1;
    VesGetSolverIter(solver, &o.iter);
    VesGetSolverConv(solver, &o.nConv);
    VesGetSolverReason(solver, &o.reason);
    return o;
  }
};

TEST_P(Shortage, RunsAreRefusedWhole) {
  for (const auto type : allSolvers)
    for (const bool generalized : {false, true}) {
      Settings s;
      s.solver = type;
      s.nBands = p.k;
      const SolverHandle solver = MakeSolver<double>(s, generalized);
      const Outcome sound = Run(solver.get());
      EXPECT_EQ(sound.nConv, p.k);
      const std::vector<double> D = p.D;
      p.FillRandom();
      const std::vector<double> guess = p.X;
      const int live = liveBlocks, last = generalized ? 12 : 10; // of the workspace, from 0 on
      for (const int nth : {0, 5, last}) {
        SCOPED_TRACE(testing::Message()
                     << "solver " << type << ", B " << generalized << ", block " << nth);
        const long columns = A.columns;
        LeaveBlocks(nth);
        const Outcome o = Run(solver.get());
        EXPECT_EQ(o.code, VES_ERR_INVALID_VALUE);
        EXPECT_TRUE(o.iter == sound.iter && o.nConv == sound.nConv && o.reason == sound.reason);
        EXPECT_TRUE(p.X == guess && p.D == D);
        EXPECT_EQ(A.columns, columns);
        EXPECT_EQ(liveBlocks, live);
      }
      EXPECT_EQ(Run(solver.get()).iter, sound.iter);
      EXPECT_EQ(p.D, D);
    }
}

TEST_P(Shortage, ChecksAreRefusedWhole) {
  p.FillRandom();
  const int live = liveBlocks;
  for (const int nth : {0, 3}) {
    double residual = -1, orthoError = -1;
    blocksLeft = rank == RankIn(comm) && rank == 0 ? nth : -1; // of one replica: no other waits
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
