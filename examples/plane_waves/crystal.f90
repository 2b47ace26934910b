!> The crystal -laplacian + 2 (cos 2x + cos 2y + cos 2z) in plane waves, distributed over the
!> processes. What used to be arrays of a module are components of the operator.
module crystal
  use, intrinsic :: iso_c_binding
  use, intrinsic :: iso_fortran_env, only: real64
  use mpi_f08
  use ves
  implicit none
  include 'fftw3.f03'

  integer, parameter :: cutoff = 5, n = 12 ! of the plane waves exp(2i m r), and of the grid

  type, extends(VesComplexDoubleOperator) :: Hamiltonian
    integer :: processes, rank
    integer, allocatable :: counts(:), offsets(:) ! of the plane waves of each process
    integer, allocatable :: point(:)              ! of all plane waves in the grid of the FFT
    real(real64), allocatable :: kinetic(:)       ! of the plane waves of this process
    real(real64) :: potential(n**3)
    complex(c_double_complex) :: wave(n**3), field(n**3) ! in reciprocal and in real space
    type(c_ptr) :: forward, backward
  contains
    procedure :: Apply => h_psi
  end type Hamiltonian
  type, extends(VesComplexDoubleOperator) :: Preconditioner
    real(real64), allocatable :: kinetic(:)
  contains
    procedure :: Apply => g_psi
  end type Preconditioner

contains

  subroutine setup(h)
    type(Hamiltonian), intent(inout) :: h
    real(real64) :: kinetic(n**3)
    integer :: i, m(3)
    do i = 1, n**3
      m = mod((i - 1) / [1, n, n**2], n)
      h%potential(i) = sum(2 * cos(2 * acos(-1.0_real64) * m / n))
      kinetic(i) = 4 * sum(min(m, n - m)**2) ! m beyond n / 2 stands for m - n
    end do
    h%point = pack([(i, i = 1, n**3)], kinetic <= 4 * cutoff**2)
    call MPI_Comm_size(MPI_COMM_WORLD, h%processes)
    call MPI_Comm_rank(MPI_COMM_WORLD, h%rank)
    ! h_psi is collective, and a process without plane waves would never be called.
    if (h%processes > size(h%point)) error stop 'more processes than plane waves'
    h%counts = [((size(h%point) + i) / h%processes, i = 0, h%processes - 1)]
    h%offsets = [(sum(h%counts(:i)), i = 0, h%processes - 1)]
    i = h%offsets(h%rank + 1)
    h%kinetic = kinetic(h%point(i + 1:i + h%counts(h%rank + 1)))
    h%forward = fftw_plan_dft_3d(n, n, n, h%field, h%wave, FFTW_FORWARD, FFTW_ESTIMATE)
    h%backward = fftw_plan_dft_3d(n, n, n, h%wave, h%field, FFTW_BACKWARD, FFTW_ESTIMATE)
  end subroutine setup

  !> Kinetic energy where the plane waves are, the potential band by band on process mod(j, p).
  subroutine h_psi(self, x, y)
    class(Hamiltonian), intent(inout) :: self
    complex(real64), intent(in), contiguous :: x(:, :)
    complex(real64), intent(out), contiguous :: y(:, :)
    complex(real64) :: band(size(self%point), size(x, 2))
    integer :: j
    do j = 1, size(x, 2)
      call MPI_Gatherv(x(:, j), size(x, 1), MPI_DOUBLE_COMPLEX, band(:, j), self%counts, &
        self%offsets, MPI_DOUBLE_COMPLEX, mod(j, self%processes), MPI_COMM_WORLD)
    end do
    do j = 1, size(x, 2)
      if (mod(j, self%processes) /= self%rank) cycle
      self%wave = 0
      self%wave(self%point) = band(:, j)
      call fftw_execute_dft(self%backward, self%wave, self%field)
      self%field = self%potential * self%field / n**3
      call fftw_execute_dft(self%forward, self%field, self%wave)
      band(:, j) = self%wave(self%point)
    end do
    do j = 1, size(x, 2)
      call MPI_Scatterv(band(:, j), self%counts, self%offsets, MPI_DOUBLE_COMPLEX, y(:, j), &
        size(y, 1), MPI_DOUBLE_COMPLEX, mod(j, self%processes), MPI_COMM_WORLD)
    end do
    y = y + spread(self%kinetic, 2, size(x, 2)) * x
  end subroutine h_psi

  subroutine g_psi(self, x, y)
    class(Preconditioner), intent(inout) :: self
    complex(real64), intent(in), contiguous :: x(:, :)
    complex(real64), intent(out), contiguous :: y(:, :)
    y = x / spread(1 + self%kinetic, 2, size(x, 2))
  end subroutine g_psi
end module crystal
