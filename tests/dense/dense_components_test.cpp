// Cholesky factors and eigenpairs of matrices known in closed form, by LAPACK and on process grids.
#include "cholesky/scalapack_chol.h"
#include "eigensolver/scalapack_diag.h"
#include "eigensolver/workspace_size.h"
#include "support/block.h"

#include <tuple>

using namespace VesTest;

namespace {

/// The upper triangle of H diag(lowest, lowest + 1, ...) H with a reflection H = I - 2 v v^H.
template <typename Scalar>
struct Problem {
  int n, info = -77;
  double lowest;
  Block<Scalar> M, D;

  Problem(int order, double lowestValue, MPI_Comm comm = world, MPI_Comm aux = self)
      : n(order), lowest(lowestValue),
        M(n, n,
          [this](int i, int j) {
            return i > j ? Number<Scalar>(777) : Number<Scalar>(Entry(i, j));
          }),
        D(n, 1, [](int, int) { return Number<Scalar>(777); }) {
    for (auto* block : {&M, &D}) {
      block->comm = comm;
      block->auxComm = aux;
    }
  }
  Wide vv(int i, int j) const { // entry of v v^H
    return std::polar(1.0 / n, Ves::isComplex<Scalar> ? 1.7 * (i * i % 11 - j * j % 11) : 0.0);
  }
  Wide Entry(int i, int j) const {
    return (i == j ? lowest + i : 0.0) + vv(i, j) * 2.0 * (n - 1.0 - i - j);
  }

  /// Values, and vectors up to their phases; the replicas must not differ by one bit.
  void Diagonalize(Ves::VesDenseEigenSolver& solver) {
    EXPECT_EQ(solver.RunEvd(M, D, info), VES_GOOD);
    EXPECT_EQ(info, 0);
    double square = 0.0;
    for (int j = 0; j < n; ++j) {
      const auto vector = [&](int i) { return (i == j ? 1.0 : 0.0) - 2.0 * vv(i, j); };
      Wide phase = 0.0;
      for (int i = 0; i < n; ++i)
        phase += std::conj(vector(i)) * Wide(M(i, j));
      for (int i = 0; i < n; ++i)
        square += std::norm(Wide(M(i, j)) - phase / std::abs(phase) * vector(i));
      square += std::norm(Wide(D(j)) - lowest - 1.0 * j);
    }
    EXPECT_LE(std::sqrt(square), 50 * n * eps<Scalar>);
    ExpectSameOnAll(M);
    ExpectSameOnAll(D);
  }
  /// R^H R u = M u on the leading block of an order up to which there is a factor.
  void Factorize(Ves::VesCholeskyFactorizer& factorizer, int order) {
    EXPECT_EQ(factorizer.RunChol(M, info, 'U'), VES_GOOD);
    EXPECT_EQ(info, order < n ? order + 1 : 0);
    double square = 0.0;
    std::vector<Wide> Ru(static_cast<std::size_t>(n));
    for (int j = 0; j < order; ++j)
      for (int i = 0; i <= j; ++i)
        Ru.data()[i] += Wide(M(i, j)) * (1.0 + j % 3);
    for (int j = 0; j < order; ++j) {
      Wide difference = 0.0;
      for (int i = 0; i < order; ++i)
        difference +=
            (i <= j ? std::conj(Wide(M(i, j))) * Ru.data()[i] : 0.0) - Entry(j, i) * (1.0 + i % 3);
      square += std::norm(difference);
    }
    EXPECT_LE(std::sqrt(square), 50 * n * eps<Scalar>);
    if (order == n) ExpectSameOnAll(M);
  }
  static void ExpectSameOnAll(const Block<Scalar>& block) {
    EXPECT_TRUE(IsSameOver(
        block.comm, std::vector<Scalar>(block.values, block.values + block.ld * block.nCols)));
  }
};

template <typename Scalar>
struct DenseTest : testing::Test {
  Ves::LapackDiag<Scalar> diag;
  Ves::ScaLapackDiag<Scalar> gridDiag;
  Ves::LapackChol<Scalar> chol;
  Ves::ScaLapackChol<Scalar> gridChol;
  std::vector<Ves::VesDenseEigenSolver*> eigensolvers{&diag, &gridDiag};
  std::vector<Ves::VesCholeskyFactorizer*> factorizers{&chol, &gridChol};
};
TYPED_TEST_SUITE(DenseTest, AllScalars);

TYPED_TEST(DenseTest, KnownMatricesOnBothSidesOfTheSwitch) {
  for (const int n : {1, 5, 299, 300}) {
    SCOPED_TRACE(n);
    for (auto* solver : this->eigensolvers)
      Problem<TypeParam>(n, -2.5).Diagonalize(*solver);
    for (auto* factorizer : this->factorizers)
      Problem<TypeParam>(n, 1.0).Factorize(*factorizer, n);
    EXPECT_EQ(this->gridDiag.blacs->gridReady, n >= 300);
    EXPECT_EQ(this->gridChol.blacs->gridReady, n >= 300);
  }
}

/// Without a threshold an empty matrix must not reach the grid, which deals out at least a row.
TYPED_TEST(DenseTest, EmptyMatrices) {
  Problem<TypeParam> p(0, 1.0);
  this->gridDiag.threshold = this->gridChol.threshold = 0;
  p.Diagonalize(this->gridDiag);
  p.Factorize(this->gridChol, 0);
}

/// Every process solves a problem of its own; the second communicator then spreads the first's.
TYPED_TEST(DenseTest, SecondCommunicatorRepeatsTheResult) {
  const auto mine = Number<TypeParam>(RankIn(world) == 0 ? 1.0 : -1.0);
  for (const int n : {5, 300}) {
    Problem<TypeParam> p(n, 1.0, self, world), q(n, 1.0, self, world);
    p.M.ScaleByVal(mine);
    p.Diagonalize(this->gridDiag);
    q.M.ScaleByVal(mine);
    q.Factorize(this->gridChol, n); // elsewhere the failure of another matrix
  }
}

/// A leading block keeps its factor. The eigensolvers leave a matrix that is not finite alone.
TYPED_TEST(DenseTest, IndefiniteAndNonFiniteMatrices) {
  const std::tuple<int, int, int, double> cases[] = {
      {5, 2, 2, -1.0},          {300, 150, 150, -1.0},  {5, 0, 0, notANumber},
      {5, 1, 3, notANumber},    {5, 4, 4, notANumber},  {5, 1, 2, infinite},
      {300, 7, 200, -infinite}, {300, 0, 0, notANumber}};
  for (const auto& [n, row, col, value] : cases)
    for (const std::size_t kind : {0U, 1U}) {
      SCOPED_TRACE(testing::Message() << kind << " " << n << " " << col << " " << value);
      Problem<TypeParam> p(n, 1.0), q(n, 1.0);
      p.M(row, col) = q.M(row, col) = Number<TypeParam>(value);
      p.Factorize(*this->factorizers[kind], col);
      if (std::isfinite(value)) continue;
      const std::vector<TypeParam> old(q.M.values, q.M.values + q.M.ld * n);
      EXPECT_EQ(this->eigensolvers[kind]->RunEvd(q.M, q.D, q.info), VES_GOOD);
      EXPECT_EQ(q.info, 1);
      EXPECT_EQ(std::memcmp(old.data(), q.M.values, old.size() * sizeof(TypeParam)), 0);
      EXPECT_EQ(q.D(n - 1), Number<TypeParam>(777));
    }
}

/// Shapes are judged before kinds.
TYPED_TEST(DenseTest, Refusals) {
  Problem<TypeParam> p(5, 1.0), q(6, 1.0);
  p.D.storageType = q.M.storageType = static_cast<VesVectorType>(2);
  for (const std::size_t kind : {0U, 1U}) {
    EXPECT_EQ(this->factorizers[kind]->RunChol(p.D, p.info, 'U'), VES_ERR_INVALID_VALUE);
    EXPECT_EQ(this->factorizers[kind]->RunChol(q.M, p.info, 'U'), VES_ERR_MISMATCH);
    EXPECT_EQ(this->eigensolvers[kind]->RunEvd(p.D, p.D, p.info), VES_ERR_INCOMPATIBLE);
    EXPECT_EQ(this->eigensolvers[kind]->RunEvd(q.M, p.D, p.info), VES_ERR_INCOMPATIBLE);
    EXPECT_EQ(this->eigensolvers[kind]->RunEvd(q.M, q.D, p.info), VES_ERR_MISMATCH);
    EXPECT_EQ(this->eigensolvers[kind]->RunEvd(p.M, p.D, p.info), VES_ERR_MISMATCH);
  }
}

/// Sizes that a float cannot hold come back rounded, perhaps down.
TEST(WorkspaceSizes, AreNeverBelowTheNeed) {
  for (const int n : {1, 100, 2894, 2895, 2897, 4001, 16384}) {
    const auto need = static_cast<std::size_t>(1 + 6 * n + 2 * n * n);
    EXPECT_GE(Ves::WorkspaceSize(static_cast<float>(need)), need) << n;
    EXPECT_EQ(Ves::WorkspaceSize(static_cast<double>(need)), need);
  }
  EXPECT_EQ(Ves::WorkspaceSize(100.0F), 100U);
  EXPECT_EQ(Ves::WorkspaceSize(7, 9), 9U);
}

} // namespace
