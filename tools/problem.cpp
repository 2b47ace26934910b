#include "problem.h"

#include "closest.h"
#include "matrix_market.h"
#include "models.h"
#include "names.h"
#include "parallel.h"

#include <algorithm>
#include <map>

namespace VesTools {
namespace {

bool IsComplexType(VesScalarType type) {
  return type == VES_COMPLEX_DOUBLE || type == VES_COMPLEX_FLOAT;
}

// The Cholesky factorizations of the library need B positive definite, and so its diagonal
// positive.
void RequirePositiveDiagonal(const EntryList& b, const RowOffsets& offsets, MPI_Comm comm) {
  const auto rank = static_cast<std::size_t>(Rank(comm));
  const int first = offsets[rank];
  std::vector<bool> isPositive(static_cast<std::size_t>(offsets[rank + 1] - first), false);
  for (const Entry& entry : b.entries)
    if (entry.row == entry.column && entry.value.real() > 0.0)
      isPositive[static_cast<std::size_t>(entry.row - first)] = true;
  const auto bad = std::find(isPositive.begin(), isPositive.end(), false);
  std::string complaint;
  if (bad != isPositive.end()) {
    const std::string row = std::to_string(first + (bad - isPositive.begin()) + 1);
    complaint = b.name + ": B is not positive definite: its diagonal entry (" + row + ", " + row +
                ") is not above 0";
  }
  AgreeOn(complaint, exitInput, comm);
}

void LoadFiles(const std::vector<std::string>& files, ProblemData& data, MPI_Comm comm) {
  data.title = files[0];
  data.a = ReadSquareMatrix(files[0], comm);
  if (files.size() > 1) {
    data.title += " and " + files[1];
    data.b = ReadSquareMatrix(files[1], comm);
    if (data.b.rows != data.a.rows)
      throw Error(exitInput, files[1] + ": B is of order " + std::to_string(data.b.rows) +
                                 ", but A of order " + std::to_string(data.a.rows));
  }
  data.offsets =
      data.b.rows > 0 ? BalancedRows({&data.a, &data.b}, comm) : BalancedRows({&data.a}, comm);
  for (EntryList* matrix : {&data.a, &data.b}) {
    if (matrix->rows == 0) continue;
    MoveToOwners(*matrix, data.offsets, comm);
    RequireHermitian(*matrix, data.offsets, comm);
  }
  if (data.b.rows > 0) RequirePositiveDiagonal(data.b, data.offsets, comm);
}

void LoadModel(const std::string& model, ProblemData& data, MPI_Comm comm) {
  static const std::map<std::string, int> dimensions = {
      {"laplace1d", 1}, {"laplace2d", 2}, {"laplace3d", 3}};
  const auto [name, arguments] = ParseModelName(model);
  data.title = model;
  if (name == "silicon") {
    data.isPlaneWaves = true;
    return;
  }
  const auto found = dimensions.find(name);
  if (found != dimensions.end())
    data.a = LaplaceModel(arguments, found->second, comm);
  else if (name == graphModel)
    data.a = ReadGraph(arguments, comm);
  else
    throw Error(
        exitUsage,
        "--model: '" + name + "' is none of laplace1d, laplace2d, laplace3d, graph and silicon" +
            DidYouMean(name, {"laplace1d", "laplace2d", "laplace3d", graphModel, "silicon"}));
  data.offsets = BalancedRows({&data.a}, comm);
  MoveToOwners(data.a, data.offsets, comm);
  RequireHermitian(data.a, data.offsets, comm);
  if (name == graphModel) TurnIntoLaplacian(data.a, data.offsets, comm);
}

} // namespace

ProblemData LoadProblem(const ProblemOptions& options, MPI_Comm comm) {
  ProblemData data;
  if (options.model.empty())
    LoadFiles(options.files, data, comm);
  else
    LoadModel(options.model, data, comm);
  const bool isComplex = data.isPlaneWaves || data.a.isComplex || data.b.isComplex;
  data.scalar = options.scalar.value_or(isComplex ? VES_COMPLEX_DOUBLE : VES_DOUBLE);
  if (isComplex && !IsComplexType(data.scalar))
    throw Error(exitUsage, "--scalar: " + data.title + " is complex, type " +
                               NameOf(scalarNames, data.scalar) + " would drop imaginary parts");
  return data;
}

template <typename Scalar>
Problem<Scalar> MakeProblem(const ProblemOptions& options, const ProblemData& data, MPI_Comm comm) {
  if constexpr (!std::is_floating_point_v<Scalar>)
    if (data.isPlaneWaves)
      return SiliconModel<typename Scalar::value_type>(ParseModelName(options.model).arguments,
                                                       comm);
  Problem<Scalar> problem;
  problem.title = data.title;
  problem.comm = comm;
  problem.offsets = data.offsets;
  const auto make = [&](const EntryList& list) {
    return std::make_shared<const SparseMatrix<Scalar>>(list.entries, data.offsets, comm);
  };
  problem.matrixA = make(data.a);
  if (data.b.rows > 0) problem.matrixB = make(data.b);
  problem.a = ProductWith<Scalar>(problem.matrixA);
  problem.b = ProductWith<Scalar>(problem.matrixB);
  return problem;
}

template Problem<double> MakeProblem(const ProblemOptions&, const ProblemData&, MPI_Comm);
template Problem<float> MakeProblem(const ProblemOptions&, const ProblemData&, MPI_Comm);
template Problem<std::complex<double>> MakeProblem(const ProblemOptions&, const ProblemData&,
                                                   MPI_Comm);
template Problem<std::complex<float>> MakeProblem(const ProblemOptions&, const ProblemData&,
                                                  MPI_Comm);

} // namespace VesTools
