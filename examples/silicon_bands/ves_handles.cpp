#include "ves_handles.h"

#include "error.h"

#include <algorithm>

namespace silicon {

void Check(VesReturnCode code, const std::string& call) {
  if (code == VES_GOOD) return;
  throw Error(call + " failed with code " + std::to_string(static_cast<int>(code)));
}

MatrixHandle MakeOperator(void* data, VesShellMatVec routine) {
  VesMatrix matrix = nullptr;
  const VesReturnCode code = VesMatrixCreate(&matrix, VES_COMPLEX_DOUBLE, VES_MATRIX_SHELL);
  MatrixHandle handle(matrix);
  Check(code, "VesMatrixCreate");
  Check(VesMatrixSetShellMatVec(matrix, data, routine), "VesMatrixSetShellMatVec");
  return handle;
}

Block::Block(MPI_Comm comm, int nRows, int nCols)
    : values_(static_cast<std::size_t>(nRows) * static_cast<std::size_t>(nCols)) {
  VesVector vector = nullptr;
  const VesReturnCode code = VesVectorCreate(&vector, VES_COMPLEX_DOUBLE, VES_VECTOR_DENSE);
  handle_.reset(vector);
  Check(code, "VesVectorCreate");
  Check(VesVectorSetComm(vector, 0, comm), "VesVectorSetComm");
  Check(VesVectorSetDim(vector, nRows, nCols), "VesVectorSetDim");
  // A process without rows needs no storage.
  if (nRows == 0) return;
  Check(VesVectorDenseSetValues(vector, values_.data(), nRows), "VesVectorDenseSetValues");
}

} // namespace silicon
