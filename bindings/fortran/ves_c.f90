!> The functions of ves.h as C declares them, and what turns their results into Fortran's.
module ves_c
  use, intrinsic :: iso_c_binding
  use, intrinsic :: iso_fortran_env, only: error_unit
  implicit none
  private :: error_unit

  abstract interface
    function CreateFunction(out, scalarType, kind) bind(c) result(code)
      import :: c_int, c_ptr
      type(c_ptr), intent(inout) :: out ! keeps its value in a refused call
      integer(c_int), value :: scalarType, kind
      integer(c_int) :: code
    end function CreateFunction
    subroutine DestroyFunction(handle) bind(c)
      import :: c_ptr
      type(c_ptr), value :: handle
    end subroutine DestroyFunction
    function SetFunction(handle, number) bind(c) result(code)
      import :: c_int, c_ptr
      type(c_ptr), value :: handle
      integer(c_int), value :: number
      integer(c_int) :: code
    end function SetFunction
    function SetHandleFunction(handle, other) bind(c) result(code)
      import :: c_int, c_ptr
      type(c_ptr), value :: handle, other
      integer(c_int) :: code
    end function SetHandleFunction
    function SetDoubleFunction(handle, number) bind(c) result(code)
      import :: c_double, c_int, c_ptr
      type(c_ptr), value :: handle
      real(c_double), value :: number
      integer(c_int) :: code
    end function SetDoubleFunction
    function SetTwoFunction(handle, first, second) bind(c) result(code)
      import :: c_int, c_ptr
      type(c_ptr), value :: handle
      integer(c_int), value :: first, second
      integer(c_int) :: code
    end function SetTwoFunction
    function GetFunction(handle, number) bind(c) result(code)
      import :: c_int, c_ptr
      type(c_ptr), value :: handle
      integer(c_int), intent(out) :: number
      integer(c_int) :: code
    end function GetFunction
    function SwitchFunction(handle, isOn) bind(c) result(code)
      import :: c_bool, c_int, c_ptr
      type(c_ptr), value :: handle
      logical(c_bool), value :: isOn
      integer(c_int) :: code
    end function SwitchFunction
    function TextFunction(number) bind(c) result(text)
      import :: c_int, c_ptr
      integer(c_int), value :: number
      type(c_ptr) :: text
    end function TextFunction
  end interface

  procedure(CreateFunction), bind(c, name='VesMatrixCreate') :: c_matrix_create
  procedure(CreateFunction), bind(c, name='VesVectorCreate') :: c_vector_create
  procedure(CreateFunction), bind(c, name='VesSolverCreate') :: c_solver_create
  procedure(DestroyFunction), bind(c, name='VesMatrixDestroy') :: c_matrix_destroy
  procedure(DestroyFunction), bind(c, name='VesVectorDestroy') :: c_vector_destroy
  procedure(DestroyFunction), bind(c, name='VesSolverDestroy') :: c_solver_destroy
  procedure(SetFunction), bind(c, name='VesSolverSetProblemType') :: c_set_problem_type
  procedure(SetFunction), bind(c, name='VesSolverSetMaxIter') :: c_set_max_iter
  procedure(SetFunction), bind(c, name='VesSolverSetInnerSteps') :: c_set_inner_steps
  procedure(SetFunction), bind(c, name='VesSolverSetThreads') :: c_set_threads
  procedure(SetFunction), bind(c, name='VesSolverSetWanted') :: c_set_wanted
  procedure(SetHandleFunction), bind(c, name='VesSolverSetDeflation') :: c_set_deflation
  procedure(SetFunction), bind(c, name='VesSolverSetMaxOrthoIter') :: c_set_max_ortho_iter
  procedure(SetFunction), bind(c, name='VesSetDenseEigenSolverType') :: c_set_dense_eigensolver
  procedure(SetFunction), bind(c, name='VesSetConvergeDetectorType') :: c_set_converge_detector
  procedure(SetFunction), bind(c, name='VesSetOrthogonalizerType') :: c_set_orthogonalizer
  procedure(SetFunction), bind(c, name='VesSetOrthoProjectorType') :: c_set_ortho_projector
  procedure(SetFunction), bind(c, name='VesSolverSetBatchLimit') :: c_set_batch_limit
  procedure(SetFunction), bind(c, name='VesSolverSetBatchStart') :: c_set_batch_start
  procedure(SetFunction), bind(c, name='VesSolverSetPPCGSoftLocking') :: c_set_ppcg_soft_locking
  procedure(SetFunction), bind(c, name='VesSolverSetPPCGBatch') :: c_set_ppcg_batch
  procedure(SetFunction), bind(c, name='VesSolverSetPPCGRRPeriod') :: c_set_ppcg_rr_period
  procedure(SetFunction), bind(c, name='VesSolverSetLockDetectorType') :: c_set_lock_detector
  procedure(SetFunction), bind(c, name='VesSolverSetRankRevealerType') :: c_set_rank_revealer
  procedure(SetDoubleFunction), bind(c, name='VesSolverSetThreshold') :: c_set_threshold
  procedure(SetDoubleFunction), bind(c, name='VesSolverSetLockFactor') :: c_set_lock_factor
  procedure(SetDoubleFunction), bind(c, name='VesSolverSetPPCGLockFactor') :: c_set_ppcg_lock_factor
  procedure(SetTwoFunction), bind(c, name='VesMatrixSetDim') :: c_matrix_set_dim
  procedure(SetTwoFunction), bind(c, name='VesVectorSetDim') :: c_vector_set_dim
  procedure(SwitchFunction), bind(c, name='VesMatrixSetCalledEverywhere') :: c_set_called_everywhere
  procedure(SwitchFunction), bind(c, name='VesSolverSetSelfCheck') :: c_set_self_check
  procedure(SwitchFunction), bind(c, name='VesSolverSetMixedPrecision') :: c_set_mixed_precision
  procedure(GetFunction), bind(c, name='VesGetSolverIter') :: c_get_iter
  procedure(GetFunction), bind(c, name='VesGetSolverConv') :: c_get_conv
  procedure(GetFunction), bind(c, name='VesGetSolverReason') :: c_get_reason
  procedure(TextFunction), bind(c, name='VesErrorString') :: c_error_string
  procedure(TextFunction), bind(c, name='VesReasonString') :: c_reason_string

  interface
    function c_set_mat_vec(matrix, userData, matVec) bind(c, name='VesMatrixSetShellMatVec') &
        result(code)
      import :: c_funptr, c_int, c_ptr
      type(c_ptr), value :: matrix, userData
      type(c_funptr), value :: matVec
      integer(c_int) :: code
    end function c_set_mat_vec
    function c_set_mat_vec_low(matrix, userData, matVec) &
        bind(c, name='VesMatrixSetShellMatVecLow') result(code)
      import :: c_funptr, c_int, c_ptr
      type(c_ptr), value :: matrix, userData
      type(c_funptr), value :: matVec
      integer(c_int) :: code
    end function c_set_mat_vec_low
    function c_set_pair(A, B, userData, routine) bind(c, name='VesMatrixSetShellPair') result(code)
      import :: c_funptr, c_int, c_ptr
      type(c_ptr), value :: A, B, userData
      type(c_funptr), value :: routine
      integer(c_int) :: code
    end function c_set_pair
    function c_set_rows(matrix, comm, nRows, starts, columns, values) &
        bind(c, name='VesMatrixSetRows_f') result(code)
      import :: c_int, c_ptr
      type(c_ptr), value :: matrix, starts, columns, values
      integer(c_int), value :: comm, nRows
      integer(c_int) :: code
    end function c_set_rows
    function c_multiply(matrix, X, Y) bind(c, name='VesMatrixMultiply') result(code)
      import :: c_int, c_ptr
      type(c_ptr), value :: matrix, X, Y
      integer(c_int) :: code
    end function c_multiply
    function c_set_comm(vector, slot, comm) bind(c, name='VesVectorSetComm_f') result(code)
      import :: c_int, c_ptr
      type(c_ptr), value :: vector
      integer(c_int), value :: slot
      integer(c_int), value :: comm ! MPI_Fint
      integer(c_int) :: code
    end function c_set_comm
    function c_set_values(vector, values, ld) bind(c, name='VesVectorDenseSetValues') result(code)
      import :: c_int, c_ptr
      type(c_ptr), value :: vector, values
      integer(c_int), value :: ld
      integer(c_int) :: code
    end function c_set_values
    function c_get_values(vector) bind(c, name='VesVectorDenseGetValues') result(values)
      import :: c_ptr
      type(c_ptr), value :: vector
      type(c_ptr) :: values
    end function c_get_values
    function c_replicate(src, out, doAllocate, doCopy) bind(c, name='VesVectorReplicate') &
        result(code)
      import :: c_bool, c_int, c_ptr
      type(c_ptr), value :: src
      type(c_ptr), intent(inout) :: out
      logical(c_bool), value :: doAllocate, doCopy
      integer(c_int) :: code
    end function c_replicate
    function c_norm(x, norms) bind(c, name='VesVectorNorm') result(code)
      import :: c_int, c_ptr
      type(c_ptr), value :: x, norms
      integer(c_int) :: code
    end function c_norm
    function c_eig_residual(A, B, X, D, R) bind(c, name='VesEigResidual') result(code)
      import :: c_int, c_ptr
      type(c_ptr), value :: A, B, X, D, R
      integer(c_int) :: code
    end function c_eig_residual
    function c_run(solver, A, B, T, X, D) bind(c, name='VesRunSolver') result(code)
      import :: c_int, c_ptr
      type(c_ptr), value :: solver, A, B, T, X, D
      integer(c_int) :: code
    end function c_run
    function c_check(A, B, X, D, maxResidual, maxOrthoError) bind(c, name='VesCheckEigenpairs') &
        result(code)
      import :: c_double, c_int, c_ptr
      type(c_ptr), value :: A, B, X, D
      real(c_double), intent(out) :: maxResidual, maxOrthoError
      integer(c_int) :: code
    end function c_check
    function c_estimate_spectrum(A, like, norm, lowest) bind(c, name='VesMatrixEstimateSpectrum') &
        result(code)
      import :: c_double, c_int, c_ptr
      type(c_ptr), value :: A, like
      real(c_double), intent(out) :: norm, lowest
      integer(c_int) :: code
    end function c_estimate_spectrum
    function c_set_monitor(solver, monitor, userData) bind(c, name='VesSolverSetMonitor') &
        result(code)
      import :: c_funptr, c_int, c_ptr
      type(c_ptr), value :: solver, userData
      type(c_funptr), value :: monitor
      integer(c_int) :: code
    end function c_set_monitor
    function c_get_stats(solver, stats) bind(c, name='VesGetSolverStats') result(code)
      import :: c_int, c_ptr
      type(c_ptr), value :: solver, stats
      integer(c_int) :: code
    end function c_get_stats
    function c_memory(solver, nRows, nCols, generalized, bytes) bind(c, name='VesSolverMemory') &
        result(code)
      import :: c_bool, c_int, c_ptr, c_size_t
      type(c_ptr), value :: solver
      integer(c_int), value :: nRows, nCols
      logical(c_bool), value :: generalized
      integer(c_size_t), intent(out) :: bytes
      integer(c_int) :: code
    end function c_memory
    function c_version() bind(c, name='VesGetVersion') result(text)
      import :: c_ptr
      type(c_ptr) :: text
    end function c_version
    function c_strlen(text) bind(c, name='strlen') result(length)
      import :: c_ptr, c_size_t
      type(c_ptr), value :: text
      integer(c_size_t) :: length
    end function c_strlen
  end interface

contains

  !> Hands a code to the caller, or ends the program where the caller does not ask for it.
  subroutine Finish(call, code, ierror)
    character(*), intent(in) :: call
    integer(c_int), intent(in) :: code
    integer, intent(out), optional :: ierror
    if (present(ierror)) then
      ierror = code
    else if (code /= 0) then
      write (error_unit, '(4a, i0, a)') call, ': ', FromC(c_error_string(code)), ' (', code, ')'
      error stop 1
    end if
  end subroutine Finish

  function FromC(chars) result(text)
    type(c_ptr), intent(in) :: chars
    character(:), allocatable :: text
    character(kind=c_char), pointer :: each(:)
    integer :: i
    call c_f_pointer(chars, each, [c_strlen(chars)])
    allocate (character(size(each)) :: text)
    do i = 1, size(each)
      text(i:i) = each(i)
    end do
  end function FromC
end module ves_c
