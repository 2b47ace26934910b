#include <cstdio>
#include <ves.hpp>

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  const ves::Operator<double> A([](auto x, auto y) { // tridiag(-1, 2, -1)
    for (int j = 0; j < x.cols(); ++j)
      for (int i = 0, n = x.rows(); i < n; ++i)
        y(i, j) = 2 * x(i, j) - (i > 0 ? x(i - 1, j) : 0) - (i + 1 < n ? x(i + 1, j) : 0);
  });
  ves::Options options;
  options.maxIter = 500;
  const auto found = ves::solve(A, 100, 4, options);
  for (const double value : found.values)
    std::printf("%.10f\n", value);
  MPI_Finalize();
  return found.isConverged() ? 0 : 1;
}
