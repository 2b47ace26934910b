!> Block eigensolvers for the lowest eigenpairs of large Hermitian problems, from Fortran.
!>
!> This module is the flat interface of ves.h under the same names; what a call does and which codes
!> it returns is told there. Different are:
!> - Functions that return a code are subroutines with an optional last argument ierror, as in MPI.
!>   Without it a refused call ends the program with a text that names call and reason.
!> - Operators B and T may be left out; they follow the arguments that every call needs.
!> - An operator is an extension of VesDoubleOperator or of its three sisters, with a procedure
!>   Apply(self, x, y); what the procedure needs are the components of the extension.
!> - Blocks take arrays of the four kinds; one of another kind than its block is refused with
!>   VES_ERR_MISMATCH.
!> - A communicator is a type(MPI_Comm) of mpi_f08 or an integer of mpi.
!>
!> A handle is released by its Destroy; a copy of a handle is the same object. Values, operators and
!> monitors stay the caller's: they must have the attribute target and outlive their use.
module ves
  use, intrinsic :: iso_c_binding, only: c_funptr, c_null_ptr, c_ptr
  use, intrinsic :: iso_fortran_env, only: int64, real32, real64
  use mpi_f08, only: MPI_Comm
  use ves_types
  implicit none

  private :: MPI_Comm, c_funptr, c_null_ptr, c_ptr, int64, real32, real64

  ! ------------------------------------------------------------------ routines of the caller

  !> What a matrix-free operator extends, through one of the four types below.
  type, abstract :: VesOperator
  end type VesOperator
  type, abstract, extends(VesOperator) :: VesDoubleOperator
  contains
    procedure(ApplyDouble), deferred :: Apply
  end type VesDoubleOperator
  type, abstract, extends(VesOperator) :: VesFloatOperator
  contains
    procedure(ApplyFloat), deferred :: Apply
  end type VesFloatOperator
  type, abstract, extends(VesOperator) :: VesComplexDoubleOperator
  contains
    procedure(ApplyComplexDouble), deferred :: Apply
  end type VesComplexDoubleOperator
  type, abstract, extends(VesOperator) :: VesComplexFloatOperator
  contains
    procedure(ApplyComplexFloat), deferred :: Apply
  end type VesComplexFloatOperator

  !> y = Op x for the n local rows and k columns of a block; both arrays are n x k and contiguous.
  !> Called on the processes that hold at least one row; it may communicate among those. One that
  !> needs all processes asks for it by VesMatrixSetCalledEverywhere.
  abstract interface
    subroutine ApplyDouble(self, x, y)
      import :: VesDoubleOperator, real64
      class(VesDoubleOperator), intent(inout) :: self
      real(real64), intent(in), contiguous :: x(:, :)
      real(real64), intent(out), contiguous :: y(:, :)
    end subroutine ApplyDouble
    subroutine ApplyFloat(self, x, y)
      import :: VesFloatOperator, real32
      class(VesFloatOperator), intent(inout) :: self
      real(real32), intent(in), contiguous :: x(:, :)
      real(real32), intent(out), contiguous :: y(:, :)
    end subroutine ApplyFloat
    subroutine ApplyComplexDouble(self, x, y)
      import :: VesComplexDoubleOperator, real64
      class(VesComplexDoubleOperator), intent(inout) :: self
      complex(real64), intent(in), contiguous :: x(:, :)
      complex(real64), intent(out), contiguous :: y(:, :)
    end subroutine ApplyComplexDouble
    subroutine ApplyComplexFloat(self, x, y)
      import :: VesComplexFloatOperator, real32
      class(VesComplexFloatOperator), intent(inout) :: self
      complex(real32), intent(in), contiguous :: x(:, :)
      complex(real32), intent(out), contiguous :: y(:, :)
    end subroutine ApplyComplexFloat
  end interface
  private :: ApplyDouble, ApplyFloat, ApplyComplexDouble, ApplyComplexFloat

  !> Extended by what follows a run. Report returns whether the run is to end; process 0 decides.
  type, abstract :: VesMonitor
  contains
    procedure(ReportProgress), deferred :: Report
  end type VesMonitor
  abstract interface
    logical function ReportProgress(self, progress)
      import :: VesMonitor, VesProgress
      class(VesMonitor), intent(inout) :: self
      type(VesProgress), intent(in) :: progress
    end function ReportProgress
  end interface
  private :: ReportProgress

  ! ------------------------------------------------------------------ handles

  ! The library is given the address of a link, and the link leads to the caller's object: the
  ! address of a polymorphic object itself would lose its type.
  type, private :: OperatorLink
    class(VesOperator), pointer :: op => null()
  end type OperatorLink
  type, private :: MonitorLink
    class(VesMonitor), pointer :: monitor => null()
  end type MonitorLink
  ! What is known of a block beside its handle, for all copies of it.
  type, private :: BlockState
    integer :: scalarType
    integer :: nRows = 0, nCols = 0, ld = 1
    integer :: columns = huge(1) !< that the storage has room for
  end type BlockState

  type :: VesMatrix
    private
    type(c_ptr) :: handle = c_null_ptr
    integer :: scalarType = -1
    type(OperatorLink), pointer :: link => null(), lowLink => null()
  end type VesMatrix

  type :: VesVector
    private
    type(c_ptr) :: handle = c_null_ptr
    type(BlockState), pointer :: state => null()
  end type VesVector

  type :: VesSolver
    private
    type(c_ptr) :: handle = c_null_ptr
    type(MonitorLink), pointer :: link => null()
  end type VesSolver

  ! ------------------------------------------------------------------ operators

  interface
    !> Creates an operator without routine.
    module subroutine VesMatrixCreate(matrix, scalarType, matrixType, ierror)
      type(VesMatrix), intent(out) :: matrix
      integer, intent(in) :: scalarType, matrixType
      integer, intent(out), optional :: ierror
    end subroutine VesMatrixCreate
    !> Stores the dimensions of an operator, for information only.
    module subroutine VesMatrixSetDim(matrix, nRows, nCols, ierror)
      type(VesMatrix), intent(in) :: matrix
      integer, intent(in) :: nRows, nCols
      integer, intent(out), optional :: ierror
    end subroutine VesMatrixSetDim
    !> Calls the operator on processes without rows, too, with arrays of no rows (default off).
    module subroutine VesMatrixSetCalledEverywhere(matrix, isOn, ierror)
      type(VesMatrix), intent(in) :: matrix
      logical, intent(in) :: isOn
      integer, intent(out), optional :: ierror
    end subroutine VesMatrixSetCalledEverywhere
    !> Installs a routine of C, or one with bind(c), that multiplies by A and B at once; c_null_funptr
    !> removes it.
    module subroutine VesMatrixSetShellPair(A, B, userData, routine, ierror)
      type(VesMatrix), intent(in) :: A, B
      type(c_ptr), value :: userData
      type(c_funptr), value :: routine
      integer, intent(out), optional :: ierror
    end subroutine VesMatrixSetShellPair
    !> Y = Op X, outside of a run. Collective as far as the operator is.
    module subroutine VesMatrixMultiply(matrix, X, Y, ierror)
      type(VesMatrix), intent(in) :: matrix
      type(VesVector), intent(in) :: X, Y
      integer, intent(out), optional :: ierror
    end subroutine VesMatrixMultiply
    !> \return the operator that was set; null when there is none, or a routine of C
    module function VesMatrixGetShellUserData(matrix) result(op)
      type(VesMatrix), intent(in) :: matrix
      class(VesOperator), pointer :: op
    end function VesMatrixGetShellUserData
    !> Releases an operator; a null handle is ignored.
    module subroutine VesMatrixDestroy(matrix)
      type(VesMatrix), intent(inout) :: matrix
    end subroutine VesMatrixDestroy
  end interface

  ! A pointer with intent(in) would let the compiler refuse objects without the attribute target, as
  ! it does for values. For class objects gfortran takes such an argument to be read only and
  ! forgotten: optimized callers would not see what happens to it in a run.

  !> Installs what multiplies: an operator of the matrix's scalar type (VES_ERR_MISMATCH for another
  !> one), or a routine of C with its data.
  interface VesMatrixSetShellMatVec
    module subroutine SetDoubleOperator(matrix, op, ierror)
      type(VesMatrix), intent(in) :: matrix
      class(VesDoubleOperator), target, intent(inout) :: op
      integer, intent(out), optional :: ierror
    end subroutine SetDoubleOperator
    module subroutine SetFloatOperator(matrix, op, ierror)
      type(VesMatrix), intent(in) :: matrix
      class(VesFloatOperator), target, intent(inout) :: op
      integer, intent(out), optional :: ierror
    end subroutine SetFloatOperator
    module subroutine SetComplexDoubleOperator(matrix, op, ierror)
      type(VesMatrix), intent(in) :: matrix
      class(VesComplexDoubleOperator), target, intent(inout) :: op
      integer, intent(out), optional :: ierror
    end subroutine SetComplexDoubleOperator
    module subroutine SetComplexFloatOperator(matrix, op, ierror)
      type(VesMatrix), intent(in) :: matrix
      class(VesComplexFloatOperator), target, intent(inout) :: op
      integer, intent(out), optional :: ierror
    end subroutine SetComplexFloatOperator
    module subroutine SetRoutineOfC(matrix, userData, matVec, ierror)
      type(VesMatrix), intent(in) :: matrix
      type(c_ptr), value :: userData
      type(c_funptr), value :: matVec
      integer, intent(out), optional :: ierror
    end subroutine SetRoutineOfC
  end interface VesMatrixSetShellMatVec

  !> Installs what multiplies by the same operator in single precision, in runs of mixed precision:
  !> an operator of the field of the matrix (VES_ERR_MISMATCH for another one); without one none.
  interface VesMatrixSetShellMatVecLow
    module subroutine SetLowFloatOperator(matrix, op, ierror)
      type(VesMatrix), intent(in) :: matrix
      class(VesFloatOperator), target, intent(inout) :: op
      integer, intent(out), optional :: ierror
    end subroutine SetLowFloatOperator
    module subroutine SetLowComplexFloatOperator(matrix, op, ierror)
      type(VesMatrix), intent(in) :: matrix
      class(VesComplexFloatOperator), target, intent(inout) :: op
      integer, intent(out), optional :: ierror
    end subroutine SetLowComplexFloatOperator
    module subroutine RemoveLowOperator(matrix, ierror)
      type(VesMatrix), intent(in) :: matrix
      integer, intent(out), optional :: ierror
    end subroutine RemoveLowOperator
  end interface VesMatrixSetShellMatVecLow

  !> Gives a matrix its entries, in place of an operator: the rows of this process. Row i has those
  !> from starts(i) to starts(i + 1) - 1 of columns, numbered from 1 over all processes, and of values,
  !> an array of the matrix's kind. All are copied. Collective over comm. VES_ERR_INVALID_VALUE on all
  !> processes: values of another kind or with gaps, or arrays too short for starts.
  interface VesMatrixSetRows
    module subroutine SetRowsF08(matrix, comm, starts, columns, values, ierror)
      type(VesMatrix), intent(in) :: matrix
      type(MPI_Comm), intent(in) :: comm
      integer(int64), intent(in) :: starts(:), columns(:)
      class(*), target, intent(in) :: values(:)
      integer, intent(out), optional :: ierror
    end subroutine SetRowsF08
    module subroutine SetRowsInteger(matrix, comm, starts, columns, values, ierror)
      type(VesMatrix), intent(in) :: matrix
      integer, intent(in) :: comm
      integer(int64), intent(in) :: starts(:), columns(:)
      class(*), target, intent(in) :: values(:)
      integer, intent(out), optional :: ierror
    end subroutine SetRowsInteger
  end interface VesMatrixSetRows
  private :: SetRowsF08, SetRowsInteger

  ! ------------------------------------------------------------------ blocks of vectors

  interface
    !> Creates an empty block on MPI_COMM_WORLD and MPI_COMM_SELF, without storage.
    module subroutine VesVectorCreate(vector, scalarType, vectorType, ierror)
      type(VesVector), intent(out) :: vector
      integer, intent(in) :: scalarType, vectorType
      integer, intent(out), optional :: ierror
    end subroutine VesVectorCreate
    !> Stores the local rows and the columns of a block.
    !> VES_ERR_MISMATCH: its storage has room for fewer columns.
    module subroutine VesVectorSetDim(vector, nRows, nCols, ierror)
      type(VesVector), intent(in) :: vector
      integer, intent(in) :: nRows, nCols
      integer, intent(out), optional :: ierror
    end subroutine VesVectorSetDim
    !> Creates a block like src, with doAllocate in storage of its own, with doCopy of equal values.
    module subroutine VesVectorReplicate(src, copy, doAllocate, doCopy, ierror)
      type(VesVector), intent(in) :: src
      type(VesVector), intent(out) :: copy
      logical, intent(in) :: doAllocate, doCopy
      integer, intent(out), optional :: ierror
    end subroutine VesVectorReplicate
    !> Euclidean norm of each column of x into norms. Collective.
    module subroutine VesVectorNorm(x, norms, ierror)
      type(VesVector), intent(in) :: x, norms
      integer, intent(out), optional :: ierror
    end subroutine VesVectorNorm
    !> R = A X - B X diag(D). Collective as far as the operators are.
    module subroutine VesEigResidual(A, X, D, R, B, ierror)
      type(VesMatrix), intent(in) :: A
      type(VesVector), intent(in) :: X, D, R
      type(VesMatrix), intent(in), optional :: B
      integer, intent(out), optional :: ierror
    end subroutine VesEigResidual
    !> Releases a block and the storage it owns; a null handle is ignored.
    module subroutine VesVectorDestroy(vector)
      type(VesVector), intent(inout) :: vector
    end subroutine VesVectorDestroy
  end interface

  !> Stores a communicator of mpi_f08 or of mpi: slot 0 that of the rows, slot 1 the second one.
  interface VesVectorSetComm
    module subroutine SetCommF08(vector, slot, comm, ierror)
      type(VesVector), intent(in) :: vector
      integer, intent(in) :: slot
      type(MPI_Comm), intent(in) :: comm
      integer, intent(out), optional :: ierror
    end subroutine SetCommF08
    module subroutine SetCommInteger(vector, slot, comm, ierror)
      type(VesVector), intent(in) :: vector
      integer, intent(in) :: slot, comm
      integer, intent(out), optional :: ierror
    end subroutine SetCommInteger
  end interface VesVectorSetComm

  !> Gives a block its storage: an array of rank 2, whose first extent is the leading dimension, or
  !> of rank 1 for a single column. VES_ERR_MISMATCH: another kind or rank than the block's, or
  !> fewer columns; VES_ERR_INVALID_VALUE: the array has gaps.
  interface VesVectorDenseSetValues
    module subroutine SetDoubleValues(vector, values, ierror)
      type(VesVector), intent(in) :: vector
      real(real64), pointer, intent(in) :: values(..)
      integer, intent(out), optional :: ierror
    end subroutine SetDoubleValues
    module subroutine SetFloatValues(vector, values, ierror)
      type(VesVector), intent(in) :: vector
      real(real32), pointer, intent(in) :: values(..)
      integer, intent(out), optional :: ierror
    end subroutine SetFloatValues
    module subroutine SetComplexDoubleValues(vector, values, ierror)
      type(VesVector), intent(in) :: vector
      complex(real64), pointer, intent(in) :: values(..)
      integer, intent(out), optional :: ierror
    end subroutine SetComplexDoubleValues
    module subroutine SetComplexFloatValues(vector, values, ierror)
      type(VesVector), intent(in) :: vector
      complex(real32), pointer, intent(in) :: values(..)
      integer, intent(out), optional :: ierror
    end subroutine SetComplexFloatValues
  end interface VesVectorDenseSetValues

  !> The entries of a block, rows x columns; null when it has no storage or another kind.
  interface VesVectorDenseGetValues
    module subroutine GetDoubleValues(vector, values)
      type(VesVector), intent(in) :: vector
      real(real64), pointer, intent(out) :: values(:, :)
    end subroutine GetDoubleValues
    module subroutine GetFloatValues(vector, values)
      type(VesVector), intent(in) :: vector
      real(real32), pointer, intent(out) :: values(:, :)
    end subroutine GetFloatValues
    module subroutine GetComplexDoubleValues(vector, values)
      type(VesVector), intent(in) :: vector
      complex(real64), pointer, intent(out) :: values(:, :)
    end subroutine GetComplexDoubleValues
    module subroutine GetComplexFloatValues(vector, values)
      type(VesVector), intent(in) :: vector
      complex(real32), pointer, intent(out) :: values(:, :)
    end subroutine GetComplexFloatValues
  end interface VesVectorDenseGetValues

  private :: SetDoubleOperator, SetFloatOperator, SetComplexDoubleOperator, SetComplexFloatOperator
  private :: SetRoutineOfC, SetCommF08, SetCommInteger
  private :: SetDoubleValues, SetFloatValues, SetComplexDoubleValues, SetComplexFloatValues
  private :: GetDoubleValues, GetFloatValues, GetComplexDoubleValues, GetComplexFloatValues

  ! ------------------------------------------------------------------ solvers

  interface
    !> Creates a solver with the defaults of ves.h.
    module subroutine VesSolverCreate(solver, scalarType, solverType, ierror)
      type(VesSolver), intent(out) :: solver
      integer, intent(in) :: scalarType, solverType
      integer, intent(out), optional :: ierror
    end subroutine VesSolverCreate
    !> Releases a solver; a null handle is ignored.
    module subroutine VesSolverDestroy(solver)
      type(VesSolver), intent(inout) :: solver
    end subroutine VesSolverDestroy

    !> Computes the k lowest eigenpairs: X holds the guess on entry and the vectors on return, D
    !> receives the values in ascending order. Not converging is no error: see VesGetSolverConv.
    !> Collective over both communicators of X.
    module subroutine VesRunSolver(solver, A, X, D, B, T, ierror)
      type(VesSolver), intent(in) :: solver
      type(VesMatrix), intent(in) :: A
      type(VesVector), intent(in) :: X, D
      type(VesMatrix), intent(in), optional :: B, T
      integer, intent(out), optional :: ierror
    end subroutine VesRunSolver
    !> Recomputes pairs: the largest residual norm, and the largest entry of |X^H B X - I|.
    !> Collective over X's communicator.
    module subroutine VesCheckEigenpairs(A, X, D, maxResidual, maxOrthoError, B, ierror)
      type(VesMatrix), intent(in) :: A
      type(VesVector), intent(in) :: X, D
      real(real64), intent(out) :: maxResidual, maxOrthoError
      type(VesMatrix), intent(in), optional :: B
      integer, intent(out), optional :: ierror
    end subroutine VesCheckEigenpairs
    !> Estimates the 2-norm of A from above, and its lowest eigenvalue from above, by some products
    !> with one column. Vectors are distributed as like. Collective over like's communicators.
    module subroutine VesMatrixEstimateSpectrum(A, like, norm, lowest, ierror)
      type(VesMatrix), intent(in) :: A
      type(VesVector), intent(in) :: like
      real(real64), intent(out) :: norm, lowest
      integer, intent(out), optional :: ierror
    end subroutine VesMatrixEstimateSpectrum

    !> Threshold of the convergence test, in the units that the test compares (default 1e-6).
    module subroutine VesSolverSetThreshold(solver, threshold, ierror)
      type(VesSolver), intent(in) :: solver
      real(real64), intent(in) :: threshold
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetThreshold
    !> Factor of the threshold at which a pair is locked for good (default 0.01).
    module subroutine VesSolverSetLockFactor(solver, factor, ierror)
      type(VesSolver), intent(in) :: solver
      real(real64), intent(in) :: factor
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetLockFactor
    !> Factor of the threshold at which PPCG locks a pair for good (default 0.01).
    module subroutine VesSolverSetPPCGLockFactor(solver, mu, ierror)
      type(VesSolver), intent(in) :: solver
      real(real64), intent(in) :: mu
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetPPCGLockFactor
    !> Turns the self-check on (default) or off.
    module subroutine VesSolverSetSelfCheck(solver, isOn, ierror)
      type(VesSolver), intent(in) :: solver
      logical, intent(in) :: isOn
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetSelfCheck

    !> Has a run begin in single precision (default off).
    module subroutine VesSolverSetMixedPrecision(solver, isOn, ierror)
      type(VesSolver), intent(in) :: solver
      logical, intent(in) :: isOn
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetMixedPrecision
    !> Steps of the Chebyshev iteration around T (default 0); -1: as many as pay.
    module subroutine VesSolverSetInnerSteps(solver, n, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: n
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetInnerSteps
    !> Threads that share the work on tall blocks (default 0: none); -1: as many as BLAS has.
    module subroutine VesSolverSetThreads(solver, n, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: n
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetThreads
    !> Leading pairs whose convergence ends a run (default 0: all).
    module subroutine VesSolverSetWanted(solver, n, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: n
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetWanted

    !> Keeps the vectors of runs B-orthogonal to the columns of Y, which must live as long; without
    !> Y nothing is kept out (default).
    module subroutine VesSolverSetDeflation(solver, Y, ierror)
      type(VesSolver), intent(in) :: solver
      type(VesVector), intent(in), optional :: Y
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetDeflation

    !> VES_PROBLEM_STANDARD or VES_PROBLEM_GENERALIZED.
    module subroutine VesSolverSetProblemType(solver, problemType, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: problemType
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetProblemType
    !> Limit of iterations (default 100).
    module subroutine VesSolverSetMaxIter(solver, maxIter, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: maxIter
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetMaxIter
    !> Limit of orthogonalization passes (default 1).
    module subroutine VesSolverSetMaxOrthoIter(solver, maxOrthoIter, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: maxOrthoIter
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetMaxOrthoIter
    !> Dense eigensolver of the projected problems.
    module subroutine VesSetDenseEigenSolverType(solver, kind, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: kind
      integer, intent(out), optional :: ierror
    end subroutine VesSetDenseEigenSolverType
    !> Test of convergence and locking.
    module subroutine VesSetConvergeDetectorType(solver, kind, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: kind
      integer, intent(out), optional :: ierror
    end subroutine VesSetConvergeDetectorType
    !> Orthogonalizer of blocks.
    module subroutine VesSetOrthogonalizerType(solver, kind, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: kind
      integer, intent(out), optional :: ierror
    end subroutine VesSetOrthogonalizerType
    !> Projector of one block against another.
    module subroutine VesSetOrthoProjectorType(solver, kind, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: kind
      integer, intent(out), optional :: ierror
    end subroutine VesSetOrthoProjectorType
    !> Most vectors that VES_LOBPCG_BATCH iterates at once (default 256).
    module subroutine VesSolverSetBatchLimit(solver, limit, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: limit
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetBatchLimit
    !> Vectors that VES_LOBPCG_BATCH iterates at once to begin with (default 0: its limit).
    module subroutine VesSolverSetBatchStart(solver, width, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: width
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetBatchStart
    !> Soft locking of PPCG: 0 none, 1 by the lock test, 2 by the convergence test.
    module subroutine VesSolverSetPPCGSoftLocking(solver, kind, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: kind
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetPPCGSoftLocking
    !> Widest sub-block of PPCG (default 64).
    module subroutine VesSolverSetPPCGBatch(solver, nBatch, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: nBatch
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetPPCGBatch
    !> Iterations of PPCG between full Rayleigh-Ritz steps (default 5).
    module subroutine VesSolverSetPPCGRRPeriod(solver, rrPeriod, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: rrPeriod
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetPPCGRRPeriod
    !> Test for locking, where it is not that of convergence.
    module subroutine VesSolverSetLockDetectorType(solver, kind, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: kind
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetLockDetectorType
    !> Rank-revealing orthogonalizer.
    module subroutine VesSolverSetRankRevealerType(solver, kind, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: kind
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetRankRevealerType
  end interface

  ! ------------------------------------------------------------------ what a run did, and texts

  interface
    !> Iterations of the last run; 0 before the first.
    module subroutine VesGetSolverIter(solver, iter, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(out) :: iter
      integer, intent(out), optional :: ierror
    end subroutine VesGetSolverIter
    !> Leading pairs of the last run that passed the convergence test; 0 before the first.
    module subroutine VesGetSolverConv(solver, nConv, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(out) :: nConv
      integer, intent(out), optional :: ierror
    end subroutine VesGetSolverConv
    !> Why the last run ended: VES_REASON_...
    module subroutine VesGetSolverReason(solver, reason, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(out) :: reason
      integer, intent(out), optional :: ierror
    end subroutine VesGetSolverReason
    !> What the last run cost on this process.
    module subroutine VesGetSolverStats(solver, stats, ierror)
      type(VesSolver), intent(in) :: solver
      type(VesSolverStats), intent(out) :: stats
      integer, intent(out), optional :: ierror
    end subroutine VesGetSolverStats
    !> Forecast of the bytes that a run takes on this process beside the caller's blocks.
    module subroutine VesSolverMemory(solver, nRows, nCols, generalized, bytes, ierror)
      type(VesSolver), intent(in) :: solver
      integer, intent(in) :: nRows, nCols
      logical, intent(in) :: generalized
      integer(int64), intent(out) :: bytes
      integer, intent(out), optional :: ierror
    end subroutine VesSolverMemory
    !> Installs a monitor, on all processes or on none; without one the present one is removed.
    module subroutine VesSolverSetMonitor(solver, monitor, ierror)
      type(VesSolver), intent(in) :: solver
      class(VesMonitor), target, intent(inout), optional :: monitor
      integer, intent(out), optional :: ierror
    end subroutine VesSolverSetMonitor

    !> Release of the library as "major.minor.patch".
    module function VesGetVersion() result(text)
      character(:), allocatable :: text
    end function VesGetVersion
    !> What a return code means, in a few words.
    module function VesErrorString(code) result(text)
      integer, intent(in) :: code
      character(:), allocatable :: text
    end function VesErrorString
    !> A short text for a reason.
    module function VesReasonString(reason) result(text)
      integer, intent(in) :: reason
      character(:), allocatable :: text
    end function VesReasonString
  end interface
end module ves
