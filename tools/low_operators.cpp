#include "low_operators.h"

#include "error.h"
#include "preconditioners.h"

#include <complex>

namespace VesTools {
namespace {

// Operator and preconditioner of a model without a matrix. Collective.
template <typename Scalar>
void AddLowModel(const Options& options, Problem<Scalar>& problem) {
  ProblemData data;
  data.isPlaneWaves = true;
  auto low = MakeProblem<Low<Scalar>>(options.problem, std::move(data), problem.comm);
  AddPreconditioner(options.preconditioner, low);
  problem.lowA = low.a;
  problem.lowT = low.t;
}

} // namespace

template <typename Scalar>
void AddLowOperators(const Options& options, Problem<Scalar>& problem) {
  const Precision precision = options.solver.precision;
  const bool isExact = problem.isInverseExact;
  if constexpr (std::is_same_v<Scalar, Low<Scalar>>) {
    if (precision == Precision::mixed)
      throw Error(exitUsage, "--precision mixed needs a problem in double precision");
  } else if (precision == Precision::mixed || (precision == Precision::automatic && !isExact)) {
    problem.lowA = ProductWith<Low<Scalar>>(problem.matrixA);
    problem.lowB = ProductWith<Low<Scalar>>(problem.matrixB);
    if (isExact) return;
    if (!problem.matrixA) {
      AddLowModel(options, problem);
    } else if (IsMade(options.preconditioner.kind)) {
      const auto blocks = problem.Blocks().template In<Low<Scalar>>();
      problem.ReleaseEntries();
      problem.lowT = MakePreconditioner(options.preconditioner, blocks).t;
    }
  }
}

template void AddLowOperators(const Options&, Problem<double>&);
template void AddLowOperators(const Options&, Problem<float>&);
template void AddLowOperators(const Options&, Problem<std::complex<double>>&);
template void AddLowOperators(const Options&, Problem<std::complex<float>>&);

} // namespace VesTools
