// What the solvers say to each other: the same collectives in the same order on every process,
// whatever the timing, as many as the statistics count, and results that do not depend on it.
#include "support/gallery.h"
#include "support/mpi_meter.h"

#include <chrono>
#include <cstdint>
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
    ++(comm == self ? recorder->broadcastsSelf : recorder->broadcasts);
  } else {
    ++recorder->others;
  }
}

struct Outcome {
  Pairs<double> p;
  Record record{};
  VesSolverStats stats{};
  long long monitorCalls = 0;

  bool IsLike(const Outcome& o) const {
    return p.X == o.p.X && p.D == o.p.D && p.iter == o.p.iter && p.nConv == o.p.nConv;
  }
};

/// One run, with a seed of its own for the delays; second connects replicas.
Outcome RunOn(Problem<double>& on, const Settings& s, bool isWatched, MPI_Comm second = self) {
  static unsigned seed = 0;
  jitter.seed(100 * ++seed + static_cast<unsigned>(RankIn(world)) + 1);
  Outcome o{Pairs<double>(on.rows, s.nBands)};
  o.p.second = second;
  o.p.FillRandom();
  const SolverHandle solver = MakeSolver<double>(s, on.B != nullptr);
  const VesMonitor count = [](void* data, const VesProgress*) {
    ++static_cast<Outcome*>(data)->monitorCalls;
    return 0;
  };
  if (isWatched) {
    EXPECT_EQ(VesSolverSetMonitor(solver.get(), count, &o), VES_GOOD);
  }
  recorder = &o.record;
  mpiMeter.note = Note;
  on.Run(o.p, solver.get());
  mpiMeter.note = nullptr;
  EXPECT_EQ(o.p.code, VES_GOOD);
  EXPECT_EQ(VesGetSolverStats(solver.get(), &o.stats), VES_GOOD);
  return o;
}

Problem<double> Model(bool usesB, bool usesT, MPI_Comm comm = world) {
  return OnBox<double>({12, 11}, usesB, usesT, Deal::even, comm);
}

TEST(Collectives, SameOnAllProcessesAndAsCounted) {
  for (const auto type : allSolvers)
    for (const bool usesB : {false, true})
      for (const bool usesT : {false, true}) {
        SCOPED_TRACE(testing::Message() << "solver " << type << ", B " << usesB << ", T " << usesT);
        Problem<double> on = Model(usesB, usesT);
        const Settings s{type, 6, 1e-5};
        const Outcome outcomes[] = {RunOn(on, s, false), RunOn(on, s, true), RunOn(on, s, false)};
        for (const Outcome& o : outcomes) {
          EXPECT_EQ(o.p.nConv, 6);
          EXPECT_TRUE(IsSameOver(world, std::vector<std::uint64_t>{o.record.hash}));
          EXPECT_TRUE(IsSameOver(world, o.p.D));
          // The first reduction agrees on whether there is to be a run, two more on whether there
          // is memory for it, and on the longest column.
          constexpr auto perVerdict = static_cast<long long>(2 * sizeof(int));
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
        EXPECT_TRUE(outcomes[0].IsLike(outcomes[1]) && outcomes[0].IsLike(outcomes[2]));
      }
}

TEST(Collectives, SameOnAllProcessesWithAdditions) {
  for (const auto type : allSolvers)
    for (const bool isFull : {false, true}) {
      SCOPED_TRACE(testing::Message() << "solver " << type << ", B and T " << isFull);
      Problem<double> on = Model(isFull, isFull);
      Settings s{type, 6, 1e-5};
      s.hasAdditions = true;
      const Outcome outcomes[] = {RunOn(on, s, false), RunOn(on, s, true), RunOn(on, s, false)};
      for (const Outcome& o : outcomes) {
        EXPECT_EQ(o.p.nConv, 6);
        EXPECT_TRUE(IsSameOver(world, std::vector<std::uint64_t>{o.record.hash}));
        EXPECT_TRUE(IsSameOver(world, o.p.D));
        EXPECT_EQ(o.record.others, 0);
        EXPECT_TRUE(outcomes[0].IsLike(o));
      }
    }
}

/// Over five iterations, which is how often PPCG makes its full step, of sound runs that are far
/// from converged: what a run scales with.
TEST(Collectives, ReductionsOfAnIteration) {
  const struct {
    VesSolverType solver;
    bool usesBT;
    long long inFive;
  } cases[] = {
      {VES_LOBPCG, false, 30},      {VES_LOBPCG, true, 30}, {VES_LOBPCG_BATCH, false, 30},
      {VES_LOBPCG_BATCH, true, 30}, {VES_PPCG, false, 40},  {VES_PPCG, true, 40},
  };
  for (const auto& c : cases)
    for (const int nBands : {4, 12}) {
      SCOPED_TRACE(testing::Message()
                   << "solver " << c.solver << ", B and T " << c.usesBT << ", pairs " << nBands);
      Problem<double> on = Model(c.usesBT, c.usesBT);
      long long reductions[2] = {};
      for (const int run : {0, 1}) {
        const int maxIter = 6 + 5 * run;
        const Outcome o = RunOn(on, {c.solver, nBands, 1e-30, maxIter}, false);
        EXPECT_EQ(o.p.iter, maxIter);
        EXPECT_EQ(o.p.nConv, 0);
        reductions[run] = o.stats.reductions;
      }
      EXPECT_EQ(reductions[1] - reductions[0], c.inFive);
    }
}

/// The halves of the job hold the same problem dealt alike, and repeat what is small over the
/// second communicator.
TEST(Collectives, ReplicasHoldTheSameBits) {
  const int rank = RankIn(world), half = SizeOf(world) / 2;
  if (SizeOf(world) % 2 != 0) GTEST_SKIP() << "needs two halves";
  const Part rowComm(rank / half), second(rank % half);
  for (const auto type : allSolvers)
    for (const bool isGeneralized : {false, true}) {
      SCOPED_TRACE(testing::Message() << "solver " << type << ", B " << isGeneralized);
      Problem<double> on = Model(isGeneralized, isGeneralized, rowComm);
      const Outcome o = RunOn(on, {type, 6, 1e-5}, isGeneralized, second);
      EXPECT_EQ(o.p.nConv, 6);
      EXPECT_TRUE(IsSameOver(world, std::vector<std::uint64_t>{o.record.hash}));
      EXPECT_TRUE(IsSameOver(world, Ints{o.p.iter, o.p.nConv}));
      EXPECT_TRUE(IsSameOver(world, o.p.D));
      EXPECT_TRUE(IsSameOver(second, o.p.X));
    }
}

} // namespace
