// One run of a solver on a problem with known values, and what came out of it.
#ifndef VES_BENCH_RUNNER_H
#define VES_BENCH_RUNNER_H

#include "problems.h"

#include <ves.h>

namespace VesBench {

constexpr VesSolverType allSolvers[] = {VES_LOBPCG, VES_LOBPCG_BATCH, VES_PPCG};
constexpr VesScalarType allScalars[] = {VES_DOUBLE, VES_FLOAT, VES_COMPLEX_DOUBLE,
                                        VES_COMPLEX_FLOAT};

const char* NameOf(VesSolverType solver);
const char* NameOf(VesScalarType scalar);
double EpsOf(VesScalarType scalar);

/// Complex problems do not fit real types.
inline bool Suits(const Problem& problem, VesScalarType scalar) {
  return !problem.isComplex || scalar == VES_COMPLEX_DOUBLE || scalar == VES_COMPLEX_FLOAT;
}

/// What a run is asked for. Real problems become complex ones D^H A D by unit phases D where the
/// type is complex.
struct Task {
  VesSolverType solver = VES_LOBPCG;
  VesScalarType scalar = VES_DOUBLE;
  bool isPreconditioned = false;
  double threshold = 0.0; ///< 0: that of the problem
  int maxIter = 3000;
  unsigned seed = 0; ///< of the guess, which does not depend on the distribution
};

/// What a run did. Residuals and orthogonality are recomputed in double precision from the entries
/// before they were rounded to the type of the run.
struct Outcome {
  VesSolverReason reason = VES_REASON_NONE;
  int iterations = 0, converged = 0;
  long long columnsA = 0;
  double threshold = 0.0;
  double residual = 0.0;      ///< largest ||A x - lambda B x||
  double orthogonality = 0.0; ///< largest entry of |X^H B X - I|
  double error = 0.0;         ///< largest |lambda - reference|
  double bound = 0.0;         ///< of the error, from the residuals
  std::vector<double> values;

  /// Converged, as recomputed too, and with the reference's values. A run confirms residuals below
  /// twice the threshold.
  bool IsGood() const {
    return reason == VES_REASON_CONVERGED && residual < 2.0 * threshold && error <= bound;
  }
};

/// Collective over comm, whose processes share the rows; the same result on all of them. Throws
/// ves::Error when the library refuses the run.
Outcome Run(const Problem& problem, const Task& task, MPI_Comm comm);

} // namespace VesBench

#endif
