// Blocks of more entries than an int counts. Their columns lie so far apart that few of their pages
// are ever touched: they take address space and little memory.
#include "data/imaged.h"
#include "parallel/messages.h"
#include "parallel/run_meter.h"
#include "support/gallery.h"
#include "support/mpi_meter.h"

#include <cstdlib>
#include <map>
#include <new>
#include <sys/mman.h>

namespace {

std::map<void*, std::size_t>& Mapped() {
  static std::map<void*, std::size_t> sizes;
  return sizes;
}

} // namespace

// Storage of blocks is the only aligned one; the library finds these first.
void* operator new(std::size_t size, std::align_val_t alignment) {
  const std::size_t unit = static_cast<std::size_t>(alignment);
  if (size < std::size_t{1} << 28) return std::aligned_alloc(unit, (size / unit + 1) * unit);
  const int flags = MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE;
  void* const block = mmap(nullptr, size, PROT_READ | PROT_WRITE, flags, -1, 0);
  if (block == MAP_FAILED) throw std::bad_alloc();
  madvise(block, size, MADV_NOHUGEPAGE); // a page that is touched stays a small one
  Mapped().emplace(block, size);
  return block;
}
void operator delete(void* block, std::align_val_t) noexcept {
  const auto found = Mapped().find(block);
  if (found == Mapped().end()) return std::free(block);
  munmap(block, found->second);
  Mapped().erase(found);
}

using namespace VesTest;

namespace {

/// Three columns stay within an int, five do not.
constexpr int farApart = (1 << 29) + 1, mostOfInt = std::numeric_limits<int>::max();

bool IsCounted(int nCols, int ld) {
  return std::int64_t{ld} * nCols <= mostOfInt;
}

template <typename Scalar>
struct Spread : Ves::VectorDense<Scalar> {
  Spread(int rows, int cols, int leadingDim, MPI_Comm over = self)
      : Ves::VectorDense<Scalar>(over, self, rows, cols, leadingDim) {
    EXPECT_EQ(this->AllocateMem(), VES_GOOD);
  }
  void Fill(const Guess<Scalar>& entry) {
    for (int j = 0; j < this->nCols; ++j)
      for (int i = 0; i < this->nRows; ++i)
        (*this)(i, j) = entry(i, j);
  }
};

template <typename Scalar>
struct LargeOperations : testing::Test {};
TYPED_TEST_SUITE(LargeOperations, AllScalars);

/// Entries of what the operations leave, all blocks with this leading dimension.
template <typename Scalar>
std::vector<Wide> Results(int ld) {
  constexpr int n = 1100, k = 5; // more rows than a band
  using Block = Ves::VectorDense<Scalar>;
  Spread<Scalar> x(n, k, ld), y(n, k, ld), z(n, k, ld), m(k, k, ld), upper(k, k, ld), d(k, 1, k);
  std::vector<Wide> all;
  const auto keep = [&](const Block& block) {
    for (int j = 0; j < block.nCols; ++j)
      all.insert(all.end(), block.Column(j), block.Column(j) + block.nRows);
  };
  x.Fill(RandomGuess<Scalar>(1));
  y.Set2Random(7);
  keep(y);
  d.Set2Val(Number<Scalar>(0.5));
  upper.SetDiag(d);
  upper(1, 4) = Number<Scalar>(0.25);
  z.CopyData(x);
  z.ScaleByVal(Number<Scalar>(3.0));
  z.ScaleByVec(d);
  z.ScaleAdd(z, y, d, -1);
  z.TriangularSolve(upper, 'R', 'U', 'N', 'N');
  keep(z);
  m.InnerProduct(z, y);
  keep(m);
  m.InnerProduct(x, x);
  keep(m);
  y.Gemm(z, m, 'N', 'N', -1, 1);
  keep(y);
  Block band(self, self, 1024, k, 1024);
  band.AllocateMem();
  Ves::Imaged<Scalar>(z, z).Rotate(m, band);
  z.Normalize(z);
  d.Norm(y);
  keep(d);
  d(0) = d(3) = Number<Scalar>(2.0); // to the back
  d(1) = d(2) = d(4) = Scalar(0);
  int count = 0;
  z.PermuteCols(d, 1.0, count);
  keep(z);
  d.GetDiag(m);
  keep(d);
  keep(Block(z, 1, 4, k, 1));
  return all;
}

TYPED_TEST(LargeOperations, AreThoseOfSmallBlocks) {
  const std::vector<Wide> expected = Results<TypeParam>(1103), given = Results<TypeParam>(farApart);
  ASSERT_EQ(given.size(), expected.size());
  double largest = 0.0, error = 0.0;
  for (std::size_t i = 0; i < given.size(); ++i) {
    largest = std::max(largest, std::abs(expected[i]));
    error = std::max(error, std::abs(given[i] - expected[i]));
  }
  EXPECT_LE(error, 100.0 * eps<TypeParam> * largest);
}

/// In single precision a sum of so many squares has stopped growing long before its end.
TEST(LargeBlocks, NormsOfLongColumns) {
  constexpr int n = 1 << 24;
  Spread<float> x(n, 1, n), norm(1, 1, 1);
  x.Fill([](int, int) { return 1.0F / 3; });
  EXPECT_EQ(norm.Norm(x), VES_GOOD);
  EXPECT_NEAR(norm(0) / 4096, 1.0 / 3, 2e-4);
  EXPECT_EQ(x.Normalize(x), VES_GOOD);
  EXPECT_NEAR(x(n - 1, 0) * 4096, 1.0, 6e-4);
}

std::vector<int> counts; ///< of the collectives that were noted

void Note(char, int count, MPI_Datatype, MPI_Comm) {
  counts.push_back(count);
}

TEST(Messages, LongOnesGoInPieces) {
  std::vector<int> numbers{1, 2, 3, 4, 5, 6, 7};
  const auto sum = [](void* start, int count) {
    counts.push_back(count);
    return MPI_Allreduce(MPI_IN_PLACE, start, count, MPI_INT, MPI_SUM, world);
  };
  counts.clear();
  EXPECT_EQ(Ves::InMessages(numbers.data(), numbers.size(), MPI_INT, sum, 3), MPI_SUCCESS);
  EXPECT_EQ(Ves::InMessages(numbers.data(), 0, MPI_INT, sum, 3), MPI_SUCCESS);
  EXPECT_EQ(counts, (std::vector<int>{3, 3, 1, 0}));
  for (int i = 0; i < 7; ++i)
    EXPECT_EQ(numbers[static_cast<std::size_t>(i)], (i + 1) * SizeOf(world));
}

/// A process that is alone need not move anything.
TEST(Messages, BlocksBeyondAnInt) {
  Spread<float> block(3, 5, farApart);
  const Ves::RunMeter meter;
  counts.clear();
  mpiMeter.note = Note;
  EXPECT_EQ(block.AllReduce(MPI_SUM, self), VES_GOOD);
  EXPECT_EQ(block.BroadCast(self), VES_GOOD);
  mpiMeter.note = nullptr;
  const int rest = static_cast<int>(std::int64_t{farApart} * 5 - mostOfInt);
  EXPECT_EQ(counts, (std::vector<int>{mostOfInt, rest, mostOfInt, rest}));
  EXPECT_TRUE(meter.reductions == 2 && meter.bytesReduced == std::int64_t{farApart} * 20);
}

/// Runs in which the columns of one process lie far apart. Its routines get what an int counts; all
/// processes make the same calls, since the operators are collective.
template <typename Scalar>
struct LargeRuns : testing::Test {
  Problem<Scalar> on;
  Pairs<Scalar> p{on.rows, 5};
  Spread<Scalar> X;
  int widest = 0; ///< of the blocks that routines were given

  explicit LargeRuns(bool generalized = true)
      : on(OnBox<Scalar>({7, 8}, generalized, true)),
        X(on.rows.local, p.k, RankIn(world) == 0 ? farApart : p.ld, world) {
    for (SparseOperator<Scalar>* const op : {&on.A, on.B.get(), on.T.get()})
      if (op != nullptr) op->spoil = [this](Scalar*, int, int nCols, int ld) { Look(nCols, ld); };
  }
  void Look(int nCols, int ld) {
    EXPECT_TRUE(IsCounted(nCols, ld)) << nCols << " columns " << ld << " apart";
    widest = std::max(widest, nCols);
  }

  void Run(const Settings& s, VesMatrix A, VesMatrix B, VesMatrix T) {
    SCOPED_TRACE(s);
    widest = 0;
    p.FillRandom();
    X.Fill([&](int i, int j) { return p.Column(j)[i]; });
    const VectorHandle x = MakeVector(world, X.nRows, p.k, X.values, X.ld),
                       d = MakeVector(world, p.k, 1, p.D.data(), p.k);
    const SolverHandle solver = MakeSolver<Scalar>(s, B != nullptr);
    p.code = VesRunSolver(solver.get(), A, B, T, x.get(), d.get());
    EXPECT_EQ(VesGetSolverConv(solver.get(), &p.nConv), VES_GOOD);
    for (int j = 0; j < p.k; ++j)
      std::copy_n(X.Column(j), X.nRows, p.Column(j));
    ExpectAllConverged(p, on, s.threshold);
    // A leg in single precision packs its columns.
    EXPECT_EQ(widest, s.hasAdditions && isDouble<Scalar> ? p.k : 3);
    double residual = -1.0, orthoError = -1.0;
    EXPECT_EQ(VesCheckEigenpairs(A, B, x.get(), d.get(), &residual, &orthoError), VES_GOOD);
    EXPECT_LE(residual, s.threshold + 50.0 * eps<Scalar> * on.normA);
    EXPECT_LE(orthoError, 2000.0 * eps<Scalar>);
  }
};
TYPED_TEST_SUITE(LargeRuns, AllScalars);

TYPED_TEST(LargeRuns, RoutinesGetPanels) {
  for (const auto type : allSolvers)
    for (const bool hasAdditions : {false, true}) {
      Settings s = WithinReach<TypeParam>(type, this->p.k);
      s.hasAdditions = hasAdditions;
      s.orthogonalizer = hasAdditions ? VES_SVD_QR : VES_CHOLESKY_QR;
      this->Run(s, MakeMatrix(&this->on.A).get(), MakeMatrix(this->on.B.get()).get(),
                MakeMatrix(this->on.T.get()).get());
    }
}

TYPED_TEST(LargeRuns, SoDoesARoutineForBoth) {
  const auto both = [](void* data, void* x, void* ax, void* bx, int nRows, int nCols, int ld) {
    auto& test = *static_cast<LargeRuns<TypeParam>*>(data);
    test.on.A.Shell(&test.on.A, x, ax, nRows, nCols, ld);
    test.on.B->Shell(test.on.B.get(), x, bx, nRows, nCols, ld);
  };
  const MatrixHandle A = MakeMatrix(&this->on.A), B = MakeMatrix(this->on.B.get());
  ASSERT_EQ(VesMatrixSetShellPair(A.get(), B.get(), this, both), VES_GOOD);
  this->Run(WithinReach<TypeParam>(VES_LOBPCG, this->p.k), A.get(), B.get(), nullptr);
}

} // namespace
