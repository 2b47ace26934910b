!> Codes, kinds and records of the flat interface.
module ves_types
  use, intrinsic :: iso_c_binding, only: c_double, c_long_long
  use, intrinsic :: iso_fortran_env, only: int64, real64
  implicit none

  private :: c_double, c_long_long, int64, real64

  enum, bind(c) ! results of calls
    enumerator :: VES_GOOD = 0, VES_ERR_INVALID_VALUE = -1, VES_ERR_OUT_OF_RANGE = -2, &
                  VES_ERR_UNSUPPORTED = -4, VES_ERR_MISMATCH = -5, VES_ERR_INCOMPATIBLE = -6, &
                  VES_ERR_NULL_POINTER = -7
  end enum
  enum, bind(c) ! scalars: real(real64), real(real32) and their complex types
    enumerator :: VES_DOUBLE = 0, VES_FLOAT = 1, VES_COMPLEX_DOUBLE = 2, VES_COMPLEX_FLOAT = 3
  end enum
  enum, bind(c) ! operators
    enumerator :: VES_MATRIX_EMPTY = 0, VES_MATRIX_SHELL = 1
  end enum
  enum, bind(c) ! blocks
    enumerator :: VES_VECTOR_DENSE = 1
  end enum
  enum, bind(c) ! solvers
    enumerator :: VES_LOBPCG = 0, VES_LOBPCG_BATCH = 1, VES_PPCG = 2
  end enum
  enum, bind(c) ! problems
    enumerator :: VES_PROBLEM_STANDARD = 0, VES_PROBLEM_GENERALIZED = 1
  end enum
  enum, bind(c) ! dense eigensolvers
    enumerator :: VES_LAPACK_DIAG = 0, VES_SCALAPACK_DIAG = 1
    enumerator :: VES_ELPA_DIAG = 2, VES_ELPA_TWO_STAGE_DIAG = 3, VES_LAPACK_LOWEST_DIAG = 4
  end enum
  enum, bind(c) ! tests of convergence and locking
    enumerator :: VES_RESIDUALS = 0, VES_RELATIVE_RESIDUALS = 1, VES_EIGENVALUES = 2, &
                  VES_RESIDUALS_OR_EIGENVALUES = 3
  end enum
  enum, bind(c) ! orthogonalizers
    enumerator :: VES_CHOLESKY_QR = 0, VES_SVD_QR = 1
  end enum
  enum, bind(c) ! projectors
    enumerator :: VES_GRAM_SCHMIDT = 0
  end enum
  enum, bind(c) ! why a run ended
    enumerator :: VES_REASON_NONE = 0, VES_REASON_CONVERGED = 1, VES_REASON_ITERATIONS = 2, &
                  VES_REASON_MONITOR = 3, VES_REASON_STAGNATED = 4, VES_REASON_NONFINITE = 5
  end enum

  !> Where a run stands after an iteration; the arrays live until the monitor returns.
  type :: VesProgress
    integer :: iteration !< iterations made, 0 after the start
    integer :: wanted    !< pairs wanted
    integer :: converged !< leading pairs that pass the convergence test
    integer :: locked    !< pairs that are no longer changed
    integer :: active    !< pairs that are iterated
    real(real64), pointer :: values(:)    !< estimates of all wanted values, +infinity where unknown
    real(real64), pointer :: residuals(:) !< residual norms when last tested, NaN where unknown
    integer(int64) :: columnsA !< columns that A was applied to so far
  end type VesProgress

  !> What the last run of a solver cost on this process.
  type, bind(c) :: VesSolverStats
    integer(c_long_long) :: columnsA     !< columns that A was applied to
    integer(c_long_long) :: columnsB     !< columns that B was applied to
    integer(c_long_long) :: columnsT     !< columns that the preconditioner was applied to
    integer(c_long_long) :: reductions   !< reductions over processes
    integer(c_long_long) :: bytesReduced !< bytes that this process gave to them
    real(c_double) :: secondsOperators   !< in the routines of A, B and T
    real(c_double) :: secondsDense       !< in dense factorizations and eigendecompositions
    real(c_double) :: secondsTotal       !< of the whole run
    integer(c_long_long) :: columnsLow   !< of columnsA those in single precision
    integer(c_long_long), private :: reserved(7)
  end type VesSolverStats
end module ves_types
