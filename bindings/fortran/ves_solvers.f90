!> Solvers and their settings.
submodule(ves) ves_solvers
  use, intrinsic :: iso_c_binding
  use ves_c
  implicit none

contains

  module procedure VesSolverCreate
    integer :: code
    code = c_solver_create(solver%handle, scalarType, solverType)
    if (code == VES_GOOD) allocate (solver%link)
    call Finish('VesSolverCreate', code, ierror)
  end procedure VesSolverCreate

  module procedure VesSolverDestroy
    call c_solver_destroy(solver%handle)
    if (associated(solver%link)) deallocate (solver%link)
    solver = VesSolver()
  end procedure VesSolverDestroy

  module procedure VesRunSolver
    type(VesMatrix) :: second, preconditioner
    if (present(B)) second = B
    if (present(T)) preconditioner = T
    call Finish('VesRunSolver', c_run(solver%handle, A%handle, second%handle, &
                                      preconditioner%handle, X%handle, D%handle), ierror)
  end procedure VesRunSolver

  module procedure VesCheckEigenpairs
    type(VesMatrix) :: second
    if (present(B)) second = B
    call Finish('VesCheckEigenpairs', c_check(A%handle, second%handle, X%handle, D%handle, &
                                              maxResidual, maxOrthoError), ierror)
  end procedure VesCheckEigenpairs

  module procedure VesMatrixEstimateSpectrum
    call Finish('VesMatrixEstimateSpectrum', &
                c_estimate_spectrum(A%handle, like%handle, norm, lowest), ierror)
  end procedure VesMatrixEstimateSpectrum

  module procedure VesSolverSetThreshold
    call Finish('VesSolverSetThreshold', c_set_threshold(solver%handle, threshold), ierror)
  end procedure VesSolverSetThreshold

  module procedure VesSolverSetLockFactor
    call Finish('VesSolverSetLockFactor', c_set_lock_factor(solver%handle, factor), ierror)
  end procedure VesSolverSetLockFactor

  module procedure VesSolverSetPPCGLockFactor
    call Finish('VesSolverSetPPCGLockFactor', c_set_ppcg_lock_factor(solver%handle, mu), ierror)
  end procedure VesSolverSetPPCGLockFactor

  module procedure VesSolverSetSelfCheck
    call Finish('VesSolverSetSelfCheck', c_set_self_check(solver%handle, logical(isOn, c_bool)), &
                ierror)
  end procedure VesSolverSetSelfCheck

  module procedure VesSolverSetMixedPrecision
    call Finish('VesSolverSetMixedPrecision', &
                c_set_mixed_precision(solver%handle, logical(isOn, c_bool)), ierror)
  end procedure VesSolverSetMixedPrecision

  module procedure VesSolverSetInnerSteps
    call Finish('VesSolverSetInnerSteps', c_set_inner_steps(solver%handle, n), ierror)
  end procedure VesSolverSetInnerSteps

  module procedure VesSolverSetThreads
    call Finish('VesSolverSetThreads', c_set_threads(solver%handle, n), ierror)
  end procedure VesSolverSetThreads

  module procedure VesSolverSetWanted
    call Finish('VesSolverSetWanted', c_set_wanted(solver%handle, n), ierror)
  end procedure VesSolverSetWanted

  module procedure VesSolverSetDeflation
    type(c_ptr) :: space
    space = c_null_ptr
    if (present(Y)) space = Y%handle
    call Finish('VesSolverSetDeflation', c_set_deflation(solver%handle, space), ierror)
  end procedure VesSolverSetDeflation

  module procedure VesSolverSetProblemType
    call Finish('VesSolverSetProblemType', c_set_problem_type(solver%handle, problemType), ierror)
  end procedure VesSolverSetProblemType

  module procedure VesSolverSetMaxIter
    call Finish('VesSolverSetMaxIter', c_set_max_iter(solver%handle, maxIter), ierror)
  end procedure VesSolverSetMaxIter

  module procedure VesSolverSetMaxOrthoIter
    call Finish('VesSolverSetMaxOrthoIter', c_set_max_ortho_iter(solver%handle, maxOrthoIter), &
                ierror)
  end procedure VesSolverSetMaxOrthoIter

  module procedure VesSetDenseEigenSolverType
    call Finish('VesSetDenseEigenSolverType', c_set_dense_eigensolver(solver%handle, kind), ierror)
  end procedure VesSetDenseEigenSolverType

  module procedure VesSetConvergeDetectorType
    call Finish('VesSetConvergeDetectorType', c_set_converge_detector(solver%handle, kind), ierror)
  end procedure VesSetConvergeDetectorType

  module procedure VesSetOrthogonalizerType
    call Finish('VesSetOrthogonalizerType', c_set_orthogonalizer(solver%handle, kind), ierror)
  end procedure VesSetOrthogonalizerType

  module procedure VesSetOrthoProjectorType
    call Finish('VesSetOrthoProjectorType', c_set_ortho_projector(solver%handle, kind), ierror)
  end procedure VesSetOrthoProjectorType

  module procedure VesSolverSetBatchLimit
    call Finish('VesSolverSetBatchLimit', c_set_batch_limit(solver%handle, limit), ierror)
  end procedure VesSolverSetBatchLimit

  module procedure VesSolverSetBatchStart
    call Finish('VesSolverSetBatchStart', c_set_batch_start(solver%handle, width), ierror)
  end procedure VesSolverSetBatchStart

  module procedure VesSolverSetPPCGSoftLocking
    call Finish('VesSolverSetPPCGSoftLocking', c_set_ppcg_soft_locking(solver%handle, kind), ierror)
  end procedure VesSolverSetPPCGSoftLocking

  module procedure VesSolverSetPPCGBatch
    call Finish('VesSolverSetPPCGBatch', c_set_ppcg_batch(solver%handle, nBatch), ierror)
  end procedure VesSolverSetPPCGBatch

  module procedure VesSolverSetPPCGRRPeriod
    call Finish('VesSolverSetPPCGRRPeriod', c_set_ppcg_rr_period(solver%handle, rrPeriod), ierror)
  end procedure VesSolverSetPPCGRRPeriod

  module procedure VesSolverSetLockDetectorType
    call Finish('VesSolverSetLockDetectorType', c_set_lock_detector(solver%handle, kind), ierror)
  end procedure VesSolverSetLockDetectorType

  module procedure VesSolverSetRankRevealerType
    call Finish('VesSolverSetRankRevealerType', c_set_rank_revealer(solver%handle, kind), ierror)
  end procedure VesSolverSetRankRevealerType
end submodule ves_solvers
