// Operators of entries: products against those of the whole matrix, which every process knows.
#include "support/correctness.h"
#include "support/mpi_meter.h"

using namespace VesTest;

namespace {

constexpr int order = 83;
using Places = std::vector<long long>;

/// Entry (i, j) of one of two Hermitian matrices: a dominant diagonal and some of all other places.
Wide EntryOf(int i, int j, bool isComplex, unsigned stream) {
  const auto low = static_cast<unsigned>(std::min(i, j)),
             high = static_cast<unsigned>(std::max(i, j));
  if (i == j) return 4.0 + 0.1 * i;
  if (Hashed(low, high, stream) < 0.8) return 0.0;
  const Wide entry(Hashed(low, high, stream + 1), isComplex ? Hashed(low, high, stream + 2) : 0.0);
  return 0.1 * (i < j ? entry : std::conj(entry));
}

/// The local rows by which an operator is made; an entry is given in two halves.
template <typename Scalar>
struct Entries {
  Places starts{0}, columns;
  std::vector<Scalar> values;

  Entries(const Rows& rows, unsigned stream) {
    for (int i = rows.first; i < rows.first + rows.local; ++i) {
      for (int j = order - 1; j >= 0; --j) { // in no order that a product could need
        const Wide entry = EntryOf(i, j, Ves::isComplex<Scalar>, stream);
        for (int half = 0; half < 2 && entry != 0.0; ++half) {
          columns.push_back(j);
          values.push_back(Number<Scalar>(0.5 * entry));
        }
      }
      starts.push_back(static_cast<long long>(columns.size()));
    }
  }
  ves::Operator<Scalar> Make(MPI_Comm comm) const { return {comm, starts, columns, values}; }
};

/// Products of every width, with a leading dimension above the rows, in the type of the blocks.
template <typename Element, typename Scalar>
void ExpectProducts(const ves::Operator<Scalar>& op, const Rows& rows, unsigned stream) {
  for (const int cols : {1, 4, 7, 35}) {
    const int ld = rows.local + 3;
    std::vector<Element> storage(static_cast<std::size_t>(2 * ld * cols), Number<Element>(777));
    const ves::Block<Element> x(ves::View<Element>(storage.data(), rows.local, cols, ld),
                                rows.comm),
        y(ves::View<Element>(storage.data() + ld * cols, rows.local, cols, ld), rows.comm);
    for (int j = 0; j < cols; ++j)
      for (int i = 0; i < rows.local; ++i)
        x(i, j) = HashedNumber<Element>(rows.first + i, j);
    multiply(op, x, y);
    double worst = 0.0;
    for (int j = 0; j < cols; ++j)
      for (int i = 0; i < rows.local; ++i) {
        Wide expected = 0.0;
        for (int k = 0; k < order; ++k)
          expected += EntryOf(rows.first + i, k, Ves::isComplex<Scalar>, stream) *
                      Wide(HashedNumber<Element>(k, j));
        worst = std::max(worst, std::abs(Wide(y(i, j)) - expected));
      }
    EXPECT_LE(worst, 100 * eps<Element>) << cols;
    for (int j = 0; j < cols; ++j)
      for (int i = rows.local; i < ld; ++i)
        ASSERT_EQ(y(i, j), Number<Element>(777)) << "beyond the rows";
  }
}

template <typename Scalar>
class RowsTest : public testing::Test {};
TYPED_TEST_SUITE(RowsTest, AllScalars);

// Two matrices in turn, so that messages of the one must not reach the other.
TYPED_TEST(RowsTest, MultiplyAsTheWholeMatrix) {
  using Scalar = TypeParam;
  const int comms = mpiMeter.commsAlive;
  for (const Deal deal : {Deal::even, Deal::growing, Deal::gaps}) {
    const Rows rows(order, world, deal);
    const auto a = Entries<Scalar>(rows, 5).Make(world), b = Entries<Scalar>(rows, 9).Make(world);
    for (int turn = 0; turn < 2; ++turn) {
      ExpectProducts<Scalar>(a, rows, 5);
      ExpectProducts<Ves::LowType<Scalar>>(b, rows, 9);
    }
    EXPECT_EQ(VesMatrixGetShellUserData(a.handle()), nullptr);
  }
  EXPECT_EQ(mpiMeter.commsAlive, comms);
}

TYPED_TEST(RowsTest, RunInBothPrecisions) {
  using Scalar = TypeParam;
  const Rows rows(order, world, Deal::gaps);
  const Entries<Scalar> entries(rows, 5);
  ves::Options options;
  options.threshold = ByPrecision<Scalar>(1e-9, 1e-3);
  options.maxIter = 200;
  options.mixedPrecision = isDouble<Scalar>;
  const auto found = solve(entries.Make(world), rows.local, 4, options);
  EXPECT_TRUE(found.isConverged());
  EXPECT_EQ(found.stats.columnsLow > 0, isDouble<Scalar>);
  // One process has the whole matrix.
  const Rows whole(order, self);
  const auto A = Entries<Scalar>(whole, 5).Make(self);
  options.mixedPrecision.reset();
  const auto alone = solve(A, whole.local, 4, options, self);
  for (std::size_t j = 0; j < 4; ++j)
    EXPECT_NEAR(found.values[j], alone.values[j], ByPrecision<Scalar>(1e-11, 1e-4));
}

// What one process gives is refused on all of them, and changes nothing.
TEST(RowsTest, AreRefusedOnAllProcesses) {
  const Rows rows(order, world);
  const Entries<double> good(rows, 5);
  const auto A = good.Make(world);
  const bool isFaulty = RankIn(world) == SizeOf(world) - 1;
  const auto set = [&](const Entries<double>& given, int nRows, bool hasValues) {
    return VesMatrixSetRows(A.handle(), world, nRows, given.starts.data(), given.columns.data(),
                            hasValues ? given.values.data() : nullptr);
  };
  Entries<double> beyond = good, negative = good, descending = good, late = good;
  if (isFaulty) {
    beyond.columns.back() = order;
    negative.columns.front() = -1;
    descending.starts[1] = descending.starts.back() + 1;
    late.starts[0] = 1;
  }
  for (const auto* given : {&beyond, &negative, &descending, &late})
    EXPECT_EQ(set(*given, rows.local, true), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(set(good, isFaulty ? -1 : rows.local, true), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(set(good, rows.local, !isFaulty), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesMatrixSetRows(A.handle(), MPI_COMM_NULL, 0, nullptr, nullptr, nullptr),
            VES_ERR_INVALID_VALUE);
  ExpectProducts<double>(A, rows, 5);

  // Blocks whose rows are not those of the entries.
  const ves::Block<double> x(rows.local + (isFaulty ? 1 : 0), 2), y(x.rows(), 2), d(2, 1),
      own(rows.local, 2, self), image(rows.local, 2, self);
  EXPECT_THROW(estimateSpectrum(A, x), ves::Error);
  const ves::Solver<double> solver;
  EXPECT_EQ(VesRunSolver(solver.handle(), A.handle(), nullptr, nullptr, x.handle(), d.handle()),
            VES_ERR_MISMATCH);
  EXPECT_EQ(VesMatrixMultiply(A.handle(), own.handle(), image.handle()),
            SizeOf(world) > 1 ? VES_ERR_MISMATCH : VES_GOOD);
  const ves::Block<double> same(rows.local, 2);
  EXPECT_EQ(VesMatrixMultiply(A.handle(), same.handle(), same.handle()),
            rows.local > 0 ? VES_ERR_INVALID_VALUE : VES_GOOD);
  // A routine takes the place of the entries, in single precision as well.
  const ves::Block<float> low(rows.local, 2);
  EXPECT_EQ(VesMatrixSetShellMatVec(A.handle(), nullptr, nullptr), VES_GOOD);
  EXPECT_EQ(VesMatrixMultiply(A.handle(), low.handle(), low.handle()), VES_ERR_MISMATCH);
  EXPECT_EQ(VesMatrixMultiply(A.handle(), x.handle(), y.handle()), VES_ERR_NULL_POINTER);
}

} // namespace
