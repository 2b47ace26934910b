// The C++ door: owners that move, views with gaps, exceptions into the library and out of it.
#include "support/correctness.h"

using namespace VesTest;

namespace {

constexpr int order = 40, pairs = 3;

/// diag(1, 2, ...), or 2 I, that throws when it is told to.
template <typename Scalar>
ves::Operator<Scalar> Multiplier(const Rows& rows, bool isEqual, const bool* fails = nullptr) {
  return ves::Operator<Scalar>([=, first = rows.first](auto x, auto y) {
    static_assert(std::is_same_v<decltype(x), ves::View<const Scalar>>);
    if (fails != nullptr && *fails) throw std::runtime_error("told to");
    for (int j = 0; j < x.cols(); ++j)
      for (int i = 0; i < x.rows(); ++i)
        y(i, j) = x(i, j) * Number<Scalar>(isEqual ? 2 : 1 + first + i);
  });
}

template <typename Owner>
std::unique_ptr<Owner> Moved(Owner owner) {
  return std::make_unique<Owner>(std::move(owner));
}

template <typename Scalar>
class VesHpp : public testing::Test {};
TYPED_TEST_SUITE(VesHpp, AllScalars);

TYPED_TEST(VesHpp, SolvesWithWhatWasMoved) {
  using Scalar = TypeParam;
  const Rows rows(order, MPI_COMM_WORLD, Deal::growing);
  const auto A = Moved(Multiplier<Scalar>(rows, false)), B = Moved(Multiplier<Scalar>(rows, true));
  Pairs<Scalar> p(rows, pairs);
  const ves::Block<Scalar> whole(order, pairs, MPI_COMM_SELF);
  fillRandom(whole);
  for (const VesSolverType type : allSolvers) {
    ves::Options options;
    options.type = type;
    options.threshold = 1e-3;
    const auto solver = Moved(ves::Solver<Scalar>(options));
    const auto X = Moved(ves::Block<Scalar>(ves::View(p.X.data(), rows.local, pairs, p.ld)));
    fillRandom(*X);
    EXPECT_EQ((*X)(0, 1), whole(rows.first, 1));
    const auto found = solver->solve(*A, *B, {}, *X);
    EXPECT_TRUE(found.isConverged() && found.iterations > 0 && found.stats.columnsB > 0);
    const ves::PairErrors errors = checkEigenpairs(*A, *B, *X, found.values);
    const auto norms = columnNorms(eigResidual(*A, *B, *X, found.values));
    EXPECT_NEAR(*std::max_element(norms.begin(), norms.end()), errors.residual, 1e-5);
    EXPECT_LE(errors.residual, 2e-3);
    EXPECT_LE(errors.orthoError, 1e-4);
    for (int j = 0; j < pairs; ++j) {
      EXPECT_NEAR(found.values[static_cast<std::size_t>(j)], 0.5 * (j + 1), 1e-4);
      EXPECT_EQ(p.Column(j)[rows.local], Number<Scalar>(777));
    }
    // The same guess in a block of its own, whose columns rounding may treat otherwise.
    const auto alone = solve(*A, *B, {}, rows.local, pairs, options).values;
    EXPECT_NEAR(std::abs(alone[1] - found.values[1]), 0.0, 1e-5);
  }
}

TEST(VesHppAdditions, LowRoutineIsCalled) {
  int calls = 0;
  const int first = 60 * RankIn(MPI_COMM_WORLD); // of 60 rows on every process
  ves::Operator<double> A([first](auto x, auto y) {
    for (int j = 0; j < x.cols(); ++j)
      for (int i = 0; i < x.rows(); ++i)
        y(i, j) = (1.0 + first + i) * x(i, j);
  });
  A.setLow([&calls, first](auto x, auto y) {
    static_assert(std::is_same_v<std::decay_t<decltype(y(0, 0))>, float>);
    ++calls;
    for (int j = 0; j < x.cols(); ++j)
      for (int i = 0; i < x.rows(); ++i)
        y(i, j) = static_cast<float>(1 + first + i) * x(i, j);
  });
  ves::Options options;
  options.mixedPrecision = true;
  options.innerSteps = 2;
  options.threads = 1;
  options.wanted = 3;
  const ves::Operator<double> moved = std::move(A);
  const auto found = solve(moved, {}, {}, 60, 5, options);
  EXPECT_GE(found.converged, 3);
  EXPECT_TRUE(calls > 0 && found.stats.columnsLow > 0);
  EXPECT_NEAR(found.values[2], 3.0, 1e-9);
}

/// What a call-back throws on one process ends the run on all, leaves it there alone, and harms no
/// later run.
TEST(VesHppErrors, FailuresLeaveWhereTheyWereThrown) {
  const Rows rows(order, MPI_COMM_WORLD);
  const bool isLast = RankIn(MPI_COMM_WORLD) == SizeOf(MPI_COMM_WORLD) - 1;
  bool fails[4] = {};
  const auto A = Multiplier<double>(rows, false, &fails[0]),
             B = Multiplier<double>(rows, true, &fails[1]),
             T = Multiplier<double>(rows, true, &fails[2]);
  ves::Options options;
  options.monitor = [&](const VesProgress&) {
    return fails[3] ? throw std::runtime_error("told to") : false;
  };
  for (const VesSolverType type : allSolvers)
    for (bool& flag : fails) {
      options.type = type;
      const auto run = [&] { return solve(A, B, T, rows.local, pairs, options); };
      flag = isLast || &flag == &fails[3];
      if (flag)
        EXPECT_THROW(run(), std::runtime_error);
      else
        EXPECT_EQ(run().reason, VES_REASON_NONFINITE);
      flag = false;
      EXPECT_TRUE(run().isConverged());
    }
}

/// A process that alone has something wrong keeps no other waiting.
TEST(VesHppErrors, RefusalsLeaveOnAllProcesses) {
  const bool isFirst = RankIn(MPI_COMM_WORLD) == 0;
  const ves::Operator<double> A([](auto, auto) {});
  ves::Options wrong, foreign;
  wrong.maxIter = isFirst ? 0 : 10;
  foreign.ppcgBatch = 9;
  const ves::Block<double> bare(ves::View<double>(nullptr, 5, 1));
  const struct {
    std::string call;
    int code;
    std::function<void()> run;
  } cases[] = {
      {"VesSolverSetMaxIter", -1, [&] { solve(A, 5, 2, wrong); }},
      {"VesSolverSetPPCGBatch", -6, [&] { solve(A, 5, 2, foreign); }},
      {"VesVectorSetDim", -1, [&] { solve(A, isFirst ? -1 : 5, 2); }},
      {"VesRunSolver", -7, [&] { ves::Solver<double>().solve(A, bare); }},
      {"VesRunSolver", -1, [&] { solve(ves::Operator<double>(), 5, 2); }},
  };
  for (const auto& c : cases)
    try {
      c.run();
      ADD_FAILURE() << c.call;
    } catch (const ves::Error& error) {
      EXPECT_EQ(error.code(), c.code);
      EXPECT_TRUE(!isFirst || std::string(error.what()).find(c.call + " was") == 0) << c.call;
    }
}

} // namespace
