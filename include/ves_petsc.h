/* Operators and blocks of libves from objects of PETSc: Mat as A or B, PC or KSP as T. For C and C++,
   over ves.h and petscksp.h alone; the type of numbers is that of PETSc's build.

     VesPetscOperator A, T;
     VesPetscOperatorCreate(&A, (PetscObject)mat);
     VesPetscOperatorCreate(&T, (PetscObject)pc);
     VesSolverCreate(&solver, VES_PETSC_SCALAR, VES_LOBPCG);
     VesPetscBlockCreate(&X, mat, nPairs, x);   // x holds the rows of this process, column by column
     VesPetscValuesCreate(&D, mat, nPairs, d);
     VesRunSolver(solver, A.matrix, NULL, T.matrix, X, D);

   Processes without rows take part in every product, since PETSc's objects need all of theirs. */
#ifndef VES_PETSC_H
#define VES_PETSC_H

#include <ves.h>

#include <petscksp.h>

#include <limits.h>
#include <math.h>
#include <stddef.h>

/// Type of PETSc's numbers.
#if defined(PETSC_USE_REAL_DOUBLE)
#define VES_PETSC_SCALAR (sizeof(PetscScalar) == sizeof(double) ? VES_DOUBLE : VES_COMPLEX_DOUBLE)
#elif defined(PETSC_USE_REAL_SINGLE)
#define VES_PETSC_SCALAR (sizeof(PetscScalar) == sizeof(float) ? VES_FLOAT : VES_COMPLEX_FLOAT)
#else
#error "libves computes in single and double precision"
#endif

/// A product with a matrix, preconditioner or solver of PETSc. It must stay where it is until
/// VesPetscOperatorDestroy.
typedef struct VesPetscOperator {
  VesMatrix matrix;       ///< for the library; null where nothing was made
  PetscObject object;     ///< Mat, PC or KSP, which must live as long
  Vec x;                  ///< takes columns of blocks for its storage
  Vec y;                  ///< the same for what becomes of them
  PetscErrorCode failure; ///< the first that a product ended with; the run then is not finite
} VesPetscOperator;

/// y = Op x.
static inline PetscErrorCode VesPetscApply(PetscObject object, Vec x, Vec y) {
  PetscClassId kind = 0;
  PetscErrorCode error = PetscObjectGetClassId(object, &kind);
  if (error != 0) return error;
  if (kind == PC_CLASSID) return PCApply((PC)object, x, y);
  if (kind == KSP_CLASSID) return KSPSolve((KSP)object, x, y);
  return MatMult((Mat)object, x, y);
}

/// One column, between storage of the library's.
static inline PetscErrorCode VesPetscApplyColumn(const VesPetscOperator* op, const PetscScalar* x,
                                                 const PetscScalar* y) {
  PetscErrorCode error = VecPlaceArray(op->x, x), after = 0;
  if (error != 0) return error;
  error = VecPlaceArray(op->y, y);
  if (error == 0) {
    error = VesPetscApply(op->object, op->x, op->y);
    after = VecResetArray(op->y);
    if (error == 0) error = after;
  }
  after = VecResetArray(op->x);
  return error != 0 ? error : after;
}

/// The routine of such an operator: what fails leaves NaN, which ends the run.
static inline void VesPetscMultiply(void* self, void* x, void* y, int nRows, int nCols, int ld) {
  VesPetscOperator* const op = (VesPetscOperator*)self;
  PetscScalar none = 0.0; // for processes without rows
  for (int j = 0; j < nCols; ++j) {
    const ptrdiff_t at = (ptrdiff_t)j * ld;
    const PetscScalar* const from = nRows > 0 ? (const PetscScalar*)x + at : &none;
    PetscScalar* const to = nRows > 0 ? (PetscScalar*)y + at : &none;
    const PetscErrorCode error = VesPetscApplyColumn(op, from, to);
    if (error == 0) continue;
    if (op->failure == 0) op->failure = error;
    for (int i = 0; i < nRows; ++i)
      to[i] = (PetscReal)NAN;
  }
}

/// The Mat whose rows an object works on.
static inline PetscErrorCode VesPetscMatOf(PetscObject object, Mat* mat) {
  PetscClassId kind = 0;
  const PetscErrorCode error = PetscObjectGetClassId(object, &kind);
  if (error != 0) return error;
  if (kind == PC_CLASSID) return PCGetOperators((PC)object, mat, NULL);
  if (kind == KSP_CLASSID) return KSPGetOperators((KSP)object, mat, NULL);
  *mat = (Mat)object;
  return kind == MAT_CLASSID ? 0 : PETSC_ERR_ARG_WRONG;
}

static inline void VesPetscOperatorDestroy(VesPetscOperator* op) {
  VesMatrixDestroy(op->matrix);
  (void)VecDestroy(&op->x);
  (void)VecDestroy(&op->y);
  op->matrix = NULL;
}

/// An operator from a Mat, a PC or a KSP, with its operators set: Hermitian, T and B positive
/// definite, in rows that are distributed alike. Collective over its communicator.
/// \return -1 object is none of these or PETSc failed; 0
static inline VesReturnCode VesPetscOperatorCreate(VesPetscOperator* op, PetscObject object) {
  const VesPetscOperator nothing = {NULL, object, NULL, NULL, 0};
  Mat mat = NULL;
  *op = nothing;
  if (VesPetscMatOf(object, &mat) != 0 || MatCreateVecs(mat, &op->x, &op->y) != 0)
    return VES_ERR_INVALID_VALUE;
  VesReturnCode code = VesMatrixCreate(&op->matrix, VES_PETSC_SCALAR, VES_MATRIX_SHELL);
  if (code == VES_GOOD) code = VesMatrixSetShellMatVec(op->matrix, op, VesPetscMultiply);
  if (code == VES_GOOD) code = VesMatrixSetCalledEverywhere(op->matrix, true);
  if (code != VES_GOOD) VesPetscOperatorDestroy(op);
  return code;
}

/// A block with the given rows on the communicator of a Mat, over memory without gaps.
static inline VesReturnCode VesPetscMakeBlock(VesVector* out, Mat mat, PetscInt nRows, int nCols,
                                              PetscScalar* values) {
  const MPI_Comm comm = PetscObjectComm((PetscObject)mat);
  if (nRows > INT_MAX) return VES_ERR_INVALID_VALUE;
  VesReturnCode code = VesVectorCreate(out, VES_PETSC_SCALAR, VES_VECTOR_DENSE);
  if (code != VES_GOOD) return code;
  code = VesVectorSetComm(*out, 0, comm);
  if (code == VES_GOOD) code = VesVectorSetDim(*out, (int)nRows, nCols);
  if (code == VES_GOOD) code = VesVectorDenseSetValues(*out, values, nRows > 0 ? (int)nRows : 1);
  if (code == VES_GOOD) return code;
  VesVectorDestroy(*out);
  *out = NULL;
  return code;
}

/// The rows of a Mat on this process, which are those of its vectors.
static inline PetscInt VesPetscLocalRows(Mat mat) {
  PetscInt nRows = 0;
  (void)MatGetLocalSize(mat, &nRows, NULL);
  return nRows;
}

/// A block of vectors for a Mat: n x nCols for its n rows on this process, column by column in
/// memory of the caller, which may be null without rows.
/// \return -1 nCols is negative or there are too many rows; 0
static inline VesReturnCode VesPetscBlockCreate(VesVector* out, Mat mat, int nCols,
                                                PetscScalar* values) {
  return VesPetscMakeBlock(out, mat, VesPetscLocalRows(mat), nCols, values);
}

/// The block of values of a run: nPairs numbers on every process.
static inline VesReturnCode VesPetscValuesCreate(VesVector* out, Mat mat, int nPairs,
                                                 PetscScalar* values) {
  return VesPetscMakeBlock(out, mat, nPairs, 1, values);
}

#endif
