!> The Fortran module: four kinds on communicators of both modules of MPI, the generalized problem,
!> monitor, reports and refusals. With the argument "stop" a refused call has to end the program.
module test_base
  use, intrinsic :: iso_c_binding
  use, intrinsic :: iso_fortran_env, only: error_unit, int64, real32, real64
  use mpi_f08
  use ves
  implicit none

  integer, parameter :: nPairs = 4
  real(real64), parameter :: exact(nPairs) = [3, 5, 7, 9]
  character(14), parameter :: kinds(0:3) = &
    [character(14) :: 'double', 'float', 'complex double', 'complex float']
  character(14) :: context = '' !< what is being tested
  integer :: failures = 0, rank, processes
  integer :: n = 20, firstRow !< local rows: 20, but none on the last of several processes

contains

  subroutine Check(good, what)
    logical, intent(in) :: good
    character(*), intent(in) :: what
    if (good) return
    failures = failures + 1
    write (error_unit, '(a, i0, 4a)') 'process ', rank, ': ', trim(context), ' ', what
  end subroutine Check

  !> Blocks of one kind on their communicator, of n and nPairs rows, still without storage.
  subroutine MakeBlocks(scalarType, comm, x, d)
    integer, intent(in) :: scalarType
    type(MPI_Comm), intent(in) :: comm
    type(VesVector), intent(out) :: x, d
    call VesVectorCreate(x, scalarType, VES_VECTOR_DENSE)
    call VesVectorCreate(d, scalarType, VES_VECTOR_DENSE)
    call VesVectorSetComm(x, 0, comm)
    call VesVectorSetComm(d, 0, comm%mpi_val) ! as the module mpi has it
    call VesVectorSetDim(x, n, nPairs)
    call VesVectorSetDim(d, nPairs, 1)
  end subroutine MakeBlocks
end module test_base

#define MODULE double_case
#define NUMBER real(real64)
#define OPERATOR VesDoubleOperator
#define SCALAR_TYPE VES_DOUBLE
#define LINKS 1
#include "kind_case.inc"

#define MODULE float_case
#define NUMBER real(real32)
#define OPERATOR VesFloatOperator
#define SCALAR_TYPE VES_FLOAT
#define LINKS 1
#include "kind_case.inc"

#define MODULE complex_double_case
#define NUMBER complex(real64)
#define OPERATOR VesComplexDoubleOperator
#define SCALAR_TYPE VES_COMPLEX_DOUBLE
#define LINKS [(0.0, -1.0), (0.0, 1.0)]
#include "kind_case.inc"

#define MODULE complex_float_case
#define NUMBER complex(real32)
#define OPERATOR VesComplexFloatOperator
#define SCALAR_TYPE VES_COMPLEX_FLOAT
#define LINKS [(0.0, -1.0), (0.0, 1.0)]
#include "kind_case.inc"

module other_cases
  use test_base
  use double_case
  implicit none

  type, extends(VesMonitor) :: Watcher
    integer :: reports = 0
    logical :: isSound = .true.
  contains
    procedure :: Report
  end type Watcher

contains

  !> The last process, the first of the communicator, asks for the end after three iterations; what
  !> the others say counts for nothing.
  logical function Report(self, progress)
    class(Watcher), intent(inout) :: self
    type(VesProgress), intent(in) :: progress
    self%isSound = self%isSound .and. progress%iteration == self%reports .and. &
                   size(progress%values) == nPairs .and. size(progress%residuals) == nPairs .and. &
                   progress%wanted == nPairs .and. progress%columnsA >= nPairs
    if (self%isSound) self%isSound = all(progress%values(2:) >= progress%values(:nPairs - 1))
    self%reports = self%reports + 1
    Report = rank < processes - 1 .or. progress%iteration == 3
  end function Report

  !> Weighted rows with B and a preconditioner, under a monitor that stops the first of two runs.
  subroutine TestGeneralized(comm)
    type(MPI_Comm), intent(in) :: comm
    real(real64), target :: x(n, nPairs), d(nPairs)
    type(Pairs), target :: opA, opB, opT
    type(Watcher), target :: monitor
    type(VesMatrix) :: A, B, T
    type(VesVector) :: vecX, vecD
    type(VesSolver) :: solver
    type(VesSolverStats) :: stats
    integer :: reason, iter
    real(real64) :: largest, orthoError
    opA = Pairs(role='A', firstRow=firstRow, weight=0.1_real64)
    opB = Pairs(role='B', firstRow=firstRow, weight=0.1_real64)
    opT = Pairs(role='T', firstRow=firstRow, weight=0.1_real64)
    context = 'generalized'
    call random_number(x)
    call VesMatrixCreate(A, VES_DOUBLE, VES_MATRIX_SHELL)
    call VesMatrixCreate(B, VES_DOUBLE, VES_MATRIX_SHELL)
    call VesMatrixCreate(T, VES_DOUBLE, VES_MATRIX_SHELL)
    call VesMatrixSetDim(A, n, n)
    call VesMatrixSetShellMatVec(A, opA)
    call VesMatrixSetShellMatVec(B, opB)
    call VesMatrixSetShellMatVec(T, opT)
    call VesMatrixSetCalledEverywhere(T, .true.)
    call MakeBlocks(VES_DOUBLE, comm, vecX, vecD)
    call VesVectorDenseSetValues(vecX, x)
    call VesVectorDenseSetValues(vecD, d)
    call VesSolverCreate(solver, VES_DOUBLE, VES_LOBPCG)
    call VesSolverSetProblemType(solver, VES_PROBLEM_GENERALIZED)
    call VesSolverSetThreshold(solver, 1.0e-9_real64)
    call VesSolverSetMonitor(solver, monitor)
    call VesRunSolver(solver, A, vecX, vecD, B=B, T=T)
    call VesGetSolverReason(solver, reason)
    call VesGetSolverIter(solver, iter)
    call Check(reason == VES_REASON_MONITOR .and. iter == 3, 'stop by the monitor')
    call Check(monitor%isSound .and. monitor%reports == 4, 'what the monitor was told')

    call VesSolverSetMonitor(solver)
    call VesRunSolver(solver, A, vecX, vecD, B=B, T=T)
    call VesGetSolverReason(solver, reason)
    call Check(reason == VES_REASON_CONVERGED, 'reason')
    call Check(opT%calls > iter, 'calls of the preconditioner, also without rows')
    call Check(monitor%reports == 4, 'a monitor that was removed is called')
    call Check(all(abs(d - exact) < 1e-10_real64), 'values')
    call VesGetSolverStats(solver, stats)
    call Check(stats%columnsA >= nPairs .and. stats%columnsB >= nPairs .and. stats%columnsT > 0 &
               .and. stats%reductions > 0 .and. stats%bytesReduced >= 8 * stats%reductions &
               .and. stats%secondsTotal >= stats%secondsOperators + stats%secondsDense &
               .and. stats%secondsDense > 0, 'statistics')

    call VesCheckEigenpairs(A, vecX, vecD, largest, orthoError, B=B)
    call Check(largest < 2e-9_real64 .and. orthoError < 1e-10_real64, 'recomputed pairs')
    call VesSolverDestroy(solver)
    call VesVectorDestroy(vecD)
    call VesVectorDestroy(vecX)
    call VesMatrixDestroy(T)
    call VesMatrixDestroy(B)
    call VesMatrixDestroy(A)
  end subroutine TestGeneralized

  !> What only this module can see: arrays and operators of another kind, arrays with gaps.
  subroutine TestRefusedArrays()
    real(real64), target :: x(6, nPairs), cube(2, 2, nPairs)
    real(real32), target :: single(6, nPairs)
    real(real64), pointer :: values(:, :)
    type(Pairs), target :: op
    type(VesMatrix) :: A, none
    type(VesVector) :: block, other
    integer :: code
    context = 'refused'
    call VesMatrixCreate(A, VES_FLOAT, VES_MATRIX_SHELL)
    call VesMatrixSetShellMatVec(A, op, code)
    call Check(code == VES_ERR_MISMATCH, 'operator of another kind')
    call Check(.not. associated(VesMatrixGetShellUserData(A)), 'a refused operator is kept')
    call VesMatrixSetShellMatVec(none, op, code)
    call Check(code == VES_ERR_NULL_POINTER, 'null handle of a matrix')
    call VesMatrixDestroy(A)
    call VesMatrixDestroy(A) ! a null handle is ignored

    call VesVectorDenseSetValues(block, x, code)
    call Check(code == VES_ERR_NULL_POINTER, 'null handle of a block')
    call VesVectorReplicate(block, other, .true., .true., code)
    call Check(code == VES_ERR_NULL_POINTER, 'replica of a null handle')
    call VesVectorCreate(block, VES_DOUBLE, VES_VECTOR_DENSE)
    other = block ! what one copy of a handle is told the other knows
    call VesVectorSetDim(other, 3, nPairs)
    call VesVectorDenseSetValues(block, single, code)
    call Check(code == VES_ERR_MISMATCH, 'array of another kind')
    call VesVectorDenseSetValues(block, cube, code)
    call Check(code == VES_ERR_MISMATCH, 'array of rank 3')
    call VesVectorDenseSetValues(block, x(:, 2:), code)
    call Check(code == VES_ERR_MISMATCH, 'array with too few columns')
    call VesVectorDenseSetValues(block, x(2:4, :), code)
    call Check(code == VES_ERR_INVALID_VALUE, 'array with gaps')
    call VesVectorDenseGetValues(block, values)
    call Check(.not. associated(values), 'a refused array is kept')
    call VesVectorDenseSetValues(block, x, code)
    call Check(code == VES_GOOD, 'array with more rows than the block')
    call VesVectorDenseGetValues(block, values)
    call Check(associated(values, x(:3, :)), 'values of a block')
    call VesVectorSetDim(block, 3, nPairs + 1, code)
    call Check(code == VES_ERR_MISMATCH, 'more columns than the array has')
    call VesVectorDestroy(block)
  end subroutine TestRefusedArrays

  !> y = userData x in every column, as a routine of C would do it.
  subroutine Scale(userData, x, y, nRows, nCols, ld) bind(c)
    type(c_ptr), value :: userData, x, y
    integer(c_int), value :: nRows, nCols, ld
    real(c_double), pointer :: factor, xs(:, :), ys(:, :)
    call c_f_pointer(userData, factor)
    call c_f_pointer(x, xs, [ld, nCols])
    call c_f_pointer(y, ys, [ld, nCols])
    ys(:nRows, :) = factor * xs(:nRows, :)
  end subroutine Scale

  !> A routine of C takes the place of an operator: 3 X - 2 X, and 3 X - 3 X 2 with B = A.
  subroutine TestRoutineOfC()
    real(real64), target :: x(5, 2), d(2), factor
    real(real64), pointer :: r(:, :), norms(:, :)
    type(Pairs), target :: op
    type(VesMatrix) :: A
    type(VesVector) :: vecX, vecR, vecD, vecNorms
    integer :: i, rank, code
    x = reshape([1, 2, 3, 4, 5, 6, 7, 8, 9, 10], [5, 2])
    d = 2
    factor = 3
    context = 'routine of C'
    call VesMatrixCreate(A, VES_DOUBLE, VES_MATRIX_SHELL)
    call VesMatrixSetShellMatVec(A, op)
    call Check(associated(VesMatrixGetShellUserData(A)), 'operator of a matrix')
    call VesMatrixSetShellMatVec(A, c_loc(factor), c_funloc(Scale))
    call Check(.not. associated(VesMatrixGetShellUserData(A)), 'an operator that was replaced')
    call VesVectorCreate(vecX, VES_DOUBLE, VES_VECTOR_DENSE)
    call VesVectorSetDim(vecX, 5, 2)
    call VesVectorDenseSetValues(vecX, x)
    call VesVectorCreate(vecD, VES_DOUBLE, VES_VECTOR_DENSE)
    call VesVectorSetDim(vecD, 2, 1)
    call VesVectorDenseSetValues(vecD, d)
    call VesVectorReplicate(vecX, vecR, .true., .false.)
    call VesVectorReplicate(vecD, vecNorms, .true., .true.)
    call VesVectorDenseGetValues(vecR, r)
    call VesVectorDenseGetValues(vecNorms, norms)
    call Check(all(shape(r) == [5, 2]) .and. all(shape(norms) == [2, 1]), 'shapes of replicas')
    call Check(all(abs(norms - 2) <= 0), 'copied values')
    call VesEigResidual(A, vecX, vecD, vecR)
    call Check(all(abs(r - x) < 1e-14_real64), 'residual')
    call VesEigResidual(A, vecX, vecD, vecR, B=A)
    call Check(all(abs(r + 3 * x) < 1e-14_real64), 'residual with B')
    ! Row m has 2 on the diagonal and 1 in column 1 of all processes, which holds 1 and 6.
    call MPI_Comm_rank(MPI_COMM_WORLD, rank)
    call VesMatrixSetRows(A, MPI_COMM_WORLD, [(2_int64 * i + 1, i=0, 5)], &
                          [([1_int64, 5_int64 * rank + i], i=1, 5)], &
                          [([1.0_real64, 2.0_real64], i=1, 5)])
    call VesMatrixMultiply(A, vecX, vecR)
    call Check(all(abs(r - 2 * x - spread([1, 6], 1, 5)) < 1e-14_real64), 'product by entries')
    call VesMatrixSetRows(A, MPI_COMM_WORLD, [1_int64, 2_int64], [1_int64], [1.0_real32], code)
    call Check(code == VES_ERR_INVALID_VALUE, 'values of another kind')
    call VesVectorNorm(vecX, vecNorms)
    call Check(all(abs(norms(:, 1) - sqrt(processes * sum(x**2, 1))) < 1e-13_real64), 'norms')
    call VesVectorDestroy(vecNorms)
    call VesVectorDestroy(vecD)
    call VesVectorDestroy(vecR)
    call VesVectorDestroy(vecX)
    call VesMatrixDestroy(A)
  end subroutine TestRoutineOfC

  !> Each setting reaches the function of its name: their refusals differ by solver and value.
  subroutine TestSettings()
    type(VesSolver) :: lobpcg, batch, ppcg, none
    integer :: code(9), number
    integer(int64) :: bytes
    context = 'settings'
    call VesSolverCreate(lobpcg, VES_DOUBLE, VES_LOBPCG)
    call VesSolverCreate(batch, VES_DOUBLE, VES_LOBPCG_BATCH)
    call VesSolverCreate(ppcg, VES_DOUBLE, VES_PPCG)
    call VesSolverSetMaxIter(lobpcg, 0, code(1))
    call VesSolverSetMaxOrthoIter(lobpcg, 0, code(2))
    call VesSolverSetThreshold(lobpcg, 0.0_real64, code(3))
    call VesSolverSetLockFactor(lobpcg, 1.5_real64, code(4))
    call VesSolverSetBatchLimit(batch, 0, code(5))
    call VesSolverSetPPCGSoftLocking(ppcg, 3, code(6))
    call VesSolverSetPPCGBatch(ppcg, 0, code(7))
    call VesSolverSetPPCGRRPeriod(ppcg, -1, code(8))
    call VesSolverSetPPCGLockFactor(ppcg, -1.0_real64, code(9))
    call Check(all(code == VES_ERR_INVALID_VALUE), 'numbers out of range')
    call VesSetDenseEigenSolverType(lobpcg, 2, code(1))
    call VesSetConvergeDetectorType(lobpcg, 4, code(2))
    call VesSetOrthogonalizerType(lobpcg, 2, code(3))
    call VesSetOrthoProjectorType(lobpcg, 1, code(4))
    call VesSolverSetLockDetectorType(lobpcg, 4, code(5))
    call VesSolverSetRankRevealerType(lobpcg, 2, code(6))
    call Check(all(code(:6) == VES_ERR_UNSUPPORTED), 'kinds that there are not')
    call VesSolverSetProblemType(none, VES_PROBLEM_STANDARD, code(1))
    call VesSolverSetSelfCheck(none, .false., code(2))
    call VesGetSolverConv(none, number, code(3))
    call VesSolverSetMonitor(none, ierror=code(4))
    call Check(all(code(:4) == VES_ERR_NULL_POINTER), 'null handle of a solver')
    call VesSolverMemory(lobpcg, n, nPairs, .true., bytes)
    call Check(bytes > 8 * 13 * nPairs * n, 'forecast of the memory')
    call Check(VesErrorString(VES_GOOD) /= VesErrorString(VES_ERR_MISMATCH), 'texts of codes')
    call Check(VesGetVersion() == PROJECT_VERSION, 'version')
    call VesSolverDestroy(ppcg)
    call VesSolverDestroy(batch)
    call VesSolverDestroy(lobpcg)
  end subroutine TestSettings
end module other_cases

program fortran_test
  use test_base
  use double_case, only: TestDouble => Test
  use float_case, only: TestFloat => Test
  use complex_double_case, only: TestComplexDouble => Test
  use complex_float_case, only: TestComplexFloat => Test
  use other_cases, only: TestGeneralized, TestRefusedArrays, TestRoutineOfC, TestSettings
  implicit none
  type(MPI_Comm) :: comm
  character(4) :: argument
  type(VesSolver) :: solver
  integer :: worst

  call MPI_Init()
  call MPI_Comm_size(MPI_COMM_WORLD, processes)
  call MPI_Comm_rank(MPI_COMM_WORLD, rank)
  call get_command_argument(1, argument)
  if (argument == 'stop' .and. rank == 0) then
    call VesSolverCreate(solver, VES_DOUBLE, VES_LOBPCG)
    call VesSolverSetMaxIter(solver, -3)
  end if

  ! The ranks reversed: a communicator that reached the library wrongly would mix up the rows.
  call MPI_Comm_split(MPI_COMM_WORLD, 0, -rank, comm)
  n = merge(0, 20, rank > 0 .and. rank == processes - 1)
  firstRow = 20 * rank
  call TestDouble(comm)
  call TestFloat(comm)
  call TestComplexDouble(comm)
  call TestComplexFloat(comm)
  call TestGeneralized(comm)
  call TestRefusedArrays()
  call TestRoutineOfC()
  call TestSettings()
  call MPI_Comm_free(comm)
  call MPI_Allreduce(failures, worst, 1, MPI_INTEGER, MPI_MAX, MPI_COMM_WORLD)
  call MPI_Finalize()
  if (worst > 0) error stop 1
end program fortran_test
