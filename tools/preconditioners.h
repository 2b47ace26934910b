#ifndef VES_TOOLS_PRECONDITIONERS_H
#define VES_TOOLS_PRECONDITIONERS_H

#include "problem.h"

#include <string>

namespace VesTools {

/// Whether a kind is made of the entries of a matrix.
inline bool IsMade(Preconditioner kind) {
  return kind != Preconditioner::none && kind != Preconditioner::inner;
}

/// T, always positive definite, and what was made of the choice, for the user.
template <typename Scalar>
struct MadePreconditioner {
  std::string name;
  BlockOperator<Scalar> t; ///< empty where none helps
  bool isExact = false;    ///< t is (A - s B)^-1
};

/// Makes a preconditioner of diagonal blocks, which it does not keep:
///   jacobi        the inverse of the absolute diagonal of A
///   ic            incomplete Cholesky factors of the diagonal block of each process
///   shift-invert  (A - shift B)^-1, on one process, for a shift below all eigenvalues
///   automatic     where the diagonal of A is positive shift-invert, if its factors hold few
///                 entries, and else ic; none otherwise
/// Throws Error for a choice that cannot be had. Collective.
template <typename Scalar>
MadePreconditioner<Scalar> MakePreconditioner(const PreconditionerOptions& options,
                                              const DiagonalBlocks<Scalar>& blocks);

/// Gives a problem with its entries such a preconditioner, or none where its place is taken by
/// inner steps of the solver. A model with a T of its own keeps it, unless there shall be none.
/// \return what was made of the choice, for the user
/// Throws Error for a choice that cannot be had. Collective.
template <typename Scalar>
std::string AddPreconditioner(const PreconditionerOptions& options, Problem<Scalar>& problem);

} // namespace VesTools

#endif
