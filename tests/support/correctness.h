// One run through the flat interface, and what must be true of every result: all of it recomputed
// with the test's own operators.
#ifndef VES_TESTS_SUPPORT_CORRECTNESS_H
#define VES_TESTS_SUPPORT_CORRECTNESS_H

#include "problem.h"

#include <ves.hpp>

namespace VesTest {

using ves::MatrixHandle, ves::SolverHandle, ves::VectorHandle;

template <typename Scalar>
MatrixHandle MakeMatrix(SparseOperator<Scalar>* op) {
  if (op == nullptr) return nullptr;
  return ves::makeMatrix<Scalar>(&SparseOperator<Scalar>::Shell, op);
}

template <typename Scalar>
VectorHandle MakeVector(MPI_Comm comm, int nRows, int nCols, Scalar* values, int ld) {
  return ves::makeVector(comm, nRows, nCols, values, ld);
}

inline constexpr VesSolverType allSolvers[] = {VES_LOBPCG, VES_LOBPCG_BATCH, VES_PPCG};

struct Settings {
  int nBands = 10;
  double threshold = 1e-6;
  int maxIter = 300;
  int maxOrthoIter = 1;
  VesSolverType solver = VES_LOBPCG;
  VesConvergeDetectorType detector = VES_RESIDUALS;
  VesOrthogonalizerType orthogonalizer = VES_CHOLESKY_QR;
  VesDenseEigenSolverType evd = VES_SCALAPACK_DIAG;
};

template <typename Scalar>
SolverHandle MakeSolver(const Settings& s, bool generalized) {
  SolverHandle handle = ves::makeSolver<Scalar>(s.solver);
  VesSolver solver = handle.get();
  VesSolverSetProblemType(solver, generalized ? VES_PROBLEM_GENERALIZED : VES_PROBLEM_STANDARD);
  VesSolverSetMaxIter(solver, s.maxIter);
  VesSolverSetMaxOrthoIter(solver, s.maxOrthoIter);
  VesSolverSetThreshold(solver, s.threshold);
  VesSetConvergeDetectorType(solver, s.detector);
  VesSetOrthogonalizerType(solver, s.orthogonalizer);
  VesSetDenseEigenSolverType(solver, s.evd);
  return handle;
}

/// Blocks of one run: n x k vectors (leading dimension beyond the rows, where nothing may be
/// touched) and k values.
template <typename Scalar>
struct Pairs {
  const Rows& rows;
  int k, ld;
  std::vector<Scalar> X, D;
  VesReturnCode code = VES_GOOD;
  int iter = -1, nConv = -1;

  Pairs(const Rows& layout, int nBands)
      : rows(layout), k(nBands), ld(layout.local + 3),
        X(static_cast<std::size_t>(ld) * static_cast<std::size_t>(nBands), Number<Scalar>(777)),
        D(static_cast<std::size_t>(nBands) + 1) {}

  Scalar* Column(int j) { return X.data() + static_cast<std::ptrdiff_t>(j) * ld; }

  void FillGuess(const std::function<Scalar(int, int)>& entry) {
    for (int j = 0; j < k; ++j)
      for (int i = 0; i < rows.local; ++i)
        Column(j)[i] = entry(rows.first + i, j);
  }
  void FillRandom(unsigned stream = 0) {
    FillGuess([=](int i, int j) { return HashedNumber<Scalar>(i, j, stream); });
  }

  void Run(VesSolver solver, SparseOperator<Scalar>* A, SparseOperator<Scalar>* B = nullptr,
           SparseOperator<Scalar>* T = nullptr) {
    const MatrixHandle a = MakeMatrix(A), b = MakeMatrix(B), t = MakeMatrix(T);
    const VectorHandle x = MakeVector(rows.comm, rows.local, k, X.data(), ld);
    const VectorHandle d = MakeVector(rows.comm, k, 1, D.data(), std::max(k, 1));
    code = VesRunSolver(solver, a.get(), b.get(), t.get(), x.get(), d.get());
    EXPECT_EQ(VesGetSolverIter(solver, &iter), VES_GOOD);
    EXPECT_EQ(VesGetSolverConv(solver, &nConv), VES_GOOD);
  }
};

/// Lets a null pointer stand for an absent operator.
template <typename T>
using NotDeduced = std::common_type_t<T>;

/// Sums v over the processes of comm.
inline void SumOver(MPI_Comm comm, std::vector<double>& v) {
  MPI_Allreduce(MPI_IN_PLACE, v.data(), static_cast<int>(v.size()), MPI_DOUBLE, MPI_SUM, comm);
}

/// Residual norms ||A x - lambda B x|| of all pairs.
template <typename Scalar>
std::vector<double> ResidualNorms(Pairs<Scalar>& p, const SparseOperator<Scalar>& A,
                                  const NotDeduced<SparseOperator<Scalar>>* B) {
  std::vector<Scalar> AX(p.X.size()), BX(p.X);
  if (p.rows.local > 0) A.Apply(p.X.data(), AX.data(), p.k, p.ld);
  if (p.rows.local > 0 && B != nullptr) B->Apply(p.X.data(), BX.data(), p.k, p.ld);
  std::vector<double> squares(static_cast<std::size_t>(p.k), 0.0);
  for (int j = 0; j < p.k; ++j)
    for (int i = 0; i < p.rows.local; ++i) {
      const auto at = static_cast<std::size_t>(i) +
                      static_cast<std::size_t>(j) * static_cast<std::size_t>(p.ld);
      const auto col = static_cast<std::size_t>(j);
      squares[col] += static_cast<double>(std::norm(AX[at] - p.D[col] * BX[at]));
    }
  SumOver(p.rows.comm, squares);
  for (double& s : squares)
    s = std::sqrt(s);
  return squares;
}

/// Largest entry of |X^H B X - I|.
template <typename Scalar>
double OrthogonalityError(Pairs<Scalar>& p, const NotDeduced<SparseOperator<Scalar>>* B) {
  std::vector<Scalar> BX(p.X);
  if (p.rows.local > 0 && B != nullptr) B->Apply(p.X.data(), BX.data(), p.k, p.ld);
  const auto k = static_cast<std::size_t>(p.k), ld = static_cast<std::size_t>(p.ld);
  std::vector<double> gram(2 * k * k, 0.0);
  for (std::size_t i = 0; i < k; ++i)
    for (std::size_t j = 0; j < k; ++j) {
      std::complex<double> sum = 0.0;
      for (std::size_t r = 0; r < static_cast<std::size_t>(p.rows.local); ++r)
        sum += std::complex<double>(Conj(p.X[r + i * ld])) * std::complex<double>(BX[r + j * ld]);
      gram[2 * (i + j * k)] = sum.real();
      gram[2 * (i + j * k) + 1] = sum.imag();
    }
  SumOver(p.rows.comm, gram);
  double worst = 0.0;
  for (std::size_t i = 0; i < k; ++i)
    for (std::size_t j = 0; j < k; ++j)
      worst = std::max(worst, std::hypot(gram[2 * (i + j * k)] - (i == j ? 1.0 : 0.0),
                                         gram[2 * (i + j * k) + 1]));
  return worst;
}

/// Bounds in units of eps of the type; scale is the size of A's eigenvalues in the problem.
struct Limits {
  double orthogonality = 2000.0; ///< |X^H B X - I| in eps
  double value = 1e-11;          ///< values of converged pairs against exact ones, beside eps
  double scale = 16.0;
};

/// Every pair converged, is right and B-orthonormal; the reported count is the recomputed one.
template <typename Scalar>
void ExpectAllConverged(Pairs<Scalar>& p, const SparseOperator<Scalar>& A,
                        const NotDeduced<SparseOperator<Scalar>>* B,
                        const std::vector<double>& exact, double threshold,
                        const Limits& limits = {}) {
  ASSERT_EQ(p.code, VES_GOOD);
  EXPECT_EQ(p.nConv, p.k) << "after " << p.iter << " iterations";
  EXPECT_LE(OrthogonalityError(p, B), limits.orthogonality * eps<Scalar>);
  const std::vector<double> residuals = ResidualNorms(p, A, B);
  const double rounding = 50.0 * eps<Scalar> * limits.scale;
  for (int j = 0; j < p.k; ++j) {
    const auto at = static_cast<std::size_t>(j);
    // What the solver tests are images that it updates and does not recompute.
    EXPECT_LE(residuals[at], threshold + rounding) << "pair " << j;
    EXPECT_NEAR(std::real(p.D[at]), exact[at], limits.value + rounding) << "pair " << j;
    if (j > 0) {
      EXPECT_LE(std::real(p.D[at - 1]), std::real(p.D[at]) + rounding) << "pair " << j;
    }
    EXPECT_EQ(std::imag(p.D[at]), 0.0);
    for (int i = p.rows.local; i < p.ld; ++i)
      EXPECT_EQ(p.Column(j)[i], Number<Scalar>(777)) << "padding of column " << j;
  }
}

/// The leading pairs below the threshold, as the residual test counts them.
template <typename Scalar>
int RecomputedConverged(Pairs<Scalar>& p, const SparseOperator<Scalar>& A,
                        const NotDeduced<SparseOperator<Scalar>>* B, double threshold) {
  const std::vector<double> residuals = ResidualNorms(p, A, B);
  int count = 0;
  while (count < p.k && residuals[static_cast<std::size_t>(count)] < threshold)
    ++count;
  return count;
}

} // namespace VesTest

#endif
