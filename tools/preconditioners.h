#ifndef VES_TOOLS_PRECONDITIONERS_H
#define VES_TOOLS_PRECONDITIONERS_H

#include "problem.h"

#include <string>

namespace VesTools {

/// Gives a problem of sparse matrices its preconditioner T, always positive definite:
///   jacobi        the inverse of the absolute diagonal of A
///   ic            incomplete Cholesky factors of the diagonal block of each process
///   shift-invert  (A - shift B)^-1, on one process, for a shift below all eigenvalues
///   inner         none, but inner steps of the solver
///   automatic     where the diagonal of A is positive shift-invert, if its factors hold few
///                 entries, and else ic; none otherwise
/// A model with a T of its own keeps it, unless there shall be none.
/// \return what was made of the choice, for the user
/// Throws Error for a choice that cannot be had. Collective.
template <typename Scalar>
std::string AddPreconditioner(const PreconditionerOptions& options, Problem<Scalar>& problem);

} // namespace VesTools

#endif
