// Whole runs on models with known values, and what is written about them.
#include "error.h"
#include "guess.h"
#include "names.h"
#include "parallel.h"
#include "plot.h"
#include "progress.h"
#include "run.h"
#include "settings.h"
#include "support/problem.h"

#include <gtest/gtest.h>
#include <mpi.h>

#include <cmath>
#include <sstream>

namespace {

using namespace VesTools;

const MPI_Comm comm = MPI_COMM_WORLD;
constexpr int pairs = 5;

Options OptionsFor(const std::string& model) {
  Options options;
  options.problem.model = model;
  options.solver.pairs = pairs;
  options.output.isQuiet = true;
  return options;
}

TEST(Run, FindsTheValuesInEveryTypeByEverySolver) {
  const std::vector<double> exact = VesTest::Box{{9, 7}}.Eigenvalues(false);
  for (const auto& [scalarName, scalar] : scalarNames) {
    for (const auto& [solverName, solver] : solverNames) {
      SCOPED_TRACE(scalarName + ", " + solverName);
      Options options = OptionsFor("laplace2d:9x7");
      options.problem.scalar = scalar;
      options.solver.type = solver;
      const RunResult result = RunWith(options, comm);
      EXPECT_TRUE(result.IsAccepted());
      EXPECT_EQ(result.scalar, scalar);
      EXPECT_EQ(result.nonZerosA, 9 * 7 * 5 - 2 * 9 - 2 * 7);
      const bool isSingle = scalar == VES_FLOAT || scalar == VES_COMPLEX_FLOAT;
      EXPECT_DOUBLE_EQ(result.settings.threshold, (isSingle ? 1e-4 : 1e-8) * result.settings.normA);
      // The bound of Ritz values by the squared residuals of all and the gap above them.
      const double squares = pairs * std::pow(result.settings.threshold, 2);
      const double rounding = 8.0 * (isSingle ? 1.2e-7 : 2.3e-16) * result.settings.normA;
      for (std::size_t j = 0; j < pairs; ++j)
        EXPECT_NEAR(result.values[j], exact[j],
                    squares / (exact[pairs] - exact[pairs - 1]) + rounding);
      EXPECT_EQ(result.history.back().iteration, result.iterations);
      EXPECT_GT(result.stats.columnsA, 0);
    }
  }
}

// The guess, and with it the course of the run, does not depend on the distribution of rows.
TEST(Run, GuessIsTheSameOnAnyNumberOfProcesses) {
  double whole[30], part[18];
  FillRandom(whole, 10, 3, 0, 7, {});
  FillRandom(part, 6, 3, 4, 7, {});
  for (int j = 0; j < 3; ++j)
    for (int i = 0; i < 6; ++i)
      EXPECT_EQ(part[i + 6 * j], whole[4 + i + 10 * j]);
  EXPECT_LT(*std::min_element(whole, whole + 30), -0.3);
  EXPECT_GT(*std::max_element(whole, whole + 30), 0.3);
}

TEST(Run, SettingsFollowTheProblem) {
  const ProblemOptions model = OptionsFor("laplace1d:261").problem;
  const Problem<float> problem = MakeProblem<float>(model, LoadProblem(model, comm), comm);
  SolverOptions options;
  EXPECT_EQ(Decide(problem, options).pairs, 6);
  EXPECT_EQ(Decide(problem, options).orthoPasses, 3);
  // In batches from 65 pairs on, but not from a quarter of the order on.
  for (const int some : {64, 65, 66}) {
    options.pairs = some;
    EXPECT_EQ(Decide(problem, options).solver, some == 65 ? VES_LOBPCG_BATCH : VES_LOBPCG);
  }
  options.detector = VES_RELATIVE_RESIDUALS;
  options.tolerance = 0.25;
  EXPECT_EQ(Decide(problem, options).threshold, 0.25);
  options.pairs = 262;
  EXPECT_THROW(Decide(problem, options), Error);
}

TEST(Acceptance, NeedsEveryPairByItsResidual) {
  RunResult result;
  result.settings.pairs = 2;
  result.settings.threshold = 1e-6;
  result.values = {0.5, 3.0};
  result.residuals = {1e-7, 1.5e-6};
  result.converged = 2;
  EXPECT_TRUE(result.IsAccepted());
  result.converged = 1;
  EXPECT_FALSE(result.IsAccepted());
  result.converged = 2;
  for (const double wrong : {3e-6, std::nan("")}) {
    result.residuals[1] = wrong;
    EXPECT_FALSE(result.IsAccepted());
  }
  result.detector = VES_RELATIVE_RESIDUALS;
  result.residuals[1] = 3e-6;
  EXPECT_TRUE(result.IsAccepted());
  result.detector = static_cast<VesConvergeDetectorType>(99);
  EXPECT_THROW(result.IsAccepted(), Error);
}

TEST(Progress, KeepsWholePartsOfALine) {
  const std::string line = "iteration 3: 1 of 2, residual 1e-3, 2 s";
  const std::pair<std::size_t, std::string> cuts[] = {{39, line},
                                                      {38, "iteration 3: 1 of 2, residual 1e-3"},
                                                      {19, "iteration 3: 1 of 2"},
                                                      {9, "iteration"}};
  for (const auto& [width, text] : cuts)
    EXPECT_EQ(CutTo(line, width), text);
}

// A line breaks where residuals are not known, and nothing that is not finite is drawn.
TEST(Plot, DrawsKnownResiduals) {
  RunResult result;
  result.title = "a < b & c";
  result.settings.threshold = 1e-8;
  result.values = {1.0, 2.0};
  const double nan = std::nan("");
  result.history = {{0, 0, 2, {1.0, nan}},
                    {1, 0, 4, {1e-3, 1e-1}},
                    {2, 0, 6, {nan, 1e-5}},
                    {3, 1, 8, {1e-9, 0.0}}};
  std::ostringstream out;
  WritePlot(out, result);
  const std::string text = out.str();
  EXPECT_NE(text.find("a &lt; b &amp; c"), std::string::npos);
  EXPECT_EQ(text.find("nan"), std::string::npos);
  EXPECT_EQ(text.find("inf"), std::string::npos);
  std::vector<std::ptrdiff_t> moves;
  for (std::size_t at = 0; (at = text.find(" d=\"", at)) != std::string::npos; ++at) {
    const std::string path = text.substr(at, text.find("/>", at) - at);
    moves.push_back(std::count(path.begin(), path.end(), 'M'));
  }
  EXPECT_EQ(moves, (std::vector<std::ptrdiff_t>{2, 1}));
}

} // namespace
