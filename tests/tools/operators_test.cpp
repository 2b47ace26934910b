// Products and preconditioners of distributed sparse matrices against dense ones.
#include "error.h"
#include "matrix_source.h"
#include "parallel.h"
#include "preconditioners.h"
#include "problem.h"
#include "settings.h"

#include <gtest/gtest.h>
#include <mpi.h>

#include <Eigen/Eigenvalues>
#include <cmath>

namespace {

using namespace VesTools;

const MPI_Comm comm = MPI_COMM_WORLD;

template <typename Scalar>
using Matrix = Eigen::Matrix<Scalar, Eigen::Dynamic, Eigen::Dynamic>;

/// A positive definite matrix with far-reaching entries, the same on all processes.
Eigen::MatrixXcd Sample(int n, bool isComplex) {
  Eigen::MatrixXcd a = Eigen::MatrixXcd::Zero(n, n);
  for (int i = 0; i < n; ++i) {
    a(i, i) = 4.0 + 0.1 * i;
    for (const int distance : {1, 7}) {
      if (i + distance >= n) continue;
      a(i, i + distance) = {0.3 * distance - 1.7, isComplex ? 0.1 * i / n : 0.0};
      a(i + distance, i) = std::conj(a(i, i + distance));
    }
  }
  return a;
}

/// Its entries on any process.
std::unique_ptr<MatrixSource> SourceOf(const Eigen::MatrixXcd& dense) {
  EntryList<std::complex<double>> list;
  list.rows = list.columns = static_cast<int>(dense.rows());
  list.isHermitian = true;
  for (int i = Rank(comm); i < dense.rows(); i += Size(comm))
    for (int j = 0; j < dense.cols(); ++j)
      if (dense(i, j) != 0.0) list.entries.push_back({i, j, dense(i, j)});
  return SourceOf(std::move(list), comm);
}

ProblemData DataOf(const Eigen::MatrixXcd& a, const Eigen::MatrixXcd& b) {
  ProblemData data;
  const auto sourceA = SourceOf(a);
  if (b.size() == 0) {
    data.offsets = BalancedRows({sourceA.get()});
  } else {
    const auto sourceB = SourceOf(b);
    data.offsets = BalancedRows({sourceA.get(), sourceB.get()});
    data.b = sourceB->TakeRows(data.offsets);
  }
  data.a = sourceA->TakeRows(data.offsets);
  return data;
}

template <typename Scalar>
Problem<Scalar> ProblemOf(const Eigen::MatrixXcd& a, const Eigen::MatrixXcd& b = {}) {
  return MakeProblem<Scalar>({}, DataOf(a, b), comm);
}

/// The matrix of a local operator: its product with all unit vectors, by local rows.
template <typename Scalar>
Matrix<Scalar> LocalMatrix(const BlockOperator<Scalar>& apply, int rows) {
  const Matrix<Scalar> unit = Matrix<Scalar>::Identity(rows, rows);
  Matrix<Scalar> result(rows, rows);
  if (rows > 0) apply(unit.data(), result.data(), rows, rows);
  return result;
}

TEST(Products, AreThoseOfTheDenseMatrix) {
  using Scalar = std::complex<double>;
  for (const int n : {2, 61}) {
    Eigen::MatrixXcd a = Sample(n, true);
    a.row(n / 2).setZero(); // a row without entries
    const Problem<Scalar> problem = ProblemOf<Scalar>(a);
    const int rows = problem.LocalRows(), first = problem.FirstRow();
    const Matrix<Scalar> whole = Sample(n, true).leftCols(2), x = whole.middleRows(first, rows);
    Matrix<Scalar> y = x;
    if (rows > 0) problem.a(x.data(), y.data(), 2, rows);
    EXPECT_LE((y - (a * whole).middleRows(first, rows)).cwiseAbs().sum(), 1e-12 * n);
  }
}

TEST(Rows, AreSharedByEntries) {
  Eigen::MatrixXcd a = Eigen::MatrixXcd::Identity(40, 40);
  a.row(0).setOnes(); // as many entries as all others
  const RowOffsets offsets = BalancedRows({SourceOf(a).get()});
  ASSERT_EQ(offsets.size(), static_cast<std::size_t>(Size(comm)) + 1);
  EXPECT_EQ(offsets.front(), 0);
  EXPECT_EQ(offsets.back(), 40);
  EXPECT_TRUE(std::is_sorted(offsets.begin(), offsets.end()));
  if (Size(comm) > 1) {
    EXPECT_LT(offsets[1], 20);
  }
}

TEST(Preconditioner, IncompleteFactorsArePositiveAndNearTheInverse) {
  Problem<std::complex<double>> problem = ProblemOf<std::complex<double>>(Sample(40, true));
  EXPECT_EQ(AddPreconditioner({Preconditioner::ic, {}}, problem), "ic");
  const int rows = problem.LocalRows();
  const auto t = LocalMatrix(problem.t, rows);
  const Eigen::MatrixXcd block = problem.Blocks().a;
  const Eigen::VectorXcd ratios = (t * block).eigenvalues();
  EXPECT_LT((t - t.adjoint()).cwiseAbs().maxCoeff(), 1e-13);
  EXPECT_GT(ratios.real().minCoeff(), 0.3);
  EXPECT_LT(ratios.real().maxCoeff(), 3.0);
}

// Far from definite, though the diagonal is positive: the choice falls back and says so.
TEST(Preconditioner, FallsBackToPositiveDiagonal) {
  Eigen::MatrixXcd a = Eigen::MatrixXcd::Constant(24, 24, 100.0);
  for (int i = 0; i < 24; ++i)
    for (int j = 0; j < 24; ++j)
      a(i, j) *= i == j ? 1e-6 : std::cos(0.7 * i) * std::cos(0.7 * j) * ((i + j) % 2 ? 1 : -1);
  Problem<double> problem = ProblemOf<double>(a);
  PreconditionerOptions options;
  options.kind = Preconditioner::ic;
  EXPECT_EQ(AddPreconditioner(options, problem).substr(0, 17), "jacobi instead of");
  const auto t = LocalMatrix(problem.t, problem.LocalRows());
  EXPECT_TRUE((t.diagonal().array() > 0.0).all());
}

TEST(Preconditioner, ShiftInvertIsTheInverseBelowTheSpectrum) {
  const Eigen::MatrixXcd a = Sample(30, true) - 6.0 * Eigen::MatrixXcd::Identity(30, 30);
  const Eigen::MatrixXcd b = 2.0 * Eigen::MatrixXcd::Identity(30, 30) + 0.01 * Sample(30, true);
  Problem<std::complex<double>> problem = ProblemOf<std::complex<double>>(a, b);
  PreconditionerOptions options;
  options.kind = Preconditioner::shiftInvert;
  if (Size(comm) > 1) {
    EXPECT_THROW(AddPreconditioner(options, problem), Error);
    return;
  }
  EXPECT_EQ(AddPreconditioner(options, problem).substr(0, 15), "shift-invert at");
  EXPECT_GT(LocalMatrix(problem.t, 30).selfadjointView<Eigen::Lower>().eigenvalues().minCoeff(),
            0.0);
  problem.t = nullptr;
  options.shift = -5.0;
  AddPreconditioner(options, problem);
  const Eigen::MatrixXcd identity = LocalMatrix(problem.t, 30) * (a + 5.0 * b);
  EXPECT_LT((identity - Eigen::MatrixXcd::Identity(30, 30)).cwiseAbs().maxCoeff(), 1e-12);
}

TEST(NormEstimate, LiesCloseAboveTheNorm) {
  for (const double shift : {0.0, 50.0}) {
    const Eigen::MatrixXcd a = Sample(60, true) - shift * Eigen::MatrixXcd::Identity(60, 60);
    const Problem<std::complex<double>> problem = ProblemOf<std::complex<double>>(a);
    const double norm = a.operatorNorm();
    const double estimate = Decide(problem, {}).normA;
    EXPECT_GE(estimate, 0.999 * norm);
    EXPECT_LE(estimate, 1.1 * norm);
  }
}

} // namespace
