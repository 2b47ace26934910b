#include "fftw_of.h"
#include "large_problem_of.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <stdexcept>
#include <type_traits>

namespace VesBench {

namespace {

const double pi = std::acos(-1.0);

/// Column j of a block.
template <typename Number>
Number* At(Number* block, int j, int ld) {
  return block + static_cast<std::ptrdiff_t>(j) * ld;
}

/// The lowest count of all sums f(values of axes).
std::vector<double> Lowest(std::vector<double> all, int count) {
  const auto end = all.begin() + std::min<std::ptrdiff_t>(count, std::ptrdiff_t(all.size()));
  std::partial_sort(all.begin(), end, all.end());
  all.erase(end, all.end());
  return all;
}

template <typename Real>
class Laplacian {
public:
  using Number = Real;
  static constexpr bool isComplex = false, isGeneralized = false;

  Laplacian(int size, MPI_Comm givenComm) : n(size), comm(givenComm) {
    int nProcesses = 1;
    MPI_Comm_rank(comm, &rank);
    MPI_Comm_size(comm, &nProcesses);
    first = static_cast<int>(static_cast<long long>(n) * rank / nProcesses);
    planes = static_cast<int>(static_cast<long long>(n) * (rank + 1) / nProcesses) - first;
    if (n < nProcesses) throw std::runtime_error("more processes than planes");
    below = rank > 0 ? rank - 1 : MPI_PROC_NULL;
    above = rank + 1 < nProcesses ? rank + 1 : MPI_PROC_NULL;
  }

  int LocalRows() const { return planes * n * n; }
  int FirstRow() const { return first * n * n; }
  long long Order() const { return static_cast<long long>(n) * n * n; }

  void ApplyA(const Real* x, Real* y, int nCols, int ld) {
    Exchange(x, nCols, ld);
#pragma omp parallel for
    for (int j = 0; j < nCols; ++j)
      Stencil(At(x, j, ld), At(y, j, ld), j);
  }

  /// Chebyshev iteration from zero for A y = x on [upper / 30, upper].
  void ApplyT(const Real* x, Real* y, int nCols, int ld) {
    const Real upper = 12, lower = upper / 30;
    const Real centre = (upper + lower) / 2, radius = (upper - lower) / 2;
    const Real sigma = centre / radius;
    const auto rows = static_cast<std::size_t>(LocalRows());
    const std::size_t size = rows * static_cast<std::size_t>(nCols);
    step.resize(size);
    images.resize(size);
    Real rho = 1 / sigma;
#pragma omp parallel for
    for (int j = 0; j < nCols; ++j)
      for (std::size_t i = 0; i < rows; ++i) {
        const Real start = At(x, j, ld)[i] / centre;
        At(step.data(), j, LocalRows())[i] = At(y, j, ld)[i] = start;
      }
    for (int k = 1; k < 6; ++k) {
      Exchange(y, nCols, ld);
      const Real next = 1 / (2 * sigma - rho), keep = next * rho, add = 2 * next / radius;
#pragma omp parallel for
      for (int j = 0; j < nCols; ++j) {
        const Real* const xj = At(x, j, ld);
        Real* const yj = At(y, j, ld);
        Real* const sj = At(step.data(), j, LocalRows());
        Real* const image = At(images.data(), j, LocalRows());
        Stencil(yj, image, j);
        for (std::size_t i = 0; i < rows; ++i) {
          sj[i] = keep * sj[i] + add * (xj[i] - image[i]);
          yj[i] += sj[i];
        }
      }
      rho = next;
    }
  }

  std::vector<double> Exact(int count) const {
    std::vector<double> axis, all;
    for (int i = 1; i <= n; ++i)
      axis.push_back(2 - 2 * std::cos(i * pi / (n + 1)));
    // Of the lowest k sums none needs an index beyond the k-th.
    axis.resize(static_cast<std::size_t>(std::min(n, count)));
    for (const double a : axis)
      for (const double b : axis)
        for (const double c : axis)
          all.push_back(a + b + c);
    return Lowest(all, count);
  }

  void ApplyB(const Real*, Real*, int, int) {}
  double Weight(int) const {
    return 1.0;
  }

private:
  /// Planes of the neighbours for all columns at once.
  void Exchange(const Real* x, int nCols, int ld) {
    const int plane = n * n;
    const auto size = static_cast<std::size_t>(plane) * static_cast<std::size_t>(nCols);
    for (std::vector<Real>* const buffer : {&halo[0], &halo[1]})
      buffer->assign(size, Real(0));
    if (below == MPI_PROC_NULL && above == MPI_PROC_NULL) return;
    send.resize(2 * size);
    for (int j = 0; j < nCols; ++j) {
      const Real* const xj = At(x, j, ld);
      std::copy_n(xj, plane, At(send.data(), j, plane));
      std::copy_n(xj + LocalRows() - plane, plane, At(send.data() + size, j, plane));
    }
    const int count = static_cast<int>(size);
    const MPI_Datatype type = std::is_same_v<Real, double> ? MPI_DOUBLE : MPI_FLOAT;
    MPI_Sendrecv(send.data(), count, type, below, 0, halo[1].data(), count, type, above, 0, comm,
                 MPI_STATUS_IGNORE);
    MPI_Sendrecv(send.data() + size, count, type, above, 1, halo[0].data(), count, type, below, 1,
                 comm, MPI_STATUS_IGNORE);
  }

  void Stencil(const Real* x, Real* y, int column) const {
    const int plane = n * n;
    for (int p = 0; p < planes; ++p) {
      const Real* const lower = p > 0 ? x + (p - 1) * plane : At(halo[0].data(), column, plane);
      const Real* const upper =
          p + 1 < planes ? x + (p + 1) * plane : At(halo[1].data(), column, plane);
      for (int r = 0; r < n; ++r)
        Line(x + p * plane + r * n, lower + r * n, upper + r * n, r, y + p * plane + r * n);
    }
  }

  void Line(const Real* x, const Real* lower, const Real* upper, int r, Real* y) const {
    for (int i = 0; i < n; ++i)
      y[i] = 6 * x[i] - lower[i] - upper[i];
    for (int i = 1; i < n; ++i)
      y[i] -= x[i - 1];
    for (int i = 0; i + 1 < n; ++i)
      y[i] -= x[i + 1];
    for (int i = 0; r > 0 && i < n; ++i)
      y[i] -= x[i - n];
    for (int i = 0; r + 1 < n && i < n; ++i)
      y[i] -= x[i + n];
  }

  int n, first = 0, planes = 0, rank = 0, below = 0, above = 0;
  MPI_Comm comm;
  std::vector<Real> halo[2], send, step, images;
};

template <typename Real>
class Elements {
public:
  using Number = Real;
  static constexpr bool isComplex = false, isGeneralized = true;

  Elements(int size, MPI_Comm comm) : n(size), h(1.0 / (size + 1)) {
    int nProcesses = 1;
    MPI_Comm_size(comm, &nProcesses);
    if (nProcesses > 1) throw std::runtime_error("the elements run on one process");
    grid.resize(static_cast<std::size_t>(n) * static_cast<std::size_t>(n));
    line.resize(grid.size());
    plan = Fftw::sines(n, n, grid.data(), grid.data(), FFTW_RODFT00, FFTW_RODFT00, FFTW_MEASURE);
  }
  Elements(const Elements&) = delete;
  Elements& operator=(const Elements&) = delete;
  ~Elements() { Fftw::destroy(plan); }

  int LocalRows() const { return n * n; }
  int FirstRow() const { return 0; }
  long long Order() const { return LocalRows(); }

  void ApplyA(const Real* x, Real* y, int nCols, int ld) {
    const Tridiagonal stiffness = Of(2 / h, -1 / h), mass = Of(4 * h / 6, h / 6);
    for (int j = 0; j < nCols; ++j) {
      const Real* const xj = At(x, j, ld);
      Real* const yj = At(y, j, ld);
      Tensor(stiffness, mass, xj, yj, false);
      Tensor(mass, stiffness, xj, yj, true);
    }
  }
  void ApplyB(const Real* x, Real* y, int nCols, int ld) {
    const Tridiagonal mass = Of(4 * h / 6, h / 6);
    for (int j = 0; j < nCols; ++j)
      Tensor(mass, mass, At(x, j, ld), At(y, j, ld), false);
  }

  void ApplyT(const Real* x, Real* y, int nCols, int ld) {
    const double scale = 1.0 / (4.0 * (n + 1) * (n + 1));
    for (int j = 0; j < nCols; ++j) {
      std::copy_n(At(x, j, ld), n * n, grid.data());
      Fftw::execute(plan);
      for (int i = 0, at = 0; i < n; ++i)
        for (int k = 0; k < n; ++k, ++at)
          grid[static_cast<std::size_t>(at)] *=
              static_cast<Real>(scale / (Difference(i + 1) + Difference(k + 1)));
      Fftw::execute(plan);
      std::copy_n(grid.data(), n * n, At(y, j, ld));
    }
  }

  std::vector<double> Exact(int count) const {
    std::vector<double> axis, all; // stiffness over mass of one axis
    for (int i = 1; i <= std::min(n, count); ++i) {
      const double c = std::cos(i * pi * h);
      axis.push_back(6 / (h * h) * (1 - c) / (2 + c));
    }
    for (const double a : axis)
      for (const double b : axis)
        all.push_back(a + b);
    return Lowest(all, count);
  }

  double Weight(int) const { return 1.0; }

private:
  using Fftw = silicon::FftwOf<Real>;

  struct Tridiagonal {
    Real diagonal, off;
  };
  static Tridiagonal Of(double diagonal, double off) {
    return {static_cast<Real>(diagonal), static_cast<Real>(off)};
  }

  /// Eigenvalue of tridiag(-1, 2, -1).
  double Difference(int i) const { return 2 - 2 * std::cos(i * pi * h); }

  /// y (+)= (first x second) x for matrices of the two axes.
  void Tensor(Tridiagonal first, Tridiagonal second, const Real* x, Real* y, bool adds) {
    for (int i = 0; i < n; ++i)
      AlongLine(second, x + i * n, line.data() + i * n);
    for (int i = 0; i < n; ++i) {
      const Real* const here = line.data() + i * n;
      Real* const out = y + i * n;
      for (int k = 0; k < n; ++k)
        out[k] = (adds ? out[k] : Real(0)) + first.diagonal * here[k];
      for (int k = 0; i > 0 && k < n; ++k)
        out[k] += first.off * here[k - n];
      for (int k = 0; i + 1 < n && k < n; ++k)
        out[k] += first.off * here[k + n];
    }
  }
  void AlongLine(Tridiagonal t, const Real* x, Real* y) const {
    for (int k = 0; k < n; ++k)
      y[k] = t.diagonal * x[k];
    for (int k = 1; k < n; ++k)
      y[k] += t.off * x[k - 1];
    for (int k = 0; k + 1 < n; ++k)
      y[k] += t.off * x[k + 1];
  }

  int n;
  double h;
  std::vector<Real> grid, line;
  typename Fftw::Plan plan = nullptr;
};

} // namespace

std::unique_ptr<LargeProblem> MakeLaplacian(int size, MPI_Comm comm) {
  return std::make_unique<LargeProblemOf<Laplacian>>(size, comm);
}

std::unique_ptr<LargeProblem> MakeElements(int size, MPI_Comm comm) {
  return std::make_unique<LargeProblemOf<Elements>>(size, comm);
}

std::unique_ptr<LargeProblem> MakeLargeProblem(const std::string& name, double size,
                                               MPI_Comm comm) {
  if (name == "laplacian") return MakeLaplacian(static_cast<int>(size), comm);
  if (name == "elements") return MakeElements(static_cast<int>(size), comm);
  if (name == "plane-waves") return MakePlaneWaves(size, comm);
  throw std::runtime_error("unknown problem " + name);
}

} // namespace VesBench
