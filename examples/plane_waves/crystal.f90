!> The crystal -laplacian + 2 (cos 2x + cos 2y + cos 2z) in plane waves, distributed over the
!> processes. It is separable: its exact energies are sums of three characteristic values of
!> Mathieu's equation.
module crystal
  use, intrinsic :: iso_c_binding
  use, intrinsic :: iso_fortran_env, only: real64
  use mpi_f08
  implicit none
  include 'fftw3.f03'

  integer, parameter :: cutoff = 5, n = 12 ! of the plane waves exp(2i m r), and of the grid
  integer :: processes, rank
  integer :: applied = 0                    ! bands that H was applied to
  integer, allocatable :: counts(:), offsets(:) ! of the plane waves of each process
  integer, allocatable :: point(:)              ! of all plane waves in the grid of the FFT
  real(real64), allocatable :: kinetic(:)       ! of the plane waves of this process
  real(real64) :: potential(n**3)
  complex(c_double_complex) :: wave(n**3), field(n**3) ! in reciprocal and in real space
  type(c_ptr) :: forward, backward

contains

  subroutine setup()
    real(real64) :: energy(n**3)
    integer :: i, m(3)
    do i = 1, n**3
      m = mod((i - 1) / [1, n, n**2], n)
      potential(i) = sum(2 * cos(2 * acos(-1.0_real64) * m / n))
      energy(i) = 4 * sum(min(m, n - m)**2) ! m beyond n / 2 stands for m - n
    end do
    point = pack([(i, i = 1, n**3)], energy <= 4 * cutoff**2)
    call MPI_Comm_size(MPI_COMM_WORLD, processes)
    call MPI_Comm_rank(MPI_COMM_WORLD, rank)
    ! h_psi is collective, and a process without plane waves would never be called.
    if (processes > size(point)) error stop 'more processes than plane waves'
    counts = [((size(point) + i) / processes, i = 0, processes - 1)]
    offsets = [(sum(counts(:i)), i = 0, processes - 1)]
    i = offsets(rank + 1)
    kinetic = energy(point(i + 1:i + counts(rank + 1)))
    forward = fftw_plan_dft_3d(n, n, n, field, wave, FFTW_FORWARD, FFTW_ESTIMATE)
    backward = fftw_plan_dft_3d(n, n, n, wave, field, FFTW_BACKWARD, FFTW_ESTIMATE)
  end subroutine setup

  !> Kinetic energy where the plane waves are, the potential band by band on process mod(j, p).
  subroutine h_psi(x, y)
    complex(real64), intent(in), contiguous :: x(:, :)
    complex(real64), intent(out), contiguous :: y(:, :)
    complex(real64) :: band(size(point), size(x, 2))
    integer :: j
    do j = 1, size(x, 2)
      call MPI_Gatherv(x(:, j), size(x, 1), MPI_DOUBLE_COMPLEX, band(:, j), counts, offsets, &
        MPI_DOUBLE_COMPLEX, mod(j, processes), MPI_COMM_WORLD)
    end do
    do j = 1, size(x, 2)
      if (mod(j, processes) /= rank) cycle
      wave = 0
      wave(point) = band(:, j)
      call fftw_execute_dft(backward, wave, field)
      field = potential * field / n**3
      call fftw_execute_dft(forward, field, wave)
      band(:, j) = wave(point)
    end do
    do j = 1, size(x, 2)
      call MPI_Scatterv(band(:, j), counts, offsets, MPI_DOUBLE_COMPLEX, y(:, j), size(y, 1), &
        MPI_DOUBLE_COMPLEX, mod(j, processes), MPI_COMM_WORLD)
    end do
    y = y + spread(kinetic, 2, size(x, 2)) * x
    applied = applied + size(x, 2)
  end subroutine h_psi

  !> The preconditioner.
  subroutine g_psi(x, y)
    complex(real64), intent(in), contiguous :: x(:, :)
    complex(real64), intent(out), contiguous :: y(:, :)
    y = x / spread(1 + kinetic, 2, size(x, 2))
  end subroutine g_psi
end module crystal
