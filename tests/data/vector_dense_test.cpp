// The dense block by itself: storage and views, fills, diagonal, copies, norms and whole-block
// reductions. Rows are dealt to every second process, so that some hold none.
#include "data/vector_dense.h"
#include "support/problem.h"

#include <array>
#include <cstdint>
#include <new>

using namespace VesTest;
using Ves::VectorDense;

namespace {

const MPI_Comm world = MPI_COMM_WORLD, self = MPI_COMM_SELF;
constexpr int n = 11; // rows of a distributed block

/// A block of its own with hashed entries, numbered from row first on; 777 in the two padding
/// rows, which nothing but whole-block reductions may touch.
template <typename Scalar>
struct Block : VectorDense<Scalar> {
  int first;

  Block(int m, int k, int firstRow = 0)
      : VectorDense<Scalar>(world, self, m, k, m + 2), first(firstRow) {
    this->AllocateMem();
    for (int j = 0; j < k; ++j)
      for (int i = 0; i < this->ld; ++i)
        (*this)(i, j) = i < m ? HashedNumber<Scalar>(first + i, j) : Number<Scalar>(777);
  }
  Block(const Rows& rows, int k) : Block(rows.local, k, rows.first) {}
  /// Every entry is formula(row, column) up to some units of rounding.
  template <typename Formula>
  void Expect(double units, Formula formula) const {
    for (int j = 0; j < this->nCols; ++j)
      for (int i = 0; i < this->ld; ++i) {
        const Scalar expected = i < this->nRows ? formula(first + i, j) : Number<Scalar>(777);
        EXPECT_LE(std::abs((*this)(i, j) - expected), units * eps<Scalar>) << i << " " << j;
      }
  }
};

double Weight(int row, bool weighted) {
  return weighted ? 0.5 + row % 4 : 1.0;
}

/// Norm, weighted or not, of some rows of the hashed column j.
template <typename Scalar>
double HashedNorm(int j, int first, int count, bool weighted = false) {
  double sum = 0.0;
  for (int i = first; i < first + count; ++i)
    sum += static_cast<double>(std::norm(HashedNumber<Scalar>(i, j))) * Weight(i, weighted);
  return std::sqrt(sum);
}

template <typename Scalar>
struct VectorDenseTest : testing::Test {
  const Rows rows{n, world, Deal::gaps};
};
TYPED_TEST_SUITE(VectorDenseTest, AllScalars);

using Plain = VectorDense<std::complex<double>>;

TEST(VectorDenseGeometry, Comparisons) {
  using Verdict = std::array<bool, 3>; // same dimensions, same shape, the same block
  const Block<std::complex<double>> a(3, 2), elsewhere(3, 2);
  const auto compare = [&](MPI_Comm comm, MPI_Comm aux, int m, int k, int ld, const Plain& on) {
    Plain b(comm, aux, m, k, ld);
    b.SetValues(on.values);
    EXPECT_NE(a == b, a != b);
    return Verdict{a.CompareDims(b), a.CompareShape(b), a == b};
  };
  EXPECT_EQ(compare(world, self, 3, 2, 5, a), (Verdict{true, true, true}));
  EXPECT_EQ(compare(world, self, 3, 2, 5, elsewhere), (Verdict{true, true, false}));
  EXPECT_EQ(compare(world, self, 3, 2, 6, a), (Verdict{true, false, false}));
  EXPECT_EQ(compare(world, self, 2, 2, 5, a), (Verdict{false, false, false}));
  EXPECT_EQ(compare(world, self, 3, 3, 5, a), (Verdict{false, false, false}));
  EXPECT_EQ(compare(self, self, 3, 2, 5, a), (Verdict{false, false, false}));
  EXPECT_EQ(compare(world, world, 3, 2, 5, a), (Verdict{false, false, false}));
  EXPECT_EQ(Plain(world, self, 3, 2, -5).ld, 1);
}

TEST(VectorDenseGeometry, OwnsWhatItAllocates) {
  Block<std::complex<double>> M(4, 4);
  EXPECT_EQ(M.AllocateMem(), VES_GOOD) << "releases what it had";
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(M.values) % 64, 0U);
  M(3, 3) = 5.0;
  Plain view(M, 2, 3, 2, 1), twin;
  EXPECT_EQ(twin.DuplicateShape(M), VES_GOOD);
  EXPECT_TRUE(twin.CompareShape(M) && twin.IsDataEmpty());
  EXPECT_EQ(view.FreeMem(), VES_GOOD);
  EXPECT_EQ(view(1), 5.0) << "a view frees nothing";
  for (int round = 0; round < 2; ++round)
    EXPECT_EQ(M.FreeMem(), VES_GOOD);
  EXPECT_FALSE(M.ownsValues || M.IsDataEmpty());
  Plain huge(world, self, 65536, 32768, 65536); // 2^31 entries
  EXPECT_THROW(huge.AllocateMem(), std::bad_array_new_length);
  EXPECT_THROW(huge.AllReduce(MPI_SUM, self), std::bad_array_new_length);
  EXPECT_THROW(huge.BroadCast(self), std::bad_array_new_length);
}

TEST(VectorDenseGeometry, ViewsLieInsideTheirParent) {
  const int huge = std::numeric_limits<int>::max();
  const Block<std::complex<double>> M(4, 4);
  const Plain blank(self, world, 7, 8, 9);
  const struct {
    int row, col, nRows, nCols;
    bool inside;
  } cases[] = {{0, 0, 4, 4, true},   {1, 2, 3, 2, true},   {4, 4, 0, 0, true},
               {0, 4, 4, 0, true},   {1, 0, 4, 1, false},  {0, 3, 1, 2, false},
               {-1, 0, 1, 1, false}, {0, -1, 1, 1, false}, {0, 0, -1, 1, false},
               {0, 0, 1, -1, false}, {0, 5, 1, 0, false},  {1, 1, huge, huge, false}};
  for (const auto& c : cases) {
    Plain view(self, world, 7, 8, 9), expected(world, self, c.nRows, c.nCols, M.ld);
    expected.SetValues(M.values + c.row + M.ld * c.col);
    EXPECT_EQ(view.SubVector(M, c.row, c.col, c.nRows, c.nCols),
              c.inside ? VES_GOOD : VES_ERR_OUT_OF_RANGE);
    EXPECT_TRUE(view == (c.inside ? expected : blank)) << c.row << c.col << c.nRows << c.nCols;
  }
}

/// Which check comes first shows in the code; nothing is written.
TYPED_TEST(VectorDenseTest, Refusals) {
  using Other = std::conditional_t<std::is_same_v<TypeParam, double>, float, double>;
  Block<TypeParam> X(this->rows, 4), d(4, 1), M(4, 4), odd(this->rows, 4), wrong(5, 2);
  Block<Other> other(this->rows, 4), otherColumn(4, 1);
  odd.storageType = static_cast<VesVectorType>(2);
  VectorDense<TypeParam> bare(world, self, 3, 2, 3), empty;
  const struct {
    const char* why;
    VesReturnCode expected, got;
  } verdicts[] = {{"factors of another count", VES_ERR_INVALID_VALUE, X.ScaleByVec(wrong)},
                  {"factors of another type", VES_ERR_MISMATCH, X.ScaleByVec(otherColumn)},
                  {"copy of another type", VES_ERR_INVALID_VALUE, X.CopyData(other)},
                  {"copy of what is not dense", VES_ERR_UNSUPPORTED, X.CopyData(odd)},
                  {"shape of another type", VES_ERR_UNSUPPORTED, X.DuplicateShape(other)},
                  {"view of what is not dense", VES_ERR_UNSUPPORTED, X.SubVector(odd, 0, 0, 0, 1)},
                  {"view outside of it", VES_ERR_OUT_OF_RANGE, X.SubVector(odd, 0, 5, 0, 1)},
                  {"diagonal into a column", VES_ERR_INVALID_VALUE, d.SetDiag(d)},
                  {"diagonal of another type", VES_ERR_MISMATCH, M.SetDiag(otherColumn)},
                  {"diagonal of an oblong", VES_ERR_INVALID_VALUE, d.GetDiag(wrong)},
                  {"norms into a block", VES_ERR_INCOMPATIBLE, X.Norm(X)},
                  {"norms of another type", VES_ERR_UNSUPPORTED, d.Norm(other)},
                  {"normalized by other dimensions", VES_ERR_INCOMPATIBLE, X.Normalize(wrong)},
                  {"scaling without storage", VES_ERR_INCOMPATIBLE, bare.ScaleByVal(d(0))},
                  {"random without storage", VES_ERR_INCOMPATIBLE, bare.Set2Random(1)},
                  {"scaling an empty block", VES_GOOD, empty.ScaleByVal(d(0))},
                  {"random empty block", VES_GOOD, empty.Set2Random(1)}};
  for (const auto& v : verdicts)
    EXPECT_EQ(v.got, v.expected) << v.why;
  for (const Block<TypeParam>* block : {&X, &d, &M})
    block->Expect(0.0, [](int i, int j) { return HashedNumber<TypeParam>(i, j); });
}

TYPED_TEST(VectorDenseTest, FillsAndScalings) {
  Block<TypeParam> X(this->rows, 4), Y(this->rows, 4), d(4, 1), M(4, 4);
  const auto zero = Number<TypeParam>(0.0), alpha = Number<TypeParam>(0.5, -2.0);
  const auto scaled = [&](int i, int j) { return d(j) * (alpha * HashedNumber<TypeParam>(i, j)); };
  EXPECT_EQ(X.ScaleByVal(alpha), VES_GOOD);
  EXPECT_EQ(X.ScaleByVec(d), VES_GOOD);
  X.Expect(10.0, scaled);
  Y.SetLd(this->rows.local + 1); // not that of X
  EXPECT_EQ(Y.CopyData(X), VES_GOOD);
  EXPECT_EQ(X.Set2Val(alpha), VES_GOOD);
  X.Expect(0.0, [&](int, int) { return alpha; });
  EXPECT_EQ(X.CopyData(Y), VES_GOOD);
  X.Expect(10.0, scaled);
  EXPECT_EQ(X.Set2Zero(), VES_GOOD);
  X.Expect(0.0, [&](int, int) { return zero; });
  EXPECT_EQ(M.SetDiag(d), VES_GOOD);
  M.Expect(0.0, [&](int i, int j) { return i == j ? d(j) : zero; });
  M(2, 2) = M(0, 1) = alpha;
  EXPECT_EQ(d.GetDiag(M), VES_GOOD);
  d.Expect(0.0, [&](int i, int) { return i == 2 ? alpha : HashedNumber<TypeParam>(i, 0); });
}

/// The numbers are one normal stream over the columns, fixed by the seed and the local shape.
TYPED_TEST(VectorDenseTest, RandomNumbers) {
  const int m = 400, k = 10;
  Block<TypeParam> x(m, k), again(m, k), stream(m * k, 1);
  EXPECT_EQ(x.Set2Random(4095), VES_GOOD);
  EXPECT_EQ(again.Set2Random(4095 + 3 * 4096), VES_GOOD);
  EXPECT_EQ(stream.Set2Random(4095), VES_GOOD);
  x.Expect(0.0, [&](int i, int j) { return again(i, j); });
  x.Expect(0.0, [&](int i, int j) { return stream(i + m * j); });
  double sum = 0.0, squares = 0.0;
  for (int i = 0; i < m * k; ++i) {
    sum += static_cast<double>(std::real(stream(i))) / (m * k);
    squares += static_cast<double>(std::norm(stream(i))) / (m * k);
  }
  EXPECT_NEAR(sum, 0.0, 0.064); // four standard deviations
  EXPECT_NEAR(squares, Ves::isComplex<TypeParam> ? 2.0 : 1.0, 0.09);
  EXPECT_EQ(again.Set2Random(4094), VES_GOOD);
  EXPECT_NE(again(0), x(0));
}

TYPED_TEST(VectorDenseTest, NormsOverAllRowsOrTheLocalOnes) {
  const Block<TypeParam> X(this->rows, 4), none(this->rows, 0);
  Block<TypeParam> d(4, 1), norms(0, 1);
  d.SetLd(4); // the padding would be reduced, too
  for (const bool global : {true, false}) {
    EXPECT_EQ(d.Norm(X, global), VES_GOOD);
    const int first = global ? 0 : this->rows.first, count = global ? n : this->rows.local;
    d.Expect(20.0,
             [&](int j, int) { return Number<TypeParam>(HashedNorm<TypeParam>(j, first, count)); });
  }
  EXPECT_EQ(norms.Norm(none, true), VES_GOOD);
  EXPECT_EQ(norms(0), Number<TypeParam>(777.0 * SizeOf(world))) << "out of step with the others";
}

/// With a diagonal B: x_j^H B x_j becomes 1 and B X is scaled by the same factors. With the block
/// itself in the second place, its columns are scaled once.
TYPED_TEST(VectorDenseTest, NormalizePairedAndWithItself) {
  for (const bool paired : {true, false}) {
    Block<TypeParam> X(this->rows, 4), BX(this->rows, 4);
    VectorDense<TypeParam> same(X, 0, 0, X.nRows, 4);
    for (int j = 0; j < 4; ++j)
      for (int i = 0; i < X.nRows; ++i)
        BX(i, j) *= Number<TypeParam>(Weight(X.first + i, true));
    EXPECT_EQ(X.Normalize(paired ? static_cast<VesVectorBase&>(BX) : same, true), VES_GOOD);
    const auto factor = [&](int j) { return 1.0 / HashedNorm<TypeParam>(j, 0, n, paired); };
    X.Expect(10.0, [&](int i, int j) {
      return HashedNumber<TypeParam>(i, j) * Number<TypeParam>(factor(j));
    });
    BX.Expect(30.0, [&](int i, int j) {
      const double scale = Weight(i, true) * (paired ? factor(j) : 1.0);
      return HashedNumber<TypeParam>(i, j) * Number<TypeParam>(scale);
    });
  }
}

TYPED_TEST(VectorDenseTest, WholeBlockReductionsIncludeThePadding) {
  const int p = SizeOf(world), rank = RankIn(world);
  Block<TypeParam> x(3, 2), y(3, 2);
  for (int at = 0; at < 10; ++at)
    x.values[at] = y.values[at] = Number<TypeParam>(at + rank, 1.0);
  EXPECT_EQ(x.AllReduce(MPI_SUM, world), VES_GOOD);
  EXPECT_EQ(y.BroadCast(world), VES_GOOD);
  for (int at = 0; at < 10; ++at) {
    EXPECT_EQ(x.values[at], Number<TypeParam>(p * at + p * (p - 1) / 2.0, p));
    EXPECT_EQ(y.values[at], Number<TypeParam>(at, 1.0));
  }
}

} // namespace
