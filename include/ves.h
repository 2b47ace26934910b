/// \file ves.h
/// libves: block eigensolvers for the lowest eigenpairs of large Hermitian problems
/// A x = lambda x and A x = lambda B x, matrix-free and parallel over MPI.
///
/// The one public header of the flat interface, for C11 and C++17. In the comments n is the
/// number of rows that this process holds of a distributed block, k its number of columns.
///
/// Conventions
/// - Every function returns a VesReturnCode unless it says otherwise; codes are listed in the
///   order in which the checks are made. A refused call changes nothing.
/// - "Collective" means that every process of the block's first communicator makes the call, in
///   the same order. All other functions are local, but for what is released: destroying a solver
///   or an operator of entries, replacing these entries, or the dense eigensolver or orthogonalizer
///   of a solver, frees a communicator of theirs.
/// - Every block of a handle holds its scalar type, columns of values and norms too: the k values
///   of a complex problem are k complex numbers.
/// - A handle belongs to the caller from ...Create to ...Destroy. MPI must be initialised before
///   the first call; handles may be destroyed after MPI_Finalize.
#ifndef VES_H
#define VES_H

#include <mpi.h>
#include <stdbool.h>
#include <stddef.h>

/* Release of this header; VesGetVersion tells that of the library. */
#define VES_VERSION_MAJOR 0
#define VES_VERSION_MINOR 1
#define VES_VERSION_PATCH 0

#if defined(__GNUC__) || defined(__clang__)
#define VES_EXPORT __attribute__((visibility("default")))
#else
#define VES_EXPORT
#endif

#ifdef __cplusplus
#define VES_NOEXCEPT noexcept
#define VES_ENUM_BASE : int /* any code of the caller is a valid value, to be refused by name */
extern "C" {
#else
#define VES_NOEXCEPT
#define VES_ENUM_BASE
#endif

/* ------------------------------------------------------------------ types and codes */

/// The result of every operation.
typedef enum VesReturnCode VES_ENUM_BASE {
  VES_GOOD = 0,               ///< success
  VES_ERR_INVALID_VALUE = -1, ///< an argument has an invalid value
  VES_ERR_OUT_OF_RANGE = -2,  ///< a sub-block lies outside its parent block
  VES_ERR_UNSUPPORTED = -4,   ///< unknown kind, or a block the operation cannot work on
  VES_ERR_MISMATCH = -5,      ///< scalar types or shapes that do not belong together
  VES_ERR_INCOMPATIBLE = -6,  ///< objects that cannot take part in the operation
  VES_ERR_NULL_POINTER = -7   ///< a required handle, pointer or storage is missing
} VesReturnCode;

/// Element type of a handle. Two handles work together only if theirs are equal.
typedef enum VesScalarType VES_ENUM_BASE {
  VES_DOUBLE = 0,
  VES_FLOAT = 1,
  VES_COMPLEX_DOUBLE = 2,
  VES_COMPLEX_FLOAT = 3
} VesScalarType;

/// Kind of an operator.
typedef enum VesMatrixType VES_ENUM_BASE {
  VES_MATRIX_EMPTY = 0, ///< the absent operator; never created by the caller
  VES_MATRIX_SHELL = 1  ///< applied by a routine of the caller, or by entries that he gave
} VesMatrixType;

/// Kind of a vector handle.
typedef enum VesVectorType VES_ENUM_BASE {
  VES_VECTOR_DENSE = 1 ///< row-distributed, column-major block of columns
} VesVectorType;

/// Solver algorithm.
typedef enum VesSolverType VES_ENUM_BASE {
  VES_LOBPCG = 0,       ///< locally optimal block preconditioned conjugate gradient
  VES_LOBPCG_BATCH = 1, ///< the same on a moving batch of columns
  VES_PPCG = 2          ///< projected preconditioned conjugate gradient in sub-blocks
} VesSolverType;

/// Standard or generalized problem.
typedef enum VesProblemType VES_ENUM_BASE {
  VES_PROBLEM_STANDARD = 0,   ///< A x = lambda x; of a B operator only the scalar type is looked at
  VES_PROBLEM_GENERALIZED = 1 ///< A x = lambda B x, when a B operator is given
} VesProblemType;

/// Dense eigensolver for the small projected problems.
typedef enum VesDenseEigenSolverType VES_ENUM_BASE {
  VES_LAPACK_DIAG = 0,         ///< LAPACK on one process
  VES_SCALAPACK_DIAG = 1,      ///< ScaLAPACK from order 300 on, LAPACK below (default)
  VES_ELPA_DIAG = 2,           ///< ELPA from order 300 on, LAPACK below, where it is built in
  VES_ELPA_TWO_STAGE_DIAG = 3, ///< the same by way of a band matrix
  VES_LAPACK_LOWEST_DIAG = 4   ///< LAPACK on one process, of only the vectors that are used
} VesDenseEigenSolverType;

/// Test for convergence and locking of a pair with residual r = A x - lambda B x. The relative test
/// is meant for ||B|| near 1: vectors have unit B-norm, so a threshold that is not well below
/// sqrt(||B||) passes vectors that are no solution. With B far from unit size scale the problem, or
/// take VES_RESIDUALS with the threshold tol ||A|| / sqrt(||B||).
typedef enum VesConvergeDetectorType VES_ENUM_BASE {
  VES_RESIDUALS = 0,               ///< ||r|| < threshold (default)
  VES_RELATIVE_RESIDUALS = 1,      ///< ||r|| < |lambda| threshold
  VES_EIGENVALUES = 2,             ///< |lambda - previous lambda| < threshold
  VES_RESIDUALS_OR_EIGENVALUES = 3 ///< either VES_RESIDUALS or VES_EIGENVALUES
} VesConvergeDetectorType;

/// B-orthonormalization of a block.
typedef enum VesOrthogonalizerType VES_ENUM_BASE {
  VES_CHOLESKY_QR = 0, ///< Cholesky factor of the Gram matrix (default)
  VES_SVD_QR = 1       ///< eigendecomposition of the Gram matrix
} VesOrthogonalizerType;

/// B-orthogonal projection of one block against another.
typedef enum VesOrthoProjectorType VES_ENUM_BASE {
  VES_GRAM_SCHMIDT = 0 ///< block classical Gram-Schmidt
} VesOrthoProjectorType;

/// Opaque handle of an operator.
typedef struct VesMatrixBase* VesMatrix;

/// Opaque handle of a block of vectors, or of a column of values.
typedef struct VesVectorBase* VesVector;

/// Opaque handle of a solver.
typedef struct VesSolverBase* VesSolver;

/// Multiplication routine of the caller: y = Op x for every column of a block.
/// \param shellData  the pointer given to VesMatrixSetShellMatVec
/// \param x,y        first elements of the local parts, column-major, element type of the handle
/// \param nRows      local rows n of both blocks
/// \param nCols      columns of both blocks; differs from call to call
/// \param ld         leading dimension of both blocks, at least n; differs from call to call
/// x is read-only. y holds anything at entry and is written whole, n rows of all columns. The two
/// never overlap. A is Hermitian, B and T are Hermitian and positive definite. T turns residuals
/// into directions: the nearer it is to the inverse of A - sigma B, with sigma below the spectrum,
/// the fewer iterations. None of this is tested.
///
/// Called on the processes that hold at least one row, with their own rows, in the same order and
/// with the same number of columns. It may communicate among those; one that needs all processes
/// asks for it by VesMatrixSetCalledEverywhere. No exception may leave it: a failure is told by NaN
/// in y, which ends the run. A run keeps ld nCols below 2^31 on all processes, or nCols at 1: wider
/// blocks come in panels of columns, the same on all.
typedef void (*VesShellMatVec)(void* shellData, void* x, void* y, int nRows, int nCols, int ld);

/// Multiplies a block by A and by B at once, where both share work: ax = A x and bx = B x, all three
/// blocks as those of VesShellMatVec, which do not overlap.
typedef void (*VesShellPair)(void* shellData, void* x, void* ax, void* bx, int nRows, int nCols,
                             int ld);

/* ------------------------------------------------------------------ operators */

/// Creates an operator of 0 x 0, without routine and data.
/// \return -7 out is null; -5 scalarType is none of the four (out becomes null);
///         -4 matrixType is not VES_MATRIX_SHELL; 0
VES_EXPORT VesReturnCode VesMatrixCreate(VesMatrix* out, VesScalarType scalarType,
                                         VesMatrixType matrixType) VES_NOEXCEPT;

/// Stores the dimensions of an operator, for information only.
/// \return -7 matrix is null; -1 a dimension is negative; 0
VES_EXPORT VesReturnCode VesMatrixSetDim(VesMatrix matrix, int nRows, int nCols) VES_NOEXCEPT;

/// Installs the multiplication routine and the pointer that it is called with. Both stay the
/// caller's. Entries that were given before are released. A run refuses an operator without either.
/// \return -7 matrix is null; -6 not a shell operator; -4 unknown scalar type; 0
VES_EXPORT VesReturnCode VesMatrixSetShellMatVec(VesMatrix matrix, void* userData,
                                                 VesShellMatVec matVec) VES_NOEXCEPT;

/// Installs a routine that multiplies by the same operator in single precision: elements are float
/// or complex float where those of the handle are double or complex double. Null removes it. Runs
/// of mixed precision call it (VesSolverSetMixedPrecision).
/// \return -7 matrix is null; -6 not a shell operator; -4 the handle is of single precision; 0
VES_EXPORT VesReturnCode VesMatrixSetShellMatVecLow(VesMatrix matrix, void* userData,
                                                    VesShellMatVec matVec) VES_NOEXCEPT;

/// Installs a routine that multiplies by A and B at once, as where one set of projections serves
/// both; null removes it, and so does another one of either of them. Their own routines stay in use
/// where one of the images alone is asked for, and altogether where its first call in a run
/// contradicts them; who replaces one of them replaces the pair. Runs of VES_LOBPCG and
/// VES_LOBPCG_BATCH with this A and this B call it for preconditioned residuals, which they project
/// before both images are made, in place of after: results differ in rounding. It takes the time of
/// A in the statistics, and the columns of both. Single-precision parts of runs and VES_PPCG do
/// without. Must be the same on all processes; it is called on processes without rows where A is
/// (VesMatrixSetCalledEverywhere).
/// \return -7 A or B is null; -6 not shell operators; -5 scalar types differ; -1 A and B are the
///         same; 0
VES_EXPORT VesReturnCode VesMatrixSetShellPair(VesMatrix A, VesMatrix B, void* userData,
                                               VesShellPair routine) VES_NOEXCEPT;

/// Lets the routine be called on processes without rows, too (default off), for one that needs
/// every process: there as often as elsewhere and with the same number of columns, n = 0, and x and
/// y that may be null. To be set alike on all processes; holds for every call of the library.
/// \return -7 matrix is null; -6 not a shell operator; 0
VES_EXPORT VesReturnCode VesMatrixSetCalledEverywhere(VesMatrix matrix, bool isOn) VES_NOEXCEPT;

/// Gives an operator its entries, by which it then multiplies without a routine: the rows of a
/// sparse matrix that this process holds, in the order of ranks, with columns numbered from 0 over
/// all processes. Row i has the entries from starts[i] to starts[i + 1] of columns and values,
/// starts[0] = 0; entries of the same place add up. They are copied, and the arrays may go. Runs of
/// mixed precision multiply by the same entries in single precision.
///
/// A product sends the rows of x that other processes need to these alone, on a duplicate of comm,
/// and multiplies the entries of own columns meanwhile; it keeps storage for 32 columns of the rows
/// received and of those sent. Blocks must be distributed as the entries. Routines that the operator
/// had are replaced, that of single precision too. Collective over comm, where the verdicts after
/// the first four are agreed on: that of the process with the lowest code. values has the scalar
/// type of the handle; processes without rows may give null pointers.
/// \return -7 matrix is null; -6 not a shell operator; -1 comm is MPI_COMM_NULL; -4 unknown scalar
///         type; -1 nRows is negative; -7 no starts; -1 starts do not ascend from 0; -7 no columns or
///         values; -1 a column is not from 0 to the number of all rows, or there is no storage; -5
///         scalar types differ between processes; -1 32 bits do not count the rows that some process
///         gives to others, or there is no storage for them; 0
VES_EXPORT VesReturnCode VesMatrixSetRows(VesMatrix matrix, MPI_Comm comm, int nRows,
                                          const long long* starts, const long long* columns,
                                          const void* values) VES_NOEXCEPT;

/// As VesMatrixSetRows, for callers that hold a communicator as a Fortran handle.
/// \return as VesMatrixSetRows
VES_EXPORT VesReturnCode VesMatrixSetRows_f(VesMatrix matrix, MPI_Fint comm, int nRows,
                                            const long long* starts, const long long* columns,
                                            const void* values) VES_NOEXCEPT;

/// Y = Op X, n x k both, outside of a run: by the routine or the entries of an operator, or by
/// those for single precision where X is of that. Collective as far as the operator is: k and the
/// scalar type must be the same on all processes, and one whose operands are refused, since each
/// checks its own, leaves its neighbours waiting. A routine gets the block as it is.
/// \return -7 matrix, X or Y is null; -5 scalar types differ; -7 there are neither routine nor
///         entries; -5 the entries are distributed otherwise than X; -1 ld of X below its rows;
///         -1 communicators or shapes of X and Y differ; -7 a block without storage; -1 leading
///         dimensions differ, or X and Y overlap; 0
VES_EXPORT VesReturnCode VesMatrixMultiply(VesMatrix matrix, VesVector X, VesVector Y) VES_NOEXCEPT;

/// \return the user data of a shell operator; null for a null handle, another kind or entries
VES_EXPORT void* VesMatrixGetShellUserData(VesMatrix matrix) VES_NOEXCEPT;

/// Releases an operator; a null handle is ignored. Collective for one of entries.
VES_EXPORT void VesMatrixDestroy(VesMatrix matrix) VES_NOEXCEPT;

/* ------------------------------------------------------------------ blocks of vectors */

/// Creates an empty block on MPI_COMM_WORLD and MPI_COMM_SELF, without storage, ld 1.
/// \return -7 out is null; -5 scalarType is none of the four (out becomes null);
///         -4 vectorType is not VES_VECTOR_DENSE; 0
VES_EXPORT VesReturnCode VesVectorCreate(VesVector* out, VesScalarType scalarType,
                                         VesVectorType vectorType) VES_NOEXCEPT;

/// Stores a communicator: slot 0 the one over which the rows are distributed, slot 1 a second
/// one over which the results of small dense problems are repeated (default MPI_COMM_SELF).
/// The communicator must stay valid while the block is in use; it stays the caller's.
/// \return -7 vector is null; -1 comm is MPI_COMM_NULL; -4 slot is neither 0 nor 1; 0
VES_EXPORT VesReturnCode VesVectorSetComm(VesVector vector, int slot, MPI_Comm comm) VES_NOEXCEPT;

/// Stores the local rows and the columns of a block. Its leading dimension and its storage stay as
/// they are, also the storage that a replica got for the shape it had: it is the caller who keeps
/// the shape within them.
/// \return -7 vector is null; -1 a dimension is negative; 0
VES_EXPORT VesReturnCode VesVectorSetDim(VesVector vector, int nRows, int nCols) VES_NOEXCEPT;

/// Gives a block its storage: values[i + j ld] is entry (i, j). The storage stays the caller's.
/// \return -7 vector or values is null; -1 ld below 1; -6 not a dense block;
///         -4 unknown scalar type; 0
VES_EXPORT VesReturnCode VesVectorDenseSetValues(VesVector vector, void* values,
                                                 int ld) VES_NOEXCEPT;

/// \return the storage of a dense block; null for a null handle, another kind or no storage
VES_EXPORT void* VesVectorDenseGetValues(VesVector vector) VES_NOEXCEPT;

/// Creates a block of the same shape and communicators as src. With allocate it gets storage of
/// its own of ld k numbers, uninitialised, where a leading dimension below the rows, of a shape
/// that never got storage, is raised to them; with allocate and copy it gets the values of src.
/// Without allocate it keeps the leading dimension, and copy is ignored. On failure after the
/// creation the new handle is the caller's to destroy.
/// \return -7 src or out is null; -5, -4 as VesVectorCreate; -7 src is without values to copy;
///         -1 the storage cannot be had; 0
VES_EXPORT VesReturnCode VesVectorReplicate(VesVector src, VesVector* out, bool allocate,
                                            bool copy) VES_NOEXCEPT;

/// Euclidean norm of each column of the distributed block x (n x k) into norms (k x 1).
/// Collective over the communicator of x, where the verdicts after the first are agreed on.
/// \return -7 x or norms is null; -6 norms is not k x 1; -4 x is of another scalar type;
///         -7 a block without storage; -1 ld of norms below its rows; -5 the communicators of x and
///         norms are not of the same processes in the same order; -5 processes disagree on k, or on
///         ld of norms; 0
VES_EXPORT VesReturnCode VesVectorNorm(VesVector x, VesVector norms) VES_NOEXCEPT;

/// Residuals R = A X - B X diag(D) of k pairs: X and R n x k, D k x 1. B may be null.
/// Collective as far as the routines of A and B are; each process checks its own operands. Takes
/// the storage of X once more, with B twice.
/// \return -1 A, X, D or R is null; -6 shapes, or communicators or scalar types of X and R, differ;
///         -5 scalar types differ; -7 a block without storage or an operator without a routine;
///         -5 an operator of entries is distributed otherwise than X;
///         -1 ld below the rows; -1 ld k is 2^31 or more: take some columns at a time, as many on
///         all processes; -1 this process cannot have the storage; what one refuses the others are
///         not told; 0
VES_EXPORT VesReturnCode VesEigResidual(VesMatrix A, VesMatrix B, VesVector X, VesVector D,
                                        VesVector R) VES_NOEXCEPT;

/// Releases a block and the storage it owns; a null handle is ignored.
VES_EXPORT void VesVectorDestroy(VesVector vector) VES_NOEXCEPT;

/* ------------------------------------------------------------------ solvers */

/// Creates a solver with the defaults: standard problem, threshold 1e-6, 100 iterations, one
/// orthogonalization pass, ScaLAPACK from order 300 on, residual test, Cholesky QR.
/// \return -7 out is null; -5 scalarType is none of the four (out becomes null);
///         -4 solverType is unknown; 0
VES_EXPORT VesReturnCode VesSolverCreate(VesSolver* out, VesScalarType scalarType,
                                         VesSolverType solverType) VES_NOEXCEPT;

/// Releases a solver; a null handle is ignored. Local until a run used ScaLAPACK, then collective
/// over the processes of that run.
VES_EXPORT void VesSolverDestroy(VesSolver solver) VES_NOEXCEPT;

/// Standard or generalized problem; the value is stored without a range check.
/// \return -7 solver is null; 0
VES_EXPORT VesReturnCode VesSolverSetProblemType(VesSolver solver,
                                                 VesProblemType problemType) VES_NOEXCEPT;

/// Limit of iterations (default 100).
/// \return -7 solver is null; -1 value not positive; 0
VES_EXPORT VesReturnCode VesSolverSetMaxIter(VesSolver solver, int maxIter) VES_NOEXCEPT;

/// Limit of orthogonalization passes, both inside the components and around them (default 1).
/// \return -7 solver is null; -1 value not positive; 0
VES_EXPORT VesReturnCode VesSolverSetMaxOrthoIter(VesSolver solver, int maxOrthoIter) VES_NOEXCEPT;

/// Threshold of the convergence test, in the units that the test compares (default 1e-6).
/// \return -7 solver is null; -1 value not above 0 (a NaN is taken, and no pair ever passes it); 0
VES_EXPORT VesReturnCode VesSolverSetThreshold(VesSolver solver, double threshold) VES_NOEXCEPT;

/// Chooses the dense eigensolver of the projected problems; releases the one before it as
/// VesSolverDestroy does.
/// \return -7 solver is null; -4 unknown kind, or one of ELPA in a library built without it; 0
VES_EXPORT VesReturnCode VesSetDenseEigenSolverType(VesSolver solver,
                                                    VesDenseEigenSolverType type) VES_NOEXCEPT;

/// Chooses the test of convergence and locking.
/// \return -7 solver is null; -4 unknown kind; 0
VES_EXPORT VesReturnCode VesSetConvergeDetectorType(VesSolver solver,
                                                    VesConvergeDetectorType type) VES_NOEXCEPT;

/// Chooses the orthogonalizer; releases the one before it as VesSolverDestroy does.
/// \return -7 solver is null; -4 unknown kind; 0
VES_EXPORT VesReturnCode VesSetOrthogonalizerType(VesSolver solver,
                                                  VesOrthogonalizerType type) VES_NOEXCEPT;

/// Chooses the projector.
/// \return -7 solver is null; -4 unknown kind; 0
VES_EXPORT VesReturnCode VesSetOrthoProjectorType(VesSolver solver,
                                                  VesOrthoProjectorType type) VES_NOEXCEPT;

/// Most vectors that VES_LOBPCG_BATCH iterates at once (default 256), from the next run on. A small
/// batch takes less memory and less dense work, and more columns of A.
/// \return -7 solver is null; -6 not a VES_LOBPCG_BATCH solver; -1 limit not positive; 0
VES_EXPORT VesReturnCode VesSolverSetBatchLimit(VesSolver solver, int limit) VES_NOEXCEPT;

/// Vectors that VES_LOBPCG_BATCH iterates at once to begin with, from the next run on; 0 (default),
/// and any beyond the limit: as many as that allows. With the self-check and a test of residuals a
/// batch doubles, up to the limit, where for 20 to 40 iterations no pair converges and residuals
/// hardly fall, as where it holds only a part of a group of close values. Memory is that of the
/// limit.
/// \return -7 solver is null; -6 not a VES_LOBPCG_BATCH solver; -1 width negative; 0
VES_EXPORT VesReturnCode VesSolverSetBatchStart(VesSolver solver, int width) VES_NOEXCEPT;

/// Soft locking of PPCG: 0 none (default), 1 leaves out the residuals of pairs that pass the lock
/// test, 2 those of pairs that pass the convergence test. Applies A to fewer columns.
/// \return -7 solver is null; -6 not a PPCG solver; -1 type is none of the three; 0
VES_EXPORT VesReturnCode VesSolverSetPPCGSoftLocking(VesSolver solver, int type) VES_NOEXCEPT;

/// Widest sub-block of PPCG (default 64). A run for fewer pairs shrinks it for the runs after it.
/// \return -7 solver is null; -6 not a PPCG solver; -1 nBatch not positive; 0
VES_EXPORT VesReturnCode VesSolverSetPPCGBatch(VesSolver solver, int nBatch) VES_NOEXCEPT;

/// Iterations of PPCG from one full Rayleigh-Ritz step to the next (default 5); 0 makes none before
/// the last.
/// \return -7 solver is null; -6 not a PPCG solver; -1 rrPeriod negative; 0
VES_EXPORT VesReturnCode VesSolverSetPPCGRRPeriod(VesSolver solver, int rrPeriod) VES_NOEXCEPT;

/// Factor of the threshold at which PPCG locks a pair for good (default 0.01): the one that
/// VesSolverSetLockFactor sets for every solver; the later call holds.
/// \return -7 solver is null; -6 not a PPCG solver; -1 mu not from 0 to 1; 0
VES_EXPORT VesReturnCode VesSolverSetPPCGLockFactor(VesSolver solver, double mu) VES_NOEXCEPT;

/// Iterations of the last run; 0 before the first. VES_LOBPCG_BATCH makes one more than the limit
/// when the rest of its guess has to be brought into the result.
/// \return -7 solver or iter is null; 0
VES_EXPORT VesReturnCode VesGetSolverIter(VesSolver solver, int* iter) VES_NOEXCEPT;

/// Leading pairs of the last run that passed the convergence test; 0 before the first.
/// \return -7 solver or nConv is null; 0
VES_EXPORT VesReturnCode VesGetSolverConv(VesSolver solver, int* nConv) VES_NOEXCEPT;

/// Computes the k lowest eigenpairs. X (n x k, rows distributed) holds the initial guess on entry
/// and the eigenvectors on return, X^H B X = I with B = I in the standard problem. D (k x 1, on
/// every process) receives the eigenvalues in ascending order, but for rounding errors among close
/// ones. B and the preconditioner T may be null; B is used only in the generalized problem. Not
/// converging is not an error: compare VesGetSolverConv with k. When the guess, completed with
/// random columns, spans fewer than k directions, the pairs beyond its rank are zero vectors with
/// the value +infinity.
///
/// Collective over both communicators of X. All verdicts after the first are agreed on over the
/// first communicator, the last one over both: all processes return the same code. The workspace is
/// allocated before anything is computed. What the dense eigensolver and the orthogonalizer take
/// beside it while they work is not: where that cannot be had, the program ends.
/// \return -1 solver, A, X or D is null; -5 scalar types differ; -5 the columns of X differ from
///         the rows of D, or D has not one column; -4 X or D is no dense block; -7 X or D (where
///         they have entries) is without storage, or an operator that is used has no routine;
///         -5 an operator of entries is distributed otherwise than X;
///         -5 the communicators of X and D differ; -1 ld below the rows of X (where it has columns)
///         or D, or too many pairs, as VesSolverMemory tells before; -5 processes disagree on
///         k, on the kind or a setting of the solver, on whether there is a monitor, a T, or a B
///         that is used, or on where an operator is called; -1 some process cannot have the
///         workspace; 0
VES_EXPORT VesReturnCode VesRunSolver(VesSolver solver, VesMatrix A, VesMatrix B, VesMatrix T,
                                      VesVector X, VesVector D) VES_NOEXCEPT;

/* ------------------------------------------------------------------ what a run did, and beyond */

/// Release of the library as "major.minor.patch"; a static text.
VES_EXPORT const char* VesGetVersion(void) VES_NOEXCEPT;

/// What a return code means, in a few words; a static text for any number.
VES_EXPORT const char* VesErrorString(VesReturnCode code) VES_NOEXCEPT;

/// Why the last run of a solver ended.
typedef enum VesSolverReason VES_ENUM_BASE {
  VES_REASON_NONE = 0,       ///< there was no run yet
  VES_REASON_CONVERGED = 1,  ///< all wanted pairs passed the convergence test
  VES_REASON_ITERATIONS = 2, ///< the limit of iterations was reached
  VES_REASON_MONITOR = 3,    ///< the monitor asked for the end
  VES_REASON_STAGNATED = 4,  ///< rounding, or the rank of the guess, allows no further progress
  VES_REASON_NONFINITE = 5   ///< an operator returned NaN or infinity
} VesSolverReason;

/// Why the last run ended; VES_REASON_NONE before the first.
/// \return -7 solver or reason is null; 0
VES_EXPORT VesReturnCode VesGetSolverReason(VesSolver solver, VesSolverReason* reason) VES_NOEXCEPT;

/// A short text for a reason; static, for any number.
VES_EXPORT const char* VesReasonString(VesSolverReason reason) VES_NOEXCEPT;

/// What the last run of a solver cost on this process. Later releases may add fields in the room
/// kept for them; the size stays.
typedef struct VesSolverStats {
  long long columnsA;      ///< columns that A was applied to
  long long columnsB;      ///< columns that B was applied to
  long long columnsT;      ///< columns that the preconditioner was applied to
  long long reductions;    ///< reductions over processes
  long long bytesReduced;  ///< bytes that this process gave to them
  double secondsOperators; ///< in the routines of A, B and T
  double secondsDense;     ///< in dense factorizations and eigendecompositions
  double secondsTotal;     ///< of the whole run
  long long columnsLow;    ///< of columnsA those in single precision
  long long reserved[7];   ///< room, zero
} VesSolverStats;

/// What the last run cost on this process; zeros before the first.
/// \return -7 solver or stats is null; 0
VES_EXPORT VesReturnCode VesGetSolverStats(VesSolver solver, VesSolverStats* stats) VES_NOEXCEPT;

/// Where a run stands after an iteration. The arrays have an entry for each wanted pair and live
/// until the monitor returns.
typedef struct VesProgress {
  int iteration;           ///< iterations made, 0 after the start
  int wanted;              ///< pairs of the run
  int converged;           ///< leading pairs that pass the convergence test
  int locked;              ///< pairs that are no longer changed
  int active;              ///< pairs that are iterated
  const double* values;    ///< eigenvalue estimates, +infinity where unknown
  const double* residuals; ///< residual norms when last tested, NaN where unknown
  long long columnsA;      ///< columns that A was applied to so far
} VesProgress;

/// Routine of the caller that follows a run. Process 0 of X's first communicator decides: when it
/// returns other than 0 there, the run ends after this iteration; VES_LOBPCG_BATCH first brings the
/// rest of its guess into the result, in one more pass that is not reported.
typedef int (*VesMonitor)(void* data, const VesProgress* progress);

/// Installs a routine that is called on every process after the start and after each iteration;
/// null removes it. It must be set on all processes or on none. It may call neither the solver nor
/// the operators of the run. With a monitor an iteration makes one more broadcast of an int over
/// each communicator.
/// \return -7 solver is null; 0
VES_EXPORT VesReturnCode VesSolverSetMonitor(VesSolver solver, VesMonitor monitor,
                                             void* data) VES_NOEXCEPT;

/// Factor of the threshold at which a pair is locked for good (default 0.01). A larger one saves
/// work, and leaves locked pairs as far from exact as it says. VesSolverSetPPCGLockFactor sets the
/// same factor; the later call holds.
/// \return -7 solver is null; -1 factor not from 0 to 1; 0
VES_EXPORT VesReturnCode VesSolverSetLockFactor(VesSolver solver, double factor) VES_NOEXCEPT;

/// Chooses the test for locking. Without a choice it is the test of convergence, and for VES_PPCG
/// VES_RESIDUALS.
/// \return -7 solver is null; -4 unknown kind; 0
VES_EXPORT VesReturnCode VesSolverSetLockDetectorType(VesSolver solver,
                                                      VesConvergeDetectorType type) VES_NOEXCEPT;

/// Chooses the rank-revealing orthogonalizer, which no step of the present solvers uses.
/// \return -7 solver is null; -4 unknown kind; 0
VES_EXPORT VesReturnCode VesSolverSetRankRevealerType(VesSolver solver,
                                                      VesOrthogonalizerType type) VES_NOEXCEPT;

/// Turns the self-check on (default) or off: it tests every rotation, restarts from the last sound
/// vectors where rounding broke the basis down, and confirms what a run is about to report. A run
/// that converges without any of this is the same with and without it, bit for bit; but where the
/// threshold is within 1e4 of rounding errors, A and B are applied to the result once more before
/// it is believed, batches that hardly proceed are topped up, those that end at the limit of
/// iterations claim only what was locked, and PPCG makes its last step over the whole space where
/// that is no wider than three sub-blocks, with A and B applied to as many more columns.
/// \return -7 solver is null; 0
VES_EXPORT VesReturnCode VesSolverSetSelfCheck(VesSolver solver, bool isOn) VES_NOEXCEPT;

/// Has a run begin in single precision (off by default), where products, reductions and operators
/// cost half, and go on in double precision from its vectors once it has no more to give there.
/// The result is that of a run in double precision from a good guess; what goes wrong in single
/// precision costs time alone. Operators without VesMatrixSetShellMatVecLow are applied by their
/// routine to copies of some columns. Iterations, columns, monitor and reason are those of the
/// whole run; where double precision takes over, the monitor sees its start under the same number
/// of iterations, with the pairs that pass there.
/// \return -7 solver is null; -4 the solver is of single precision, and isOn; 0
VES_EXPORT VesReturnCode VesSolverSetMixedPrecision(VesSolver solver, bool isOn) VES_NOEXCEPT;

/// Makes the preconditioner stronger: of every residual r it makes the given number of steps of the
/// Chebyshev iteration for (A - sigma B) z = r, preconditioned by T, with sigma below the lowest
/// value (0, the default: T alone). That moves work from the solver into A and T and pays where
/// these are cheap, most of all without a T; it suits spectra like those of differential equations,
/// not those with a few values far above all others, which a T should take down first. -1: as many
/// as pay by the times of A, T and the solver in the run, so results differ in rounding from run to
/// run. Must be the same on all processes. There A and T are applied to up to 16 columns at a time,
/// and to a few columns more, one by one, that tell how far the spectrum reaches.
/// \return -7 solver is null; -1 count is not from -1 to 1000; 0
VES_EXPORT VesReturnCode VesSolverSetInnerSteps(VesSolver solver, int count) VES_NOEXCEPT;

/// Shares most of the library's work on tall blocks, products too, among the threads of an OpenMP
/// team of each process (0, the default: among none; products run on the threads of BLAS). BLAS
/// keeps to one thread meanwhile where it is OpenBLAS, but not in routines of the caller; another
/// BLAS should be set to one. Sums over rows are made by threads in their order, so that results
/// differ in rounding from those of another number of threads, and from run to run do not. -1: as
/// many as BLAS has, where it is OpenBLAS, or OpenMP takes. Routines that use OpenMP run on the
/// same threads. Each thread but one takes a small matrix or 1024 rows of a block besides. Must be
/// the same on all processes.
/// \return -7 solver is null; -1 count is not from -1 to 1024; -4 the library was built without
///         OpenMP, and count is above 1; 0
VES_EXPORT VesReturnCode VesSolverSetThreads(VesSolver solver, int count) VES_NOEXCEPT;

/// Ends a run when the given number of leading pairs have converged, without regard to the others
/// (0, the default: all pairs of the run). The columns behind them are guards: they come back as
/// they are, with their values. Some of them make the wanted pairs converge in fewer iterations,
/// and keep a group of equal values that the last pair cuts from holding up the run. More than
/// the pairs of a run stands for all. Must be the same on all processes.
/// \return -7 solver is null; -1 count is negative; 0
VES_EXPORT VesReturnCode VesSolverSetWanted(VesSolver solver, int count) VES_NOEXCEPT;

/// Keeps the vectors of a run B-orthogonal to the columns of Y, n x m and distributed as the vectors
/// are: the null space of A, rigid motions, pairs of an earlier run. They need not be orthonormal;
/// dependent ones are left out. A run finds the lowest pairs of P^H A P in the range of
/// P = 1 - Y (Y^H B Y)^-1 Y^H B, and tests the residuals of that: where the columns of Y are no
/// eigenvectors, A x - lambda B x has a part in B Y as well. B is applied to them, to m
/// columns, in runs that begin in single precision twice. The block is read in each run and must live
/// as long, unchanged; null (the default): nothing is kept out. m must be the same on all
/// processes. A run then is refused with VES_ERR_NULL_POINTER where Y has no storage,
/// VES_ERR_MISMATCH where it is distributed otherwise, VES_ERR_INVALID_VALUE where a column is not
/// finite, B is not definite on it, or nothing is left beside Y.
/// \return -7 solver is null; -5 Y is of another scalar type; -4 Y is no dense block; 0
VES_EXPORT VesReturnCode VesSolverSetDeflation(VesSolver solver, VesVector Y) VES_NOEXCEPT;

/// Forecast of the bytes that a run takes on this process beside the caller's blocks, for nRows
/// local rows (and leading dimension) and nCols pairs, as the solver is set now. A run for too many
/// pairs is refused: with k of them and b = min(k, batch limit or sub-block) the largest dense
/// problem is of order 3 k, of the other two max(k, 3 b), and at most 32765. PPCG takes more than
/// the forecast, as with b = k, once its sub-blocks have turned out to depend on each other.
/// \return -7 solver or bytes is null; -1 a dimension is negative; -1 a run would be refused; 0
VES_EXPORT VesReturnCode VesSolverMemory(VesSolver solver, int nRows, int nCols, bool generalized,
                                         size_t* bytes) VES_NOEXCEPT;

/// Recomputes k pairs: the largest 2-norm of A x - lambda B x, and the largest entry of
/// |X^H B X - I|. B may be null. Not a number where a pair is not finite.
/// Collective over X's communicator, where all verdicts but the first two are agreed on; takes the
/// storage of X once more, with B twice, and k^2 numbers.
/// \return -1 A, X or D is null; -7 maxResidual or maxOrthoError is null; -5 scalar types differ;
///         -7 a block without storage or an operator without a routine; -5 an operator of entries
///         is distributed otherwise than X; -1 ld below the rows;
///         -6 D is not k x 1; -5 processes disagree on k, on whether there is a B, or on where an
///         operator is called; -1 some process cannot have the storage; 0
VES_EXPORT VesReturnCode VesCheckEigenpairs(VesMatrix A, VesMatrix B, VesVector X, VesVector D,
                                            double* maxResidual,
                                            double* maxOrthoError) VES_NOEXCEPT;

/// Estimates the 2-norm of a Hermitian operator A and the lower end of its spectrum, from at most
/// twenty products with one column: a Lanczos process from a random vector. norm receives the
/// largest |Ritz value| with the bound of its error, which is above ||A|| in all but contrived
/// cases and, unless the ends of the spectrum are crowded, by some per cent; lowest, unless it is
/// null, the lowest Ritz value, which is not below the lowest eigenvalue: negative beyond rounding
/// it shows that A is not positive definite. Both are not finite where a product, or its square,
/// is not. The vectors are distributed as like, whose columns are not touched.
/// Collective over like's communicators, over the first of which verdicts but the first are agreed
/// on; takes the storage of three columns.
/// \return -7 A, like or norm is null; -5 like is not dense, of another scalar type or distributed
///         otherwise than the entries of A; -7 A has no routine; -5 processes disagree on where A
///         is called; -1 some process cannot have the storage; 0
VES_EXPORT VesReturnCode VesMatrixEstimateSpectrum(VesMatrix A, VesVector like, double* norm,
                                                   double* lowest) VES_NOEXCEPT;

/// As VesVectorSetComm, for callers that hold a communicator as a Fortran handle.
/// \return as VesVectorSetComm
VES_EXPORT VesReturnCode VesVectorSetComm_f(VesVector vector, int slot, MPI_Fint comm) VES_NOEXCEPT;

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* VES_H */
