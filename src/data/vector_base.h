#ifndef VES_DATA_VECTOR_BASE_H
#define VES_DATA_VECTOR_BASE_H

#include <mpi.h>
#include <ves.h>

#include <vector>

struct VesMatrixBase;

/// A block of column vectors whose rows are distributed over the processes of comm; also a small
/// matrix or a column of scalars that every process holds whole. The operations are described at
/// their implementation, Ves::VectorDense; the block that an operation is called on receives the
/// result. Unless said otherwise they are local and write nothing when a check fails.
struct VES_EXPORT VesVectorBase {
  VesScalarType scalarType = VES_DOUBLE;
  MPI_Comm comm = MPI_COMM_WORLD;   ///< rows are distributed over it; all reductions run over it
  MPI_Comm auxComm = MPI_COMM_SELF; ///< small dense results are repeated over it
  VesVectorType storageType = VES_VECTOR_DENSE;
  int nRows = 0; ///< rows held by this process
  int nCols = 0;

  VesVectorBase() = default;
  VesVectorBase(const VesVectorBase&) = delete;
  VesVectorBase& operator=(const VesVectorBase&) = delete;

  virtual ~VesVectorBase() = default;
  virtual bool IsEqual(const VesVectorBase& other) const = 0;
  virtual bool operator==(const VesVectorBase& other) const = 0;
  virtual bool operator!=(const VesVectorBase& other) const = 0;
  virtual bool IsDataEmpty() const = 0;
  virtual bool CompareDims(const VesVectorBase& other) const;
  virtual bool CompareShape(const VesVectorBase& other) const = 0;
  virtual VesReturnCode Set2Zero() = 0;
  virtual VesReturnCode SetDiag(const VesVectorBase& diagonal) = 0;
  virtual VesReturnCode GetDiag(const VesVectorBase& matrix) = 0;
  virtual VesReturnCode ScaleByVec(const VesVectorBase& factors) = 0;
  virtual VesReturnCode AllocateMem() = 0;
  virtual VesReturnCode FreeMem() = 0;
  virtual VesReturnCode DuplicateShape(const VesVectorBase& other) = 0;
  virtual VesReturnCode PermuteCols(const VesVectorBase& values, double tol, int& count) = 0;
  virtual VesReturnCode CopyData(const VesVectorBase& other) = 0;
  virtual VesReturnCode SubVector(const VesVectorBase& other, int rowOffset, int colOffset,
                                  int rows, int cols) = 0;
  virtual VesReturnCode Gemm(const VesVectorBase& vecX, const VesVectorBase& vecY,
                             char transa = 'N', char transb = 'N', int alpha = 1, int beta = 0) = 0;
  virtual VesReturnCode InnerProduct(const VesVectorBase& vecX, const VesVectorBase& vecY,
                                     bool global = true) = 0;
  virtual VesReturnCode TriangularSolve(const VesVectorBase& vecM, char side, char uplo, char trans,
                                        char diag) = 0;
  virtual VesReturnCode Normalize(VesVectorBase& vecY, bool global = true) = 0;
  virtual VesReturnCode ScaleAdd(const VesVectorBase& vecX, const VesVectorBase& vecY,
                                 const VesVectorBase& vecD, int sign) = 0;
  virtual VesReturnCode EigResidual(const VesMatrixBase& matA, const VesMatrixBase& matB,
                                    const VesVectorBase& vecX, const VesVectorBase& lambda) = 0;
  virtual VesReturnCode Norm(const VesVectorBase& vecX, bool global = true) = 0;
  virtual VesReturnCode CheckOrthogonality(const VesVectorBase& vecX, double& error,
                                           bool minusIdentity, bool global) const = 0;
  virtual VesReturnCode
  CheckBatchOrthogonality(const VesVectorBase& vecX, const std::vector<int>& dispY,
                          const std::vector<int>& nYs, const std::vector<int>& dispX,
                          const std::vector<int>& nXs, std::vector<double>& errors,
                          bool minusIdentity, bool global) const = 0;
  virtual VesReturnCode AllReduce(MPI_Op op, MPI_Comm overComm) = 0;
  virtual VesReturnCode BroadCast(MPI_Comm overComm) = 0;
};

#endif
