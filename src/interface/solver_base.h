#ifndef VES_INTERFACE_SOLVER_BASE_H
#define VES_INTERFACE_SOLVER_BASE_H

#include "../data/matrix_base.h"
#include "../data/vector_base.h"
#include "../detector/converge_detector.h"
#include "../eigensolver/dense_eigensolver.h"
#include "../orthogonalizer/orthogonalizer.h"
#include "../projector/ortho_projector.h"

#include <array>
#include <memory>
#include <optional>

/// Base of the solvers: the caller's parameters, the replaceable components and the two results
/// that the caller reads. A run is a const operation that works on mutable state; a solver object
/// serves one run at a time.
struct VES_EXPORT VesSolverBase {
  VesScalarType scalarType = VES_DOUBLE;
  VesProblemType problemType = VES_PROBLEM_STANDARD;
  int reserved0 = 0; ///< not read
  int reserved1 = 1; ///< not read
  double threshold = 1e-6;
  int maxIter = 100;
  mutable int maxOrthoIter = 1;      ///< outer limit of orthogonalization passes of the solvers
  mutable int maxOrthoInnerIter = 1; ///< limit handed to orthogonalizer and projector
  mutable bool needResidualNorms = false; ///< set, and never cleared, by a residual-based detector
  mutable VesDenseEigenSolverType denseEigenSolverType = VES_SCALAPACK_DIAG;
  mutable VesConvergeDetectorType convergeDetectorType = VES_RESIDUALS;
  mutable VesConvergeDetectorType lockDetectorType = VES_RESIDUALS;
  mutable VesOrthogonalizerType orthogonalizerType = VES_CHOLESKY_QR;
  mutable VesOrthoProjectorType orthoProjectorType = VES_GRAM_SCHMIDT;
  mutable VesOrthogonalizerType rankRevealerType = VES_SVD_QR;
  mutable std::unique_ptr<Ves::VesDenseEigenSolver> DenseEigenSolver;
  mutable std::unique_ptr<Ves::VesConvergeDetector> ConvergeDetector;
  mutable std::unique_ptr<Ves::VesConvergeDetector> LockDetector;
  mutable std::unique_ptr<Ves::VesOrthogonalizer> Orthogonalizer;
  mutable std::unique_ptr<Ves::VesOrthoProjector> OrthoProjector;
  mutable std::unique_ptr<Ves::VesOrthogonalizer> RankRevealer;
  mutable bool isGeneralized = false;    ///< decided at the start of each run
  mutable int nConv = 0;                 ///< converged pairs of the last run
  mutable int iter = 0;                  ///< iterations of the last run
  mutable double orthoTol = -1.0;        ///< outer tolerance, set at the start of each run
  mutable double orthoInnerTol = -1.0;   ///< tolerance handed to orthogonalizer and projector
  double mu = 0.01;                      ///< the lock detector runs with threshold * mu
  VesSolverType solverType = VES_LOBPCG; ///< algorithm of the derived class
  bool selfCheck = true;         ///< tests every rotation and restarts where the basis broke down
  bool mixedPrecision = false;   ///< a run begins in single precision
  int innerSteps = 0;            ///< of the preconditioner; -1: as many as pay
  int threads = 0;               ///< that share the work on tall blocks; -1: as many as of BLAS
  int wantedPairs = 0;           ///< leading pairs whose convergence ends a run; 0 stands for all
  VesVector deflation = nullptr; ///< columns that a run keeps its vectors B-orthogonal to
  std::optional<VesConvergeDetectorType> chosenLockDetector; ///< in place of the solver's own
  std::optional<VesOrthogonalizerType> chosenRankRevealer;   ///< in place of the solver's own
  VesMonitor monitor = nullptr;                              ///< called after each iteration
  void* monitorData = nullptr;
  mutable VesSolverReason reason = VES_REASON_NONE; ///< why the last run ended
  mutable VesSolverStats stats{};                   ///< what the last run cost here

  VesSolverBase() = default;
  VesSolverBase(const VesSolverBase&) = delete;
  VesSolverBase& operator=(const VesSolverBase&) = delete;
  virtual ~VesSolverBase();

  /// Computes the lowest eigenpairs of A x = lambda x or A x = lambda B x with preconditioner T,
  /// for as many as X has columns. Collective over X's communicators.
  /// \return -4 X or D is not a dense block of the solver's scalar type; -1 the workspace cannot be
  ///         had on some process, nothing has changed; 0
  virtual VesReturnCode Solve(const VesMatrixBase& matA, const VesMatrixBase& matB,
                              const VesMatrixBase& matT, VesVectorBase& vecX,
                              VesVectorBase& vecD) const = 0;

  /// Bytes that a run takes for nRows local rows and nCols pairs; 0 from a solver that cannot tell.
  virtual std::size_t Memory(int, int, bool) const { return 0; }

  /// Largest order whose workspaces in the dense eigensolvers stay within 32 bits: these hold up to
  /// 2 n^2 + 8 n numbers and ask for them in single precision, rounded up.
  static constexpr int largestDenseOrder = 32765;
  /// Order of the largest dense eigenproblem in a run for so many pairs. A run is refused where it
  /// is above the largest one, which keeps the columns of all blocks within 32 bits, too.
  virtual long long DenseOrder(int) const { return 0; }

  /// Settings that only the derived class has: like those of this class they must be the same on
  /// all processes.
  virtual std::array<int, 3> OwnSettings() const { return {}; }

  /// Takes over all settings of this class, in the scalar type of this solver, but those that a
  /// run of its own has: the monitor, mixed precision and what it deflates. Components become new
  /// ones.
  void TakeSettings(const VesSolverBase& other);

  /// Each setter replaces its component and stores the kind.
  /// \return -4 unknown kind or scalar type, and nothing changes; 0
  VesReturnCode SetDenseEigenSolver(VesDenseEigenSolverType type) const;
  VesReturnCode SetConvergeDetector(VesConvergeDetectorType type) const;
  VesReturnCode SetLockDetector(VesConvergeDetectorType type) const;
  VesReturnCode SetOrthogonalizer(VesOrthogonalizerType type) const;
  VesReturnCode SetOrthoProjector(VesOrthoProjectorType type) const;
  VesReturnCode SetRankRevealer(VesOrthogonalizerType type) const;

protected:
  /// Installs the components that exist between runs, from the kinds stored in the fields. Called
  /// by the solvers' constructors once the scalar type is known.
  void InstallComponents() const;

private:
  template <typename Scalar>
  VesReturnCode CreateDenseEigenSolver(VesDenseEigenSolverType) const;
  template <typename Scalar>
  VesReturnCode CreateConvergeDetector(VesConvergeDetectorType) const;
  template <typename Scalar>
  VesReturnCode CreateLockDetector(VesConvergeDetectorType) const;
};

#endif
