// A test of convergence of a class of its own: residuals relative to large values and absolute for
// small ones.
#include <ves.hpp>
#include <ves/detector/flag_pairs.h>
#include <ves/interface/solver_base.h>

#include <algorithm>
#include <complex>
#include <cstdio>
#include <memory>

/// A pair passes when ||r|| < threshold max(1, |lambda|).
template <typename Scalar>
class MixedResiduals : public Ves::VesConvergeDetector {
public:
  using Block = Ves::VectorDense<Scalar>;

  MixedResiduals() { Ves::MathKernel<Scalar>::SetScalarType(scalarType); }

  VesReturnCode Run(const VesVectorBase& vecR, const VesVectorBase& workD,
                    const VesVectorBase& vecD, double threshold, VesVectorBase& idxs, int& dummy,
                    int& nLeading) override {
    if (vecR.nCols != idxs.nRows || idxs.nCols != 1) return VES_ERR_INVALID_VALUE;
    if (!Ves::AllDense<Scalar>(vecR, workD, vecD, idxs)) return VES_ERR_MISMATCH;
    const Block& values = Ves::AsDense<Scalar>(workD);
    residualNorms = Ves::ColumnNorms(Ves::AsDense<Scalar>(vecR)); // collective
    const auto passes = [&](int j) {
      return Ves::IsBelow<Scalar>(residualNorms[static_cast<std::size_t>(j)],
                                  ClaimBound(std::abs(values(j)), threshold));
    };
    Ves::FlagPairs(Ves::AsDense<Scalar>(idxs), vecR.nCols, vecR.nCols, passes, dummy, nLeading);
    return VES_GOOD;
  }

  double ClaimBound(double value, double threshold) const override {
    return threshold * std::max(1.0, std::abs(value));
  }
};

// Single precision cannot bring the residuals of values this large below the threshold itself.
int main(int argc, char** argv) {
  using Scalar = std::complex<float>;
  MPI_Init(&argc, &argv);
  int rank = 0, wrong = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  { // blocks and solvers go before MPI does
    const int n = 40, pairs = 4;
    const ves::Operator<Scalar> A([&](auto x, auto y) { // diag(1e4, 2e4, ...)
      for (int j = 0; j < x.cols(); ++j)
        for (int i = 0; i < x.rows(); ++i)
          y(i, j) = 1e4F * static_cast<float>(1 + n * rank + i) * x(i, j);
    });
    const ves::Block<Scalar> X(n, pairs, MPI_COMM_WORLD);
    ves::fillRandom(X);
    ves::Options options;
    options.threshold = 1e-4;
    options.maxIter = 1000;
    ves::Solver<Scalar> solver(options);
    solver.handle()->ConvergeDetector = std::make_unique<MixedResiduals<Scalar>>();

    const auto found = solver.solve(A, X);
    const auto norms = ves::columnNorms(ves::eigResidual(A, {}, X, found.values));
    wrong += !found.isConverged();
    for (std::size_t j = 0; j < pairs; ++j) {
      wrong += !(norms[j] < 2e-4F * found.values[j]); // the run may claim up to twice its threshold
      if (rank == 0) std::printf("%.0f\n", static_cast<double>(found.values[j]));
    }
  }
  MPI_Finalize();
  return wrong;
}
