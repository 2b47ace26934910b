#ifndef VES_TOOLS_MODELS_H
#define VES_TOOLS_MODELS_H

#include "matrix_source.h"
#include "problem.h"

#include <mpi.h>

#include <complex>
#include <memory>
#include <string>

namespace VesTools {

/// A model by its text NAME:ARGUMENTS.
struct ModelName {
  std::string name, arguments;
};

/// The model whose argument is a file.
inline constexpr const char* graphModel = "graph";

ModelName ParseModelName(const std::string& text);

/// Dirichlet Laplacian by second differences with unit spacing, one number of points per axis in
/// sizes (40x40x40). The entries lie on any process. Throws Error for sizes that make no sense.
EntryList<double> LaplaceModel(const std::string& sizes, int dimension, MPI_Comm comm);

/// Edges of an undirected graph from a file of a matrix, or from a text file with two vertex
/// numbers and perhaps a weight on each line; lines that begin with # or % are comments, the lowest
/// number is the first vertex, and an edge given twice counts once. Throws Error. Collective.
std::unique_ptr<MatrixSource> OpenGraph(const std::string& path, MPI_Comm comm);

/// Plane waves of a silicon supercell at Gamma, arguments as in supercell=2,ecut=10, with its
/// preconditioner. Throws Error; always when this program was built without the model. Collective.
template <typename Real>
Problem<std::complex<Real>> SiliconModel(const std::string& arguments, MPI_Comm comm);

/// Whether this program was built with the silicon model.
bool HasSiliconModel();

} // namespace VesTools

#endif
