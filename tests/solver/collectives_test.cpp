// What the solvers say to each other: the same collectives in the same order on every process,
// whatever the timing, as many as the statistics count, and results that do not depend on it.
#include "support/correctness.h"
#include "support/mpi_meter.h"

#include <chrono>
#include <cstdint>
#include <cstring>
#include <random>
#include <thread>

using namespace VesTest;

namespace {

/// The collectives of one run on this process.
struct Record {
  std::uint64_t hash = 14695981039346656037U; ///< of kinds, bytes and sizes of communicators
  long long reductions = 0, bytesReduced = 0, bytesFirst = 0;
  long long broadcasts = 0, broadcastsSelf = 0, others = 0;

  void Add(std::uint64_t value) { hash = (hash ^ value) * 1099511628211U; }
};

Record* recorder = nullptr; ///< of the run under way
std::minstd_rand jitter;

/// Now and then a process comes late.
void Note(char kind, int count, MPI_Datatype type, MPI_Comm comm) {
  if (jitter() % 8 == 0) std::this_thread::sleep_for(std::chrono::microseconds(jitter() % 200));
  int size = 0, bytes = 0;
  PMPI_Comm_size(comm, &size);
  PMPI_Type_size(type, &bytes);
  const long long total = static_cast<long long>(count) * bytes;
  for (const long long part : {static_cast<long long>(kind), total, static_cast<long long>(size)})
    recorder->Add(static_cast<std::uint64_t>(part));
  if (kind == 'r') {
    if (recorder->reductions == 0) recorder->bytesFirst = total;
    ++recorder->reductions;
    recorder->bytesReduced += total;
  } else if (kind == 'b') {
    ++(comm == MPI_COMM_SELF ? recorder->broadcastsSelf : recorder->broadcasts);
  } else {
    ++recorder->others;
  }
}

using Operator = SparseOperator<double>;

struct Outcome {
  Record record;
  VesSolverStats stats{};
  std::vector<double> X, D;
  int iter = -1, nConv = -1;
  long long monitorCalls = 0;
};

/// A model problem of 132 rows over comm, and what a run is to be made of.
struct Problem {
  Box box{{12, 11}};
  Rows rows;
  Operator A{rows, [this](int i) { return Phased<double>(i, box.Stiffness(i)); }};
  Operator B{rows, [this](int i) { return Phased<double>(i, box.Mass(i)); }};
  Operator T{rows, [](int i) { return Operator::Row{{i, 1.0 / (2.0 + i % 3)}}; }};
  MPI_Comm second;

  explicit Problem(MPI_Comm comm = MPI_COMM_WORLD, MPI_Comm secondComm = MPI_COMM_SELF)
      : rows(box.Order(), comm), second(secondComm) {}

  Outcome Run(const Settings& s, bool usesB, bool usesT, bool isWatched = false) {
    Outcome o;
    Pairs<double> p(rows, s.nBands);
    p.FillRandom();
    const MatrixHandle a = MakeMatrix(&A), b = MakeMatrix(usesB ? &B : nullptr),
                       t = MakeMatrix(usesT ? &T : nullptr);
    const VectorHandle x = MakeVector(rows.comm, rows.local, p.k, p.X.data(), p.ld);
    const VectorHandle d = MakeVector(rows.comm, p.k, 1, p.D.data(), p.k);
    for (const VesVector block : {x.get(), d.get()})
      EXPECT_EQ(VesVectorSetComm(block, 1, second), VES_GOOD);
    const SolverHandle solver = MakeSolver<double>(s, usesB);
    const VesMonitor count = [](void* data, const VesProgress*) {
      ++static_cast<Outcome*>(data)->monitorCalls;
      return 0;
    };
    if (isWatched) {
      EXPECT_EQ(VesSolverSetMonitor(solver.get(), count, &o), VES_GOOD);
    }
    recorder = &o.record;
    mpiMeter.note = Note;
    const VesReturnCode code =
        VesRunSolver(solver.get(), a.get(), b.get(), t.get(), x.get(), d.get());
    mpiMeter.note = nullptr;
    EXPECT_EQ(code, VES_GOOD);
    EXPECT_EQ(VesGetSolverIter(solver.get(), &o.iter), VES_GOOD);
    EXPECT_EQ(VesGetSolverConv(solver.get(), &o.nConv), VES_GOOD);
    EXPECT_EQ(VesGetSolverStats(solver.get(), &o.stats), VES_GOOD);
    o.X = p.X;
    o.D = p.D;
    return o;
  }
};

void SeedJitter(unsigned seed) {
  jitter.seed(100 * seed + static_cast<unsigned>(RankIn(MPI_COMM_WORLD)) + 1);
}

/// The bytes are those of process 0 of comm.
template <typename T>
bool IsSameOver(MPI_Comm comm, const std::vector<T>& here) {
  std::vector<T> there = here;
  const std::size_t bytes = here.size() * sizeof(T);
  MPI_Bcast(there.data(), static_cast<int>(bytes), MPI_BYTE, 0, comm);
  return std::memcmp(there.data(), here.data(), bytes) == 0;
}

bool AreSame(const Outcome& a, const Outcome& b) {
  return a.X == b.X && a.D == b.D && a.iter == b.iter && a.nConv == b.nConv;
}

TEST(Collectives, SameOnAllProcessesAndAsCounted) {
  Problem problem;
  unsigned seed = 0;
  for (const auto type : allSolvers)
    for (const bool usesB : {false, true})
      for (const bool usesT : {false, true}) {
        SCOPED_TRACE(testing::Message() << "solver " << type << ", B " << usesB << ", T " << usesT);
        Settings s;
        s.solver = type;
        s.nBands = 6;
        s.threshold = 1e-5;
        Outcome outcomes[3]; // not watched, watched, and once more
        for (const int run : {0, 1, 2}) {
          SeedJitter(++seed);
          outcomes[run] = problem.Run(s, usesB, usesT, run == 1);
          const Outcome& o = outcomes[run];
          EXPECT_EQ(o.nConv, s.nBands);
          EXPECT_TRUE(IsSameOver(MPI_COMM_WORLD, std::vector<std::uint64_t>{o.record.hash}));
          EXPECT_TRUE(IsSameOver(MPI_COMM_WORLD, o.D));
          // The first reduction agrees on whether there is to be a run, two more on whether there
          // is memory for it.
          constexpr auto perVerdict = static_cast<long long>(sizeof(int));
          EXPECT_EQ(o.stats.reductions, o.record.reductions - 3);
          EXPECT_EQ(o.stats.bytesReduced,
                    o.record.bytesReduced - o.record.bytesFirst - 2 * perVerdict);
          EXPECT_EQ(o.record.others, 0);
        }
        const Record &plain = outcomes[0].record, &watched = outcomes[1].record;
        const long long calls = outcomes[1].monitorCalls;
        EXPECT_GT(calls, 2);
        EXPECT_EQ(watched.reductions, plain.reductions);
        EXPECT_EQ(watched.bytesReduced, plain.bytesReduced);
        EXPECT_EQ(watched.broadcasts, plain.broadcasts + calls);
        EXPECT_EQ(watched.broadcastsSelf, plain.broadcastsSelf + calls);
        EXPECT_EQ(outcomes[2].record.hash, plain.hash);
        EXPECT_TRUE(AreSame(outcomes[0], outcomes[1]));
        EXPECT_TRUE(AreSame(outcomes[0], outcomes[2]));
      }
}

/// Over five iterations, which is how often PPCG makes its full step, of sound runs that are far
/// from converged: what a run scales with.
TEST(Collectives, ReductionsOfAnIteration) {
  const struct {
    VesSolverType solver;
    bool usesB, usesT;
    long long inFive;
  } cases[] = {
      {VES_LOBPCG, false, false, 40},       {VES_LOBPCG, true, true, 45},
      {VES_LOBPCG_BATCH, false, false, 40}, {VES_LOBPCG_BATCH, true, true, 45},
      {VES_PPCG, false, false, 56},         {VES_PPCG, true, true, 66},
  };
  Problem problem;
  for (const auto& c : cases)
    for (const int nBands : {4, 12}) {
      SCOPED_TRACE(testing::Message()
                   << "solver " << c.solver << ", B " << c.usesB << ", pairs " << nBands);
      Settings s;
      s.solver = c.solver;
      s.nBands = nBands;
      s.threshold = 1e-30;
      long long reductions[2] = {};
      for (const int run : {0, 1}) {
        s.maxIter = 6 + 5 * run;
        const Outcome o = problem.Run(s, c.usesB, c.usesT);
        EXPECT_EQ(o.iter, s.maxIter);
        EXPECT_EQ(o.nConv, 0);
        reductions[run] = o.stats.reductions;
      }
      EXPECT_EQ(reductions[1] - reductions[0], c.inFive);
    }
}

/// The halves of the job hold the same problem dealt alike, and repeat what is small over the
/// second communicator.
TEST(Collectives, ReplicasHoldTheSameBits) {
  const int rank = RankIn(MPI_COMM_WORLD), half = SizeOf(MPI_COMM_WORLD) / 2;
  if (SizeOf(MPI_COMM_WORLD) % 2 != 0) GTEST_SKIP() << "needs two halves";
  MPI_Comm rowComm = MPI_COMM_NULL, second = MPI_COMM_NULL;
  MPI_Comm_split(MPI_COMM_WORLD, rank / half, rank, &rowComm);
  MPI_Comm_split(MPI_COMM_WORLD, rank % half, rank, &second);
  {
    Problem problem(rowComm, second);
    unsigned seed = 0;
    for (const auto type : allSolvers)
      for (const bool isGeneralized : {false, true}) {
        SCOPED_TRACE(testing::Message() << "solver " << type << ", B " << isGeneralized);
        Settings s;
        s.solver = type;
        s.nBands = 6;
        s.threshold = 1e-5;
        SeedJitter(++seed);
        const Outcome o = problem.Run(s, isGeneralized, isGeneralized, isGeneralized);
        EXPECT_EQ(o.nConv, s.nBands);
        EXPECT_TRUE(IsSameOver(MPI_COMM_WORLD, std::vector<std::uint64_t>{o.record.hash}));
        EXPECT_TRUE(IsSameOver(MPI_COMM_WORLD, std::vector<int>{o.iter, o.nConv}));
        EXPECT_TRUE(IsSameOver(MPI_COMM_WORLD, o.D));
        EXPECT_TRUE(IsSameOver(second, o.X));
      }
  }
  MPI_Comm_free(&rowComm);
  MPI_Comm_free(&second);
}

} // namespace
