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
Eigen::Matrix<RealOf<Scalar>, Eigen::Dynamic, 1> Diagonal(const DiagonalBlocks<Scalar>& blocks) {
  return blocks.a.diagonal().real();
}

template <typename Scalar>
MadePreconditioner<Scalar> MakeJacobi(const DiagonalBlocks<Scalar>& blocks) {
  using Real = RealOf<Scalar>;
  Eigen::Matrix<Real, Eigen::Dynamic, 1> inverse = Diagonal(blocks).cwiseAbs();
  const Real local = inverse.size() > 0 ? inverse.maxCoeff() : Real(0);
  const auto largest = static_cast<Real>(Largest(double(local), blocks.comm));
  if (largest == Real(0)) return {"none, since the diagonal is zero", nullptr};
  // A row whose diagonal nearly vanishes must not outweigh all others.
  const Real floor = Eigen::NumTraits<Real>::dummy_precision() * largest;
  inverse = inverse.cwiseMax(floor).cwiseInverse();
  return {"jacobi", [inverse](const Scalar* x, Scalar* y, int nCols, int ld) {
            for (Eigen::Index j = 0; j < nCols; ++j)
              for (Eigen::Index i = 0; i < inverse.size(); ++i)
                y[i + j * ld] = inverse[i] * x[i + j * ld];
          }};
}

// Collective, also for processes without rows.
template <typename Scalar>
MadePreconditioner<Scalar> MakeIncompleteCholesky(const DiagonalBlocks<Scalar>& blocks) {
  using Factors = Eigen::IncompleteCholesky<Scalar, Eigen::Lower, Eigen::NaturalOrdering<int>>;
  const auto factors = std::make_shared<Factors>();
  bool isFactored = true;
  if (blocks.a.rows() > 0) {
    factors->compute(blocks.a);
    isFactored = factors->info() == Eigen::Success;
  }
  const long long refused = Sum(isFactored ? 0LL : 1LL, blocks.comm);
  if (refused > 0) {
    MadePreconditioner<Scalar> instead = MakeJacobi(blocks);
    instead.name += " instead of ic: the diagonal block of " + std::to_string(refused) +
                    " process(es) is too far from positive definite";
    return instead;
  }
  return {"ic", SolveWith<Scalar, Factors>(factors)};
}

template <typename Scalar>
struct ExactFactors : Eigen::SimplicialLDLT<BySparseColumns<Scalar>> {
  /// Of L, once the pattern has been analyzed.
  Eigen::Index NonZeros() const { return this->m_matrix.nonZeros(); }
};

template <typename Scalar>
BySparseColumns<Scalar> Shifted(const DiagonalBlocks<Scalar>& blocks, double shift) {
  return blocks.a - static_cast<RealOf<Scalar>>(shift) * blocks.b;
}

// The largest sum of absolute values in a column, a bound of the 2-norm.
template <typename Scalar>
double SumNorm(const BySparseColumns<Scalar>& matrix) {
  double largest = 0.0;
  for (Eigen::Index j = 0; j < matrix.outerSize(); ++j) {
    double sum = 0.0;
    for (typename BySparseColumns<Scalar>::InnerIterator it(matrix, j); it; ++it)
      sum += std::abs(it.value());
    largest = std::max(largest, sum);
  }
  return largest;
}

// By Sylvester's law as many eigenvalues lie below the shift as D of L D L^H has negative entries.
// \return their number; -1 when the factorization broke down
template <typename Scalar>
long CountBelow(const DiagonalBlocks<Scalar>& blocks, double shift, ExactFactors<Scalar>& factors) {
  factors.compute(Shifted(blocks, shift));
  if (factors.info() != Eigen::Success || !factors.vectorD().allFinite()) return -1;
  return static_cast<long>((factors.vectorD().real().array() <= RealOf<Scalar>(0)).count());
}

// Steps down from just below zero until nothing lies below the shift.
template <typename Scalar>
double FindShift(const DiagonalBlocks<Scalar>& blocks, ExactFactors<Scalar>& factors) {
  const double normB = SumNorm(blocks.b);
  const double scale = SumNorm(blocks.a) / (normB > 0.0 ? normB : 1.0);
  const double first = std::is_same_v<RealOf<Scalar>, double> ? 1e-6 : 1e-3;
  for (double part = first; part < 1e8; part *= 10.0) {
    const double shift = -part * (scale > 0.0 ? scale : 1.0);
    if (CountBelow(blocks, shift, factors) == 0) return shift;
  }
  throw Error(exitInput, "--precond shift-invert: no shift makes A - shift B positive definite; is "
                         "B positive definite?");
}

template <typename Scalar>
MadePreconditioner<Scalar> MakeShiftInvert(const std::optional<double>& wanted,
                                           const DiagonalBlocks<Scalar>& blocks) {
  if (Size(blocks.comm) > 1)
    throw Error(exitUsage, "--precond shift-invert works on one process; on several take ic");
  const auto factors = std::make_shared<ExactFactors<Scalar>>();
  const double shift = wanted ? *wanted : FindShift(blocks, *factors);
  std::ostringstream text;
  text << shift;
  if (wanted) {
    const long below = CountBelow(blocks, shift, *factors);
    if (below < 0) throw Error(exitUsage, "--shift: A - " + text.str() + " B cannot be factored");
    if (below > 0)
      throw Error(exitUsage, "--shift: " + std::to_string(below) + " eigenvalues lie below " +
                                 text.str() + "; the shift must be below all of them");
  }
  return {"shift-invert at " + text.str(), SolveWith<Scalar, ExactFactors<Scalar>>(factors), true};
}

// A solve with factors of few entries costs less than the iterations that it saves.
template <typename Scalar>
bool AreExactFactorsCheap(const DiagonalBlocks<Scalar>& blocks) {
  constexpr Eigen::Index mostFilled = 20, small = 100000;
  if (Size(blocks.comm) > 1) return false;
  const BySparseColumns<Scalar> matrix = Shifted(blocks, 1.0);
  ExactFactors<Scalar> factors;
  factors.analyzePattern(matrix);
  return factors.NonZeros() <= std::max(small, mostFilled * matrix.nonZeros());
}

// Factors help matrices like those of differential equations; incomplete ones mislead on others.
template <typename Scalar>
MadePreconditioner<Scalar> MakeDefault(const DiagonalBlocks<Scalar>& blocks) {
  const auto diagonal = Diagonal(blocks);
  const bool isPositive = diagonal.size() == 0 || diagonal.minCoeff() > RealOf<Scalar>(0);
  if (Sum(isPositive ? 0LL : 1LL, blocks.comm) > 0) return {"none", nullptr};
  try {
    if (AreExactFactorsCheap(blocks)) return MakeShiftInvert({}, blocks);
  } catch (const Error&) { // B is not positive definite, which the run will say
  }
  return MakeIncompleteCholesky(blocks);
}

} // namespace

template <typename Scalar>
MadePreconditioner<Scalar> MakePreconditioner(const PreconditionerOptions& options,
                                              const DiagonalBlocks<Scalar>& blocks) {
  switch (options.kind) {
  case Preconditioner::jacobi:
    return MakeJacobi(blocks);
  case Preconditioner::ic:
    return MakeIncompleteCholesky(blocks);
  case Preconditioner::shiftInvert:
    return MakeShiftInvert(options.shift, blocks);
  default:
    return MakeDefault(blocks);
  }
}

template <typename Scalar>
std::string AddPreconditioner(const PreconditionerOptions& options, Problem<Scalar>& problem) {
  const Preconditioner kind = options.kind;
  if (options.shift && kind != Preconditioner::shiftInvert)
    throw Error(exitUsage, "--shift needs --precond shift-invert");
  if (!IsMade(kind)) {
    problem.t = nullptr;
    return kind == Preconditioner::none ? "none" : "inner steps";
  }
  if (problem.t) {
    if (kind == Preconditioner::automatic) return "of the model";
    throw Error(exitUsage, "--precond: " + problem.title + " has a preconditioner of its own");
  }
  auto made = MakePreconditioner(options, problem.Blocks());
  problem.t = std::move(made.t);
  problem.isInverseExact = made.isExact;
  return made.name;
}

#define VES_INSTANTIATE_PRECONDITIONERS(Scalar)                                                    \
  template MadePreconditioner<Scalar> MakePreconditioner(const PreconditionerOptions&,             \
                                                         const DiagonalBlocks<Scalar>&);           \
  template std::string AddPreconditioner(const PreconditionerOptions&, Problem<Scalar>&);
VES_INSTANTIATE_PRECONDITIONERS(double)
VES_INSTANTIATE_PRECONDITIONERS(float)
VES_INSTANTIATE_PRECONDITIONERS(std::complex<double>)
VES_INSTANTIATE_PRECONDITIONERS(std::complex<float>)

} // namespace VesTools
