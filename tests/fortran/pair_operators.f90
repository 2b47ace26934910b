!> Hermitian operators that couple rows 2j - 1 and 2j of the whole problem by 1 (by i in complex
!> kinds) and have 4j on their diagonal: the values are 3, 5, 7 and so on. With a weight above 0 row
!> m is scaled to A = S H S and B = S S with S = 1 + weight m, which leaves the values as they are.
module pair_operators
  use, intrinsic :: iso_fortran_env, only: real32, real64
  use ves
  implicit none

  type, extends(VesDoubleOperator) :: DoublePairs
    integer :: firstRow = 0
    real(real64) :: weight = 0
  contains
    procedure :: Apply => ApplyDoublePairs
  end type DoublePairs
  type, extends(DoublePairs) :: DoubleMass
  contains
    procedure :: Apply => ApplyDoubleMass
  end type DoubleMass
  type, extends(DoublePairs) :: DoubleInverse
    integer :: calls = 0
  contains
    procedure :: Apply => ApplyDoubleInverse
  end type DoubleInverse
  type, extends(VesFloatOperator) :: FloatPairs
    integer :: firstRow = 0
  contains
    procedure :: Apply => ApplyFloatPairs
  end type FloatPairs
  type, extends(VesComplexDoubleOperator) :: ComplexDoublePairs
    integer :: firstRow = 0
  contains
    procedure :: Apply => ApplyComplexDoublePairs
  end type ComplexDoublePairs
  type, extends(VesComplexFloatOperator) :: ComplexFloatPairs
    integer :: firstRow = 0
  contains
    procedure :: Apply => ApplyComplexFloatPairs
  end type ComplexFloatPairs

contains

  !> Entry of the diagonal in local row i.
  pure real(real64) function Centre(firstRow, i)
    integer, intent(in) :: firstRow, i
    Centre = 4 * ((firstRow + i + 1) / 2)
  end function Centre

  pure real(real64) function Scaling(self, i)
    class(DoublePairs), intent(in) :: self
    integer, intent(in) :: i
    Scaling = 1 + self%weight * (self%firstRow + i)
  end function Scaling

  subroutine ApplyDoublePairs(self, x, y)
    class(DoublePairs), intent(inout) :: self
    real(real64), intent(in), contiguous :: x(:, :)
    real(real64), intent(out), contiguous :: y(:, :)
    integer :: i, partner
    do i = 1, size(x, 1)
      partner = i - 1 + 2 * mod(i, 2)
      y(i, :) = Scaling(self, i) * (Centre(self%firstRow, i) * Scaling(self, i) * x(i, :) &
                                    + Scaling(self, partner) * x(partner, :))
    end do
  end subroutine ApplyDoublePairs

  subroutine ApplyDoubleMass(self, x, y)
    class(DoubleMass), intent(inout) :: self
    real(real64), intent(in), contiguous :: x(:, :)
    real(real64), intent(out), contiguous :: y(:, :)
    integer :: i
    do i = 1, size(x, 1)
      y(i, :) = Scaling(self, i)**2 * x(i, :)
    end do
  end subroutine ApplyDoubleMass

  subroutine ApplyDoubleInverse(self, x, y)
    class(DoubleInverse), intent(inout) :: self
    real(real64), intent(in), contiguous :: x(:, :)
    real(real64), intent(out), contiguous :: y(:, :)
    integer :: i
    self%calls = self%calls + merge(1, 0, size(x, 2) > 0 .and. all(shape(x) == shape(y)))
    do i = 1, size(x, 1)
      y(i, :) = x(i, :) / (Centre(self%firstRow, i) * Scaling(self, i)**2)
    end do
  end subroutine ApplyDoubleInverse

  subroutine ApplyFloatPairs(self, x, y)
    class(FloatPairs), intent(inout) :: self
    real(real32), intent(in), contiguous :: x(:, :)
    real(real32), intent(out), contiguous :: y(:, :)
    integer :: i
    do i = 1, size(x, 1)
      y(i, :) = real(Centre(self%firstRow, i), real32) * x(i, :) + x(i - 1 + 2 * mod(i, 2), :)
    end do
  end subroutine ApplyFloatPairs

  subroutine ApplyComplexDoublePairs(self, x, y)
    class(ComplexDoublePairs), intent(inout) :: self
    complex(real64), intent(in), contiguous :: x(:, :)
    complex(real64), intent(out), contiguous :: y(:, :)
    complex(real64), parameter :: coupling(0:1) = [(0.0, -1.0), (0.0, 1.0)]
    integer :: i
    do i = 1, size(x, 1)
      y(i, :) = Centre(self%firstRow, i) * x(i, :) &
                + coupling(mod(i, 2)) * x(i - 1 + 2 * mod(i, 2), :)
    end do
  end subroutine ApplyComplexDoublePairs

  subroutine ApplyComplexFloatPairs(self, x, y)
    class(ComplexFloatPairs), intent(inout) :: self
    complex(real32), intent(in), contiguous :: x(:, :)
    complex(real32), intent(out), contiguous :: y(:, :)
    complex(real32), parameter :: coupling(0:1) = [(0.0, -1.0), (0.0, 1.0)]
    integer :: i
    do i = 1, size(x, 1)
      y(i, :) = real(Centre(self%firstRow, i), real32) * x(i, :) &
                + coupling(mod(i, 2)) * x(i - 1 + 2 * mod(i, 2), :)
    end do
  end subroutine ApplyComplexFloatPairs
end module pair_operators
