// Solvers on parts of the job: groups that solve at once or alone, communicators that the caller
// frees between runs, and no communicator left behind.
#include "support/dense_kinds.h"
#include "support/gallery.h"
#include "support/mpi_meter.h"

#include <cstdio>
#include <cstdlib>

using namespace VesTest;

namespace {

/// Large enough for the distributed dense solver.
const Settings large{VES_LOBPCG, 100, 1e-3};

void SolveOn(MPI_Comm comm, VesSolver solver) {
  Problem<double> on = OnBox<double>({9, 10, 8}, false, false, Deal::even, comm);
  Pairs<double> p = SolveBy(solver, on, large.nBands);
  ExpectAllConverged(p, on, large.threshold);
}

TEST(Communicators, FreedAndReplacedBetweenRuns) {
  const int rank = RankIn(world), all = SizeOf(world), before = mpiMeter.commsAlive;
  {
    const SolverHandle solver = MakeSolver<double>(large, false);
    // Parts that overlap differently each time, the same again, unlike ones, the first two
    // processes alone and then one alone while the others wait, and the whole job.
    const int unlike = rank < 3 ? 0 : (rank < 5 && all > 4 ? 1 : 2);
    const struct {
      int color, callers;
    } steps[] = {{rank % 2, all}, {rank / 2, all}, {rank / 2, all}, {unlike, all},
                 {rank / 2, 2},   {rank, 1},       {0, all}};
    for (const auto& step : steps) {
      const Part part(step.color);
      if (rank < step.callers) SolveOn(part, solver.get());
    }
  }
  EXPECT_EQ(mpiMeter.commsAlive, before);
}

/// An operator that waits for every process of the job with equal columns in each of its calls.
ves::Operator<double> Joint(const SparseOperator<double>* op) {
  ves::Operator<double> joint([op](auto x, auto y) {
    int columns[] = {x.cols(), -x.cols()};
    MPI_Allreduce(MPI_IN_PLACE, columns, 2, MPI_INT, MPI_MAX, world);
    EXPECT_EQ(columns[0], -columns[1]);
    if (x.rows() > 0) op->Apply(x.data(), y.data(), x.cols(), x.ld());
  });
  joint.setCalledEverywhere(true);
  return joint;
}

TEST(Communicators, OperatorsThatNeedEveryProcess) {
  Problem<double> on = OnBox<double>({7, 8}, true, true, Deal::gaps);
  const auto a = Joint(&on.A), b = Joint(on.B.get()), t = Joint(on.T.get());
  for (const auto type : allSolvers) {
    const SolverHandle solver = MakeSolver<double>({type}, true);
    Pairs<double> p(on.rows, 6), r(on.rows, 6);
    p.FillRandom();
    const auto block = [](Pairs<double>& of) { // no storage where there are no rows
      const int n = of.rows.local;
      return MakeVector(world, n, of.k, n > 0 ? of.X.data() : nullptr, of.ld);
    };
    const VectorHandle X = block(p), R = block(r), D = MakeVector(world, 6, 1, p.D.data(), 6);
    p.code = VesRunSolver(solver.get(), a.handle(), b.handle(), t.handle(), X.get(), D.get());
    EXPECT_EQ(VesGetSolverConv(solver.get(), &p.nConv), VES_GOOD);
    ExpectAllConverged(p, on, 1e-6);
    double residual = -1, orthoError = -1;
    EXPECT_EQ(VesCheckEigenpairs(a.handle(), b.handle(), X.get(), D.get(), &residual, &orthoError),
              VES_GOOD);
    EXPECT_EQ(VesEigResidual(a.handle(), b.handle(), X.get(), D.get(), R.get()), VES_GOOD);
  }
}

long ResidentKilobytes() {
  long pages = 0, resident = 0;
  if (std::FILE* file = std::fopen("/proc/self/statm", "r")) {
    if (std::fscanf(file, "%ld %ld", &pages, &resident) != 2) resident = 0;
    std::fclose(file);
  }
  return resident * 4;
}

/// Every cycle builds a grid: a low threshold sends small problems to the distributed solver.
/// VES_CYCLES asks for more than 1000.
TEST(Communicators, ThousandCyclesLeaveNothingBehind) {
  const char* const asked = std::getenv("VES_CYCLES");
  const int cycles = asked == nullptr ? 1000 : std::atoi(asked);
  const Part part(RankIn(world) % 2);
  Problem<double> on = OnBox<double>({4, 5}, false, false, Deal::even, part);
  int made = 0;
  const auto cycle = [&] {
    Settings s{VES_LOBPCG, 3, 1e-6, 2};
    s.evd = otherKinds[static_cast<std::size_t>(made++) % otherKinds.size()];
    const SolverHandle solver = MakeSolver<double>(s, false);
    DistributeFrom<double>(*solver->DenseEigenSolver, 2);
    EXPECT_EQ(SolveBy(solver.get(), on, 3).code, VES_GOOD);
  };
  for (int warmUp = 0; warmUp < 50; ++warmUp)
    cycle();
  const int comms = mpiMeter.commsAlive;
  const long memory = ResidentKilobytes();
  for (int i = 0; i < cycles; ++i)
    cycle();
  long growth = ResidentKilobytes() - memory;
  MPI_Allreduce(MPI_IN_PLACE, &growth, 1, MPI_LONG, MPI_MAX, world);
  if (RankIn(world) == 0)
    std::printf("%d cycles left %d communicators and %ld kB\n", cycles, mpiMeter.commsAlive - comms,
                growth);
  EXPECT_EQ(mpiMeter.commsAlive, comms);
#ifndef __SANITIZE_ADDRESS__ // whose allocator keeps what is freed in quarantine
  // One communicator alone costs a few kilobytes. The BLACS keep some hundred bytes of every grid
  // on processes outside it.
  EXPECT_LE(growth, 3072 + cycles / 2);
#endif
}

} // namespace
