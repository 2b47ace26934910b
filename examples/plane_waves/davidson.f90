!> Before: the Davidson routine of the code. Rayleigh-Ritz over a space that grows by the
!> preconditioned residuals of the bands that have not converged, and begins anew when it is full.
module davidson_bands
  use crystal
  implicit none

contains

  subroutine solve_bands(psi, e, threshold)
    complex(real64), intent(inout) :: psi(:, :) ! the guess, then the bands
    real(real64), intent(out) :: e(:)
    real(real64), intent(in) :: threshold
    integer, parameter :: largest = 4 ! the space, in bands
    complex(real64) :: v(size(psi, 1), largest * size(e)), hv(size(psi, 1), largest * size(e))
    complex(real64) :: residual(size(psi, 1), size(e)), c(largest * size(e), largest * size(e))
    real(real64) :: values(largest * size(e)), norms(size(e))
    integer, allocatable :: rest(:)
    integer :: bands, m, new, j, iteration
    bands = size(e)
    m = 0
    new = bands
    v(:, :new) = psi
    do iteration = 1, 200
      call orthonormalize(v(:, :m + new), m + 1)
      call h_psi(v(:, m + 1:m + new), hv(:, m + 1:m + new))
      m = m + new
      c(:m, :m) = matmul(conjg(transpose(v(:, :m))), hv(:, :m))
      call diagonalize(c(:m, :m), values(:m))
      e = values(:bands)
      psi = matmul(v(:, :m), c(:m, :bands))
      residual = matmul(hv(:, :m), c(:m, :bands))
      if (m + bands > size(v, 2)) then
        v(:, :bands) = psi
        hv(:, :bands) = residual
        m = bands
      end if
      residual = residual - spread(e, 1, size(psi, 1)) * psi
      norms = sum(abs(residual)**2, 1)
      call MPI_Allreduce(MPI_IN_PLACE, norms, bands, MPI_DOUBLE_PRECISION, MPI_SUM, MPI_COMM_WORLD)
      rest = pack([(j, j = 1, bands)], sqrt(norms) > threshold)
      new = size(rest)
      if (new == 0) return
      call g_psi(residual(:, rest), v(:, m + 1:m + new))
    end do
    error stop 'Davidson has not converged'
  end subroutine solve_bands

  !> Columns from first on against all before them, by Gram-Schmidt made twice.
  subroutine orthonormalize(v, first)
    complex(real64), intent(inout) :: v(:, :)
    integer, intent(in) :: first
    complex(real64) :: overlap(size(v, 2))
    real(real64) :: square
    integer :: j, pass
    do j = first, size(v, 2)
      do pass = 1, 2
        overlap(:j - 1) = matmul(v(:, j), conjg(v(:, :j - 1)))
        call MPI_Allreduce(MPI_IN_PLACE, overlap, j - 1, MPI_DOUBLE_COMPLEX, MPI_SUM, &
          MPI_COMM_WORLD)
        v(:, j) = v(:, j) - matmul(v(:, :j - 1), overlap(:j - 1))
      end do
      square = sum(abs(v(:, j))**2)
      call MPI_Allreduce(MPI_IN_PLACE, square, 1, MPI_DOUBLE_PRECISION, MPI_SUM, MPI_COMM_WORLD)
      v(:, j) = v(:, j) / sqrt(square)
    end do
  end subroutine orthonormalize

  !> Adds the matrix up over the processes and replaces it by its eigenvectors.
  subroutine diagonalize(c, values)
    complex(real64), intent(inout), contiguous :: c(:, :)
    real(real64), intent(out) :: values(:)
    complex(real64) :: work(2 * size(c))
    real(real64) :: rwork(3 * size(values))
    integer :: info
    external :: zheev
    call MPI_Allreduce(MPI_IN_PLACE, c, size(c), MPI_DOUBLE_COMPLEX, MPI_SUM, MPI_COMM_WORLD)
    call zheev('V', 'U', size(values), c, size(values), values, work, size(work), rwork, info)
    if (info /= 0) error stop 'the small problem cannot be solved'
  end subroutine diagonalize
end module davidson_bands
