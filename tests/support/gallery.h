// The gallery on a box: a Laplacian, a finite-element pair of stiffness and mass, a preconditioner,
// and their exact eigenvalues.
#ifndef VES_TESTS_SUPPORT_GALLERY_H
#define VES_TESTS_SUPPORT_GALLERY_H

#include "correctness.h"

namespace VesTest {

template <typename Scalar>
struct BoxGallery {
  using Operator = SparseOperator<Scalar>;

  explicit BoxGallery(std::vector<int> dims) : box{std::move(dims)} {}

  /// A of the standard problem A x = lambda x or the generalized A x = lambda B x.
  Operator& A(bool generalized) { return generalized ? stiffness : laplacian; }
  /// Null for the standard problem.
  Operator* B(bool generalized) { return generalized ? &mass : nullptr; }
  /// Null for a run without a preconditioner.
  Operator* T(bool preconditioned) { return preconditioned ? &jacobi : nullptr; }
  std::vector<double> Exact(bool generalized) const { return box.Eigenvalues(generalized); }

  const Box box;
  const Rows rows{box.Order(), MPI_COMM_WORLD, Deal::growing};

private:
  Operator laplacian{rows, [this](int i) { return Phased<Scalar>(i, box.Laplacian(i)); }};
  Operator stiffness{rows, [this](int i) { return Phased<Scalar>(i, box.Stiffness(i)); }};
  Operator mass{rows, [this](int i) { return Phased<Scalar>(i, box.Mass(i)); }};
  /// A diagonal that differs from a multiple of the identity, so that it changes the search.
  Operator jacobi{rows, [](int i) {
                    return typename Operator::Row{{i, Number<Scalar>(1.0 / (6.0 + (i % 3)))}};
                  }};
};

} // namespace VesTest

#endif
