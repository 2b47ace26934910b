// The dense block by itself: storage, views, fills, copies and norms. Some processes hold no rows.
#include "data/vector_dense.h"
#include "support/problem.h"

#include <cstdint>
#include <new>

using namespace VesTest;
using Ves::VectorDense;

namespace {

const MPI_Comm world = MPI_COMM_WORLD, self = MPI_COMM_SELF;
constexpr int n = 11; // rows of a distributed block

/// Hashed entries, numbered from row first on; 777 in two padding rows, which stay as they are.
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

/// Norm of some rows of the hashed column j, as a number of the type.
template <typename Scalar>
Scalar HashedNorm(int j, int first = 0, int count = n) {
  double sum = 0.0;
  for (int i = first; i < first + count; ++i)
    sum += std::norm(std::complex<double>(HashedNumber<Scalar>(i, j)));
  return Number<Scalar>(std::sqrt(sum));
}

template <typename Scalar>
struct VectorDenseTest : testing::Test {
  const Rows rows{n, world, Deal::gaps};
};
TYPED_TEST_SUITE(VectorDenseTest, AllScalars);

using Plain = VectorDense<std::complex<double>>;

TEST(VectorDenseGeometry, OwnsWhatItAllocates) {
  Block<std::complex<double>> M(4, 4);
  EXPECT_EQ(M.AllocateMem(), VES_GOOD) << "releases what it had";
  EXPECT_EQ(reinterpret_cast<std::uintptr_t>(M.values) % 64, 0U);
  Plain view(M, 2, 3, 2, 1), twin, huge(world, self, 65536, 32768, 65536); // 2^31 entries
  EXPECT_EQ(twin.DuplicateShape(M), VES_GOOD);
  EXPECT_TRUE(twin.IsDataEmpty() && twin.CompareShape(M) && twin != M);
  EXPECT_EQ(view.FreeMem(), VES_GOOD);
  view(1) = 5.0; // a view frees nothing
  for (int round = 0; round < 2; ++round)
    EXPECT_EQ(M.FreeMem(), VES_GOOD);
  EXPECT_FALSE(M.ownsValues || M.IsDataEmpty());
  EXPECT_THROW(huge.AllocateMem(), std::bad_array_new_length);
  EXPECT_THROW(Plain(world, self, 4, -1, 4).AllocateMem(), std::bad_array_new_length);
  EXPECT_THROW(huge.AllReduce(MPI_SUM, self), std::bad_array_new_length);
  EXPECT_THROW(huge.BroadCast(self), std::bad_array_new_length);
}

TEST(VectorDenseGeometry, ViewsLieInsideTheirParent) {
  constexpr int huge = std::numeric_limits<int>::max();
  const int outside[][4] = {{1, 0, 4, 1},  {0, 3, 1, 2},  {-1, 0, 1, 1}, {0, -1, 1, 1},
                            {0, 0, -1, 1}, {0, 0, 1, -1}, {0, 5, 1, 0},  {1, 1, huge, huge}};
  const Block<std::complex<double>> M(4, 4);
  Plain view, expected(world, self, 3, 2, M.ld);
  expected.SetValues(M.values + 1 + M.ld * 2);
  EXPECT_EQ(view.SubVector(M, 0, 4, 4, 0), VES_GOOD);
  EXPECT_EQ(view.SubVector(M, 1, 2, 3, 2), VES_GOOD);
  for (const auto& [i, j, rows, cols] : outside)
    EXPECT_EQ(view.SubVector(M, i, j, rows, cols), VES_ERR_OUT_OF_RANGE) << i << j << rows << cols;
  EXPECT_TRUE(view == expected);
}

/// Shapes are judged before kinds, each operation has its codes, and nothing is written.
TYPED_TEST(VectorDenseTest, Refusals) {
  using Codes = std::vector<VesReturnCode>;
  Block<TypeParam> X(this->rows, 4), d(4, 1), odd(this->rows, 4), wrong(5, 2);
  VectorDense<TypeParam> bare(world, self, 3, 2, 3), empty, o(world, self, 4, 1, 4);
  odd.storageType = o.storageType = static_cast<VesVectorType>(2);
  EXPECT_EQ((Codes{X.ScaleByVec(wrong), X.CopyData(wrong), d.SetDiag(d), d.GetDiag(wrong)}),
            Codes(4, VES_ERR_INVALID_VALUE));
  EXPECT_EQ(X.ScaleByVec(o), VES_ERR_MISMATCH);
  const Codes kinds{X.CopyData(odd), X.DuplicateShape(odd), X.SubVector(odd, 0, 0, 0, 1),
                    d.Norm(odd)};
  EXPECT_EQ(kinds, Codes(4, VES_ERR_UNSUPPORTED));
  const Codes unfit{X.Norm(X), X.Normalize(wrong), bare.ScaleByVal(d(0)), bare.Set2Random(1)};
  EXPECT_EQ(unfit, Codes(4, VES_ERR_INCOMPATIBLE));
  EXPECT_EQ(X.SubVector(odd, 0, 5, 0, 1), VES_ERR_OUT_OF_RANGE);
  EXPECT_EQ((Codes{empty.ScaleByVal(d(0)), empty.Set2Random(1)}), Codes(2, VES_GOOD));
  X.Expect(0.0, [](int i, int j) { return HashedNumber<TypeParam>(i, j); });
}

TYPED_TEST(VectorDenseTest, FillsAndScalings) {
  Block<TypeParam> X(this->rows, 4), Y(this->rows, 4), d(4, 1), M(4, 4);
  const auto zero = Number<TypeParam>(0.0), alpha = Number<TypeParam>(0.5, -2.0);
  EXPECT_EQ(X.ScaleByVal(alpha), VES_GOOD);
  EXPECT_EQ(X.ScaleByVec(d), VES_GOOD);
  Y.SetLd(this->rows.local + 1); // not that of X
  EXPECT_EQ(Y.CopyData(X), VES_GOOD);
  EXPECT_EQ(X.Set2Val(alpha), VES_GOOD);
  X.Expect(0.0, [&](int, int) { return alpha; });
  EXPECT_EQ(X.CopyData(Y), VES_GOOD);
  X.Expect(10.0, [&](int i, int j) { return d(j) * (alpha * HashedNumber<TypeParam>(i, j)); });
  EXPECT_EQ(M.SetDiag(d), VES_GOOD); // fills with zeros first
  M.Expect(0.0, [&](int i, int j) { return i == j ? d(j) : zero; });
  M(2, 2) = M(0, 1) = alpha;
  EXPECT_EQ(d.GetDiag(M), VES_GOOD);
  d.Expect(0.0, [&](int i, int) { return i == 2 ? alpha : HashedNumber<TypeParam>(i, 0); });
}

/// The numbers are one normal stream over the columns, fixed by the seed and the local shape.
TYPED_TEST(VectorDenseTest, RandomNumbers) {
  Block<TypeParam> x(400, 10), stream(4000, 1);
  EXPECT_EQ(x.Set2Random(4095), VES_GOOD);
  EXPECT_EQ(stream.Set2Random(4095 + 3 * 4096), VES_GOOD);
  double squares = 0.0;
  for (int i = 0; i < 4000; ++i) {
    EXPECT_EQ(stream(i), x(i % 400, i / 400));
    squares += static_cast<double>(std::norm(stream(i))) / 4000;
  }
  EXPECT_NEAR(squares, Ves::isComplex<TypeParam> ? 2.0 : 1.0, 0.09); // four standard deviations
}

TYPED_TEST(VectorDenseTest, NormsAndWholeBlockReductions) {
  const Block<TypeParam> X(this->rows, 4), none(this->rows, 0);
  Block<TypeParam> d(4, 1), norms(0, 1);
  d.SetLd(4); // the padding would be reduced, too
  EXPECT_EQ(d.Norm(X, false), VES_GOOD);
  d.Expect(20.0, [&](int j, int) { return HashedNorm<TypeParam>(j, X.first, X.nRows); });
  EXPECT_EQ(d.Norm(X, true), VES_GOOD);
  d.Expect(20.0, [&](int j, int) { return HashedNorm<TypeParam>(j); });
  // Whole storage is reduced and broadcast, so that processes without columns stay in step.
  EXPECT_EQ(norms.Norm(none, true), VES_GOOD);
  EXPECT_EQ(norms(0), Number<TypeParam>(777.0 * SizeOf(world)));
  norms(1) = Number<TypeParam>(RankIn(world), 1.0);
  EXPECT_EQ(norms.BroadCast(world), VES_GOOD);
  EXPECT_EQ(norms(1), Number<TypeParam>(0.0, 1.0));
}

/// With B X = 4 X both blocks are scaled alike; the block itself in the second place only once.
TYPED_TEST(VectorDenseTest, NormalizePairedAndWithItself) {
  for (const bool paired : {true, false}) {
    Block<TypeParam> X(this->rows, 4), BX(this->rows, 4);
    VectorDense<TypeParam> same(X, 0, 0, X.nRows, 4);
    BX.ScaleByVal(Number<TypeParam>(4.0));
    EXPECT_EQ(X.Normalize(paired ? static_cast<VesVectorBase&>(BX) : same, true), VES_GOOD);
    X.Expect(20.0, [&](int i, int j) {
      return HashedNumber<TypeParam>(i, j) /
             (HashedNorm<TypeParam>(j) * Number<TypeParam>(paired ? 2 : 1));
    });
    BX.Expect(20.0, [&](int i, int j) {
      return HashedNumber<TypeParam>(i, j) *
             (paired ? Number<TypeParam>(2) / HashedNorm<TypeParam>(j) : Number<TypeParam>(4));
    });
  }
}

} // namespace
