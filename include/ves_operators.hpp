/// \file ves_operators.hpp
/// A, B and T of ves.hpp: operators from callables, and what these throw.
#ifndef VES_OPERATORS_HPP
#define VES_OPERATORS_HPP

#include <ves_blocks.hpp>

#include <algorithm>
#include <complex>
#include <exception>
#include <limits>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

namespace ves {

/// Holds back what call-backs of the caller throw while the library runs.
class Failures {
public:
  /// Calls a function of the caller and keeps what it throws, unless there is something already.
  /// \return whether it threw nothing
  template <typename Function>
  bool guard(Function&& function) noexcept {
    try {
      function();
      return true;
    } catch (...) {
      if (!m_first) m_first = std::current_exception();
      return false;
    }
  }
  /// Hands out what was kept, and forgets it.
  std::exception_ptr take() { return std::exchange(m_first, nullptr); }
  virtual ~Failures() = default;

private:
  std::exception_ptr m_first;
};

/// A, B or T: a callable (View<const Scalar> x, View<Scalar> y) that writes y = Op x, n rows of all
/// columns, as VesShellMatVec tells. It is called on the processes that hold rows.
///
/// What it throws ends the run as an operator that is not finite, on all processes, and leaves the
/// function that was called as the same exception on the process where it was thrown; thrown on a
/// process without rows it only does the latter. Until the run ends it is called on, since others
/// may wait for it, and it must not throw between messages that they wait for.
template <typename Scalar>
class Operator {
public:
  /// No operator: the standard problem, or no preconditioner.
  Operator() = default;

  /// Keeps the callable, or with std::ref a reference to it, at an address of its own.
  template <typename Callable, typename = std::enable_if_t<std::is_invocable_v<
                                   std::decay_t<Callable>&, View<const Scalar>, View<Scalar>>>>
  explicit Operator(Callable&& callable) {
    using Kept = Routine<Scalar, std::decay_t<Callable>>;
    auto routine = std::make_unique<Kept>(std::forward<Callable>(callable));
    m_handle = makeMatrix<Scalar>(Kept::call, routine.get());
    m_routine = std::move(routine);
  }

  /// A sparse matrix, of which this process has the rows that starts tells of: nRows + 1 places in
  /// columns and values, as VesMatrixSetRows, which copies them. Collective, and so is the end of
  /// the operator. Throws Error, on all processes.
  Operator(MPI_Comm comm, const std::vector<long long>& starts,
           const std::vector<long long>& columns, const std::vector<Scalar>& values)
      : m_handle(makeMatrix<Scalar>(nullptr, nullptr)) {
    const std::size_t most = std::min(columns.size(), values.size());
    const bool isSound = !starts.empty() &&
                         starts.size() <= std::size_t{std::numeric_limits<int>::max()} &&
                         starts.back() <= static_cast<long long>(most);
    const int nRows = isSound ? static_cast<int>(starts.size()) - 1 : -1; // which all refuse
    check(VesMatrixSetRows(handle(), comm, nRows, starts.data(), columns.data(), values.data()),
          "VesMatrixSetRows");
  }

  /// Keeps a callable that multiplies by the same operator in single precision, on
  /// View<const float> and View<float> or their complex kin, as VesMatrixSetShellMatVecLow.
  template <typename Callable>
  void setLow(Callable&& callable) {
    using Kept = Routine<Low, std::decay_t<Callable>>;
    auto routine = std::make_unique<Kept>(std::forward<Callable>(callable));
    check(VesMatrixSetShellMatVecLow(handle(), routine.get(), Kept::call),
          "VesMatrixSetShellMatVecLow");
    m_low = std::move(routine);
  }

  /// Keeps a callable (View<const Scalar> x, View<Scalar> ax, View<Scalar> bx) that multiplies by
  /// this operator and by B at once, as VesMatrixSetShellPair. A run with both must not outlive
  /// this operator.
  template <typename Callable>
  void shareWith(Operator& B, Callable&& callable) {
    using Kept = PairRoutine<std::decay_t<Callable>>;
    auto routine = std::make_unique<Kept>(std::forward<Callable>(callable));
    check(VesMatrixSetShellPair(handle(), B.handle(), routine.get(), Kept::call),
          "VesMatrixSetShellPair");
    m_pair = std::move(routine);
  }

  /// Has the callable called on processes without rows, too, as VesMatrixSetCalledEverywhere.
  /// To be set alike on all processes.
  void setCalledEverywhere(bool isOn) {
    check(VesMatrixSetCalledEverywhere(handle(), isOn), "VesMatrixSetCalledEverywhere");
  }

  VesMatrix handle() const { return m_handle.get(); } ///< stays the operator's; null for none
  /// What the callable threw since the last time, for those that call the library themselves.
  std::exception_ptr takeFailure() const {
    std::exception_ptr first;
    for (const auto* routine : {&m_pair, &m_low, &m_routine})
      if (const std::exception_ptr kept = *routine ? (*routine)->take() : nullptr) first = kept;
    return first;
  }

private:
  using Low = std::conditional_t<std::is_same_v<Scalar, Real<Scalar>>, float, std::complex<float>>;

  template <typename Element, typename Callable>
  struct Routine final : Failures {
    template <typename From>
    explicit Routine(From&& from) : callable(std::forward<From>(from)) {}

    static void call(void* self, void* x, void* y, int nRows, int nCols, int ld) noexcept {
      auto& routine = *static_cast<Routine*>(self);
      const View<const Element> in(static_cast<const Element*>(x), nRows, nCols, ld);
      const View<Element> out(static_cast<Element*>(y), nRows, nCols, ld);
      if (!routine.guard([&] { routine.callable(in, out); })) spoil(out);
    }

    Callable callable;
  };

  template <typename Callable>
  struct PairRoutine final : Failures {
    template <typename From>
    explicit PairRoutine(From&& from) : callable(std::forward<From>(from)) {}

    static void call(void* self, void* x, void* ax, void* bx, int nRows, int nCols,
                     int ld) noexcept {
      auto& routine = *static_cast<PairRoutine*>(self);
      const View<const Scalar> in(static_cast<const Scalar*>(x), nRows, nCols, ld);
      const View<Scalar> a(static_cast<Scalar*>(ax), nRows, nCols, ld),
          b(static_cast<Scalar*>(bx), nRows, nCols, ld);
      if (routine.guard([&] { routine.callable(in, a, b); })) return;
      spoil(a);
      spoil(b);
    }

    Callable callable;
  };

  template <typename Element>
  static void spoil(const View<Element>& y) {
    for (int j = 0; y.rows() > 0 && j < y.cols(); ++j)
      std::fill_n(y.column(j), y.rows(), std::numeric_limits<Real<Element>>::quiet_NaN());
  }

  std::unique_ptr<Failures> m_routine, m_low, m_pair;
  MatrixHandle m_handle;
};

/// Ends a call of the library: throws what a call-back kept, or Error where the call was refused.
template <typename... Sources>
void finish(VesReturnCode code, const char* call, const Sources&... sources) {
  for (const std::exception_ptr& kept : {sources.takeFailure()...})
    if (kept) std::rethrow_exception(kept);
  check(code, call);
}

/// Y = Op X, outside of a run, by VesMatrixMultiply: also with blocks in single precision, for an
/// operator that has that. Collective as far as the operator is.
template <typename Scalar, typename Element>
void multiply(const Operator<Scalar>& op, const Block<Element>& X, const Block<Element>& Y) {
  finish(VesMatrixMultiply(op.handle(), X.handle(), Y.handle()), "VesMatrixMultiply", op);
}

} // namespace ves

#endif
