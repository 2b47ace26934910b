// The model of a run against runs that are counted, and how it behaves where no run can go.
#include "../bench/blas_meter.h"
#include "error.h"
#include "machine.h"
#include "parallel.h"
#include "run.h"
#include "run_model.h"
#include "support/mpi_meter.h"

#include <gtest/gtest.h>
#include <mpi.h>

#include <ostream>

namespace {

using namespace VesTools;

constexpr int pairs = 12, block = 4, most = 16, few = 6;

struct Case {
  VesSolverType solver;
  int passes;
  Preconditioner preconditioner;
};

Options OptionsFor(const Case& of, int iterations) {
  Options options;
  options.problem.model = "laplace2d:40x30";
  options.preconditioner.kind = of.preconditioner;
  options.solver.pairs = pairs;
  options.solver.guard = options.solver.innerSteps = 0;
  options.solver.precision = Precision::full;
  options.solver.type = of.solver;
  options.solver.orthoPasses = of.passes;
  options.solver.threshold = 1e-30;
  options.solver.maxIterations = iterations;
  if (of.solver == VES_PPCG) options.solver.ppcgBatch = block;
  options.output.isQuiet = true;
  return options;
}

/// What a run of so many iterations does beside what every run does.
struct Counted {
  double reductions = 0.0, bytesReduced = 0.0, broadcasts = 0.0, operations = 0.0;
};

double broadcasts = 0.0;

Counted CountRun(const Case& of, int iterations, MPI_Comm comm) {
  broadcasts = 0.0;
  VesBench::ResetBlasMeter();
  mpiMeter.note = [](char kind, int, MPI_Datatype, MPI_Comm on) {
    if (kind == 'b' && Size(on) > 1) broadcasts += 1;
  };
  const RunResult run = RunWith(OptionsFor(of, iterations), comm);
  mpiMeter.note = nullptr;
  EXPECT_EQ(run.iterations, iterations);
  return {static_cast<double>(run.stats.reductions), static_cast<double>(run.stats.bytesReduced),
          broadcasts, Sum(VesBench::TallFlops(3 * pairs), comm)};
}

RunShape ShapeFor(const Case& of) {
  RunShape shape;
  shape.solver = of.solver;
  shape.order = 1200;
  shape.active = pairs;
  shape.block = block;
  shape.passes = of.passes;
  shape.hasT = of.preconditioner != Preconditioner::none;
  return shape;
}

TEST(RunModel, CountsWhatAnIterationDoes) {
  const MPI_Comm comm = MPI_COMM_WORLD;
  for (const VesSolverType solver : {VES_LOBPCG, VES_LOBPCG_BATCH, VES_PPCG})
    for (const int passes : {1, 2})
      for (const auto kind : {Preconditioner::none, Preconditioner::jacobi}) {
        const Case of{solver, passes, kind};
        const Counts model = CountsOf(ShapeFor(of));
        SCOPED_TRACE(testing::Message() << "solver " << solver << ", " << passes << " passes, T "
                                        << (kind != Preconditioner::none));
        const Counted more = CountRun(of, most, comm), less = CountRun(of, few, comm);
        const auto perIteration = [&](double Counted::*field) {
          return (more.*field - less.*field) / (most - few);
        };
        const CollectiveSums reductions = SumsOf(model.reductions);
        EXPECT_NEAR(perIteration(&Counted::reductions), reductions.count, 1e-9);
        EXPECT_NEAR(perIteration(&Counted::bytesReduced), reductions.bytes, 1e-6);
        // One more tells all what the monitor of the program has answered.
        if (Size(comm) > 1) {
          EXPECT_NEAR(perIteration(&Counted::broadcasts), SumsOf(model.broadcasts).count + 1, 1e-9);
        }
        EXPECT_NEAR(perIteration(&Counted::operations), model.operations, 0.02 * model.operations);
      }
}

TEST(RunModel, WorkIsSharedAndTalkIsNot) {
  const Machine cluster = machines.at("cluster");
  for (const VesSolverType solver : {VES_LOBPCG, VES_PPCG}) {
    RunShape shape = ShapeFor({solver, 1, Preconditioner::jacobi});
    shape.order = 1e6;
    const std::vector<int>& processes = ForecastProcesses();
    EXPECT_EQ(processes.back(), 10000);
    EXPECT_EQ(CostOf(shape, cluster, 1).collectives, 0.0);
    for (std::size_t i = 1; i < processes.size(); ++i) {
      const Cost before = CostOf(shape, cluster, processes[i - 1]),
                 here = CostOf(shape, cluster, processes[i]);
      EXPECT_LT(here.products, before.products);
      EXPECT_LT(here.operators, before.operators);
      EXPECT_EQ(here.dense, before.dense);
      EXPECT_GE(here.collectives, before.collectives);
    }
    RunShape wider = shape;
    wider.active = 4 * pairs;
    const Cost narrow = CostOf(shape, cluster, 64), wide = CostOf(wider, cluster, 64);
    EXPECT_GT(wide.products, 3.99 * narrow.products);
    EXPECT_GT(wide.collectives, narrow.collectives);
    EXPECT_LT(wide.collectives, 16 * narrow.collectives);
  }
}

// Short messages cost their latency in each step, long ones no more than twice their length.
TEST(RunModel, CollectivesAreBoundByLatencyOrLength) {
  const Machine machine{1e-6, 1e9, 1, 1, 1, 1};
  EXPECT_DOUBLE_EQ(SecondsOfCollective(8, machine, 1), 0.0);
  EXPECT_NEAR(SecondsOfCollective(8, machine, 1024), 10e-6, 1e-7);
  EXPECT_NEAR(SecondsOfCollective(1e9, machine, 1024), 2.0, 0.01);
}

TEST(Machine, IsNamedOrGiven) {
  const Machine here{1, 2, 3, 4, 5, 6};
  EXPECT_EQ(ParseMachine("here").Completed(here).dense, 5);
  EXPECT_EQ(ParseMachine("flops=7e9").Completed(here).flops, 7e9);
  const MachineChoice choice = ParseMachine("ethernet,latency=1e-3,row=2");
  EXPECT_FALSE(choice.IsHere());
  const Machine machine = choice.Completed(here);
  EXPECT_EQ(machine.latency, 1e-3);
  EXPECT_EQ(machine.row, 2);
  EXPECT_EQ(machine.bandwidth, machines.at("ethernet").bandwidth);
  for (const char* const wrong :
       {"clutser", "latency", "latency=", "latency=0", "latency=-1", "latency=nan", "latency=inf",
        "latency=1s", "latncy=1", "latency=1,cluster", "cluster,", "cluster,,row=1", ""}) {
    SCOPED_TRACE(wrong);
    EXPECT_THROW(ParseMachine(wrong), Error);
  }
}

} // namespace
