#include "runner.h"

#include "sparse_operator.h"

#include <ves.hpp>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <limits>

namespace VesBench {
namespace {

/// The rows of D^H A D with unit phases D that follow no pattern of the grid.
std::function<Row(int)> Phased(const std::function<Row(int)>& rowOf) {
  return [rowOf](int i) {
    const auto angle = [](double at) { return 0.7 * at + 0.01 * at * at; };
    Row row = rowOf(i);
    for (auto& [j, value] : row)
      if (j != i) value *= std::polar(1.0, angle(j) - angle(i));
    return row;
  };
}

/// Numbers without pattern in [-1, 1), the same for an entry whatever the distribution.
double Hashed(std::uint32_t i, std::uint32_t j, std::uint32_t stream) {
  std::uint32_t h = i * 2654435761U ^ (j + 1) * 2246822519U ^ (stream + 1) * 3266489917U;
  h = (h ^ (h >> 15)) * 2246822519U;
  h = (h ^ (h >> 13)) * 3266489917U;
  return static_cast<double>(h ^ (h >> 16)) / 2147483648.0 - 1.0;
}

/// The rows of a problem's matrices in a scalar type.
struct Matrices {
  std::function<Row(int)> a, b, t; ///< b and t may be empty

  Matrices(const Problem& problem, const Task& task) : a(problem.a), b(problem.b) {
    const bool isComplexType =
        task.scalar == VES_COMPLEX_DOUBLE || task.scalar == VES_COMPLEX_FLOAT;
    if (isComplexType && !problem.isComplex) {
      a = Phased(a);
      if (b) b = Phased(b);
    }
    if (task.isPreconditioned)
      t = [&problem](int i) {
        return Row{{i, problem.preconditioner.at(static_cast<std::size_t>(i))}};
      };
  }
};

template <typename Scalar>
ves::Operator<Scalar> MakeOperator(const Rows& rows, const std::function<Row(int)>& rowOf) {
  if (!rowOf) return {};
  return ves::Operator<Scalar>([op = SparseOperator<Scalar>(rows, rowOf)](auto x, auto y) {
    op.Apply(x.data(), y.data(), x.cols(), x.ld());
  });
}

/// Vectors of a run, n x k on the local rows, and its values, in double precision.
struct Pairs {
  std::vector<Complex> X;
  std::vector<double> D;
};

template <typename Scalar>
Pairs Solve(const Problem& problem, const Task& task, const Matrices& matrices, const Rows& rows,
            Outcome& outcome) {
  const auto k = static_cast<std::size_t>(problem.pairs), n = static_cast<std::size_t>(rows.local);
  const ves::Block<Scalar> X(rows.local, problem.pairs, rows.comm);
  for (int j = 0; j < X.cols(); ++j)
    for (int i = 0; i < X.rows(); ++i) {
      const auto row = static_cast<std::uint32_t>(rows.first + i);
      const auto column = static_cast<std::uint32_t>(j);
      X(i, j) = Convert<Scalar>(
          {Hashed(row, column, task.seed), Hashed(row, column, task.seed + 1000003U)});
    }
  ves::Options options;
  options.type = task.solver;
  options.threshold = outcome.threshold;
  options.maxIter = task.maxIter;
  Pairs pairs;
  const auto a = MakeOperator<Scalar>(rows, matrices.a), b = MakeOperator<Scalar>(rows, matrices.b),
             t = MakeOperator<Scalar>(rows, matrices.t);
  const auto found = ves::Solver<Scalar>(options).solve(a, b, t, X);
  outcome.columnsA = found.stats.columnsA;
  outcome.iterations = found.iterations;
  outcome.converged = found.converged;
  outcome.reason = found.reason;
  pairs.X.assign(X.data(), X.data() + n * k);
  pairs.D.assign(found.values.begin(), found.values.end());
  return pairs;
}

/// Recomputes residuals and orthogonality, and bounds the errors of the values by them.
///
/// With R the block of residuals of B-orthonormal vectors, the values err by no more than the
/// Frobenius norm of B^-1/2 R, and by no more than twice its square over the gap between the wanted
/// values and the rest. To that come the rounding of the values and what the reference is off.
void Judge(const Problem& problem, const Task& task, const Matrices& matrices, const Rows& rows,
           const Pairs& pairs, Outcome& outcome) {
  const auto k = static_cast<std::size_t>(problem.pairs), n = static_cast<std::size_t>(rows.local);
  std::vector<Complex> ax(n * k), bx(pairs.X);
  SparseOperator<Complex>(rows, matrices.a)
      .Apply(pairs.X.data(), ax.data(), problem.pairs, rows.local);
  if (matrices.b)
    SparseOperator<Complex>(rows, matrices.b)
        .Apply(pairs.X.data(), bx.data(), problem.pairs, rows.local);

  std::vector<double> squares(2 * k); // of the residuals, then of the vectors
  std::vector<Complex> gram(k * k);
  for (std::size_t j = 0; j < k; ++j) {
    for (std::size_t i = 0; i < n; ++i) {
      squares[j] += std::norm(ax[i + j * n] - pairs.D[j] * bx[i + j * n]);
      squares[k + j] += std::norm(pairs.X[i + j * n]);
    }
    for (std::size_t l = 0; l < k; ++l)
      for (std::size_t i = 0; i < n; ++i)
        gram[l + j * k] += std::conj(pairs.X[i + l * n]) * bx[i + j * n];
  }
  MPI_Allreduce(MPI_IN_PLACE, squares.data(), static_cast<int>(2 * k), MPI_DOUBLE, MPI_SUM,
                rows.comm);
  MPI_Allreduce(MPI_IN_PLACE, gram.data(), static_cast<int>(2 * k * k), MPI_DOUBLE, MPI_SUM,
                rows.comm);

  double sum = 0.0, longest = 0.0, largest = 0.0;
  for (std::size_t j = 0; j < k; ++j) {
    sum += squares[j];
    outcome.residual = std::max(outcome.residual, std::sqrt(squares[j]));
    longest = std::max(longest, squares[k + j]);
    largest = std::max(largest, std::abs(problem.exact[j]));
    outcome.error = std::max(outcome.error, std::abs(pairs.D[j] - problem.exact[j]));
    for (std::size_t l = 0; l < k; ++l)
      outcome.orthogonality =
          std::max(outcome.orthogonality, std::abs(gram[l + j * k] - (l == j ? 1.0 : 0.0)));
  }
  sum /= problem.smallestB;
  const double gap = problem.exact[k] - problem.exact[k - 1];
  // Images of the vectors that a solver updates gather some roundings, each of eps |A|.
  const double rounding =
      10.0 * EpsOf(task.scalar) * (problem.normA + largest * problem.normB) * longest;
  outcome.bound = std::min(std::sqrt(sum), 2.0 * sum / gap) + rounding + problem.exactError;
  outcome.values = pairs.D;
}

} // namespace

const char* NameOf(VesSolverType solver) {
  return solver == VES_LOBPCG ? "LOBPCG" : solver == VES_LOBPCG_BATCH ? "LOBPCG batch" : "PPCG";
}

const char* NameOf(VesScalarType scalar) {
  switch (scalar) {
  case VES_DOUBLE:
    return "double";
  case VES_FLOAT:
    return "float";
  case VES_COMPLEX_DOUBLE:
    return "complex double";
  default:
    return "complex float";
  }
}

double EpsOf(VesScalarType scalar) {
  return scalar == VES_DOUBLE || scalar == VES_COMPLEX_DOUBLE
             ? std::numeric_limits<double>::epsilon()
             : static_cast<double>(std::numeric_limits<float>::epsilon());
}

Outcome Run(const Problem& problem, const Task& task, MPI_Comm comm) {
  const Rows rows(problem.order, comm);
  const Matrices matrices(problem, task);
  Outcome outcome;
  outcome.threshold = task.threshold > 0.0 ? task.threshold : problem.Threshold(EpsOf(task.scalar));
  Pairs pairs;
  switch (task.scalar) {
  case VES_DOUBLE:
    pairs = Solve<double>(problem, task, matrices, rows, outcome);
    break;
  case VES_FLOAT:
    pairs = Solve<float>(problem, task, matrices, rows, outcome);
    break;
  case VES_COMPLEX_DOUBLE:
    pairs = Solve<Complex>(problem, task, matrices, rows, outcome);
    break;
  case VES_COMPLEX_FLOAT:
    pairs = Solve<std::complex<float>>(problem, task, matrices, rows, outcome);
    break;
  }
  Judge(problem, task, matrices, rows, pairs, outcome);
  return outcome;
}

} // namespace VesBench
