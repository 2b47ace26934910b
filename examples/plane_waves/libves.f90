!> After: the same by libves. The routines h_psi and g_psi stay as they are.
module libves_bands
  use crystal
  use ves
  implicit none

  !> An operator whose multiplication is a routine of the code.
  type, extends(VesComplexDoubleOperator) :: Routine
    procedure(h_psi), pointer, nopass :: multiply => null()
  contains
    procedure :: Apply
  end type Routine

contains

  subroutine Apply(self, x, y)
    class(Routine), intent(inout) :: self
    complex(real64), intent(in), contiguous :: x(:, :)
    complex(real64), intent(out), contiguous :: y(:, :)
    call self%multiply(x, y)
  end subroutine Apply

  subroutine solve_bands(psi, e, threshold)
    complex(real64), target, intent(inout) :: psi(:, :) ! the guess, then the bands
    real(real64), intent(out) :: e(:)
    real(real64), intent(in) :: threshold
    type(Routine), target :: h, g
    complex(real64), target :: values(size(e))
    type(VesMatrix) :: A, T
    type(VesVector) :: X, D
    type(VesSolver) :: solver
    integer :: converged
    h%multiply => h_psi
    g%multiply => g_psi
    call VesMatrixCreate(A, VES_COMPLEX_DOUBLE, VES_MATRIX_SHELL)
    call VesMatrixSetShellMatVec(A, h)
    call VesMatrixCreate(T, VES_COMPLEX_DOUBLE, VES_MATRIX_SHELL)
    call VesMatrixSetShellMatVec(T, g)
    call VesVectorCreate(X, VES_COMPLEX_DOUBLE, VES_VECTOR_DENSE)
    call VesVectorSetDim(X, size(psi, 1), size(psi, 2))
    call VesVectorDenseSetValues(X, psi)
    call VesVectorCreate(D, VES_COMPLEX_DOUBLE, VES_VECTOR_DENSE)
    call VesVectorSetDim(D, size(e), 1)
    call VesVectorDenseSetValues(D, values)
    call VesSolverCreate(solver, VES_COMPLEX_DOUBLE, VES_LOBPCG)
    call VesSolverSetThreshold(solver, threshold)
    call VesRunSolver(solver, A, X, D, T=T)
    call VesGetSolverConv(solver, converged)
    e = real(values)
    call VesSolverDestroy(solver)
    call VesVectorDestroy(D)
    call VesVectorDestroy(X)
    call VesMatrixDestroy(T)
    call VesMatrixDestroy(A)
    if (converged < size(e)) error stop 'libves has not converged'
  end subroutine solve_bands
end module libves_bands
