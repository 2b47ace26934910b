// A chain of length 1 hangs from x = 1 and swings: -(x u')' = w^2 u with u(1) = 0, where x is the
// tension. Linear elements make of it K u = w^2 M u, both tridiagonal. With the solution of K u = f
// as preconditioner T the vectors need a fraction of the steps. The values are (j / 2)^2 with the
// zeros j of the Bessel function J0.
#include <ves.hpp>

#include <cmath>
#include <cstdio>
#include <exception>

constexpr int n = 400, modes = 4; // the node at x = 1 is fixed
constexpr double h = 1.0 / n;
constexpr double zeros[modes] = {2.404825557695773, 5.520078110286311, 8.653727912911013,
                                 11.791534439014281};

struct Tridiagonal {
  std::vector<double> diagonal = std::vector<double>(n), above = std::vector<double>(n - 1);

  void operator()(ves::View<const double> x, ves::View<double> y) const {
    for (int j = 0; j < x.cols(); ++j)
      for (int i = 0; i < n; ++i)
        y(i, j) = At(diagonal, i) * x(i, j) + (i > 0 ? At(above, i - 1) * x(i - 1, j) : 0) +
                  (i + 1 < n ? At(above, i) * x(i + 1, j) : 0);
  }
  // y = K^-1 x by elimination from the free end.
  void Solve(ves::View<const double> x, ves::View<double> y) const {
    std::vector<double> pivots(diagonal);
    for (int i = 1; i < n; ++i)
      pivots[static_cast<std::size_t>(i)] -= std::pow(At(above, i - 1), 2) / At(pivots, i - 1);
    for (int j = 0; j < x.cols(); ++j) {
      for (int i = 0; i < n; ++i)
        y(i, j) = x(i, j) - (i > 0 ? At(above, i - 1) / At(pivots, i - 1) * y(i - 1, j) : 0);
      for (int i = n - 1; i >= 0; --i)
        y(i, j) = (y(i, j) - (i + 1 < n ? At(above, i) * y(i + 1, j) : 0)) / At(pivots, i);
    }
  }
  static double At(const std::vector<double>& numbers, int i) {
    return numbers[static_cast<std::size_t>(i)];
  }
  void AddElement(int i, double own, double mixed) { // from node i to i + 1
    diagonal[static_cast<std::size_t>(i)] += own;
    if (i + 1 == n) return;
    diagonal[static_cast<std::size_t>(i) + 1] += own;
    above[static_cast<std::size_t>(i)] += mixed;
  }
};

static int Swing() {
  Tridiagonal stiffness, mass;
  for (int i = 0; i < n; ++i) {
    const double tension = h * (i + 0.5);
    stiffness.AddElement(i, tension / h, -tension / h);
    mass.AddElement(i, h / 3, h / 6);
  }
  const ves::Operator<double> K(stiffness), M(mass),
      T([&](auto x, auto y) { stiffness.Solve(x, y); });
  ves::Options options;
  options.maxIter = 3000;
  const auto plain = ves::solve(K, M, {}, n, modes, options);
  const auto found = ves::solve(K, M, T, n, modes, options);
  std::printf("K applied to %lld columns without T, to %lld columns with it\n",
              plain.stats.columnsA, found.stats.columnsA);
  bool isGood = plain.isConverged() && found.isConverged() &&
                10 * found.stats.columnsA < plain.stats.columnsA &&
                checkEigenpairs(K, M, found.vectors, found.values).residual < 2e-6;
  for (std::size_t j = 0; j < modes; ++j) {
    const double exact = zeros[j] * zeros[j] / 4;
    std::printf("mode %zu  computed %9.4f  exact %9.4f\n", j + 1, found.values[j], exact);
    isGood = isGood && found.values[j] > exact && found.values[j] < 1.0002 * exact;
  }
  return isGood ? 0 : 1;
}

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  int code = 2;
  try {
    code = Swing();
  } catch (const std::exception& error) { // a refused call, or what an operator threw
    std::fprintf(stderr, "%s\n", error.what());
  }
  MPI_Finalize();
  return code;
}
