#include "preconditioners.h"

#include "parallel.h"

#include <Eigen/IterativeLinearSolvers>
#include <Eigen/SparseCholesky>

#include <algorithm>
#include <cmath>
#include <sstream>

namespace VesTools {
namespace {

template <typename Scalar>
using Block = Eigen::Matrix<Scalar, Eigen::Dynamic, Eigen::Dynamic>;
template <typename Scalar>
using BySparseColumns = Eigen::SparseMatrix<Scalar>;
template <typename Scalar>
using RealOf = typename Eigen::NumTraits<Scalar>::Real;

// y = F^-1 x for the factors F of local matrices.
template <typename Scalar, typename Factors>
BlockOperator<Scalar> SolveWith(std::shared_ptr<const Factors> factors) {
  return [factors](const Scalar* x, Scalar* y, int nCols, int ld) {
    const Eigen::OuterStride<> stride(ld);
    const Eigen::Index rows = factors->rows();
    const Eigen::Map<const Block<Scalar>, 0, Eigen::OuterStride<>> in(x, rows, nCols, stride);
    Eigen::Map<Block<Scalar>, 0, Eigen::OuterStride<>>(y, rows, nCols, stride) = factors->solve(in);
  };
}

template <typename Scalar>
Eigen::Matrix<RealOf<Scalar>, Eigen::Dynamic, 1> Diagonal(const Problem<Scalar>& problem) {
  return problem.matrixA->DiagonalBlock().diagonal().real();
}

template <typename Scalar>
std::string AddJacobi(Problem<Scalar>& problem) {
  using Real = RealOf<Scalar>;
  Eigen::Matrix<Real, Eigen::Dynamic, 1> inverse = Diagonal(problem).cwiseAbs();
  const Real local = inverse.size() > 0 ? inverse.maxCoeff() : Real(0);
  const auto largest = static_cast<Real>(Largest(double(local), problem.comm));
  if (largest == Real(0)) return "none, since the diagonal is zero";
  // A row whose diagonal nearly vanishes must not outweigh all others.
  const Real floor = Eigen::NumTraits<Real>::dummy_precision() * largest;
  inverse = inverse.cwiseMax(floor).cwiseInverse();
  problem.t = [inverse](const Scalar* x, Scalar* y, int nCols, int ld) {
    for (Eigen::Index j = 0; j < nCols; ++j)
      for (Eigen::Index i = 0; i < inverse.size(); ++i)
        y[i + j * ld] = inverse[i] * x[i + j * ld];
  };
  return "jacobi";
}

// The factorization wants every diagonal entry stored.
template <typename Scalar>
BySparseColumns<Scalar> WithFullDiagonal(const Problem<Scalar>& problem) {
  BySparseColumns<Scalar> block = problem.matrixA->DiagonalBlock();
  BySparseColumns<Scalar> zero(block.rows(), block.cols());
  zero.setIdentity();
  return block + Scalar(0) * zero;
}

// Collective, also for processes without rows.
template <typename Scalar>
std::string AddIncompleteCholesky(Problem<Scalar>& problem) {
  using Factors = Eigen::IncompleteCholesky<Scalar, Eigen::Lower, Eigen::NaturalOrdering<int>>;
  const auto factors = std::make_shared<Factors>();
  bool isFactored = true;
  if (problem.LocalRows() > 0) {
    factors->compute(WithFullDiagonal(problem));
    isFactored = factors->info() == Eigen::Success;
  }
  const long long refused = Sum(isFactored ? 0LL : 1LL, problem.comm);
  if (refused > 0) {
    const std::string instead = AddJacobi(problem);
    return instead + " instead of ic: the diagonal block of " + std::to_string(refused) +
           " process(es) is too far from positive definite";
  }
  problem.t = SolveWith<Scalar, Factors>(factors);
  return "ic";
}

template <typename Scalar>
struct ExactFactors : Eigen::SimplicialLDLT<BySparseColumns<Scalar>> {
  /// Of L, once the pattern has been analyzed.
  Eigen::Index NonZeros() const { return this->m_matrix.nonZeros(); }
};

template <typename Scalar>
BySparseColumns<Scalar> Shifted(const Problem<Scalar>& problem, double shift) {
  BySparseColumns<Scalar> b(problem.Order(), problem.Order());
  if (problem.matrixB)
    b = problem.matrixB->DiagonalBlock();
  else
    b.setIdentity();
  const BySparseColumns<Scalar> a = problem.matrixA->DiagonalBlock();
  return a - static_cast<RealOf<Scalar>>(shift) * b;
}

// The largest sum of absolute values in a row, a bound of the 2-norm.
template <typename Scalar>
double RowSumNorm(const SparseMatrix<Scalar>& matrix) {
  const auto& block = matrix.DiagonalBlock();
  double largest = 0.0;
  for (Eigen::Index i = 0; i < block.outerSize(); ++i) {
    double sum = 0.0;
    for (typename SparseMatrix<Scalar>::Sparse::InnerIterator it(block, i); it; ++it)
      sum += std::abs(it.value());
    largest = std::max(largest, sum);
  }
  return largest;
}

// By Sylvester's law as many eigenvalues lie below the shift as D of L D L^H has negative entries.
// \return their number; -1 when the factorization broke down
template <typename Scalar>
long CountBelow(const Problem<Scalar>& problem, double shift, ExactFactors<Scalar>& factors) {
  factors.compute(Shifted(problem, shift));
  if (factors.info() != Eigen::Success || !factors.vectorD().allFinite()) return -1;
  return static_cast<long>((factors.vectorD().real().array() <= RealOf<Scalar>(0)).count());
}

// Steps down from just below zero until nothing lies below the shift.
template <typename Scalar>
double FindShift(const Problem<Scalar>& problem, ExactFactors<Scalar>& factors) {
  const double normB = problem.matrixB ? RowSumNorm(*problem.matrixB) : 1.0;
  const double scale = RowSumNorm(*problem.matrixA) / (normB > 0.0 ? normB : 1.0);
  const double first = std::is_same_v<RealOf<Scalar>, double> ? 1e-6 : 1e-3;
  for (double part = first; part < 1e8; part *= 10.0) {
    const double shift = -part * (scale > 0.0 ? scale : 1.0);
    if (CountBelow(problem, shift, factors) == 0) return shift;
  }
  throw Error(exitInput, "--precond shift-invert: no shift makes A - shift B positive definite; is "
                         "B positive definite?");
}

template <typename Scalar>
std::string AddShiftInvert(const std::optional<double>& wanted, Problem<Scalar>& problem) {
  if (Size(problem.comm) > 1)
    throw Error(exitUsage, "--precond shift-invert works on one process; on several take ic");
  const auto factors = std::make_shared<ExactFactors<Scalar>>();
  const double shift = wanted ? *wanted : FindShift(problem, *factors);
  std::ostringstream text;
  text << shift;
  if (wanted) {
    const long below = CountBelow(problem, shift, *factors);
    if (below < 0) throw Error(exitUsage, "--shift: A - " + text.str() + " B cannot be factored");
    if (below > 0)
      throw Error(exitUsage, "--shift: " + std::to_string(below) + " eigenvalues lie below " +
                                 text.str() + "; the shift must be below all of them");
  }
  problem.t = SolveWith<Scalar, ExactFactors<Scalar>>(factors);
  problem.isInverseExact = true;
  return "shift-invert at " + text.str();
}

// A solve with factors of few entries costs less than the iterations that it saves.
template <typename Scalar>
bool AreExactFactorsCheap(const Problem<Scalar>& problem) {
  constexpr Eigen::Index mostFilled = 20, small = 100000;
  if (Size(problem.comm) > 1) return false;
  const BySparseColumns<Scalar> matrix = Shifted(problem, 1.0);
  ExactFactors<Scalar> factors;
  factors.analyzePattern(matrix);
  return factors.NonZeros() <= std::max(small, mostFilled * matrix.nonZeros());
}

// Factors help matrices like those of differential equations; incomplete ones mislead on others.
template <typename Scalar>
std::string AddDefault(Problem<Scalar>& problem) {
  const auto diagonal = Diagonal(problem);
  const bool isPositive = diagonal.size() == 0 || diagonal.minCoeff() > RealOf<Scalar>(0);
  if (Sum(isPositive ? 0LL : 1LL, problem.comm) > 0) return "none";
  try {
    if (AreExactFactorsCheap(problem)) return AddShiftInvert({}, problem);
  } catch (const Error&) { // B is not positive definite, which the run will say
  }
  return AddIncompleteCholesky(problem);
}

} // namespace

template <typename Scalar>
std::string AddPreconditioner(const PreconditionerOptions& options, Problem<Scalar>& problem) {
  const Preconditioner kind = options.kind;
  if (options.shift && kind != Preconditioner::shiftInvert)
    throw Error(exitUsage, "--shift needs --precond shift-invert");
  if (kind == Preconditioner::none || kind == Preconditioner::inner) {
    problem.t = nullptr;
    return kind == Preconditioner::none ? "none" : "inner steps";
  }
  if (problem.t) {
    if (kind == Preconditioner::automatic) return "of the model";
    throw Error(exitUsage, "--precond: " + problem.title + " has a preconditioner of its own");
  }
  if (kind == Preconditioner::jacobi) return AddJacobi(problem);
  if (kind == Preconditioner::ic) return AddIncompleteCholesky(problem);
  if (kind == Preconditioner::shiftInvert) return AddShiftInvert(options.shift, problem);
  return AddDefault(problem);
}

template std::string AddPreconditioner(const PreconditionerOptions&, Problem<double>&);
template std::string AddPreconditioner(const PreconditionerOptions&, Problem<float>&);
template std::string AddPreconditioner(const PreconditionerOptions&,
                                       Problem<std::complex<double>>&);
template std::string AddPreconditioner(const PreconditionerOptions&, Problem<std::complex<float>>&);

} // namespace VesTools
