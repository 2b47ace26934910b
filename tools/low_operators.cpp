#include "low_operators.h"

#include "error.h"
#include "preconditioners.h"

#include <complex>

namespace VesTools {

template <typename Scalar>
void AddLowOperators(const Options& options, const ProblemData& data, Problem<Scalar>& problem) {
  const Precision precision = options.solver.precision;
  const bool isExact = problem.isInverseExact;
  if constexpr (std::is_same_v<Scalar, Low<Scalar>>) {
    if (precision == Precision::mixed)
      throw Error(exitUsage, "--precision mixed needs a problem in double precision");
  } else if (precision == Precision::mixed || (precision == Precision::automatic && !isExact)) {
    problem.lowA = ProductWith<Low<Scalar>>(problem.matrixA);
    problem.lowB = ProductWith<Low<Scalar>>(problem.matrixB);
    if (isExact) return;
    auto low = MakeProblem<Low<Scalar>>(options.problem, data, problem.comm);
    AddPreconditioner(options.preconditioner, low);
    if (!problem.lowA) problem.lowA = low.a; // a model without a matrix
    problem.lowT = low.t;
  }
}

template void AddLowOperators(const Options&, const ProblemData&, Problem<double>&);
template void AddLowOperators(const Options&, const ProblemData&, Problem<float>&);
template void AddLowOperators(const Options&, const ProblemData&, Problem<std::complex<double>>&);
template void AddLowOperators(const Options&, const ProblemData&, Problem<std::complex<float>>&);

} // namespace VesTools
