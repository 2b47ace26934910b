#ifndef VES_DATA_MATRIX_BASE_H
#define VES_DATA_MATRIX_BASE_H

#include <ves.h>

#include <memory>

struct VesVectorBase;

/// The entries of an operator that multiplies by itself.
struct VES_EXPORT VesMatrixEntries {
  VesMatrixEntries() = default;
  VesMatrixEntries(const VesMatrixEntries&) = delete;
  VesMatrixEntries& operator=(const VesMatrixEntries&) = delete;
  virtual ~VesMatrixEntries() = default;
  /// Their rows are distributed as those of the block. Local.
  virtual bool Fits(const VesVectorBase& like) const = 0;
};

/// An operator that is known only by its product with a block of vectors.
struct VES_EXPORT VesMatrixBase {
  VesScalarType scalarType = VES_DOUBLE;
  VesMatrixType matrixType = VES_MATRIX_EMPTY;
  int nRows = 0;                          ///< for information only
  int nCols = 0;                          ///< for information only
  bool isCalledEverywhere = false;        ///< also on processes without rows
  std::unique_ptr<VesMatrixBase> lowered; ///< the same operator in single precision, or null
  /// What gives the products of two operators at once.
  struct SharedRoutine {
    const VesMatrixBase *A, *B;
    void* data;
    VesShellPair call;
  };
  std::shared_ptr<const SharedRoutine> shared; ///< with the operator that has the same, or null

  std::unique_ptr<const VesMatrixEntries>
      entries; ///< null where a routine of the caller multiplies

  VesMatrixBase() = default;
  VesMatrixBase(const VesMatrixBase&) = delete;
  VesMatrixBase& operator=(const VesMatrixBase&) = delete;

  virtual ~VesMatrixBase() = default;
  /// y = Op x for every column. Collective as far as the operator is.
  virtual VesReturnCode Apply(const VesVectorBase& x, VesVectorBase& y) const = 0;

  /// True for an operator that stands for something: false for the placeholder of an absent one.
  bool IsPresent() const { return matrixType != VES_MATRIX_EMPTY; }
};

/// The placeholder of an absent B or T. Apply succeeds and touches neither block.
struct VES_EXPORT VesMatrixEmpty final : VesMatrixBase {
  VesReturnCode Apply(const VesVectorBase& x, VesVectorBase& y) const override;
};

#endif
