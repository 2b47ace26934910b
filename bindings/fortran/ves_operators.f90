!> Operators: the routine that libves calls is one of ours, which finds the caller's by the link.
submodule(ves) ves_operators
  use, intrinsic :: iso_c_binding
  use ves_c
  implicit none

contains

  module procedure VesMatrixCreate
    integer :: code
    code = c_matrix_create(matrix%handle, scalarType, matrixType)
    matrix%scalarType = scalarType
    if (code == VES_GOOD) allocate (matrix%link, matrix%lowLink)
    call Finish('VesMatrixCreate', code, ierror)
  end procedure VesMatrixCreate

  module procedure VesMatrixSetDim
    call Finish('VesMatrixSetDim', c_matrix_set_dim(matrix%handle, nRows, nCols), ierror)
  end procedure VesMatrixSetDim

  module procedure VesMatrixSetCalledEverywhere
    call Finish('VesMatrixSetCalledEverywhere', &
                c_set_called_everywhere(matrix%handle, logical(isOn, c_bool)), ierror)
  end procedure VesMatrixSetCalledEverywhere

  module procedure SetDoubleOperator
    call SetOperator(matrix, op, VES_DOUBLE, c_funloc(CallDouble), ierror)
  end procedure SetDoubleOperator

  module procedure SetFloatOperator
    call SetOperator(matrix, op, VES_FLOAT, c_funloc(CallFloat), ierror)
  end procedure SetFloatOperator

  module procedure SetComplexDoubleOperator
    call SetOperator(matrix, op, VES_COMPLEX_DOUBLE, c_funloc(CallComplexDouble), ierror)
  end procedure SetComplexDoubleOperator

  module procedure SetComplexFloatOperator
    call SetOperator(matrix, op, VES_COMPLEX_FLOAT, c_funloc(CallComplexFloat), ierror)
  end procedure SetComplexFloatOperator

  subroutine SetOperator(matrix, op, scalarType, routine, ierror)
    type(VesMatrix), intent(in) :: matrix
    class(VesOperator), target, intent(inout) :: op
    integer, intent(in) :: scalarType
    type(c_funptr), value :: routine ! by reference it would be a relocation of read-only data
    integer, intent(out), optional :: ierror
    integer :: code
    if (.not. associated(matrix%link)) then
      code = VES_ERR_NULL_POINTER
    else if (matrix%scalarType /= scalarType) then
      code = VES_ERR_MISMATCH
    else
      code = c_set_mat_vec(matrix%handle, c_loc(matrix%link), routine)
      if (code == VES_GOOD) matrix%link%op => op
    end if
    call Finish('VesMatrixSetShellMatVec', code, ierror)
  end subroutine SetOperator

  module procedure SetLowFloatOperator
    call SetLowOperator(matrix, op, VES_DOUBLE, c_funloc(CallFloat), ierror)
  end procedure SetLowFloatOperator

  module procedure SetLowComplexFloatOperator
    call SetLowOperator(matrix, op, VES_COMPLEX_DOUBLE, c_funloc(CallComplexFloat), ierror)
  end procedure SetLowComplexFloatOperator

  !> scalarType is that of the matrix.
  subroutine SetLowOperator(matrix, op, scalarType, routine, ierror)
    type(VesMatrix), intent(in) :: matrix
    class(VesOperator), target, intent(inout) :: op
    integer, intent(in) :: scalarType
    type(c_funptr), value :: routine
    integer, intent(out), optional :: ierror
    integer :: code
    if (.not. associated(matrix%lowLink)) then
      code = VES_ERR_NULL_POINTER
    else if (matrix%scalarType /= scalarType) then
      code = VES_ERR_MISMATCH
    else
      code = c_set_mat_vec_low(matrix%handle, c_loc(matrix%lowLink), routine)
      if (code == VES_GOOD) matrix%lowLink%op => op
    end if
    call Finish('VesMatrixSetShellMatVecLow', code, ierror)
  end subroutine SetLowOperator

  module procedure RemoveLowOperator
    call Finish('VesMatrixSetShellMatVecLow', &
                c_set_mat_vec_low(matrix%handle, c_null_ptr, c_null_funptr), ierror)
  end procedure RemoveLowOperator

  module procedure SetRoutineOfC
    integer :: code
    code = c_set_mat_vec(matrix%handle, userData, matVec)
    if (code == VES_GOOD) nullify (matrix%link%op)
    call Finish('VesMatrixSetShellMatVec', code, ierror)
  end procedure SetRoutineOfC

  module procedure SetRowsF08
    call SetRowsInteger(matrix, comm%MPI_VAL, starts, columns, values, ierror)
  end procedure SetRowsF08

  ! What this process finds wrong it tells by a number of rows that is refused on all.
  module procedure SetRowsInteger
    integer(c_long_long), allocatable, target :: from(:), places(:)
    type(c_ptr) :: address
    integer :: code, nRows, scalarType
    address = c_null_ptr
    scalarType = -1
    select type (values)
    type is (real(real64))
      scalarType = VES_DOUBLE
      if (size(values) > 0) address = c_loc(values)
    type is (real(real32))
      scalarType = VES_FLOAT
      if (size(values) > 0) address = c_loc(values)
    type is (complex(real64))
      scalarType = VES_COMPLEX_DOUBLE
      if (size(values) > 0) address = c_loc(values)
    type is (complex(real32))
      scalarType = VES_COMPLEX_FLOAT
      if (size(values) > 0) address = c_loc(values)
    end select
    nRows = size(starts) - 1
    if (nRows >= 0) then
      if (starts(nRows + 1) - 1 > min(size(columns, kind=c_long_long), &
                                      size(values, kind=c_long_long))) nRows = -1
    end if
    if (scalarType /= matrix%scalarType .or. .not. is_contiguous(values)) nRows = -1
    allocate (from(size(starts) + 1), places(size(columns) + 1)) ! never of no size
    from(:size(starts)) = starts - 1
    places(:size(columns)) = columns - 1
    code = c_set_rows(matrix%handle, comm, nRows, c_loc(from), c_loc(places), address)
    if (code == VES_GOOD) nullify (matrix%link%op)
    call Finish('VesMatrixSetRows', code, ierror)
  end procedure SetRowsInteger

  module procedure VesMatrixMultiply
    call Finish('VesMatrixMultiply', c_multiply(matrix%handle, X%handle, Y%handle), ierror)
  end procedure VesMatrixMultiply

  module procedure VesMatrixSetShellPair
    call Finish('VesMatrixSetShellPair', c_set_pair(A%handle, B%handle, userData, routine), ierror)
  end procedure VesMatrixSetShellPair

  module procedure VesMatrixGetShellUserData
    nullify (op)
    if (associated(matrix%link)) op => matrix%link%op
  end procedure VesMatrixGetShellUserData

  module procedure VesMatrixDestroy
    call c_matrix_destroy(matrix%handle)
    if (associated(matrix%link)) deallocate (matrix%link, matrix%lowLink)
    matrix = VesMatrix()
  end procedure VesMatrixDestroy

  ! ------------------------------------------------------------------ called by libves

  subroutine CallDouble(userData, x, y, nRows, nCols, ld) bind(c, name='')
    type(c_ptr), value :: userData, x, y
    integer(c_int), value :: nRows, nCols, ld
    type(OperatorLink), pointer :: link
    real(real64), pointer :: xs(:, :), ys(:, :)
    call c_f_pointer(userData, link)
    call c_f_pointer(x, xs, [ld, nCols])
    call c_f_pointer(y, ys, [ld, nCols])
    select type (op => link%op)
    class is (VesDoubleOperator)
      call op%Apply(xs(:nRows, :), ys(:nRows, :))
    end select
  end subroutine CallDouble

  subroutine CallFloat(userData, x, y, nRows, nCols, ld) bind(c, name='')
    type(c_ptr), value :: userData, x, y
    integer(c_int), value :: nRows, nCols, ld
    type(OperatorLink), pointer :: link
    real(real32), pointer :: xs(:, :), ys(:, :)
    call c_f_pointer(userData, link)
    call c_f_pointer(x, xs, [ld, nCols])
    call c_f_pointer(y, ys, [ld, nCols])
    select type (op => link%op)
    class is (VesFloatOperator)
      call op%Apply(xs(:nRows, :), ys(:nRows, :))
    end select
  end subroutine CallFloat

  subroutine CallComplexDouble(userData, x, y, nRows, nCols, ld) bind(c, name='')
    type(c_ptr), value :: userData, x, y
    integer(c_int), value :: nRows, nCols, ld
    type(OperatorLink), pointer :: link
    complex(real64), pointer :: xs(:, :), ys(:, :)
    call c_f_pointer(userData, link)
    call c_f_pointer(x, xs, [ld, nCols])
    call c_f_pointer(y, ys, [ld, nCols])
    select type (op => link%op)
    class is (VesComplexDoubleOperator)
      call op%Apply(xs(:nRows, :), ys(:nRows, :))
    end select
  end subroutine CallComplexDouble

  subroutine CallComplexFloat(userData, x, y, nRows, nCols, ld) bind(c, name='')
    type(c_ptr), value :: userData, x, y
    integer(c_int), value :: nRows, nCols, ld
    type(OperatorLink), pointer :: link
    complex(real32), pointer :: xs(:, :), ys(:, :)
    call c_f_pointer(userData, link)
    call c_f_pointer(x, xs, [ld, nCols])
    call c_f_pointer(y, ys, [ld, nCols])
    select type (op => link%op)
    class is (VesComplexFloatOperator)
      call op%Apply(xs(:nRows, :), ys(:nRows, :))
    end select
  end subroutine CallComplexFloat
end submodule ves_operators
