// Gram-Schmidt projection against a basis known in closed form: every entry of the projected block
// and of its images is computed from the global rows.
#include "projector/gram_schmidt.h"
#include "support/problem.h"

using namespace VesTest;
using Ves::VectorDense;
using Wide = std::complex<double>;
using Ints = std::vector<int>;

namespace VesTest {
extern int reductions; // counted by the other test file of this program
}

namespace {

constexpr int n = 40, nX = 4, nY = 6;
enum Images { none, ofB, ofBAndA };
const Ints dispX{1, 0, 4, 3}, nXs{2, 1, 0, 1}, dispY{4, 0, 1, 3}, nYs{2, 1, 1, 0};
const VesMatrixEmpty empty;

/// A basis with X^H B X = I, columns of disjoint support, and a block of hashed numbers; each with
/// its images under diagonal operators.
template <typename Scalar>
struct Setting {
  const Rows rows{n, MPI_COMM_WORLD, Deal::gaps};
  const Images images;
  VectorDense<Scalar> X[3], Y[3]; // the block, its B-image, its A-image
  Ves::GramSchmidt<Scalar> projector;

  explicit Setting(Images which) : images(which) {
    for (int t = 0; t < 3; ++t)
      for (auto* block : {&X[t], &Y[t]}) {
        const int k = block == &X[t] ? nX : nY;
        block->SetShape(rows.comm, MPI_COMM_SELF, rows.local, k, rows.local + 2);
        block->AllocateMem();
        for (int j = 0; j < k; ++j)
          for (int i = 0; i < rows.local; ++i) {
            const int row = rows.first + i;
            const Wide v = Factor(t, row) * (k == nX ? Basis(row, j) : Old(row, j));
            (*block)(i, j) = Number<Scalar>(v.real(), v.imag());
          }
      }
  }
  double Factor(int t, int i) const {
    return t == 0 || (t == 1 && images == none) ? 1.0 : (t == 1 ? 1.0 + i % 3 : i % 7 - 3.0);
  }
  Wide Basis(int i, int j) const {
    double square = 0.0;
    for (int k = j; k < n; k += nX)
      square += Factor(1, k);
    return i % nX == j ? (Ves::isComplex<Scalar> ? Wide(0.6, 0.8) : 1.0) / std::sqrt(square) : 0.0;
  }
  static Wide Old(int i, int j) { return HashedNumber<Scalar>(i, j); }

  VesReturnCode Run(bool batch, int passes, double tol) {
    auto &x = X[0], &y = Y[0], &bx = X[images == none ? 0 : 1], &by = Y[images == none ? 0 : 1];
    auto &ax = X[2], &ay = Y[2];
    if (images == ofBAndA && batch)
      return projector.RunBatch(x, bx, ax, y, by, ay, dispX, nXs, dispY, nYs, empty, true, passes,
                                tol);
    if (images == ofBAndA) return projector.Run(x, bx, ax, y, by, ay, empty, true, passes, tol);
    if (!batch) return projector.Run(x, bx, y, by, empty, true, passes, tol);
    return projector.RunBatch(x, bx, y, by, dispX, nXs, dispY, nYs, empty, true, passes, tol);
  }
  /// Column j lost its components along some columns of X; images not handed over stay the old.
  void Expect(int j, int firstX, int width) const {
    for (int i = 0; i < rows.local; ++i) {
      const int row = rows.first + i;
      Wide y = Old(row, j);
      for (int x = firstX; x < firstX + width; ++x)
        for (int k = 0; k < n; ++k)
          y -= Basis(row, x) * std::conj(Factor(1, k) * Basis(k, x)) * Old(k, j);
      for (int t = 0; t < 3; ++t)
        EXPECT_LE(std::abs(Wide(Y[t](i, j)) - Factor(t, row) * (t <= images ? y : Old(row, j))),
                  100 * eps<Scalar>)
            << row << " " << j << " image " << t;
    }
  }
};

template <typename Scalar>
struct GramSchmidtTest : testing::Test {};
TYPED_TEST_SUITE(GramSchmidtTest, AllScalars);

/// One reduction in each pass and one in each measurement between them, however many groups.
TYPED_TEST(GramSchmidtTest, RemovesTheBasisFromBlockAndImages) {
  const struct {
    int passes;
    double threshold;
    int reductions;
  } cases[] = {{0, 0.0, 1}, {1, 0.0, 1}, {3, 0.0, 5}, {-1, 0.0, 3}, {3, 0.5, 2}, {3, 1.0, 0}};
  for (const bool batch : {false, true})
    for (const Images images : {none, ofB, ofBAndA})
      for (const auto& c : cases) {
        SCOPED_TRACE(testing::Message() << batch << images << " " << c.passes << c.threshold);
        Setting<TypeParam> s(images);
        reductions = 0;
        EXPECT_EQ(s.Run(batch, c.passes, c.threshold), VES_GOOD);
        EXPECT_EQ(reductions, c.reductions);
        const bool done = c.threshold < 1.0;
        const int first[nY] = {0, 0, 0, 0, 1, 1}, width[nY] = {1, 0, 0, 0, 2, 2}; // of groups
        for (int j = 0; j < nY; ++j)
          s.Expect(j, batch ? first[j] : 0, !done ? 0 : (batch ? width[j] : nX));
      }
}

TYPED_TEST(GramSchmidtTest, Refusals) {
  using Other = std::conditional_t<std::is_same_v<TypeParam, double>, float, double>;
  using Block = VesVectorBase;
  Setting<TypeParam> s(ofBAndA);
  Setting<Other> o(ofBAndA);
  const Ves::VectorDense<TypeParam> noBasis;
  const auto run = [&](const Block& x, const Block& ax, Block& y, Block& by) {
    const VesReturnCode code = s.projector.Run(x, s.X[1], ax, y, by, s.Y[2], empty, true, 1, 0.0);
    EXPECT_EQ(code, s.projector.RunBatch(x, s.X[1], ax, y, by, s.Y[2], dispX, nXs, dispY, nYs,
                                         empty, true, 1, 0.0));
    return code;
  };
  EXPECT_EQ(run(o.X[0], s.X[2], s.Y[0], s.Y[1]), VES_ERR_MISMATCH);
  EXPECT_EQ(run(s.X[0], o.X[2], s.Y[0], s.Y[1]), VES_ERR_MISMATCH);
  EXPECT_EQ(run(s.X[0], s.X[2], o.Y[0], s.Y[1]), VES_ERR_MISMATCH);
  EXPECT_EQ(run(s.X[0], s.X[2], s.Y[0], o.Y[1]), VES_ERR_MISMATCH);
  EXPECT_EQ(run(noBasis, o.X[2], s.Y[0], o.Y[1]), VES_GOOD) << "nothing to project against";
  for (int j = 0; j < nY; ++j)
    s.Expect(j, 0, 0);
}

} // namespace
