// Cholesky and SVD QR: orthonormality recomputed from the entries, images, ranks, passes, groups.
// B and A are diagonal, so that images can be judged entry by entry; some processes hold no rows.
#include "orthogonalizer/cholesky_qr.h"
#include "orthogonalizer/pass_loop.h"
#include "orthogonalizer/svd_qr.h"
#include "support/problem.h"

using namespace VesTest;
using Ves::VectorDense;
using Wide = std::complex<double>;
using Ints = std::vector<int>;

namespace VesTest {
int reductions = 0; ///< that this process took part in
}

extern "C" int MPI_Allreduce(const void* from, void* to, int count, MPI_Datatype type, MPI_Op op,
                             MPI_Comm comm) {
  ++reductions;
  return PMPI_Allreduce(from, to, count, type, op, comm);
}

namespace {

const MPI_Comm world = MPI_COMM_WORLD;
const double nan = std::numeric_limits<double>::quiet_NaN();
enum Images { none, ofB, ofBAndA };

/// A block X with its images B X and A X, and X as it was.
template <typename Scalar>
struct Blocks {
  static constexpr int n = 64;
  const Rows rows{n, world, Deal::gaps};
  VectorDense<Scalar> X, BX, AX, old;

  template <typename Entry>
  Blocks(int k, Entry entry) {
    for (auto* block : {&X, &BX, &AX, &old}) {
      block->SetShape(world, MPI_COMM_SELF, rows.local, k, rows.local + 2);
      block->AllocateMem();
    }
    for (int j = 0; j < k; ++j)
      for (int i = 0; i < rows.local; ++i) {
        X(i, j) = old(i, j) = entry(rows.first + i, j);
        BX(i, j) = Number<Scalar>(B(i)) * X(i, j);
        AX(i, j) = Number<Scalar>(A(i)) * X(i, j);
      }
  }
  double B(int i) const { return 1.0 + 0.5 * ((rows.first + i) % 5); }
  double A(int i) const { return (rows.first + i) % 7 - 3.0; }

  VesReturnCode Run(Ves::VesOrthogonalizer& by, Images images, int& rank, int passes,
                    double threshold) {
    reductions = 0;
    if (images == ofBAndA)
      return by.Run(X, BX, AX, VesMatrixEmpty(), rank, true, passes, threshold);
    return by.Run(X, images == none ? X : BX, VesMatrixEmpty(), rank, true, passes, threshold);
  }
  VesReturnCode RunBatch(Ves::VesOrthogonalizer& by, Images images, const Ints& disp, Ints& widths,
                         int passes, double threshold) {
    reductions = 0;
    const VesMatrixEmpty empty;
    if (images == ofBAndA)
      return by.RunBatch(X, BX, AX, disp, widths, empty, true, passes, threshold);
    return by.RunBatch(X, images == none ? X : BX, disp, widths, empty, true, passes, threshold);
  }

  /// x^H B y of column i of X and column j of Y.
  Wide Dot(int i, const VectorDense<Scalar>& Y, int j, bool useB) const {
    Wide sum = 0.0;
    for (int r = 0; r < rows.local; ++r)
      sum += std::conj(Wide(X(r, i))) * Wide(Y(r, j)) * (useB ? B(r) : 1.0);
    PMPI_Allreduce(MPI_IN_PLACE, &sum, 2, MPI_DOUBLE, MPI_SUM, world);
    return sum;
  }
  /// Columns first to first + rank - 1 are orthonormal.
  void ExpectOrthonormal(int first, int rank, bool useB) const {
    for (int i = first; i < first + rank; ++i)
      for (int j = first; j < first + rank; ++j)
        EXPECT_LE(std::abs(Dot(i, X, j, useB) - (i == j ? 1.0 : 0.0)), 100 * eps<Scalar>)
            << i << " " << j;
  }
  /// The old columns are combinations of the new ones: of the leading ones when triangular.
  void ExpectSameSpan(int first, int width, bool useB, bool triangular) const {
    for (int j = first; j < first + width; ++j) {
      std::vector<Wide> rest(old.values + j * old.ld, old.values + j * old.ld + rows.local);
      for (int i = first; i <= (triangular ? j : first + width - 1); ++i) {
        const Wide c = Dot(i, old, j, useB);
        for (int r = 0; r < rows.local; ++r)
          rest.data()[r] -= c * Wide(X(r, i));
      }
      for (const Wide& entry : rest)
        EXPECT_LE(std::abs(entry), 100 * eps<Scalar>) << j;
    }
  }
  void ExpectImages(Images images) const {
    for (int j = 0; j < X.nCols; ++j)
      for (int i = 0; i < rows.local; ++i) {
        const Wide x = images >= ofB ? X(i, j) : old(i, j),
                   y = images == ofBAndA ? X(i, j) : old(i, j);
        EXPECT_LE(std::abs(Wide(BX(i, j)) - B(i) * x), 200 * eps<Scalar>);
        EXPECT_LE(std::abs(Wide(AX(i, j)) - A(i) * y), 200 * eps<Scalar>);
      }
  }
  /// Bit for bit, also NaN.
  void ExpectUntouched(int first, int end) const {
    for (int j = first; j < end; ++j)
      for (int i = 0; i < rows.local; ++i)
        EXPECT_TRUE(X(i, j) == old(i, j) || !Ves::IsFinite(old(i, j))) << i << " " << j;
  }
};

template <typename Scalar>
struct OrthogonalizerTest : testing::Test {
  Ves::CholeskyQR<Scalar> cholesky;
  Ves::SvdQR<Scalar> svd;
  std::vector<Ves::VesOrthogonalizer*> both{&cholesky, &svd};
  int rank = -7;

  static Scalar Random(int i, int j) { return HashedNumber<Scalar>(i, j); }
  /// Columns of disjoint support and norm 4, so that their Gram matrix is exact; turned for
  /// complex types.
  static Scalar Comb(int i, int j) {
    return i % 4 == j ? (Ves::isComplex<Scalar> ? Number<Scalar>(0.0, 1.0) : Number<Scalar>(1.0))
                      : Number<Scalar>(0.0);
  }
};
TYPED_TEST_SUITE(OrthogonalizerTest, AllScalars);

TYPED_TEST(OrthogonalizerTest, PassesAndImages) {
  const struct {
    int passes;
    double threshold;
    int reductions; // one in each pass and one in each measurement between
  } cases[] = {{0, 0.0, 1}, {1, 0.0, 1}, {3, 0.0, 5}, {-1, 0.0, 3}, {3, 0.5, 2}, {3, 1.0, 0}};
  for (auto* by : this->both)
    for (const Images images : {none, ofB, ofBAndA})
      for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << "svd " << (by == &this->svd) << " images " << images
                                        << " passes " << c.passes << " " << c.threshold);
        Blocks<TypeParam> b(5, this->Random);
        this->rank = -7;
        EXPECT_EQ(b.Run(*by, images, this->rank, c.passes, c.threshold), VES_GOOD);
        EXPECT_EQ(reductions, c.reductions);
        EXPECT_EQ(this->rank, c.threshold < 1.0 ? 5 : -7);
        b.ExpectImages(images);
        if (c.threshold >= 1.0) {
          b.ExpectUntouched(0, 5);
          continue;
        }
        b.ExpectOrthonormal(0, 5, images != none);
        b.ExpectSameSpan(0, 5, images != none, by == &this->cholesky);
      }
}

/// Nearly parallel columns: one pass does not suffice, the default number does.
TYPED_TEST(OrthogonalizerTest, SecondPassRestoresOrthogonality) {
  const auto tilt = Number<TypeParam>(std::pow(eps<TypeParam>, 0.375));
  for (auto* by : this->both)
    for (const int passes : {1, -1}) {
      Blocks<TypeParam> b(
          3, [&](int i, int j) { return this->Random(i, 0) + tilt * this->Random(i, j); });
      EXPECT_EQ(b.Run(*by, none, this->rank, passes, -1.0), VES_GOOD);
      if (passes < 0)
        b.ExpectOrthonormal(0, 3, false);
      else
        EXPECT_GT(std::abs(b.Dot(1, b.X, 2, false)), 1000 * eps<TypeParam>);
    }
}

TYPED_TEST(OrthogonalizerTest, DependentColumns) {
  const struct {
    const char* why;
    bool svd;
    double factor0, factor2; // column 2 = factor0 column 0 + factor2 column 2
    VesReturnCode code;
    int rank;
  } cases[] = {{"twice another", false, 2.0, 0.0, VES_GOOD, 2},
               {"zero", false, 0.0, 0.0, VES_GOOD, 2},
               {"not a number", false, 0.0, nan, VES_GOOD, 2},
               {"zero", true, 0.0, 0.0, VES_GOOD, 3},
               {"small, but nothing is relative", true, 0.0, 1e-10, VES_GOOD, 4},
               {"not a number", true, 0.0, nan, VES_ERR_INCOMPATIBLE, 0}};
  for (const auto& c : cases)
    for (const int passes : {1, 3}) {
      SCOPED_TRACE(testing::Message() << c.why << " svd " << c.svd);
      Blocks<TypeParam> b(4, [&](int i, int j) {
        return j == 2 ? Number<TypeParam>(c.factor0) * this->Comb(i, 0) +
                            Number<TypeParam>(c.factor2) * this->Comb(i, 2)
                      : this->Comb(i, j);
      });
      EXPECT_EQ(b.Run(*this->both[c.svd ? 1 : 0], none, this->rank, passes, -1.0), c.code);
      EXPECT_EQ(this->rank, c.rank);
      b.ExpectOrthonormal(0, c.rank, false);
      b.ExpectUntouched(c.rank, 4);
    }
}

/// Groups apart from each other, one empty, one that loses a column and one that loses all.
TYPED_TEST(OrthogonalizerTest, GroupsInOneReduction) {
  const Ints disp{5, 0, 3, 9}, widths{3, 2, 0, 2};
  for (auto* by : this->both)
    for (const Images images : {none, ofB, ofBAndA})
      for (const auto& [threshold, expected] :
           {std::pair{0.0, 5}, std::pair{0.5, 2}, std::pair{1.0, 0}}) {
        SCOPED_TRACE(testing::Message() << "svd " << (by == &this->svd) << " images " << images);
        Blocks<TypeParam> b(11, [&](int i, int j) {
          return j == 7             ? Number<TypeParam>(0.0)
                 : j == 9           ? Number<TypeParam>(nan)
                 : j == 5 || j == 6 ? this->Comb(i, j - 5)
                                    : this->Random(i, j);
        });
        Ints ranks = widths;
        EXPECT_EQ(b.RunBatch(*by, images, disp, ranks, 3, threshold), VES_GOOD);
        EXPECT_EQ(reductions, expected) << "however many groups there are";
        EXPECT_EQ(ranks, threshold < 1.0 ? (Ints{2, 2, 0, 0}) : widths);
        b.ExpectUntouched(2, 5);
        b.ExpectUntouched(7, 11);
        if (threshold >= 1.0) continue;
        b.ExpectOrthonormal(5, 2, images != none);
        b.ExpectOrthonormal(0, 2, images != none);
        b.ExpectSameSpan(0, 2, images != none, by == &this->cholesky);
      }
}

TYPED_TEST(OrthogonalizerTest, Refusals) {
  using Other = std::conditional_t<std::is_same_v<TypeParam, double>, float, double>;
  Blocks<TypeParam> b(2, this->Random), odd(2, this->Random), empty(0, this->Random);
  Blocks<Other> other(2, [](int i, int j) { return HashedNumber<Other>(i, j); });
  odd.X.storageType = static_cast<VesVectorType>(2);
  const VesMatrixEmpty B;
  Ints disp{0}, widths{2};
  for (auto* by : this->both) {
    const auto run = [&](VesVectorBase& X, VesVectorBase& BX, VesVectorBase& AX) {
      const VesReturnCode batch = by->RunBatch(X, BX, AX, disp, widths, B, true, 1, -1.0);
      const VesReturnCode code = by->Run(X, BX, AX, B, this->rank, true, 1, -1.0);
      return code == batch ? code : VES_ERR_OUT_OF_RANGE;
    };
    EXPECT_EQ(run(other.X, b.BX, b.AX), VES_ERR_MISMATCH);
    EXPECT_EQ(run(b.X, other.X, b.AX), VES_ERR_MISMATCH);
    EXPECT_EQ(run(b.X, b.BX, odd.X), VES_ERR_MISMATCH);
    EXPECT_EQ(run(odd.X, b.BX, b.AX), VES_ERR_MISMATCH);
    EXPECT_EQ(run(empty.X, other.X, odd.X), VES_GOOD) << "no columns, no questions";
  }
  EXPECT_EQ(this->rank, -7);
  EXPECT_EQ(widths, Ints{2});
  b.ExpectUntouched(0, 2);
}

TEST(PassLoop, EmptyGroupsHaveNoError) {
  EXPECT_EQ(Ves::LargestError({0.5, nan, 0.75}, {1, 0, 2}), 0.75);
  EXPECT_EQ(Ves::LargestError({nan, 0.5}, {0, 3}), 0.5);
  EXPECT_EQ(Ves::LargestError({nan}, {0}), 0.0);
}

} // namespace
