!> What a run did, the monitor, and texts.
submodule(ves) ves_reports
  use, intrinsic :: iso_c_binding
  use ves_c
  implicit none

  type, bind(c) :: CProgress
    integer(c_int) :: iteration, wanted, converged, locked, active
    type(c_ptr) :: values, residuals
    integer(c_long_long) :: columnsA
  end type CProgress

contains

  module procedure VesGetSolverIter
    call Finish('VesGetSolverIter', c_get_iter(solver%handle, iter), ierror)
  end procedure VesGetSolverIter

  module procedure VesGetSolverConv
    call Finish('VesGetSolverConv', c_get_conv(solver%handle, nConv), ierror)
  end procedure VesGetSolverConv

  module procedure VesGetSolverReason
    call Finish('VesGetSolverReason', c_get_reason(solver%handle, reason), ierror)
  end procedure VesGetSolverReason

  module procedure VesGetSolverStats
    type(VesSolverStats), target :: record
    integer :: code
    code = c_get_stats(solver%handle, c_loc(record))
    if (code == VES_GOOD) stats = record
    call Finish('VesGetSolverStats', code, ierror)
  end procedure VesGetSolverStats

  module procedure VesSolverMemory
    integer(c_size_t) :: count
    integer :: code
    code = c_memory(solver%handle, nRows, nCols, logical(generalized, c_bool), count)
    if (code == VES_GOOD) bytes = count
    call Finish('VesSolverMemory', code, ierror)
  end procedure VesSolverMemory

  module procedure VesSolverSetMonitor
    type(c_funptr) :: routine
    integer :: code
    routine = c_null_funptr
    if (present(monitor)) routine = c_funloc(CallMonitor)
    code = VES_ERR_NULL_POINTER
    if (associated(solver%link)) then
      code = c_set_monitor(solver%handle, routine, c_loc(solver%link))
      nullify (solver%link%monitor)
      if (present(monitor)) solver%link%monitor => monitor
    end if
    call Finish('VesSolverSetMonitor', code, ierror)
  end procedure VesSolverSetMonitor

  integer(c_int) function CallMonitor(userData, state) bind(c, name='')
    type(c_ptr), value :: userData
    type(CProgress), intent(in) :: state
    type(MonitorLink), pointer :: link
    type(VesProgress) :: progress
    call c_f_pointer(userData, link)
    progress%iteration = state%iteration
    progress%wanted = state%wanted
    progress%converged = state%converged
    progress%locked = state%locked
    progress%active = state%active
    progress%columnsA = state%columnsA
    call c_f_pointer(state%values, progress%values, [state%wanted])
    call c_f_pointer(state%residuals, progress%residuals, [state%wanted])
    CallMonitor = merge(1, 0, link%monitor%Report(progress))
  end function CallMonitor

  module procedure VesGetVersion
    text = FromC(c_version())
  end procedure VesGetVersion

  module procedure VesErrorString
    text = FromC(c_error_string(code))
  end procedure VesErrorString

  module procedure VesReasonString
    text = FromC(c_reason_string(reason))
  end procedure VesReasonString
end submodule ves_reports
