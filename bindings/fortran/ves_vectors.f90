!> Blocks of vectors. The handle remembers shape and leading dimension, which libves does not tell.
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
    vector%scalarType = scalarType
    call Finish('VesVectorCreate', code, ierror)
  end procedure VesVectorCreate

  module procedure VesVectorSetDim
    integer :: code
    code = VES_ERR_MISMATCH
    if (nCols <= vector%columns) code = c_vector_set_dim(vector%handle, nRows, nCols)
    if (code == VES_GOOD) then
      vector%nRows = nRows
      vector%nCols = nCols
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
    copy%scalarType = src%scalarType
    copy%nRows = src%nRows
    copy%nCols = src%nCols
    copy%ld = src%ld
    if (doAllocate) then
      copy%ld = max(src%ld, src%nRows)
      copy%columns = src%nCols
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
    type(VesVector), intent(inout) :: vector
    integer, intent(in) :: scalarType, extents(:)
    type(c_ptr), intent(in) :: address
    logical, intent(in) :: isContiguous
    integer, intent(out), optional :: ierror
    integer :: code, ld, columns
    code = VES_ERR_MISMATCH
    if (size(extents) == 1 .or. size(extents) == 2) then
      ld = max(1, extents(1))
      columns = product(extents(2:))
      if (.not. c_associated(vector%handle)) then
        code = VES_ERR_NULL_POINTER
      else if (scalarType /= vector%scalarType .or. columns < vector%nCols) then
        code = VES_ERR_MISMATCH
      else if (.not. isContiguous) then
        code = VES_ERR_INVALID_VALUE
      else
        code = c_set_values(vector%handle, address, ld)
      end if
    end if
    if (code == VES_GOOD) then
      vector%ld = ld
      vector%columns = columns
    end if
    call Finish('VesVectorDenseSetValues', code, ierror)
  end subroutine SetStorage

  module procedure GetDoubleValues
    real(real64), pointer :: storage(:, :)
    nullify (values)
    if (.not. HasStorage(vector, VES_DOUBLE)) return
    call c_f_pointer(c_get_values(vector%handle), storage, [vector%ld, vector%nCols])
    values => storage(:vector%nRows, :)
  end procedure GetDoubleValues

  module procedure GetFloatValues
    real(real32), pointer :: storage(:, :)
    nullify (values)
    if (.not. HasStorage(vector, VES_FLOAT)) return
    call c_f_pointer(c_get_values(vector%handle), storage, [vector%ld, vector%nCols])
    values => storage(:vector%nRows, :)
  end procedure GetFloatValues

  module procedure GetComplexDoubleValues
    complex(real64), pointer :: storage(:, :)
    nullify (values)
    if (.not. HasStorage(vector, VES_COMPLEX_DOUBLE)) return
    call c_f_pointer(c_get_values(vector%handle), storage, [vector%ld, vector%nCols])
    values => storage(:vector%nRows, :)
  end procedure GetComplexDoubleValues

  module procedure GetComplexFloatValues
    complex(real32), pointer :: storage(:, :)
    nullify (values)
    if (.not. HasStorage(vector, VES_COMPLEX_FLOAT)) return
    call c_f_pointer(c_get_values(vector%handle), storage, [vector%ld, vector%nCols])
    values => storage(:vector%nRows, :)
  end procedure GetComplexFloatValues

  ! Rows beyond the leading dimension are a mistake that a run will refuse.
  logical function HasStorage(vector, scalarType)
    type(VesVector), intent(in) :: vector
    integer, intent(in) :: scalarType
    HasStorage = c_associated(c_get_values(vector%handle))
    HasStorage = HasStorage .and. vector%scalarType == scalarType .and. vector%nRows <= vector%ld
  end function HasStorage
end submodule ves_vectors
