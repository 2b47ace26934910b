module laplacian
  use, intrinsic :: iso_fortran_env, only: real64
  use ves
  implicit none
  type, extends(VesDoubleOperator) :: SecondDifference
    real(real64) :: diagonal = 2
  contains
    procedure :: Apply
  end type SecondDifference
contains
  subroutine Apply(self, x, y) ! tridiag(-1, diagonal, -1)
    class(SecondDifference), intent(inout) :: self
    real(real64), intent(in), contiguous :: x(:, :)
    real(real64), intent(out), contiguous :: y(:, :)
    integer :: n
    n = size(x, 1)
    y = self%diagonal * x
    y(2:, :) = y(2:, :) - x(:n - 1, :)
    y(:n - 1, :) = y(:n - 1, :) - x(2:, :)
  end subroutine Apply
end module laplacian

program first_steps
  use mpi
  use laplacian
  implicit none
  integer, parameter :: n = 100, k = 4
  type(SecondDifference), target :: op
  real(real64), target :: vectors(n, k), values(k)
  type(VesMatrix) :: A
  type(VesVector) :: X, D
  type(VesSolver) :: solver
  integer :: ierror, converged
  call MPI_Init(ierror)
  call random_number(vectors) ! the guess
  call VesMatrixCreate(A, VES_DOUBLE, VES_MATRIX_SHELL)
  call VesMatrixSetShellMatVec(A, op)
  call VesVectorCreate(X, VES_DOUBLE, VES_VECTOR_DENSE)
  call VesVectorSetComm(X, 0, MPI_COMM_WORLD)
  call VesVectorSetDim(X, n, k)
  call VesVectorDenseSetValues(X, vectors)
  call VesVectorCreate(D, VES_DOUBLE, VES_VECTOR_DENSE)
  call VesVectorSetDim(D, k, 1)
  call VesVectorDenseSetValues(D, values)
  call VesSolverCreate(solver, VES_DOUBLE, VES_LOBPCG)
  call VesSolverSetMaxIter(solver, 500)
  call VesRunSolver(solver, A, X, D)
  call VesGetSolverConv(solver, converged)
  print '(f12.10)', values
  call VesSolverDestroy(solver)
  call VesVectorDestroy(D)
  call VesVectorDestroy(X)
  call VesMatrixDestroy(A)
  call MPI_Finalize(ierror)
  if (converged /= k) error stop 'not all pairs converged'
end program first_steps
