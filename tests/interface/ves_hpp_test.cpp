// The C++ door: owners that move, views with gaps, exceptions into the library and out of it.
#include "support/correctness.h"

#include <ves.hpp>

using namespace VesTest;

namespace {

constexpr int order = 40, pairs = 3;

/// diag(1, 2, ...), or 2 I, that throws when it is told to.
template <typename Scalar>
ves::Operator<Scalar> Diagonal(const Rows& rows, bool isEqual, const bool* fails = nullptr) {
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
  const auto A = Moved(Diagonal<Scalar>(rows, false)), B = Moved(Diagonal<Scalar>(rows, true));
  Pairs<Scalar> p(rows, pairs);
  const ves::Block<Scalar> whole(order, pairs, MPI_COMM_SELF);
  for (const VesSolverType type : allSolvers) {
    ves::Options options;
    options.type = type;
    options.threshold = 1e-3;
    options.maxIter = 300;
    const auto solver = Moved(ves::Solver<Scalar>(options));
    const auto X = Moved(ves::Block<Scalar>(ves::View(p.X.data(), rows.local, pairs, p.ld)));
    fillRandom(*X);
    fillRandom(whole);
    for (int j = 0; j < pairs; ++j)
      for (int i = 0; i < rows.local; ++i)
        EXPECT_EQ((*X)(i, j), whole(rows.first + i, j));
    const auto found = solver->solve(*A, *B, {}, *X);
    EXPECT_TRUE(found.isConverged() && found.iterations > 0 && found.stats.columnsB > 0);
    std::copy(found.values.begin(), found.values.end(), p.D.begin());
    p.nConv = found.converged;
    const SparseOperator<Scalar> a(
        rows,
        [](int i) {
          return typename SparseOperator<Scalar>::Row{{i, Number<Scalar>(1 + i)}};
        }),
        b(rows, [](int i) {
          return typename SparseOperator<Scalar>::Row{{i, Number<Scalar>(2)}};
        });
    ExpectAllConverged(p, a, &b, {0.5, 1.0, 1.5}, 2e-3, {2000.0, 1e-4, 40.0});
    const ves::PairErrors errors = checkEigenpairs(*A, *B, *X, found.values);
    EXPECT_LE(errors.orthoError, 1e-4);
    const auto norms = columnNorms(eigResidual(*A, *B, *X, found.values));
    EXPECT_NEAR(*std::max_element(norms.begin(), norms.end()), errors.residual, 1e-5);
    // The same guess in a block of its own.
    const ves::Solution<Scalar> again = solve(*A, *B, {}, rows.local, pairs, options);
    EXPECT_EQ(again.values, found.values);
    EXPECT_EQ(again.vectors(0, 1), (*X)(0, 1));
    EXPECT_GT(solver->memory(rows.local, pairs, true), sizeof(Scalar) * pairs);
  }
}

/// What a call-back throws on one process ends the run on all, leaves it there alone, and harms no
/// later run.
TEST(VesHppFailures, LeaveTheLibraryWhereTheyWereThrown) {
  const Rows rows(order, MPI_COMM_WORLD);
  const bool isLast = RankIn(MPI_COMM_WORLD) == SizeOf(MPI_COMM_WORLD) - 1;
  bool fails[4] = {};
  const auto A = Diagonal<double>(rows, false, &fails[0]);
  const auto B = Diagonal<double>(rows, true, &fails[1]),
             T = Diagonal<double>(rows, true, &fails[2]);
  ves::Options options;
  options.maxIter = 300;
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
  const auto pair = solve(A, rows.local, 1);
  fails[0] = true;
  EXPECT_THROW(checkEigenpairs(A, {}, pair.vectors, pair.values), std::runtime_error);
  EXPECT_THROW(eigResidual(A, {}, pair.vectors, pair.values), std::runtime_error);
}

TEST(VesHppFailures, LeaveProcessesWithoutRows) {
  const Rows rows(order, MPI_COMM_WORLD, Deal::gaps);
  ves::Operator<float> A([&](auto x, auto y) {
    std::copy_n(x.data(), x.rows(), y.data());
    if (x.rows() == 0) throw 7;
  });
  A.setCalledEverywhere(true);
  if (rows.local == 0)
    EXPECT_THROW(solve(A, rows.local, 1), int);
  else
    EXPECT_NEAR(solve(A, rows.local, 1).values[0], 1.0, 1e-3);
}

/// \return the code and the name of what was refused
template <typename Function>
std::pair<int, std::string> Refusal(Function&& function) {
  try {
    function();
  } catch (const ves::Error& error) {
    const std::string text = error.what();
    return {error.code(), text.substr(0, text.find(" was refused: "))};
  }
  return {VES_GOOD, ""};
}

template <typename T>
void ExpectRefused(const char* call, int code, VesSolverType type,
                   std::optional<T> ves::Options::*setting, int value) {
  ves::Options options;
  options.type = type;
  options.*setting = static_cast<T>(value);
  EXPECT_EQ(Refusal([&] { ves::Solver<double> solver(options); }),
            std::pair(code, std::string(call)));
}

TEST(VesHppErrors, EachSettingReachesItsFunction) {
  using O = ves::Options;
  ExpectRefused("VesSolverSetThreshold", -1, VES_PPCG, &O::threshold, 0);
  ExpectRefused("VesSolverSetMaxIter", -1, VES_PPCG, &O::maxIter, 0);
  ExpectRefused("VesSolverSetMaxOrthoIter", -1, VES_PPCG, &O::maxOrthoIter, 0);
  ExpectRefused("VesSolverSetLockFactor", -1, VES_PPCG, &O::lockFactor, 2);
  ExpectRefused("VesSetConvergeDetectorType", -4, VES_PPCG, &O::detector, 9);
  ExpectRefused("VesSolverSetLockDetectorType", -4, VES_PPCG, &O::lockDetector, 9);
  ExpectRefused("VesSetOrthogonalizerType", -4, VES_PPCG, &O::orthogonalizer, 9);
  ExpectRefused("VesSetOrthoProjectorType", -4, VES_PPCG, &O::projector, 9);
  ExpectRefused("VesSolverSetRankRevealerType", -4, VES_PPCG, &O::rankRevealer, 9);
  ExpectRefused("VesSetDenseEigenSolverType", -4, VES_PPCG, &O::denseEigenSolver, 9);
  ExpectRefused("VesSolverSetBatchLimit", -6, VES_PPCG, &O::batchLimit, 9);
  ExpectRefused("VesSolverSetBatchStart", -6, VES_PPCG, &O::batchStart, 9);
  ExpectRefused("VesSolverSetPPCGBatch", -6, VES_LOBPCG, &O::ppcgBatch, 9);
  ExpectRefused("VesSolverSetPPCGSoftLocking", -6, VES_LOBPCG, &O::ppcgSoftLocking, 1);
  ExpectRefused("VesSolverSetPPCGRRPeriod", -6, VES_LOBPCG, &O::ppcgRRPeriod, 9);
  ExpectRefused("VesSolverSetPPCGLockFactor", -6, VES_LOBPCG, &O::ppcgLockFactor, 1);
}

/// A process that alone has something wrong keeps no other waiting.
TEST(VesHppErrors, LeaveOnAllProcesses) {
  const bool isFirst = RankIn(MPI_COMM_WORLD) == 0;
  const ves::Operator<double> A([](auto, auto) {});
  ves::Options wrong;
  wrong.maxIter = isFirst ? 0 : 10;
  const ves::Block<double> bare(ves::View<double>(nullptr, 5, 1));
  const struct {
    const char* call;
    int code;
    std::function<void()> run;
  } cases[] = {
      {"VesSolverSetMaxIter", -1, [&] { solve(A, 5, 2, wrong); }},
      {"VesVectorSetDim", -1, [&] { solve(A, isFirst ? -1 : 5, 2); }},
      {"VesRunSolver", -7, [&] { ves::Solver<double>().solve(A, bare); }},
      {"VesRunSolver", -1, [&] { solve(ves::Operator<double>(), 5, 2); }},
      {"ves::solve", -1, [&] { solve(A, 5, 2, {}, MPI_COMM_NULL); }},
  };
  for (const auto& c : cases) {
    const auto [code, call] = Refusal(c.run);
    EXPECT_EQ(code, c.code) << c.call;
    EXPECT_TRUE(!isFirst || call == c.call) << call;
  }
}

} // namespace
