// Solvers on parts of the job: groups that solve at once and unlike often, communicators that the
// caller frees between runs, and no communicator left behind.
#include "eigensolver/scalapack_diag.h"
#include "interface/solver_base.h"
#include "support/correctness.h"
#include "support/mpi_meter.h"

#include <cstdio>
#include <cstdlib>

using namespace VesTest;

namespace {

/// A communicator of a test, freed at its end.
struct Part {
  MPI_Comm comm = MPI_COMM_NULL;
  explicit Part(int color) { MPI_Comm_split(MPI_COMM_WORLD, color, 0, &comm); }
  Part(const Part&) = delete;
  Part& operator=(const Part&) = delete;
  ~Part() { MPI_Comm_free(&comm); }
};

/// One solve with a projected problem large enough for the distributed dense solver.
void SolveOn(MPI_Comm comm, VesSolver solver, const Settings& s) {
  const Box box{{9, 10, 8}};
  const Rows rows(box.Order(), comm);
  SparseOperator<double> A(rows, [&](int i) { return Phased<double>(i, box.Laplacian(i)); });
  Pairs<double> p(rows, s.nBands);
  p.FillRandom();
  p.Run(solver, &A);
  Limits limits;
  limits.value = 1e-4;
  ExpectAllConverged(p, A, nullptr, box.Eigenvalues(false), s.threshold, limits);
}

Settings Large() {
  Settings s;
  s.nBands = 100;
  s.threshold = 1e-3;
  return s;
}

TEST(Communicators, GroupsSolveAtOnceAndUnlikeOften) {
  const int rank = RankIn(MPI_COMM_WORLD), size = SizeOf(MPI_COMM_WORLD);
  const int before = mpiMeter.commsAlive;
  {
    // 6 processes: 3 + 2 + 1; 4 processes: 3 + 1.
    const int color = rank < 3 ? 0 : (rank < 5 && size > 4 ? 1 : 2);
    const Part part(color);
    const SolverHandle solver = MakeSolver<double>(Large(), false);
    for (int solve = 0; solve <= color; ++solve)
      SolveOn(part.comm, solver.get(), Large());
    MPI_Barrier(MPI_COMM_WORLD);
  }
  EXPECT_EQ(mpiMeter.commsAlive, before);
}

TEST(Communicators, OneGroupSolvesWhileTheOthersWait) {
  const Part part(RankIn(MPI_COMM_WORLD) < 2 ? 0 : 1);
  if (RankIn(MPI_COMM_WORLD) < 2) {
    const SolverHandle solver = MakeSolver<double>(Large(), false);
    SolveOn(part.comm, solver.get(), Large());
  }
  MPI_Barrier(MPI_COMM_WORLD);
}

TEST(Communicators, FreedAndReplacedBetweenRuns) {
  const int rank = RankIn(MPI_COMM_WORLD), before = mpiMeter.commsAlive;
  {
    const SolverHandle solver = MakeSolver<double>(Large(), false);
    // Parts that overlap differently each time, the same again, one process alone in between, and
    // the whole job.
    for (const int step : {0, 1, 1, 2, 1, 3}) {
      const int color = step == 0 ? rank % 2 : step == 1 ? rank / 2 : step == 2 ? rank : 0;
      if (step == 2 && rank > 0) continue;
      MPI_Comm comm = MPI_COMM_SELF;
      if (step != 2) MPI_Comm_split(MPI_COMM_WORLD, color, 0, &comm);
      SolveOn(comm, solver.get(), Large());
      if (step != 2) MPI_Comm_free(&comm);
    }
  }
  EXPECT_EQ(mpiMeter.commsAlive, before);
}

/// An operator that waits for every process of the job with equal columns in each of its calls.
ves::Operator<double> Joint(const SparseOperator<double>& op) {
  ves::Operator<double> joint([&op](auto x, auto y) {
    int columns[] = {x.cols(), -x.cols()};
    MPI_Allreduce(MPI_IN_PLACE, columns, 2, MPI_INT, MPI_MAX, MPI_COMM_WORLD);
    EXPECT_EQ(columns[0], -columns[1]);
    if (x.rows() > 0) op.Apply(x.data(), y.data(), x.cols(), x.ld());
  });
  joint.setCalledEverywhere(true);
  return joint;
}

TEST(Communicators, OperatorsThatNeedEveryProcess) {
  const Box box{{7, 8}};
  const Rows rows(box.Order(), MPI_COMM_WORLD, Deal::gaps);
  SparseOperator<double> A(rows, [&](int i) { return Phased<double>(i, box.Stiffness(i)); });
  SparseOperator<double> B(rows, [&](int i) { return Phased<double>(i, box.Mass(i)); });
  SparseOperator<double> T(rows, [](int i) {
    return SparseOperator<double>::Row{{i, 1.0 + i % 2}};
  });
  const auto a = Joint(A), b = Joint(B), t = Joint(T);
  for (const auto type : allSolvers) {
    Settings s;
    s.solver = type;
    const SolverHandle solver = MakeSolver<double>(s, true);
    Pairs<double> p(rows, 6), r(rows, 6);
    p.FillRandom();
    const auto block = [&](Pairs<double>& of) { // no storage where there are no rows
      return MakeVector(rows.comm, rows.local, of.k, rows.local > 0 ? of.X.data() : nullptr, of.ld);
    };
    const VectorHandle X = block(p), R = block(r), D = MakeVector(rows.comm, 6, 1, p.D.data(), 6);
    p.code = VesRunSolver(solver.get(), a.handle(), b.handle(), t.handle(), X.get(), D.get());
    EXPECT_EQ(VesGetSolverConv(solver.get(), &p.nConv), VES_GOOD);
    ExpectAllConverged(p, A, &B, box.Eigenvalues(true), s.threshold);
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
  const Part part(RankIn(MPI_COMM_WORLD) % 2);
  const Box box{{4, 5}};
  const Rows rows(box.Order(), part.comm);
  SparseOperator<double> A(rows, [&](int i) { return Phased<double>(i, box.Laplacian(i)); });
  Settings s;
  s.maxIter = 2;
  const auto cycle = [&] {
    Pairs<double> p(rows, 3);
    p.FillRandom();
    const SolverHandle solver = MakeSolver<double>(s, false);
    dynamic_cast<Ves::ScaLapackDiag<double>&>(*solver->DenseEigenSolver).threshold = 2;
    p.Run(solver.get(), &A);
    EXPECT_EQ(p.code, VES_GOOD);
  };
  for (int warmUp = 0; warmUp < 50; ++warmUp)
    cycle();
  const int comms = mpiMeter.commsAlive;
  const long memory = ResidentKilobytes();
  for (int i = 0; i < cycles; ++i)
    cycle();
  long growth = ResidentKilobytes() - memory;
  MPI_Allreduce(MPI_IN_PLACE, &growth, 1, MPI_LONG, MPI_MAX, MPI_COMM_WORLD);
  if (RankIn(MPI_COMM_WORLD) == 0)
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
