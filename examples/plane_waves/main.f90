!> A plane-wave code in small, whose Davidson routine gave way to libves. The old call was
!>
!>     call davidson(npw, nbands, psi, e, threshold, h_psi, g_psi)
!>
!> and the new one is that of solve_bands below: h_psi and g_psi are the procedures Apply of two
!> operators. The crystal is separable, and its exact energies are sums of three characteristic
!> values of Mathieu's equation.
program plane_waves
  use crystal
  implicit none
  integer, parameter :: nbands = 7
  real(real64), parameter :: a0 = -0.45513860410741_real64, b2 = 3.91702477299847_real64, &
    a2 = 4.37130098273509_real64, exact(nbands) = 2 * a0 + [a0, b2, b2, b2, a2, a2, a2]
  type(Hamiltonian), target :: h
  type(Preconditioner), target :: g
  complex(real64), allocatable, target :: psi(:, :)
  real(real64), allocatable :: start(:, :)
  real(real64) :: e(nbands)

  call MPI_Init()
  call setup(h)
  g%kinetic = h%kinetic
  allocate (start(size(h%kinetic), nbands))
  call random_number(start)
  psi = start / spread(1 + h%kinetic, 2, nbands)
  call solve_bands(h, g, psi, e, 1.0e-7_real64)
  if (h%rank == 0) print '(a, 7f12.8)', 'computed', e, 'exact   ', exact
  call MPI_Finalize()
  if (any(abs(e - exact) > 1e-9_real64)) error stop 'the bands are not the exact ones'

contains

  subroutine solve_bands(h, g, psi, e, threshold)
    type(Hamiltonian), target, intent(inout) :: h
    type(Preconditioner), target, intent(inout) :: g
    complex(real64), target, intent(inout) :: psi(:, :) ! the guess, then the bands
    real(real64), intent(out) :: e(:)
    real(real64), intent(in) :: threshold
    complex(real64), target :: values(size(e))
    type(VesMatrix) :: A, T
    type(VesVector) :: X, D
    type(VesSolver) :: solver
    type(VesSolverStats) :: cost
    integer :: converged
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
    e = real(values)
    call VesGetSolverConv(solver, converged)
    call VesGetSolverStats(solver, cost)
    if (h%rank == 0) print '(4(i0, a))', size(h%point), ' plane waves, ', converged, ' of ', &
      size(e), ' bands converged, H applied to ', cost%columnsA, ' bands'
    call VesSolverDestroy(solver)
    call VesVectorDestroy(D)
    call VesVectorDestroy(X)
    call VesMatrixDestroy(T)
    call VesMatrixDestroy(A)
  end subroutine solve_bands
end program plane_waves
