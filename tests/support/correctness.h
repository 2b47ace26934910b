// Runs through the flat interface, and what is true of their blocks: recomputed with the test's own
// operators.
#ifndef VES_TESTS_SUPPORT_CORRECTNESS_H
#define VES_TESTS_SUPPORT_CORRECTNESS_H

#include "problem.h"

#include <ves.hpp>

#include <ostream>

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
inline constexpr VesConvergeDetectorType allDetectors[] = {
    VES_RESIDUALS, VES_RELATIVE_RESIDUALS, VES_EIGENVALUES, VES_RESIDUALS_OR_EIGENVALUES};
inline constexpr VesOrthogonalizerType allOrthogonalizers[] = {VES_CHOLESKY_QR, VES_SVD_QR};

struct Settings {
  VesSolverType solver = VES_LOBPCG;
  int nBands = 10;
  double threshold = 1e-6;
  int maxIter = 300;
  int maxOrthoIter = 1;
  VesConvergeDetectorType detector = VES_RESIDUALS;
  VesOrthogonalizerType orthogonalizer = VES_CHOLESKY_QR;
  VesDenseEigenSolverType evd = VES_SCALAPACK_DIAG;
  int width = 0; ///< of a batch or a sub-block, where it is not the solver's own
  /// Inner steps, and in double precision a beginning in single; any test makes them by itself
  /// with VES_TEST_ADDITIONS in the environment.
  bool hasAdditions = std::getenv("VES_TEST_ADDITIONS") != nullptr;

  /// Iterations that find a guess to be the answer: PPCG tests within its first one, that of single
  /// precision and that of double.
  template <typename Scalar>
  int IterationsOnAnswer() const {
    return solver == VES_PPCG ? 1 + (hasAdditions && isDouble<Scalar> ? 1 : 0) : 0;
  }
};

inline std::ostream& operator<<(std::ostream& out, const Settings& s) {
  return out << "solver " << s.solver << ", " << s.nBands << " pairs in " << s.width << " to "
             << s.threshold << ", detector " << s.detector << ", orthogonalizer "
             << s.orthogonalizer << " in " << s.maxOrthoIter << " passes, EVD " << s.evd
             << ", at most " << s.maxIter << " iterations";
}

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
  if (s.hasAdditions) {
    VesSolverSetInnerSteps(solver, 3);
    VesSolverSetMixedPrecision(solver, isDouble<Scalar>);
  }
  if (s.width > 0 && s.solver == VES_LOBPCG_BATCH) VesSolverSetBatchLimit(solver, s.width);
  if (s.width > 0 && s.solver == VES_PPCG) VesSolverSetPPCGBatch(solver, s.width);
  return handle;
}

/// Entries of a guess by row and column.
template <typename Scalar>
using Guess = std::function<Scalar(int, int)>;

template <typename Scalar>
Guess<Scalar> RandomGuess(unsigned stream = 0) {
  return [=](int i, int j) { return HashedNumber<Scalar>(i, j, stream); };
}

/// Blocks of one run: n x k vectors (leading dimension beyond the rows, where nothing may be
/// touched) and k values; and what the solver says of them.
template <typename Scalar>
struct Pairs {
  const Rows& rows;
  int k, ld;
  std::vector<Scalar> X, D;
  MPI_Comm second = self; ///< of replicas
  VesReturnCode code = VES_GOOD;
  int iter = -1, nConv = -1;
  VesSolverReason reason = VES_REASON_NONE;

  Pairs(const Rows& layout, int nBands)
      : rows(layout), k(nBands), ld(layout.local + 3),
        X(static_cast<std::size_t>(ld) * static_cast<std::size_t>(nBands), Number<Scalar>(777)),
        D(static_cast<std::size_t>(nBands) + 1) {}

  Scalar* Column(int j) { return X.data() + static_cast<std::ptrdiff_t>(j) * ld; }
  double Value(int j) const { return static_cast<double>(std::real(D.data()[j])); }

  void Fill(const Guess<Scalar>& entry) {
    for (int j = 0; j < k; ++j)
      for (int i = 0; i < rows.local; ++i)
        Column(j)[i] = entry(rows.first + i, j);
  }
  void FillRandom(unsigned stream = 0) { Fill(RandomGuess<Scalar>(stream)); }

  void Run(VesSolver solver, SparseOperator<Scalar>* A, SparseOperator<Scalar>* B = nullptr,
           SparseOperator<Scalar>* T = nullptr) {
    RunOn(solver, MakeMatrix(A).get(), MakeMatrix(B).get(), MakeMatrix(T).get());
  }
  void RunOn(VesSolver solver, VesMatrix a, VesMatrix b, VesMatrix t) {
    const VectorHandle x = MakeVector(rows.comm, rows.local, k, X.data(), ld);
    const VectorHandle d = MakeVector(rows.comm, k, 1, D.data(), std::max(k, 1));
    for (const VesVector block : {x.get(), d.get()})
      EXPECT_EQ(VesVectorSetComm(block, 1, second), VES_GOOD);
    code = VesRunSolver(solver, a, b, t, x.get(), d.get());
    EXPECT_EQ(VesGetSolverIter(solver, &iter), VES_GOOD);
    EXPECT_EQ(VesGetSolverConv(solver, &nConv), VES_GOOD);
    EXPECT_EQ(VesGetSolverReason(solver, &reason), VES_GOOD);
  }
};

/// Lets a null pointer stand for an absent operator, and a lambda for a guess.
template <typename T>
using NotDeduced = std::common_type_t<T>;

/// Norms of columns with entry(local row, column).
template <typename Scalar, typename Entry>
std::vector<double> ColumnNorms(const Pairs<Scalar>& p, Entry entry) {
  std::vector<double> norms(static_cast<std::size_t>(p.k));
  for (int j = 0; j < p.k; ++j)
    for (int i = 0; i < p.rows.local; ++i)
      norms.data()[j] += std::norm(Wide(entry(i, j)));
  PMPI_Allreduce(MPI_IN_PLACE, norms.data(), p.k, MPI_DOUBLE, MPI_SUM, p.rows.comm);
  for (double& norm : norms)
    norm = std::sqrt(norm);
  return norms;
}

/// The vectors under an operator, or themselves where it is null.
template <typename Scalar>
Pairs<Scalar> Image(const SparseOperator<Scalar>* op, Pairs<Scalar> p) {
  const std::vector<Scalar> X = p.X;
  if (op != nullptr) op->Apply(X.data(), p.X.data(), p.k, p.ld);
  return p;
}

/// ||A x - lambda B x|| of all pairs.
template <typename Scalar>
std::vector<double> ResidualNorms(const Pairs<Scalar>& p, const SparseOperator<Scalar>& A,
                                  const NotDeduced<SparseOperator<Scalar>>* B) {
  Pairs<Scalar> AX = Image(&A, p), BX = Image<Scalar>(B, p);
  return ColumnNorms(
      p, [&](int i, int j) { return AX.Column(j)[i] - p.D.data()[j] * BX.Column(j)[i]; });
}

/// Largest entry of |X^H B X - I|.
template <typename Scalar>
double OrthogonalityError(Pairs<Scalar> p, const NotDeduced<SparseOperator<Scalar>>* B) {
  Pairs<Scalar> BX = Image<Scalar>(B, p);
  std::vector<Wide> gram;
  for (int i = 0; i < p.k; ++i)
    for (int j = 0; j < p.k; ++j) {
      Wide sum = 0.0;
      for (int r = 0; r < p.rows.local; ++r)
        sum += std::conj(Wide(p.Column(i)[r])) * Wide(BX.Column(j)[r]);
      gram.push_back(sum);
    }
  PMPI_Allreduce(MPI_IN_PLACE, gram.data(), p.k * p.k, MPI_CXX_DOUBLE_COMPLEX, MPI_SUM,
                 p.rows.comm);
  double worst = 0.0;
  for (int at = 0; at < p.k * p.k; ++at) {
    const double error = std::abs(gram.data()[at] - (at % (p.k + 1) == 0 ? 1.0 : 0.0));
    if (!(error <= worst)) worst = std::isnan(error) ? infinite : error;
  }
  return worst;
}

} // namespace VesTest

#endif
