#ifndef SILICON_VES_HANDLES_H
#define SILICON_VES_HANDLES_H

#include "crystal.h"

#include <ves.h>

#include <memory>
#include <string>
#include <vector>

namespace silicon {

/// Throws Error when a call of the library was refused.
void Check(VesReturnCode code, const std::string& call);

/// Owners of the library's handles.
struct MatrixDeleter {
  void operator()(VesMatrix matrix) const { VesMatrixDestroy(matrix); }
};
struct VectorDeleter {
  void operator()(VesVector vector) const { VesVectorDestroy(vector); }
};
struct SolverDeleter {
  void operator()(VesSolver solver) const { VesSolverDestroy(solver); }
};
using MatrixHandle = std::unique_ptr<VesMatrixBase, MatrixDeleter>;
using VectorHandle = std::unique_ptr<VesVectorBase, VectorDeleter>;
using SolverHandle = std::unique_ptr<VesSolverBase, SolverDeleter>;

/// A matrix-free complex operator; routine and data must outlive it.
MatrixHandle MakeOperator(void* data, VesShellMatVec routine);

/// A complex block of the library in storage of its own, zero at first.
class Block {
public:
  Block(MPI_Comm comm, int nRows, int nCols);

  VesVector Get() const { return handle_.get(); }
  std::vector<Complex>& Values() { return values_; } ///< nRows x nCols, column-major

private:
  std::vector<Complex> values_;
  VectorHandle handle_;
};

} // namespace silicon

#endif
