/// \file ves_blocks.hpp
/// What ves.hpp stands on: refused calls as exceptions, owners of the handles of ves.h, blocks.
#ifndef VES_BLOCKS_HPP
#define VES_BLOCKS_HPP

#include <ves.h>

#include <algorithm>
#include <complex>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <vector>

namespace ves {

/* ------------------------------------------------------------------ errors and handles */

/// A call that the library refused.
class Error : public std::runtime_error {
public:
  /// \param code  what the call returned
  /// \param call  its name, for the text
  Error(VesReturnCode code, const std::string& call)
      : std::runtime_error(call + " was refused: " + VesErrorString(code)), m_code(code) {}

  /// What the call returned.
  VesReturnCode code() const noexcept { return m_code; }

private:
  VesReturnCode m_code;
};

/// Throws Error unless the call was good.
inline void check(VesReturnCode code, const char* call) {
  if (code != VES_GOOD) throw Error(code, call);
}

/// Releases a handle by its function.
template <auto Destroy>
struct Destroyer {
  /// Ignores a null handle.
  template <typename Base>
  void operator()(Base* handle) const noexcept {
    Destroy(handle);
  }
};

/// Owner of the handle of an operator.
using MatrixHandle = std::unique_ptr<std::remove_pointer_t<VesMatrix>, Destroyer<VesMatrixDestroy>>;
/// Owner of the handle of a block.
using VectorHandle = std::unique_ptr<std::remove_pointer_t<VesVector>, Destroyer<VesVectorDestroy>>;
/// Owner of the handle of a solver.
using SolverHandle = std::unique_ptr<std::remove_pointer_t<VesSolver>, Destroyer<VesSolverDestroy>>;

/// The scalar type of the library for double, float and their complex types.
template <typename Scalar>
constexpr VesScalarType scalarType() {
  if constexpr (std::is_same_v<Scalar, double>)
    return VES_DOUBLE;
  else if constexpr (std::is_same_v<Scalar, float>)
    return VES_FLOAT;
  else if constexpr (std::is_same_v<Scalar, std::complex<double>>)
    return VES_COMPLEX_DOUBLE;
  else {
    static_assert(std::is_same_v<Scalar, std::complex<float>>, "libves has four scalar types");
    return VES_COMPLEX_FLOAT;
  }
}

/// Type of eigenvalues and norms: Scalar without its imaginary part.
template <typename Scalar>
using Real = decltype(std::real(Scalar()));

/// A shell operator with a routine of C, by VesMatrixCreate and VesMatrixSetShellMatVec.
template <typename Scalar>
MatrixHandle makeMatrix(VesShellMatVec routine, void* data) {
  VesMatrix made = nullptr;
  const VesReturnCode code = VesMatrixCreate(&made, scalarType<Scalar>(), VES_MATRIX_SHELL);
  MatrixHandle handle(made);
  check(code, "VesMatrixCreate");
  check(VesMatrixSetShellMatVec(made, data, routine), "VesMatrixSetShellMatVec");
  return handle;
}

/// A block n x k over values of the caller, or without storage where values is null; by
/// VesVectorCreate, VesVectorSetComm, VesVectorSetDim and VesVectorDenseSetValues.
template <typename Scalar>
VectorHandle makeVector(MPI_Comm comm, int nRows, int nCols, Scalar* values, int ld,
                        MPI_Comm second = MPI_COMM_SELF) {
  VesVector made = nullptr;
  const VesReturnCode code = VesVectorCreate(&made, scalarType<Scalar>(), VES_VECTOR_DENSE);
  VectorHandle handle(made);
  check(code, "VesVectorCreate");
  check(VesVectorSetComm(made, 0, comm), "VesVectorSetComm");
  check(VesVectorSetComm(made, 1, second), "VesVectorSetComm");
  check(VesVectorSetDim(made, nRows, nCols), "VesVectorSetDim");
  if (values != nullptr)
    check(VesVectorDenseSetValues(made, values, ld), "VesVectorDenseSetValues");
  return handle;
}

/// A solver with the defaults of the library, by VesSolverCreate.
template <typename Scalar>
SolverHandle makeSolver(VesSolverType type) {
  VesSolver made = nullptr;
  const VesReturnCode code = VesSolverCreate(&made, scalarType<Scalar>(), type);
  SolverHandle handle(made);
  check(code, "VesSolverCreate");
  return handle;
}

/* ------------------------------------------------------------------ blocks */

/// The local part of a block, n x k and column-major, in memory of someone else. Element is one of
/// the scalar types, const where it may only be read. Indices begin at 0 and are not checked.
template <typename Element>
class View {
public:
  /// Entry (i, j) is data[i + j ld]; a run takes ld from n on.
  View(Element* data, int nRows, int nCols, int ld)
      : m_data(data), m_rows(nRows), m_cols(nCols), m_ld(ld) {}
  /// Without a gap between columns.
  View(Element* data, int nRows, int nCols) : View(data, nRows, nCols, std::max(nRows, 1)) {}

  int rows() const { return m_rows; }      ///< n
  int cols() const { return m_cols; }      ///< k
  int ld() const { return m_ld; }          ///< leading dimension
  Element* data() const { return m_data; } ///< entry (0, 0)

  /// First entry of column j.
  Element* column(int j) const { return m_data + static_cast<std::ptrdiff_t>(j) * m_ld; }
  /// Entry (i, j).
  Element& operator()(int i, int j) const { return column(j)[i]; }
  /// The same to be read only.
  operator View<const Element>() const { return {m_data, m_rows, m_cols, m_ld}; }

private:
  Element* m_data;
  int m_rows, m_cols, m_ld;
};

/// A block of vectors n x k, its rows distributed over a communicator. Like a pointer it lets its
/// entries be written where it is const itself.
template <typename Scalar>
class Block {
public:
  /// In storage of its own, zero at first. Throws Error with VES_ERR_INVALID_VALUE for a null
  /// communicator or a negative dimension, std::bad_alloc where this process cannot have the
  /// storage.
  Block(int nRows, int nCols, MPI_Comm comm = MPI_COMM_WORLD, MPI_Comm second = MPI_COMM_SELF)
      : m_comm(comm), m_second(second),
        m_handle(makeVector<Scalar>(comm, nRows, nCols, nullptr, 1, second)),
        m_values(static_cast<std::size_t>(std::max(nRows, 1)) *
                 static_cast<std::size_t>(std::max(nCols, 1))),
        m_view(m_values.data(), nRows, nCols) {
    check(VesVectorDenseSetValues(handle(), data(), m_view.ld()), "VesVectorDenseSetValues");
  }
  /// Over memory of the caller, which must outlive the block; it may be null where the view has no
  /// entries. Throws Error with VES_ERR_INVALID_VALUE for a null communicator, a negative dimension
  /// or, with memory, ld below 1.
  explicit Block(View<Scalar> view, MPI_Comm comm = MPI_COMM_WORLD, MPI_Comm second = MPI_COMM_SELF)
      : m_comm(comm), m_second(second),
        m_handle(makeVector(comm, view.rows(), view.cols(), view.data(), view.ld(), second)),
        m_view(view) {}

  VesVector handle() const { return m_handle.get(); } ///< stays the block's
  MPI_Comm comm() const { return m_comm; }            ///< that of its rows
  MPI_Comm second() const { return m_second; }        ///< over which replicas are kept alike
  View<Scalar> view() const { return m_view; }        ///< its entries
  int rows() const { return m_view.rows(); }          ///< n
  int cols() const { return m_view.cols(); }          ///< k
  Scalar* data() const { return m_view.data(); }      ///< entry (0, 0)

  /// First entry of column j.
  Scalar* column(int j) const { return m_view.column(j); }
  /// Entry (i, j).
  Scalar& operator()(int i, int j) const { return m_view(i, j); }

private:
  MPI_Comm m_comm, m_second;
  VectorHandle m_handle;
  std::vector<Scalar> m_values; ///< keeps its address when the block is moved
  View<Scalar> m_view;
};

/// Fills a block with numbers from -1 to 1 that depend on the seed, column and row among those of
/// all processes, but not on how rows are distributed. Collective.
template <typename Scalar>
void fillRandom(const Block<Scalar>& X, std::uint64_t seed = 0) {
  long long own = X.rows(), end = 0;
  MPI_Scan(&own, &end, 1, MPI_LONG_LONG, MPI_SUM, X.comm());
  const auto number = [&](int i, int j, std::uint64_t part) {
    const auto row = static_cast<std::uint64_t>(end - own + i);
    std::uint64_t v = (row * 1000003 + static_cast<std::uint64_t>(j)) * 2 + part;
    v += 0x9e3779b97f4a7c15 * (seed + 1);
    for (int k = 0; k < 2; ++k) {
      v = (v ^ (v >> 30)) * 0xbf58476d1ce4e5b9;
      v = (v ^ (v >> 27)) * 0x94d049bb133111eb;
    }
    return static_cast<Real<Scalar>>(static_cast<double>(v >> 11) / 4503599627370496.0 - 1.0);
  };
  for (int j = 0; j < X.cols(); ++j)
    for (int i = 0; i < X.rows(); ++i)
      if constexpr (std::is_same_v<Scalar, Real<Scalar>>)
        X(i, j) = number(i, j, 0);
      else
        X(i, j) = {number(i, j, 0), number(i, j, 1)};
}

} // namespace ves

#endif
