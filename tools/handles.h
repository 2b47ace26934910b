#ifndef VES_TOOLS_HANDLES_H
#define VES_TOOLS_HANDLES_H

#include "error.h"
#include "problem.h"

#include <mpi.h>
#include <ves.h>

#include <algorithm>
#include <complex>
#include <cstdio>
#include <exception>
#include <memory>
#include <string>
#include <vector>

namespace VesTools {

/// Throws Error when a call of the library was refused, which its checks do on all processes.
inline void Check(VesReturnCode code, const std::string& call) {
  if (code == VES_GOOD) return;
  throw Error(exitInternal, call + " was refused: " + VesErrorString(code));
}

template <typename Scalar>
constexpr VesScalarType vesType = VES_DOUBLE;
template <>
inline constexpr VesScalarType vesType<float> = VES_FLOAT;
template <>
inline constexpr VesScalarType vesType<std::complex<double>> = VES_COMPLEX_DOUBLE;
template <>
inline constexpr VesScalarType vesType<std::complex<float>> = VES_COMPLEX_FLOAT;

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

/// An operator of the library that times its routine; none for an empty routine.
template <typename Scalar>
class Operator {
public:
  explicit Operator(BlockOperator<Scalar> apply) : m_apply(std::move(apply)) {
    if (!m_apply) return;
    VesMatrix matrix = nullptr;
    Check(VesMatrixCreate(&matrix, vesType<Scalar>, VES_MATRIX_SHELL), "VesMatrixCreate");
    m_handle.reset(matrix);
    Check(VesMatrixSetShellMatVec(matrix, this, Shell), "VesMatrixSetShellMatVec");
  }
  Operator(const Operator&) = delete;
  Operator& operator=(const Operator&) = delete;

  VesMatrix Get() const { return m_handle.get(); }
  double Seconds() const { return m_seconds; }

private:
  // The library is no place for an exception to pass through.
  static void Shell(void* self, void* x, void* y, int, int nCols, int ld) noexcept {
    auto& op = *static_cast<Operator*>(self);
    const double start = MPI_Wtime();
    try {
      op.m_apply(static_cast<const Scalar*>(x), static_cast<Scalar*>(y), nCols, ld);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "ves: %s\n", error.what());
      MPI_Abort(MPI_COMM_WORLD, exitInternal);
    }
    op.m_seconds += MPI_Wtime() - start;
  }

  BlockOperator<Scalar> m_apply;
  MatrixHandle m_handle;
  double m_seconds = 0.0;
};

/// A block of the library in storage of its own, zero at first: nRows x nCols, column-major.
template <typename Scalar>
class Block {
public:
  Block(MPI_Comm comm, int nRows, int nCols)
      : m_values(static_cast<std::size_t>(std::max(nRows, 1)) * static_cast<std::size_t>(nCols)) {
    VesVector vector = nullptr;
    Check(VesVectorCreate(&vector, vesType<Scalar>, VES_VECTOR_DENSE), "VesVectorCreate");
    m_handle.reset(vector);
    Check(VesVectorSetComm(vector, 0, comm), "VesVectorSetComm");
    Check(VesVectorSetDim(vector, nRows, nCols), "VesVectorSetDim");
    Check(VesVectorDenseSetValues(vector, m_values.data(), std::max(nRows, 1)),
          "VesVectorDenseSetValues");
  }

  VesVector Get() const { return m_handle.get(); }
  Scalar* Values() { return m_values.data(); }
  const Scalar* Values() const { return m_values.data(); }

  /// Real parts of a column of values or norms.
  std::vector<double> RealParts(int count) const {
    std::vector<double> parts;
    for (int i = 0; i < count; ++i)
      parts.push_back(static_cast<double>(std::real(m_values[static_cast<std::size_t>(i)])));
    return parts;
  }

private:
  std::vector<Scalar> m_values;
  VectorHandle m_handle;
};

/// Norms of the columns of a block. Collective.
template <typename Scalar>
std::vector<double> ColumnNorms(MPI_Comm comm, const Block<Scalar>& block, int columns) {
  const Block<Scalar> norms(comm, columns, 1);
  Check(VesVectorNorm(block.Get(), norms.Get()), "VesVectorNorm");
  return norms.RealParts(columns);
}

/// Calls function with a null pointer to the C++ type of a scalar type.
template <typename Function>
auto WithScalar(VesScalarType type, Function&& function) {
  switch (type) {
  case VES_FLOAT:
    return function(static_cast<float*>(nullptr));
  case VES_COMPLEX_DOUBLE:
    return function(static_cast<std::complex<double>*>(nullptr));
  case VES_COMPLEX_FLOAT:
    return function(static_cast<std::complex<float>*>(nullptr));
  default:
    return function(static_cast<double*>(nullptr));
  }
}

} // namespace VesTools

#endif
