!> The lowest bands of the crystal, by the Davidson routine that the code used to have and by libves
!> in its place: psi and e are exchanged in the same way, h_psi and g_psi are the same.
program plane_waves
  use crystal
  use davidson_bands, only: solve_by_davidson => solve_bands
  use libves_bands, only: solve_by_libves => solve_bands
  implicit none
  integer, parameter :: nbands = 7
  real(real64), parameter :: threshold = 1.0e-7_real64, a0 = -0.45513860410741_real64, &
    b2 = 3.91702477299847_real64, a2 = 4.37130098273509_real64, &
    exact(nbands) = 2 * a0 + [a0, b2, b2, b2, a2, a2, a2]
  complex(real64), allocatable :: guess(:, :), psi(:, :)
  real(real64), allocatable :: start(:, :)
  real(real64) :: e(nbands)

  call MPI_Init()
  call setup()
  call random_init(.true., .false.)
  allocate (start(size(kinetic), nbands))
  call random_number(start)
  guess = start / spread(1 + kinetic, 2, nbands)
  if (rank == 0) print '(i0, a)', size(point), ' plane waves'

  psi = guess
  call solve_by_davidson(psi, e, threshold)
  call report('Davidson')

  psi = guess
  call solve_by_libves(psi, e, threshold)
  call report('libves')
  deallocate (start, guess, psi)
  call MPI_Finalize()

contains

  subroutine report(name)
    character(*), intent(in) :: name
    if (rank == 0) print '(a8, a, i4, a, 7f12.8)', name, ': H applied to', applied, ' bands', e
    if (any(abs(e - exact) > 1e-9_real64)) error stop 'the bands are not the exact ones'
    applied = 0
  end subroutine report
end program plane_waves
