#ifndef VES_BENCH_LARGE_PROBLEM_OF_H
#define VES_BENCH_LARGE_PROBLEM_OF_H

#include "large_problem.h"

namespace VesBench {

/// A problem from its operators Of<Real> in both precisions: these are made of (size, comm) and
/// have typed ApplyA, ApplyB and ApplyT, and what the problem tells.
template <template <typename> class Of>
class LargeProblemOf final : public LargeProblem {
public:
  template <typename Size>
  LargeProblemOf(Size size, MPI_Comm comm) : full(size, comm), low(size, comm) {}

  int LocalRows() const override { return full.LocalRows(); }
  int FirstRow() const override { return full.FirstRow(); }
  long long Order() const override { return full.Order(); }
  bool IsComplex() const override { return Of<double>::isComplex; }
  bool IsGeneralized() const override { return Of<double>::isGeneralized; }

  void ApplyA(const void* x, void* y, int nCols, int ld) override {
    full.ApplyA(static_cast<const Number*>(x), static_cast<Number*>(y), nCols, ld);
  }
  void ApplyB(const void* x, void* y, int nCols, int ld) override {
    full.ApplyB(static_cast<const Number*>(x), static_cast<Number*>(y), nCols, ld);
  }
  void ApplyT(const void* x, void* y, int nCols, int ld) override {
    full.ApplyT(static_cast<const Number*>(x), static_cast<Number*>(y), nCols, ld);
  }
  void ApplyLowA(const void* x, void* y, int nCols, int ld) override {
    low.ApplyA(static_cast<const LowNumber*>(x), static_cast<LowNumber*>(y), nCols, ld);
  }
  void ApplyLowB(const void* x, void* y, int nCols, int ld) override {
    low.ApplyB(static_cast<const LowNumber*>(x), static_cast<LowNumber*>(y), nCols, ld);
  }
  void ApplyLowT(const void* x, void* y, int nCols, int ld) override {
    low.ApplyT(static_cast<const LowNumber*>(x), static_cast<LowNumber*>(y), nCols, ld);
  }

  double Weight(int localRow) const override { return full.Weight(localRow); }
  std::vector<double> Exact(int count) const override { return full.Exact(count); }

private:
  using Number = typename Of<double>::Number;
  using LowNumber = typename Of<float>::Number;
  Of<double> full;
  Of<float> low;
};

} // namespace VesBench

#endif
