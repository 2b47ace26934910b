#include "problem.h"

#include "closest.h"
#include "matrix_source.h"
#include "models.h"
#include "names.h"
#include "parallel.h"

#include <map>

namespace VesTools {
namespace {

bool IsComplexType(VesScalarType type) {
  return type == VES_COMPLEX_DOUBLE || type == VES_COMPLEX_FLOAT;
}

bool IsComplex(const AnyRows& rows) {
  return std::holds_alternative<CompressedRows<std::complex<double>>>(rows);
}

AnyRows TakeHermitian(MatrixSource& source, const RowOffsets& offsets) {
  AnyRows rows = source.TakeRows(offsets);
  std::visit([&](auto& own) { RequireHermitian(own, offsets, source.Comm()); }, rows);
  return rows;
}

void LoadFiles(const std::vector<std::string>& files, ProblemData& data, MPI_Comm comm) {
  data.title = files[0];
  const auto a = OpenMatrix(files[0], comm);
  std::vector<const MatrixSource*> all{a.get()};
  std::unique_ptr<MatrixSource> b;
  if (files.size() > 1) {
    data.title += " and " + files[1];
    b = OpenMatrix(files[1], comm);
    if (b->Order() != a->Order())
      throw Error(exitInput, files[1] + ": B is of order " + std::to_string(b->Order()) +
                                 ", but A of order " + std::to_string(a->Order()));
    all.push_back(b.get());
  }
  data.offsets = BalancedRows(all);
  data.a = TakeHermitian(*a, data.offsets);
  if (!b) return;
  data.b = TakeHermitian(*b, data.offsets);
  std::visit([&](const auto& rows) { RequirePositiveDiagonal(rows, comm); }, *data.b);
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
  std::unique_ptr<MatrixSource> source;
  if (found != dimensions.end())
    source = SourceOf(LaplaceModel(arguments, found->second, comm), comm);
  else if (name == graphModel)
    source = OpenGraph(arguments, comm);
  else
    throw Error(
        exitUsage,
        "--model: '" + name + "' is none of laplace1d, laplace2d, laplace3d, graph and silicon" +
            DidYouMean(name, {"laplace1d", "laplace2d", "laplace3d", graphModel, "silicon"}));
  data.offsets = BalancedRows({source.get()});
  data.a = TakeHermitian(*source, data.offsets);
  if (name == graphModel)
    data.a =
        std::visit([&](const auto& graph) -> AnyRows { return LaplacianOf(graph, comm); }, data.a);
}

// Collective.
template <typename Scalar>
void TakeMatrix(AnyRows given, MPI_Comm comm, std::shared_ptr<const CompressedRows<Scalar>>& rows,
                std::shared_ptr<const SparseMatrix<Scalar>>& matrix) {
  rows = std::visit(
      [](auto& own) {
        return std::make_shared<const CompressedRows<Scalar>>(ConvertRows<Scalar>(std::move(own)));
      },
      given);
  matrix = std::make_shared<const SparseMatrix<Scalar>>(*rows, comm);
}

} // namespace

ProblemData LoadProblem(const ProblemOptions& options, MPI_Comm comm) {
  ProblemData data;
  if (options.model.empty())
    LoadFiles(options.files, data, comm);
  else
    LoadModel(options.model, data, comm);
  const bool isComplex = data.isPlaneWaves || IsComplex(data.a) || (data.b && IsComplex(*data.b));
  data.scalar = options.scalar.value_or(isComplex ? VES_COMPLEX_DOUBLE : VES_DOUBLE);
  if (isComplex && !IsComplexType(data.scalar))
    throw Error(exitUsage, "--scalar: " + data.title + " is complex, type " +
                               NameOf(scalarNames, data.scalar) + " would drop imaginary parts");
  return data;
}

template <typename Scalar>
Problem<Scalar> MakeProblem(const ProblemOptions& options, ProblemData data, MPI_Comm comm) {
  if constexpr (!std::is_floating_point_v<Scalar>)
    if (data.isPlaneWaves)
      return SiliconModel<typename Scalar::value_type>(ParseModelName(options.model).arguments,
                                                       comm);
  Problem<Scalar> problem;
  problem.title = data.title;
  problem.comm = comm;
  problem.offsets = data.offsets;
  TakeMatrix(std::move(data.a), comm, problem.rowsA, problem.matrixA);
  if (data.b) TakeMatrix(std::move(*data.b), comm, problem.rowsB, problem.matrixB);
  problem.a = ProductWith<Scalar>(problem.matrixA);
  problem.b = ProductWith<Scalar>(problem.matrixB);
  return problem;
}

template Problem<double> MakeProblem(const ProblemOptions&, ProblemData, MPI_Comm);
template Problem<float> MakeProblem(const ProblemOptions&, ProblemData, MPI_Comm);
template Problem<std::complex<double>> MakeProblem(const ProblemOptions&, ProblemData, MPI_Comm);
template Problem<std::complex<float>> MakeProblem(const ProblemOptions&, ProblemData, MPI_Comm);

} // namespace VesTools
