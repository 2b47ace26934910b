// Cholesky factors and eigenpairs of matrices known in closed form, by LAPACK and on process grids.
#include "cholesky/scalapack_chol.h"
#include "eigensolver/scalapack_diag.h"
#include "eigensolver/workspace_size.h"
#include "support/scalars.h"

#include <cstring>

using namespace VesTest;
using Ves::VectorDense;
using Wide = std::complex<double>;

namespace {

const MPI_Comm world = MPI_COMM_WORLD, self = MPI_COMM_SELF;
const double nan = std::numeric_limits<double>::quiet_NaN();

/// M = H diag(lowest, lowest + 1, ...) H with a reflection H = I - 2 v v^H, in the upper triangle
/// only: what lies below must not be read.
template <typename Scalar>
struct Problem {
  int n;
  double lowest, weight = 0.0;
  std::vector<Wide> v;
  VectorDense<Scalar> M, D;

  Problem(int order, double lowestValue, MPI_Comm comm = world, MPI_Comm aux = self)
      : n(order), lowest(lowestValue), M(comm, aux, n, n, n + 3), D(comm, aux, n, 1, n) {
    double square = 0.0;
    for (int i = 0; i < n; ++i) {
      v.emplace_back(HashedNumber<Scalar>(i, 0));
      square += std::norm(v.back());
      weight += Value(i) * std::norm(v.back());
    }
    for (Wide& vi : v)
      vi /= std::sqrt(square);
    weight /= square;
    M.AllocateMem();
    D.AllocateMem();
    for (int j = 0; j < n; ++j) {
      D(j) = Number<Scalar>(777);
      for (int i = 0; i < M.ld; ++i)
        M(i, j) =
            i > j ? Number<Scalar>(777) : Number<Scalar>(Entry(i, j).real(), Entry(i, j).imag());
    }
  }
  double Value(int j) const { return lowest + j; }
  Wide Entry(int i, int j) const {
    const Wide vv = v.data()[i] * std::conj(v.data()[j]);
    return vv * (4.0 * weight - 2.0 * Value(i) - 2.0 * Value(j)) + (i == j ? Value(i) : 0.0);
  }

  void ExpectEigenpairs() const {
    double worst = 0.0; // of the values, and of the vectors up to their phases
    for (int j = 0; j < n; ++j) {
      worst = std::max(worst, std::abs(Wide(D(j)) - Value(j)));
      const auto vector = [&](int i) {
        return (i == j ? 1.0 : 0.0) - 2.0 * v.data()[i] * std::conj(v.data()[j]);
      };
      Wide phase = 0.0;
      for (int i = 0; i < n; ++i)
        phase += std::conj(vector(i)) * Wide(M(i, j));
      worst = std::max(worst, std::abs(std::abs(phase) - 1.0));
      for (int i = 0; i < n; ++i)
        worst = std::max(worst, std::abs(Wide(M(i, j)) - phase * vector(i)));
    }
    EXPECT_LE(worst, 20 * n * eps<Scalar>);
  }
  /// R^H R u = M u on the leading block of some order.
  void ExpectFactor(int order) const {
    double worst = 0.0;
    std::vector<Wide> Ru(static_cast<std::size_t>(n));
    const auto u = [](int j) { return Hashed(static_cast<unsigned>(j), 9); };
    for (int i = 0; i < order; ++i)
      for (int j = i; j < order; ++j)
        Ru.data()[i] += Wide(M(i, j)) * u(j);
    for (int j = 0; j < order; ++j) {
      Wide difference = 0.0;
      for (int i = 0; i < order; ++i)
        difference += (i <= j ? Wide(Conj(M(i, j))) * Ru.data()[i] : 0.0) - Entry(j, i) * u(i);
      worst = std::max(worst, std::abs(difference));
    }
    EXPECT_LE(worst, 20 * n * eps<Scalar>);
  }
};

/// Replicas must not drift apart: not one bit may differ.
template <typename Scalar>
void ExpectSameOnAll(const VectorDense<Scalar>& block, MPI_Comm comm) {
  std::vector<Scalar> first(block.values, block.values + block.ld * block.nCols);
  const std::size_t bytes = first.size() * sizeof(Scalar);
  MPI_Bcast(first.data(), static_cast<int>(bytes), MPI_BYTE, 0, comm);
  EXPECT_EQ(std::memcmp(first.data(), block.values, bytes), 0);
}

template <typename Scalar>
struct DenseTest : testing::Test {
  Ves::LapackDiag<Scalar> diag;
  Ves::ScaLapackDiag<Scalar> gridDiag;
  Ves::LapackChol<Scalar> chol;
  Ves::ScaLapackChol<Scalar> gridChol;
  std::vector<Ves::VesDenseEigenSolver*> eigensolvers{&diag, &gridDiag};
  std::vector<Ves::VesCholeskyFactorizer*> factorizers{&chol, &gridChol};
  int info = -77;

  void Diagonalize(Ves::VesDenseEigenSolver& solver, int n, MPI_Comm comm) {
    Problem<Scalar> p(n, -2.5, comm);
    EXPECT_EQ(solver.RunEvd(p.M, p.D, info), VES_GOOD);
    EXPECT_EQ(info, 0);
    p.ExpectEigenpairs();
    ExpectSameOnAll(p.M, comm);
    ExpectSameOnAll(p.D, comm);
  }
};
TYPED_TEST_SUITE(DenseTest, AllScalars);

TYPED_TEST(DenseTest, KnownMatricesOnBothSidesOfTheSwitch) {
  for (const int n : {1, 5, 299, 300}) {
    SCOPED_TRACE(n);
    for (auto* solver : this->eigensolvers)
      this->Diagonalize(*solver, n, world);
    for (auto* factorizer : this->factorizers) {
      Problem<TypeParam> p(n, 1.0);
      EXPECT_EQ(factorizer->RunChol(p.M, this->info, 'U'), VES_GOOD);
      EXPECT_EQ(this->info, 0);
      p.ExpectFactor(n);
      ExpectSameOnAll(p.M, world);
    }
    EXPECT_EQ(this->gridDiag.blacs->gridReady, n >= 300);
    EXPECT_EQ(this->gridChol.blacs->gridReady, n >= 300);
  }
}

/// The solver object outlives the communicators it worked on; processes outside wait meanwhile.
TYPED_TEST(DenseTest, PartsOfTheJobOneAfterTheOther) {
  for (int part = 0; part < 3; ++part) {
    const bool inside = part == 1 || RankIn(world) > 0 || SizeOf(world) == 1;
    MPI_Comm comm = MPI_COMM_NULL;
    MPI_Comm_split(world, inside ? 1 : 0, 0, &comm);
    if (inside) this->Diagonalize(this->gridDiag, 300, comm);
    MPI_Barrier(world);
    MPI_Comm_free(&comm);
  }
}

/// Every process solves a problem of its own; the second communicator then spreads the first's.
TYPED_TEST(DenseTest, SecondCommunicatorRepeatsTheResult) {
  const int rank = RankIn(world);
  for (const int n : {5, 300}) {
    Problem<TypeParam> p(n, 1.0, self, world), q(n, 1.0, self, world);
    p.M(0, 0) += Number<TypeParam>(rank);
    q.M(n - 1, n - 1) *= Number<TypeParam>(rank == 0 ? 1.0 : -1.0);
    EXPECT_EQ(this->gridDiag.RunEvd(p.M, p.D, this->info), VES_GOOD);
    p.ExpectEigenpairs();
    ExpectSameOnAll(p.D, world);
    EXPECT_EQ(this->gridChol.RunChol(q.M, this->info, 'U'), VES_GOOD);
    EXPECT_EQ(this->info, 0) << "the failure of another process";
  }
}

/// Below and above the switch: a leading block keeps its factor and the rest is counted out.
TYPED_TEST(DenseTest, MatricesWithoutAFactor) {
  const struct {
    int n, row, col;
    double value;
  } cases[] = {{5, 2, 2, -1.0}, {300, 150, 150, -1.0}, {5, 0, 0, nan},          {5, 1, 3, nan},
               {5, 4, 4, nan},  {5, 1, 2, 1 / 0.0},    {300, 7, 200, -1 / 0.0}, {300, 0, 0, nan}};
  for (const auto& c : cases)
    for (auto* factorizer : this->factorizers) {
      SCOPED_TRACE(testing::Message() << c.n << " " << c.row << " " << c.col << " " << c.value);
      Problem<TypeParam> p(c.n, 1.0);
      p.M(c.row, c.col) = Number<TypeParam>(c.value);
      EXPECT_EQ(factorizer->RunChol(p.M, this->info, 'U'), VES_GOOD);
      EXPECT_EQ(this->info, c.col + 1);
      p.ExpectFactor(c.col);
    }
}

/// A NaN must neither hang the grid nor pass for a success.
TYPED_TEST(DenseTest, NonFiniteMatricesAreLeftAlone) {
  for (const int n : {5, 300})
    for (const double value : {nan, -1 / 0.0})
      for (auto* solver : this->eigensolvers) {
        Problem<TypeParam> p(n, 1.0);
        p.M(1, 3) = Number<TypeParam>(0.0, value) +
                    Number<TypeParam>(Ves::isComplex<TypeParam> ? 0.0 : value);
        const std::vector<TypeParam> before(p.M.values, p.M.values + p.M.ld * n);
        EXPECT_EQ(solver->RunEvd(p.M, p.D, this->info), VES_GOOD);
        EXPECT_EQ(this->info, 1);
        EXPECT_EQ(std::memcmp(before.data(), p.M.values, before.size() * sizeof(TypeParam)), 0);
        EXPECT_EQ(p.D(n - 1), Number<TypeParam>(777));
      }
}

TYPED_TEST(DenseTest, LowerTriangleAndValuesOnly) {
  Problem<TypeParam> p(300, 1.0), q(300, 1.0);
  for (int j = 0; j < p.n; ++j)
    for (int i = 0; i < j; ++i) {
      q.M(j, i) = Conj(q.M(i, j));
      q.M(i, j) = Number<TypeParam>(777);
    }
  Ves::ScaLapackDiag<TypeParam> upper('N', 'U', 1, 300), lower('V', 'L', 1, 300);
  Ves::LapackDiag<TypeParam> here('N', 'U', 1);
  for (Ves::VesDenseEigenSolver* solver : {static_cast<Ves::VesDenseEigenSolver*>(&here)})
    (void)solver;
  EXPECT_EQ(upper.RunEvd(p.M, p.D, this->info), VES_GOOD);
  EXPECT_NEAR(std::real(p.D(17)), 18.0, 2000 * eps<TypeParam>);
  EXPECT_EQ(lower.RunEvd(q.M, q.D, this->info), VES_GOOD);
  q.ExpectEigenpairs();
}

TYPED_TEST(DenseTest, Refusals) {
  using Other = std::conditional_t<std::is_same_v<TypeParam, double>, float, double>;
  Problem<TypeParam> p(5, 1.0), oblong(5, 1.0), longer(6, 1.0);
  Problem<Other> other(5, 1.0);
  oblong.M.nRows = 4;
  for (auto* factorizer : this->factorizers) {
    EXPECT_EQ(factorizer->RunChol(oblong.M, this->info, 'U'), VES_ERR_INVALID_VALUE);
    EXPECT_EQ(factorizer->RunChol(other.M, this->info, 'U'), VES_ERR_MISMATCH);
  }
  for (auto* solver : this->eigensolvers) {
    EXPECT_EQ(solver->RunEvd(oblong.M, p.D, this->info), VES_ERR_INCOMPATIBLE);
    EXPECT_EQ(solver->RunEvd(p.M, longer.D, this->info), VES_ERR_INCOMPATIBLE);
    EXPECT_EQ(solver->RunEvd(p.M, p.M, this->info), VES_ERR_INCOMPATIBLE);
    EXPECT_EQ(solver->RunEvd(other.M, p.D, this->info), VES_ERR_MISMATCH);
    EXPECT_EQ(solver->RunEvd(p.M, other.D, this->info), VES_ERR_MISMATCH);
  }
  EXPECT_EQ(this->info, -77);
}

/// Sizes that a float cannot hold come back rounded, perhaps down.
TEST(WorkspaceSizes, AreNeverBelowTheNeed) {
  for (const int n : {1, 100, 2894, 2895, 2896, 2897, 4001, 8192, 16384}) {
    const int need = 1 + 6 * n + 2 * n * n;
    EXPECT_GE(Ves::WorkspaceSize(static_cast<float>(need)), static_cast<std::size_t>(need)) << n;
    EXPECT_EQ(Ves::WorkspaceSize(static_cast<double>(need)), static_cast<std::size_t>(need));
  }
  EXPECT_EQ(Ves::WorkspaceSize(100.0F), 100U);
  EXPECT_EQ(Ves::WorkspaceSize(7, 9), 9U);
  EXPECT_EQ(Ves::WorkspaceSize(0.0), 1U);
}

} // namespace
