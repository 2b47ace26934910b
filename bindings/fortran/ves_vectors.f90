!> Blocks of vectors. Their state here holds what libves does not tell: kind, shape, storage.
submodule(ves) ves_vectors
  use, intrinsic :: iso_c_binding
  use ves_c
  implicit none

  ! Stands for the storage of a block without entries, which has no address of its own.
  real(real64), target, save :: nothing(1) = 0

contains

  module procedure VesVectorCreate
    integer :: code
    code = c_vector_create(vector%handle, scalarType, vectorType)
    if (code == VES_GOOD) allocate (vector%state, source=BlockState(scalarType))
    call Finish('VesVectorCreate', code, ierror)
  end procedure VesVectorCreate

  module procedure VesVectorSetDim
    integer :: code
    if (.not. associated(vector%state)) then
      code = VES_ERR_NULL_POINTER
    else if (nCols > vector%state%columns) then
      code = VES_ERR_MISMATCH
    else
      code = c_vector_set_dim(vector%handle, nRows, nCols)
    end if
    if (code == VES_GOOD) then
      vector%state%nRows = nRows
      vector%state%nCols = nCols
    end if
    call Finish('VesVectorSetDim', code, ierror)
  end procedure VesVectorSetDim

  module procedure SetCommF08
    call SetCommInteger(vector, slot, comm%mpi_val, ierror)
  end procedure SetCommF08

  module procedure SetCommInteger
    call Finish('VesVectorSetComm', c_set_comm(vector%handle, slot, comm), ierror)
  end procedure SetCommInteger

  module procedure VesVectorReplicate
    integer :: code
    code = c_replicate(src%handle, copy%handle, logical(doAllocate, c_bool), &
                       logical(doCopy, c_bool))
    if (c_associated(copy%handle)) then
      allocate (copy%state, source=src%state)
      copy%state%columns = huge(1)
      if (doAllocate) then
        copy%state%ld = max(src%state%ld, src%state%nRows)
        copy%state%columns = src%state%nCols
      end if
    end if
    call Finish('VesVectorReplicate', code, ierror)
  end procedure VesVectorReplicate

  module procedure VesVectorNorm
    call Finish('VesVectorNorm', c_norm(x%handle, norms%handle), ierror)
  end procedure VesVectorNorm

  module procedure VesEigResidual
    type(VesMatrix) :: second
    if (present(B)) second = B
    call Finish('VesEigResidual', &
                c_eig_residual(A%handle, second%handle, X%handle, D%handle, R%handle), ierror)
  end procedure VesEigResidual

  module procedure VesVectorDestroy
    call c_vector_destroy(vector%handle)
    if (associated(vector%state)) deallocate (vector%state)
    vector = VesVector()
  end procedure VesVectorDestroy

  ! ------------------------------------------------------------------ storage

  module procedure SetDoubleValues
    type(c_ptr) :: address
    address = c_loc(nothing)
    if (size(values) > 0) address = c_loc(values)
    call SetStorage(vector, VES_DOUBLE, address, shape(values), is_contiguous(values), ierror)
  end procedure SetDoubleValues

  module procedure SetFloatValues
    type(c_ptr) :: address
    address = c_loc(nothing)
    if (size(values) > 0) address = c_loc(values)
    call SetStorage(vector, VES_FLOAT, address, shape(values), is_contiguous(values), ierror)
  end procedure SetFloatValues

  module procedure SetComplexDoubleValues
    type(c_ptr) :: address
    address = c_loc(nothing)
    if (size(values) > 0) address = c_loc(values)
    call SetStorage(vector, VES_COMPLEX_DOUBLE, address, shape(values), is_contiguous(values), &
                    ierror)
  end procedure SetComplexDoubleValues

  module procedure SetComplexFloatValues
    type(c_ptr) :: address
    address = c_loc(nothing)
    if (size(values) > 0) address = c_loc(values)
    call SetStorage(vector, VES_COMPLEX_FLOAT, address, shape(values), is_contiguous(values), &
                    ierror)
  end procedure SetComplexFloatValues

  subroutine SetStorage(vector, scalarType, address, extents, isContiguous, ierror)
    type(VesVector), intent(in) :: vector
    integer, intent(in) :: scalarType, extents(:)
    type(c_ptr), intent(in) :: address
    logical, intent(in) :: isContiguous
    integer, intent(out), optional :: ierror
    integer :: code, ld, columns
    ld = 0
    columns = 0
    if (size(extents) == 1 .or. size(extents) == 2) then
      ld = max(1, extents(1))
      columns = product(extents(2:))
    end if
    if (.not. associated(vector%state)) then
      code = VES_ERR_NULL_POINTER
    else if (ld == 0 .or. scalarType /= vector%state%scalarType) then
      code = VES_ERR_MISMATCH
    else if (columns < vector%state%nCols) then
      code = VES_ERR_MISMATCH
    else if (.not. isContiguous) then
      code = VES_ERR_INVALID_VALUE
    else
      code = c_set_values(vector%handle, address, ld)
    end if
    if (code == VES_GOOD) then
      vector%state%ld = ld
      vector%state%columns = columns
    end if
    call Finish('VesVectorDenseSetValues', code, ierror)
  end subroutine SetStorage

  module procedure GetDoubleValues
    real(real64), pointer :: storage(:, :)
    nullify (values)
    if (.not. HasStorage(vector, VES_DOUBLE)) return
    call c_f_pointer(c_get_values(vector%handle), storage, [vector%state%ld, vector%state%nCols])
    values => storage(:vector%state%nRows, :)
  end procedure GetDoubleValues

  module procedure GetFloatValues
    real(real32), pointer :: storage(:, :)
    nullify (values)
    if (.not. HasStorage(vector, VES_FLOAT)) return
    call c_f_pointer(c_get_values(vector%handle), storage, [vector%state%ld, vector%state%nCols])
    values => storage(:vector%state%nRows, :)
  end procedure GetFloatValues

  module procedure GetComplexDoubleValues
    complex(real64), pointer :: storage(:, :)
    nullify (values)
    if (.not. HasStorage(vector, VES_COMPLEX_DOUBLE)) return
    call c_f_pointer(c_get_values(vector%handle), storage, [vector%state%ld, vector%state%nCols])
    values => storage(:vector%state%nRows, :)
  end procedure GetComplexDoubleValues

  module procedure GetComplexFloatValues
    complex(real32), pointer :: storage(:, :)
    nullify (values)
    if (.not. HasStorage(vector, VES_COMPLEX_FLOAT)) return
    call c_f_pointer(c_get_values(vector%handle), storage, [vector%state%ld, vector%state%nCols])
    values => storage(:vector%state%nRows, :)
  end procedure GetComplexFloatValues

  ! Rows beyond the leading dimension are a mistake that a run will refuse.
  logical function HasStorage(vector, scalarType)
    type(VesVector), intent(in) :: vector
    integer, intent(in) :: scalarType
    HasStorage = c_associated(c_get_values(vector%handle))
    if (.not. HasStorage) return
    HasStorage = vector%state%scalarType == scalarType .and. vector%state%nRows <= vector%state%ld
  end function HasStorage
end submodule ves_vectors
