// Cholesky factors and eigenpairs of matrices known in closed form, by LAPACK and on process grids.
#include "cholesky/scalapack_chol.h"
#include "eigensolver/lapack_lowest_diag.h"
#include "eigensolver/workspace_size.h"
#include "support/block.h"
#include "support/dense_kinds.h"

#include <numeric>
#include <tuple>

using namespace VesTest;

namespace {

/// The upper triangle of H diag(d) H with a reflection H = I - 2 v v^H; d = lowest, lowest + 1, ...
/// if not changed before the next Fill.
template <typename Scalar>
struct Problem {
  int n, info = -77;
  std::vector<double> d;
  double mean = 0.0; ///< of d
  Block<Scalar> M, D;

  Problem(int order, double lowest, MPI_Comm comm = world, MPI_Comm aux = self)
      : n(order), d(static_cast<std::size_t>(n)),
        M(n, n, [](int, int) { return Number<Scalar>(777); }),
        D(n, 1, [](int, int) { return Number<Scalar>(777); }) {
    for (auto* block : {&M, &D}) {
      block->comm = comm;
      block->auxComm = aux;
    }
    std::iota(d.begin(), d.end(), lowest);
    Fill();
  }
  void Fill() {
    mean = std::accumulate(d.begin(), d.end(), 0.0) / n;
    for (int j = 0; j < n; ++j)
      for (int i = 0; i <= j; ++i)
        M(i, j) = Number<Scalar>(Entry(i, j));
  }
  Wide vv(int i, int j) const { // entry of v v^H
    return std::polar(1.0 / n, Ves::isComplex<Scalar> ? 1.7 * (i * i % 11 - j * j % 11) : 0.0);
  }
  Wide Entry(int i, int j) const {
    const double sum = d.data()[i] + d.data()[j];
    return (i == j ? d.data()[i] : 0.0) + vv(i, j) * (4.0 * mean - 2.0 * sum);
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
      square += std::norm(Wide(D(j)) - d.data()[j]);
    }
    EXPECT_LE(std::sqrt(square), 50 * n * eps<Scalar>);
    ExpectSameOnAll(M);
    ExpectSameOnAll(D);
  }
  /// All values, and that vectors beyond those asked for come where values are equal.
  void FindLowest(Ves::VesDenseEigenSolver& solver, int nAsked, int nAtLeast) {
    int found = nAsked;
    EXPECT_EQ(solver.RunLowestEvd(M, D, found, info), VES_GOOD);
    EXPECT_EQ(info, 0);
    EXPECT_GE(found, nAtLeast);
    double square = 0.0;
    for (int j = 0; j < found; ++j) { // the residual has the norm of (diag(d) - lambda) H x
      Wide alongV = 0.0;
      for (int i = 0; i < n; ++i)
        alongV += vv(0, i) * Wide(M(i, j)) * (1.0 * n);
      for (int i = 0; i < n; ++i)
        square +=
            std::norm((d.data()[i] - d.data()[j]) * (Wide(M(i, j)) - 2.0 * vv(i, 0) * alongV));
    }
    for (int j = 0; j < n; ++j)
      square += std::norm(Wide(D(j)) - d.data()[j]);
    for (int j = 0; j < found; ++j)
      for (int i = 0; i <= j; ++i) {
        Wide product = i == j ? -1.0 : 0.0;
        for (int l = 0; l < n; ++l)
          product += std::conj(Wide(M(l, i))) * Wide(M(l, j));
        square += std::norm(product);
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
  Ves::LapackLowestDiag<Scalar> lowestDiag;
  Ves::ScaLapackDiag<Scalar> gridDiag;
  Ves::LapackChol<Scalar> chol;
  Ves::ScaLapackChol<Scalar> gridChol;
  std::vector<Ves::VesDenseEigenSolver*> eigensolvers{&diag, &lowestDiag, &gridDiag};
  std::vector<Ves::VesCholeskyFactorizer*> factorizers{&chol, &gridChol};
#ifdef VES_HAS_ELPA
  Ves::ElpaDiag<Scalar> elpaDiag{VES_ELPA_DIAG}, twoStageDiag{VES_ELPA_TWO_STAGE_DIAG};
  DenseTest() {
    eigensolvers.insert(eigensolvers.end(), {&elpaDiag, &twoStageDiag});
  }
#endif
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

/// Of order 30, which a grid of nine processes deals out to all of them.
TYPED_TEST(DenseTest, SameMatricesGiveTheSameBits) {
  this->gridDiag.threshold = 0;
  for (auto* solver : this->eigensolvers) {
    Problem<TypeParam> first(30, 1.0);
    first.Diagonalize(*solver);
    for (int repetition = 0; repetition < 3; ++repetition) {
      Problem<TypeParam> again(30, 1.0);
      again.Diagonalize(*solver);
      EXPECT_TRUE(std::equal(first.M.values, first.M.values + 30 * 30, again.M.values));
      EXPECT_TRUE(std::equal(first.D.values, first.D.values + 30, again.D.values));
    }
  }
}

/// Without a threshold an empty matrix must not reach the grid, which deals out at least a row.
TYPED_TEST(DenseTest, EmptyMatrices) {
  Problem<TypeParam> p(0, 1.0);
  this->gridDiag.threshold = this->gridChol.threshold = 0;
  p.Diagonalize(this->gridDiag);
  p.Factorize(this->gridChol, 0);
}

/// On grids of several shapes, and where equal values stand on both sides of the cut.
TYPED_TEST(DenseTest, LowestVectors) {
  for (auto* solver : this->eigensolvers) {
    DistributeFrom<TypeParam>(*solver, 1);
    for (const int n : {1, 2, 33, 130})
      for (const int nAsked : {1, n / 3 + 1}) {
        SCOPED_TRACE(testing::Message() << n << " " << nAsked);
        Problem<TypeParam>(n, -2.5).FindLowest(*solver, nAsked, nAsked);
        Problem<TypeParam> equal(n, -2.5);
        std::fill(equal.d.begin() + nAsked / 2, equal.d.begin() + std::min(nAsked + 3, n),
                  equal.d.data()[nAsked / 2]);
        equal.Fill();
        equal.FindLowest(*solver, nAsked, std::min(nAsked + 3, n));
      }
  }
}

/// Every process solves a problem of its own; the second communicator then spreads the first's.
TYPED_TEST(DenseTest, SecondCommunicatorRepeatsTheResult) {
  const auto mine = Number<TypeParam>(RankIn(world) == 0 ? 1.0 : -1.0);
  for (const int n : {5, 300}) {
    Problem<TypeParam> p(n, 1.0, self, world), q(n, 1.0, self, world);
    for (auto* solver : this->eigensolvers) {
      p.Fill();
      p.M.ScaleByVal(mine);
      p.Diagonalize(*solver);
    }
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
  for (const auto& [n, row, col, value] : cases) {
    SCOPED_TRACE(testing::Message() << n << " " << col << " " << value);
    const auto fault = Number<TypeParam>(value);
    for (auto* factorizer : this->factorizers) {
      Problem<TypeParam> p(n, 1.0);
      p.M(row, col) = fault;
      p.Factorize(*factorizer, col);
    }
    for (auto* solver : this->eigensolvers) {
      if (std::isfinite(value)) continue;
      Problem<TypeParam> q(n, 1.0);
      q.M(row, col) = fault;
      const std::vector<TypeParam> old(q.M.values, q.M.values + q.M.ld * n);
      EXPECT_EQ(solver->RunEvd(q.M, q.D, q.info), VES_GOOD);
      EXPECT_EQ(q.info, 1);
      EXPECT_EQ(std::memcmp(old.data(), q.M.values, old.size() * sizeof(TypeParam)), 0);
      EXPECT_EQ(q.D(n - 1), Number<TypeParam>(777));
    }
  }
}

/// Shapes are judged before kinds.
TYPED_TEST(DenseTest, Refusals) {
  Problem<TypeParam> p(5, 1.0), q(6, 1.0);
  p.D.storageType = q.M.storageType = static_cast<VesVectorType>(2);
  for (auto* factorizer : this->factorizers) {
    EXPECT_EQ(factorizer->RunChol(p.D, p.info, 'U'), VES_ERR_INVALID_VALUE);
    EXPECT_EQ(factorizer->RunChol(q.M, p.info, 'U'), VES_ERR_MISMATCH);
  }
  for (auto* solver : this->eigensolvers) {
    EXPECT_EQ(solver->RunEvd(p.D, p.D, p.info), VES_ERR_INCOMPATIBLE);
    EXPECT_EQ(solver->RunEvd(q.M, p.D, p.info), VES_ERR_INCOMPATIBLE);
    EXPECT_EQ(solver->RunEvd(q.M, q.D, p.info), VES_ERR_MISMATCH);
    EXPECT_EQ(solver->RunEvd(p.M, p.D, p.info), VES_ERR_MISMATCH);
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
