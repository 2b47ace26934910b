/// \file ves.hpp
/// libves for C++17: operators from callables, owners of the handles of ves.h, refused calls as
/// exceptions. Header only, on ves.h alone.
///
/// Conventions
/// - n is the number of rows that this process holds, k the number of columns. Collective calls are
///   made by every process of the block's communicator, in the same order; all others are local,
///   but for the destruction of a Solver, which is as VesSolverDestroy.
/// - A refused call throws Error with the code of the function of ves.h that it names. Where that
///   function agrees on its verdict, all processes throw. Memory for k numbers that one process
///   cannot have beside its blocks is std::bad_alloc on that process alone.
/// - Owners can be moved and not copied; one that was moved from may only be destroyed or assigned
///   to. handle() lends the handle for what stands in ves.h alone.
#ifndef VES_HPP
#define VES_HPP

#include <ves_operators.hpp>

#include <algorithm>
#include <complex>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

namespace ves {

/* ------------------------------------------------------------------ solvers */

/// Settings of a run; those without a value keep the default of the library. Each is described at
/// the function that is named beside it.
struct Options {
  VesSolverType type = VES_LOBPCG;                         ///< algorithm
  std::optional<double> threshold;                         ///< VesSolverSetThreshold
  std::optional<int> maxIter;                              ///< VesSolverSetMaxIter
  std::optional<int> maxOrthoIter;                         ///< VesSolverSetMaxOrthoIter
  std::optional<VesConvergeDetectorType> detector;         ///< VesSetConvergeDetectorType
  std::optional<VesConvergeDetectorType> lockDetector;     ///< VesSolverSetLockDetectorType
  std::optional<double> lockFactor;                        ///< VesSolverSetLockFactor
  std::optional<VesOrthogonalizerType> orthogonalizer;     ///< VesSetOrthogonalizerType
  std::optional<VesOrthoProjectorType> projector;          ///< VesSetOrthoProjectorType
  std::optional<VesOrthogonalizerType> rankRevealer;       ///< VesSolverSetRankRevealerType
  std::optional<VesDenseEigenSolverType> denseEigenSolver; ///< VesSetDenseEigenSolverType
  std::optional<bool> selfCheck;                           ///< VesSolverSetSelfCheck
  std::optional<bool> mixedPrecision;                      ///< VesSolverSetMixedPrecision
  std::optional<int> innerSteps;                           ///< VesSolverSetInnerSteps
  std::optional<int> threads;                              ///< VesSolverSetThreads
  std::optional<int> wanted;                               ///< VesSolverSetWanted
  std::optional<int> batchLimit;                           ///< VesSolverSetBatchLimit
  std::optional<int> batchStart;                           ///< VesSolverSetBatchStart
  std::optional<int> ppcgBatch;                            ///< VesSolverSetPPCGBatch
  std::optional<int> ppcgSoftLocking;                      ///< VesSolverSetPPCGSoftLocking
  std::optional<int> ppcgRRPeriod;                         ///< VesSolverSetPPCGRRPeriod
  std::optional<double> ppcgLockFactor;                    ///< VesSolverSetPPCGLockFactor
  /// Follows a run as VesMonitor, on all processes or none; true on process 0 ends it. What it
  /// throws there does, too; on each process it leaves solve where it was thrown.
  std::function<bool(const VesProgress&)> monitor;
  std::uint64_t seed = 0; ///< of the random guess
};

/// What came out of a run, the same on all processes but for the statistics.
template <typename Scalar>
struct Outcome {
  std::vector<Real<Scalar>> values;         ///< the k eigenvalues, ascending
  VesSolverReason reason = VES_REASON_NONE; ///< why the run ended
  int converged = 0;                        ///< leading pairs that passed the test
  int iterations = 0;                       ///< as VesGetSolverIter
  VesSolverStats stats = {};                ///< what the run cost on this process

  /// Whether the wanted pairs converged; that they did not is no error.
  bool isConverged() const { return reason == VES_REASON_CONVERGED; }
};

/// An outcome with its vectors, n x k.
template <typename Scalar>
struct Solution : Outcome<Scalar> {
  Block<Scalar> vectors; ///< B-orthonormal
};

/// A solver with its settings, which serves any number of runs, one at a time.
template <typename Scalar>
class Solver {
public:
  /// Throws Error as the setter of each setting that has a value: those of another algorithm are
  /// refused with VES_ERR_INCOMPATIBLE.
  explicit Solver(const Options& options = {}) : m_handle(makeSolver<Scalar>(options.type)) {
    const auto set = [&](auto setter, const auto& value, const char* call) {
      if (value) check(setter(handle(), *value), call);
    };
#define VES_SET(setter, value) set(setter, options.value, #setter)
    VES_SET(VesSolverSetThreshold, threshold);
    VES_SET(VesSolverSetMaxIter, maxIter);
    VES_SET(VesSolverSetMaxOrthoIter, maxOrthoIter);
    VES_SET(VesSetConvergeDetectorType, detector);
    VES_SET(VesSolverSetLockDetectorType, lockDetector);
    VES_SET(VesSolverSetLockFactor, lockFactor);
    VES_SET(VesSetOrthogonalizerType, orthogonalizer);
    VES_SET(VesSetOrthoProjectorType, projector);
    VES_SET(VesSolverSetRankRevealerType, rankRevealer);
    VES_SET(VesSetDenseEigenSolverType, denseEigenSolver);
    VES_SET(VesSolverSetSelfCheck, selfCheck);
    VES_SET(VesSolverSetMixedPrecision, mixedPrecision);
    VES_SET(VesSolverSetInnerSteps, innerSteps);
    VES_SET(VesSolverSetThreads, threads);
    VES_SET(VesSolverSetWanted, wanted);
    VES_SET(VesSolverSetBatchLimit, batchLimit);
    VES_SET(VesSolverSetBatchStart, batchStart);
    VES_SET(VesSolverSetPPCGBatch, ppcgBatch);
    VES_SET(VesSolverSetPPCGSoftLocking, ppcgSoftLocking);
    VES_SET(VesSolverSetPPCGRRPeriod, ppcgRRPeriod);
    VES_SET(VesSolverSetPPCGLockFactor, ppcgLockFactor);
#undef VES_SET
    if (!options.monitor) return;
    m_monitor = std::make_unique<Monitor>();
    m_monitor->follow = options.monitor;
    check(VesSolverSetMonitor(handle(), Monitor::call, m_monitor.get()), "VesSolverSetMonitor");
  }

  VesSolver handle() const {
    return m_handle.get();
  } ///< stays the solver's

  /// Keeps the vectors of runs B-orthogonal to the columns of Y, as VesSolverSetDeflation: Y must
  /// outlive the runs, or the call of stopDeflating. Throws Error.
  void deflate(const Block<Scalar>& Y) {
    check(VesSolverSetDeflation(handle(), Y.handle()), "VesSolverSetDeflation");
  }
  /// Ends what deflate began. Throws Error.
  void stopDeflating() {
    check(VesSolverSetDeflation(handle(), nullptr), "VesSolverSetDeflation");
  }

  /// The lowest pairs of A x = lambda x, or with a B of A x = lambda B x, as VesRunSolver: X holds
  /// the guess and then the vectors. B and T may be none. Collective. Throws Error as VesRunSolver,
  /// and what operators and monitor threw; X then holds anything.
  Outcome<Scalar> solve(const Operator<Scalar>& A, const Operator<Scalar>& B,
                        const Operator<Scalar>& T, const Block<Scalar>& X) {
    const Block<Scalar> D(X.cols(), 1, X.comm(), X.second());
    check(VesSolverSetProblemType(handle(), B.handle() == nullptr ? VES_PROBLEM_STANDARD
                                                                  : VES_PROBLEM_GENERALIZED),
          "VesSolverSetProblemType");
    finish(VesRunSolver(handle(), A.handle(), B.handle(), T.handle(), X.handle(), D.handle()),
           "VesRunSolver", A, B, T, *this);
    Outcome<Scalar> outcome;
    for (int j = 0; j < X.cols(); ++j)
      outcome.values.push_back(std::real(D(j, 0)));
    check(VesGetSolverReason(handle(), &outcome.reason), "VesGetSolverReason");
    check(VesGetSolverConv(handle(), &outcome.converged), "VesGetSolverConv");
    check(VesGetSolverIter(handle(), &outcome.iterations), "VesGetSolverIter");
    check(VesGetSolverStats(handle(), &outcome.stats), "VesGetSolverStats");
    return outcome;
  }
  /// The same in the standard problem, without preconditioner.
  Outcome<Scalar> solve(const Operator<Scalar>& A, const Block<Scalar>& X) {
    return solve(A, {}, {}, X);
  }

  /// Bytes that a run takes on this process beside X, by VesSolverMemory.
  std::size_t memory(int nRows, int nCols, bool isGeneralized) const {
    std::size_t bytes = 0;
    check(VesSolverMemory(handle(), nRows, nCols, isGeneralized, &bytes), "VesSolverMemory");
    return bytes;
  }

  /// What the monitor threw since the last time, for those that call the library themselves.
  std::exception_ptr takeFailure() const {
    return m_monitor ? m_monitor->take() : nullptr;
  }

private:
  struct Monitor final : Failures {
    static int call(void* self, const VesProgress* progress) noexcept {
      auto& monitor = *static_cast<Monitor*>(self);
      bool ends = true;
      monitor.guard([&] { ends = monitor.follow(*progress); });
      return ends ? 1 : 0;
    }

    std::function<bool(const VesProgress&)> follow;
  };

  std::unique_ptr<Monitor> m_monitor;
  SolverHandle m_handle;
};

/// The nPairs lowest pairs from a random guess, for n rows on this process. Collective over comm.
/// Throws Error as Solver, Block (for a shortage of memory with -1) and VesRunSolver on all
/// processes, and what operators and monitor threw.
template <typename Scalar>
Solution<Scalar> solve(const Operator<Scalar>& A, const Operator<Scalar>& B,
                       const Operator<Scalar>& T, int nRows, int nPairs,
                       const Options& options = {}, MPI_Comm comm = MPI_COMM_WORLD) {
  if (comm == MPI_COMM_NULL) throw Error(VES_ERR_INVALID_VALUE, "ves::solve");
  std::optional<Solver<Scalar>> solver;
  std::optional<Block<Scalar>> X;
  std::optional<Error> own;
  try {
    solver.emplace(options);
    X.emplace(nRows, nPairs, comm);
  } catch (const Error& error) {
    own = error;
  } catch (const std::exception&) {
    own.emplace(VES_ERR_INVALID_VALUE, "the storage of vectors");
  }
  // One process that leaves alone would keep the others waiting.
  int code = own ? own->code() : VES_GOOD;
  MPI_Allreduce(MPI_IN_PLACE, &code, 1, MPI_INT, MPI_MIN, comm);
  if (own) throw Error(*own);
  check(static_cast<VesReturnCode>(code), "ves::solve on another process");
  fillRandom(*X, options.seed);
  Outcome<Scalar> outcome = solver->solve(A, B, T, *X);
  return {std::move(outcome), std::move(*X)};
}

/// The same in the standard problem, without preconditioner.
template <typename Scalar>
Solution<Scalar> solve(const Operator<Scalar>& A, int nRows, int nPairs,
                       const Options& options = {}, MPI_Comm comm = MPI_COMM_WORLD) {
  return solve(A, {}, {}, nRows, nPairs, options, comm);
}

/* ------------------------------------------------------------------ operators, before a run */

/// What is known of a Hermitian operator.
struct Spectrum {
  double norm = 0.0;   ///< an estimate of the 2-norm from above in all but contrived cases
  double lowest = 0.0; ///< a Ritz value: not below the lowest eigenvalue, but for rounding
};

/// By VesMatrixEstimateSpectrum, for vectors distributed as like. Collective.
template <typename Scalar>
Spectrum estimateSpectrum(const Operator<Scalar>& A, const Block<Scalar>& like) {
  Spectrum found;
  finish(VesMatrixEstimateSpectrum(A.handle(), like.handle(), &found.norm, &found.lowest),
         "VesMatrixEstimateSpectrum", A);
  return found;
}

/* ------------------------------------------------------------------ checks of pairs */

/// Values as the column that the library takes beside their vectors.
template <typename Scalar>
Block<Scalar> makeColumn(const std::vector<Real<Scalar>>& values, const Block<Scalar>& X) {
  Block<Scalar> D(static_cast<int>(values.size()), 1, X.comm(), X.second());
  std::copy(values.begin(), values.end(), D.data());
  return D;
}

/// Euclidean norms of the k columns, by VesVectorNorm. Collective.
template <typename Scalar>
std::vector<Real<Scalar>> columnNorms(const Block<Scalar>& X) {
  const Block<Scalar> norms(X.cols(), 1, X.comm());
  check(VesVectorNorm(X.handle(), norms.handle()), "VesVectorNorm");
  std::vector<Real<Scalar>> reals;
  reals.reserve(static_cast<std::size_t>(X.cols()));
  for (int j = 0; j < X.cols(); ++j)
    reals.push_back(std::real(norms(j, 0)));
  return reals;
}

/// R = A X - B X diag(values), n x k, by VesEigResidual. B may be none. Collective.
template <typename Scalar>
void eigResidual(const Operator<Scalar>& A, const Operator<Scalar>& B, const Block<Scalar>& X,
                 const std::vector<Real<Scalar>>& values, const Block<Scalar>& R) {
  const Block<Scalar> D = makeColumn(values, X);
  finish(VesEigResidual(A.handle(), B.handle(), X.handle(), D.handle(), R.handle()),
         "VesEigResidual", A, B);
}

/// The same into a block of its own; std::bad_alloc where this process alone cannot have it.
template <typename Scalar>
Block<Scalar> eigResidual(const Operator<Scalar>& A, const Operator<Scalar>& B,
                          const Block<Scalar>& X, const std::vector<Real<Scalar>>& values) {
  Block<Scalar> R(X.rows(), X.cols(), X.comm());
  eigResidual(A, B, X, values, R);
  return R;
}

/// How far pairs are from what they should be.
struct PairErrors {
  double residual = 0.0;   ///< largest 2-norm of A x - lambda B x
  double orthoError = 0.0; ///< largest entry of |X^H B X - I|
};

/// Recomputes k pairs, by VesCheckEigenpairs. B may be none. Collective.
template <typename Scalar>
PairErrors checkEigenpairs(const Operator<Scalar>& A, const Operator<Scalar>& B,
                           const Block<Scalar>& X, const std::vector<Real<Scalar>>& values) {
  PairErrors errors;
  const Block<Scalar> D = makeColumn(values, X);
  finish(VesCheckEigenpairs(A.handle(), B.handle(), X.handle(), D.handle(), &errors.residual,
                            &errors.orthoError),
         "VesCheckEigenpairs", A, B);
  return errors;
}

} // namespace ves

#endif
