// Problems with known eigenvalues as a whole, runs on them, and what must be true of the result.
#ifndef VES_TESTS_SUPPORT_GALLERY_H
#define VES_TESTS_SUPPORT_GALLERY_H

#include "correctness.h"

#include <memory>

namespace VesTest {

/// A x = lambda x, or A x = lambda B x where there is a B; T is null for none.
template <typename Scalar>
struct Problem {
  using Operator = SparseOperator<Scalar>;
  using RowOf = std::function<typename Operator::Row(int)>;

  const Rows rows;
  const std::vector<double> exact; ///< all eigenvalues in ascending order
  const double normA;              ///< ||A||; that of B is at most 1 or so
  Operator A;
  std::unique_ptr<Operator> B, T;

  /// A norm of 0 stands for that of the largest value.
  Problem(std::vector<double> values, double norm, const RowOf& a, const RowOf& b = nullptr,
          const RowOf& t = nullptr, Deal deal = Deal::even, MPI_Comm comm = world)
      : rows(static_cast<int>(values.size()), comm, deal), exact(Sorted(std::move(values))),
        normA(norm > 0.0 ? norm : std::max(-exact.front(), exact.back())), A(rows, a),
        B(b ? std::make_unique<Operator>(rows, b) : nullptr),
        T(t ? std::make_unique<Operator>(rows, t) : nullptr) {}

  void Run(Pairs<Scalar>& p, VesSolver solver) { p.Run(solver, &A, B.get(), T.get()); }

private:
  static std::vector<double> Sorted(std::vector<double> values) {
    std::sort(values.begin(), values.end());
    return values;
  }
};

/// Laplacian, or stiffness and mass of elements; T is a diagonal that differs from a multiple of
/// the identity, so that it changes the search.
template <typename Scalar>
Problem<Scalar> OnBox(const Ints& dims, bool generalized, bool preconditioned = false,
                      Deal deal = Deal::growing, MPI_Comm comm = world) {
  using RowOf = typename Problem<Scalar>::RowOf;
  const Box box{dims};
  const RowOf mass = [&](int i) { return Phased<Scalar>(i, box.Mass(i)); };
  const RowOf jacobi = DiagonalRows<Scalar>([](int i) { return 1.0 / (6.0 + (i % 3)); });
  return Problem<Scalar>(
      box.Eigenvalues(generalized), 4.0 * static_cast<double>(dims.size()),
      [&](int i) { return Phased<Scalar>(i, generalized ? box.Stiffness(i) : box.Laplacian(i)); },
      generalized ? mass : nullptr, preconditioned ? jacobi : nullptr, deal, comm);
}

/// A = diag(a b) and B = diag(b) with eigenvalues a, T = diag(t): unit vectors are eigenvectors
/// without any rounding error.
template <typename Scalar>
Problem<Scalar> OnDiagonal(int n, const std::function<double(int)>& a,
                           const std::function<double(int)>& b = nullptr,
                           const std::function<double(int)>& t = nullptr, MPI_Comm comm = world) {
  const auto ofA = [&](int i) { return a(i) * (b ? b(i) : 1.0); };
  return Problem<Scalar>(Spectrum(n, a), 0.0, DiagonalRows<Scalar>(ofA),
                         b ? DiagonalRows<Scalar>(b) : nullptr,
                         t ? DiagonalRows<Scalar>(t) : nullptr, Deal::even, comm);
}

/// A full matrix with these eigenvalues; see Reflected for its vectors.
template <typename Scalar>
Problem<Scalar> OnFull(const std::vector<double>& values, Deal deal = Deal::even) {
  const Reflected<Scalar> matrix(values);
  return Problem<Scalar>(
      values, 0.0, [&](int i) { return matrix.Row(i); }, nullptr, nullptr, deal);
}

/// One run of this solver.
template <typename Scalar>
Pairs<Scalar> SolveBy(VesSolver solver, Problem<Scalar>& on, int nBands,
                      const NotDeduced<Guess<Scalar>>& guess = RandomGuess<Scalar>()) {
  Pairs<Scalar> p(on.rows, nBands);
  p.Fill(guess);
  on.Run(p, solver);
  return p;
}

/// One run of a new solver.
template <typename Scalar>
Pairs<Scalar> Solve(Problem<Scalar>& on, const Settings& s,
                    const NotDeduced<Guess<Scalar>>& guess = RandomGuess<Scalar>()) {
  return SolveBy(MakeSolver<Scalar>(s, on.B != nullptr).get(), on, s.nBands, guess);
}

template <typename Scalar>
std::vector<double> ResidualNorms(const Pairs<Scalar>& p, const Problem<Scalar>& on) {
  return ResidualNorms(p, on.A, on.B.get());
}

template <typename Scalar>
double OrthogonalityError(const Pairs<Scalar>& p, const Problem<Scalar>& on) {
  return OrthogonalityError(p, on.B.get());
}

/// Settings within reach of the type. One pass lets the basis of single precision drift from
/// orthonormality by a factor of about 1.3 an iteration, which tells after twenty; repeated passes
/// hold it.
template <typename Scalar>
Settings WithinReach(VesSolverType solver, int nBands) {
  return {solver, nBands, ByPrecision<Scalar>(1e-6, 2e-3), 1000, isDouble<Scalar> ? 1 : 3};
}

/// What is allowed beside rounding.
struct Limits {
  double value = -1.0;           ///< values against exact ones; 25 threshold^2 where negative
  double orthogonality = 2000.0; ///< |X^H B X - I| in units of rounding
};

/// Every pair converged, is right and B-orthonormal. A value errs by the square of the residual
/// over the gap to what is not wanted, which is above 0.04 unless a test knows better.
template <typename Scalar>
void ExpectAllConverged(Pairs<Scalar>& p, const Problem<Scalar>& on, double threshold,
                        const Limits& limits = {}) {
  ASSERT_EQ(p.code, VES_GOOD);
  EXPECT_EQ(p.nConv, p.k) << "after " << p.iter << " iterations";
  EXPECT_LE(OrthogonalityError(p, on), limits.orthogonality * eps<Scalar>);
  const std::vector<double> residuals = ResidualNorms(p, on);
  const double rounding = 50.0 * eps<Scalar> * on.normA;
  const double error = limits.value < 0.0 ? 25.0 * threshold * threshold : limits.value;
  for (int j = 0; j < p.k; ++j) {
    // What the solver tests are images that it updates and does not recompute.
    EXPECT_LE(residuals.data()[j], threshold + rounding) << "pair " << j;
    EXPECT_NEAR(p.Value(j), on.exact.data()[j], error + rounding) << "pair " << j;
    EXPECT_EQ(std::imag(p.D.data()[j]), 0.0);
    if (j > 0) {
      EXPECT_LE(p.Value(j - 1), p.Value(j) + rounding) << "pair " << j;
    }
    for (int i = p.rows.local; i < p.ld; ++i)
      EXPECT_EQ(p.Column(j)[i], Number<Scalar>(777)) << "padding of column " << j;
  }
}

/// One run of a new solver, after which all is as it should be.
template <typename Scalar>
Pairs<Scalar> SolveAll(Problem<Scalar>& on, const Settings& s,
                       const NotDeduced<Guess<Scalar>>& guess = RandomGuess<Scalar>(),
                       const Limits& limits = {}) {
  SCOPED_TRACE(s);
  Pairs<Scalar> p = Solve(on, s, guess);
  ExpectAllConverged(p, on, s.threshold, limits);
  return p;
}

} // namespace VesTest

#endif
