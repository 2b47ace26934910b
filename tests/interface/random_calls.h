// Sequences of flat calls made of bytes: any order, any values, null handles, and a model of what
// the caller has set, which keeps out what the library cannot see (storage smaller than the shape)
// and what would take hours. Every answer is held against the documentation of its function.
#ifndef VES_TESTS_INTERFACE_RANDOM_CALLS_H
#define VES_TESTS_INTERFACE_RANDOM_CALLS_H

#include <ves.h>

#include <array>
#include <cmath>
#include <complex>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <vector>

namespace VesTest {

class RandomCalls {
public:
  using Complain = void (*)(const std::string& what);

  explicit RandomCalls(Complain complain) : m_complain(complain) {}
  RandomCalls(const RandomCalls&) = delete;
  RandomCalls& operator=(const RandomCalls&) = delete;
  ~RandomCalls() {
    for (const VesMatrix m : m_matrices)
      VesMatrixDestroy(m);
    for (const Block& v : m_vectors)
      VesVectorDestroy(v.handle);
    for (const VesSolver s : m_solvers)
      VesSolverDestroy(s);
  }

  long calls = 0, runs = 0, refusedRuns = 0;

  /// Makes calls until the bytes are used up; handles live on.
  void Feed(const std::uint8_t* bytes, std::size_t count) {
    m_at = bytes;
    m_end = bytes + count;
    while (m_at != m_end)
      Step();
  }

private:
  /// What the caller knows of a block. Storage is the slot's own, or the handle's where it was
  /// replicated.
  struct Block {
    VesVector handle = nullptr;
    int type = VES_DOUBLE, nRows = 0, nCols = 0, ld = 1;
    std::int64_t capacity = -1; ///< entries; -1 without storage
    std::vector<std::complex<double>> own = std::vector<std::complex<double>>(ownEntries + 16);

    /// Reach of the shape, at least a column: an empty block of the library has one of slack.
    std::int64_t Entries() const {
      return std::int64_t{ld} * (nCols > 1 ? nCols - 1 : 0) + (nRows > ld ? nRows : ld);
    }
    /// Its storage holds what the shape says, and loops over it are short.
    bool Fits() const { return Entries() <= (capacity >= 0 ? capacity : 16 * ownEntries); }
  };
  using Codes = std::vector<int>;
  enum Nonsense { first = -2, last = 5 };

  static constexpr std::int64_t ownEntries = 16 * 16;
  static constexpr int none = VES_ERR_NULL_POINTER, bad = VES_ERR_INVALID_VALUE,
                       unsupported = VES_ERR_UNSUPPORTED, mismatch = VES_ERR_MISMATCH,
                       incompatible = VES_ERR_INCOMPATIBLE, good = VES_GOOD;

  // ---------------------------------------------------------------- choices

  int Byte() { return m_at == m_end ? 0 : *m_at++; }
  int Below(int n) { return Byte() % n; }
  bool OneIn(int n) { return Below(n) == n - 1; }
  int AnyCode() { return Nonsense::first + Below(Nonsense::last - Nonsense::first + 1); }
  int AnyType() { return OneIn(16) ? AnyCode() : m_type; }
  int AnyInt() {
    constexpr std::array<int, 12> values = {0,
                                            1,
                                            2,
                                            3,
                                            4,
                                            7,
                                            12,
                                            -1,
                                            11000,
                                            400000000,
                                            std::numeric_limits<int>::max(),
                                            std::numeric_limits<int>::min()};
    const int choice = Byte();
    return choice < 160 ? choice % 13 : values[static_cast<std::size_t>(choice) % values.size()];
  }
  double AnyDouble() {
    constexpr std::array<double, 10> values = {1e-6,
                                               1e-2,
                                               0.5,
                                               0.0,
                                               1.0,
                                               -1.0,
                                               1e-300,
                                               1e300,
                                               std::numeric_limits<double>::infinity(),
                                               std::numeric_limits<double>::quiet_NaN()};
    return values[static_cast<std::size_t>(Below(10))];
  }
  template <typename Pool>
  auto& Any(Pool& pool) {
    return pool[static_cast<std::size_t>(Below(static_cast<int>(std::size(pool))))];
  }
  /// Mostly the handles that belong together: solver 0, operators 0 and 1, blocks 0 to 2.
  VesMatrix AnyMatrix() { return OneIn(16) ? nullptr : OneIn(8) ? Any(m_matrices) : m_matrices[0]; }
  VesSolver AnySolver() { return OneIn(16) ? nullptr : OneIn(4) ? Any(m_solvers) : m_solvers[0]; }
  VesMatrix MaybeMatrix() { return OneIn(2) ? nullptr : OneIn(4) ? AnyMatrix() : m_matrices[1]; }
  Block& AnyVector(std::size_t usual) {
    if (OneIn(32)) return m_nothing = Block();
    return OneIn(8) ? Any(m_vectors) : m_vectors[usual];
  }
  Block& AnyVector() { return OneIn(32) ? m_nothing = Block() : Any(m_vectors); }

  // ---------------------------------------------------------------- judgement

  /// The first code is that of a missing handle or pointer, and not listed again unless there are
  /// other causes for it.
  void Judge(const char* function, int code, bool isMissing, const Codes& documented) {
    ++calls;
    bool isListed = isMissing && code == documented.front();
    for (std::size_t i = 1; i < documented.size() && !isMissing; ++i)
      isListed = isListed || code == documented[i];
    if (!isListed)
      m_complain(std::string(function) + " returned " + std::to_string(code) +
                 (isMissing ? " for something missing" : ""));
  }
  void Require(bool holds, const char* what) {
    if (!holds) m_complain(what);
  }

  // ---------------------------------------------------------------- routines of the caller

  template <typename Scalar>
  static void Product(void* data, void* x, void* y, int nRows, int nCols, int ld) {
    auto* self = static_cast<RandomCalls*>(data);
    self->Require(nRows >= 0 && nCols > 0 && ld >= nRows &&
                      (nRows == 0 || (x != nullptr && y != nullptr)),
                  "a routine was called on a block of impossible shape");
    if (nRows == 0) return;
    using Real = decltype(std::real(Scalar()));
    for (int j = 0; j < nCols; ++j)
      for (int i = 0; i < nRows; ++i) {
        const auto at = static_cast<std::ptrdiff_t>(j) * ld + i;
        const double factors[] = {1.0 + i, 1.0, 0.0, i % 2 - 0.5, 1e-200, 1e30};
        static_cast<Scalar*>(y)[at] =
            static_cast<Scalar*>(x)[at] * static_cast<Real>(factors[self->m_operator % 6]);
      }
    if (self->m_operator == 6) *static_cast<Scalar*>(y) = std::numeric_limits<Real>::quiet_NaN();
  }

  static int Monitor(void* data, const VesProgress* progress) {
    auto* self = static_cast<RandomCalls*>(data);
    const VesProgress& p = *progress;
    self->Require(p.wanted == self->m_wanted && p.iteration >= 0 && p.columnsA >= 0 &&
                      (p.wanted == 0 || (p.values != nullptr && p.residuals != nullptr)),
                  "the monitor was shown another run");
    for (const int count : {p.converged, p.locked, p.active})
      self->Require(count >= 0 && count <= p.wanted, "the monitor was shown impossible counts");
    return self->m_operator == 5 && p.iteration > 2 ? 1 : 0;
  }

  // ---------------------------------------------------------------- operators and blocks

  void CreateMatrix(VesMatrix& slot, int type, int kind) {
    VesMatrix made = nullptr;
    const bool noOut = OneIn(32);
    const int code = VesMatrixCreate(noOut ? nullptr : &made, static_cast<VesScalarType>(type),
                                     static_cast<VesMatrixType>(kind));
    Judge("VesMatrixCreate", code, noOut, {none, mismatch, unsupported, good});
    Require((code == good) == (made != nullptr), "VesMatrixCreate: code and handle disagree");
    if (made == nullptr) return;
    VesMatrixDestroy(slot);
    slot = made;
    SetRoutine(slot, type);
  }

  /// Only a routine of the handle's own type: the library cannot tell.
  void SetRoutine(VesMatrix matrix, int type) {
    constexpr VesShellMatVec products[] = {&Product<double>, &Product<float>,
                                           &Product<std::complex<double>>,
                                           &Product<std::complex<float>>};
    const VesShellMatVec product = OneIn(16) ? nullptr : products[type];
    Judge("VesMatrixSetShellMatVec", VesMatrixSetShellMatVec(matrix, this, product),
          matrix == nullptr, {none, incompatible, unsupported, good});
    Require(VesMatrixGetShellUserData(matrix) == (matrix == nullptr ? nullptr : this),
            "VesMatrixGetShellUserData: not what was set");
  }

  void CreateVector(Block& slot, int type, int kind) {
    VesVector made = nullptr;
    const bool noOut = OneIn(32);
    const int code = VesVectorCreate(noOut ? nullptr : &made, static_cast<VesScalarType>(type),
                                     static_cast<VesVectorType>(kind));
    Judge("VesVectorCreate", code, noOut, {none, mismatch, unsupported, good});
    Require((code == good) == (made != nullptr), "VesVectorCreate: code and handle disagree");
    if (made != nullptr) Replace(slot, made, type);
  }

  void Replace(Block& slot, VesVector made, int type) {
    VesVectorDestroy(slot.handle);
    slot.handle = made;
    slot.type = type;
    slot.nRows = slot.nCols = 0;
    slot.ld = 1;
    slot.capacity = -1;
  }

  void SetDim(Block& v, int nRows, int nCols) {
    const int code = VesVectorSetDim(v.handle, nRows, nCols);
    Judge("VesVectorSetDim", code, v.handle == nullptr, {none, bad, good});
    if (code != good) return;
    v.nRows = nRows;
    v.nCols = nCols;
  }

  void SetValues(Block& v, int ld) {
    void* const values = OneIn(32) ? nullptr : v.own.data();
    const int code = VesVectorDenseSetValues(v.handle, values, ld);
    Judge("VesVectorDenseSetValues", code, v.handle == nullptr || values == nullptr,
          {none, bad, incompatible, unsupported, good});
    if (code != good) return;
    v.ld = ld;
    v.capacity = ownEntries;
    Require(VesVectorDenseGetValues(v.handle) == values, "VesVectorDenseGetValues: another place");
  }

  void SetComm(Block& v) {
    const MPI_Comm comms[] = {MPI_COMM_WORLD, MPI_COMM_WORLD, MPI_COMM_SELF, MPI_COMM_NULL};
    const MPI_Comm comm = comms[Below(4)];
    const int slot = Below(5) - 1;
    const int code = OneIn(2) ? VesVectorSetComm_f(v.handle, slot, MPI_Comm_c2f(comm))
                              : VesVectorSetComm(v.handle, slot, comm);
    Judge("VesVectorSetComm", code, v.handle == nullptr, {none, bad, unsupported, good});
  }

  void Replicate() {
    Block &from = AnyVector(), &to = Any(m_vectors);
    const bool allocate = OneIn(2), copy = OneIn(2), noOut = OneIn(32);
    const int ld = allocate && from.ld < from.nRows ? from.nRows : from.ld;
    const std::int64_t entries = std::int64_t{ld} * from.nCols;
    const bool isLarge = entries <= std::numeric_limits<int>::max() &&
                         (entries > 16 * ownEntries || ld > ownEntries);
    if (allocate && (isLarge || (copy && !from.Fits()))) return;
    VesVector made = nullptr;
    const int code = VesVectorReplicate(from.handle, noOut ? nullptr : &made, allocate, copy);
    Judge("VesVectorReplicate", code, from.handle == nullptr || noOut,
          {none, mismatch, unsupported, none, bad, good});
    Require(code != good || made != nullptr, "VesVectorReplicate: no handle");
    if (made == nullptr) return;
    const Block source = from;
    Replace(to, made, source.type);
    to.nRows = source.nRows;
    to.nCols = source.nCols;
    to.ld = ld;
    const bool hasStorage = code == good && allocate;
    to.capacity = hasStorage ? entries : -1;
    Require((VesVectorDenseGetValues(made) != nullptr) == hasStorage,
            "VesVectorReplicate: storage");
  }

  void Norm() {
    Block &x = AnyVector(0), &norms = AnyVector(1);
    if (!x.Fits() || !norms.Fits()) return;
    Judge("VesVectorNorm", VesVectorNorm(x.handle, norms.handle),
          x.handle == nullptr || norms.handle == nullptr,
          {none, incompatible, unsupported, none, bad, mismatch, good});
  }

  static bool IsBeyond32Bits(const Block& x) {
    return std::int64_t{x.ld} * x.nCols > std::numeric_limits<int>::max();
  }

  void Residual() {
    const VesMatrix A = AnyMatrix(), B = MaybeMatrix();
    Block &x = AnyVector(0), &d = AnyVector(1), &r = AnyVector(2);
    if (!(x.Fits() && d.Fits() && r.Fits()) && !IsBeyond32Bits(x)) return;
    const bool isMissing =
        A == nullptr || x.handle == nullptr || d.handle == nullptr || r.handle == nullptr;
    Judge("VesEigResidual", VesEigResidual(A, B, x.handle, d.handle, r.handle), isMissing,
          {bad, incompatible, mismatch, none, bad, good});
  }

  void CheckPairs() {
    const VesMatrix A = AnyMatrix(), B = MaybeMatrix();
    Block &x = AnyVector(0), &d = AnyVector(1);
    if (!(x.Fits() && d.Fits()) && !IsBeyond32Bits(x)) return;
    double residual = -1.0, orthoError = -1.0;
    const int code = VesCheckEigenpairs(A, B, x.handle, d.handle, OneIn(16) ? nullptr : &residual,
                                        OneIn(16) ? nullptr : &orthoError);
    Judge("VesCheckEigenpairs", code, A == nullptr || x.handle == nullptr || d.handle == nullptr,
          {bad, none, mismatch, none, bad, incompatible, good});
    for (const double error : {residual, orthoError})
      Require(code == good ? !(error < 0) : error == -1.0, "VesCheckEigenpairs: result and code");
  }

  // ---------------------------------------------------------------- solvers

  void CreateSolver(VesSolver& slot, int type, int kind) {
    VesSolver made = nullptr;
    const bool noOut = OneIn(32);
    const int code = VesSolverCreate(noOut ? nullptr : &made, static_cast<VesScalarType>(type),
                                     static_cast<VesSolverType>(kind));
    Judge("VesSolverCreate", code, noOut, {none, mismatch, unsupported, good});
    Require((code == good) == (made != nullptr), "VesSolverCreate: code and handle disagree");
    if (made == nullptr) return;
    VesSolverDestroy(slot);
    slot = made;
  }

  /// Setters of a number, kinds among them.
  void Set() {
    struct Setter {
      const char* name;
      VesReturnCode (*call)(VesSolver, int);
      Codes codes;
    };
#define VES_SETTER(function, Type, ...)                                                            \
  {                                                                                                \
#function, [](VesSolver s, int v) { return function(s, static_cast<Type>(v)); }, {             \
      __VA_ARGS__                                                                                  \
    }                                                                                              \
  }
    static const Setter setters[] = {
        VES_SETTER(VesSolverSetProblemType, VesProblemType, none, good),
        VES_SETTER(VesSolverSetMaxIter, int, none, bad, good),
        VES_SETTER(VesSolverSetMaxOrthoIter, int, none, bad, good),
        VES_SETTER(VesSetDenseEigenSolverType, VesDenseEigenSolverType, none, unsupported, good),
        VES_SETTER(VesSetConvergeDetectorType, VesConvergeDetectorType, none, unsupported, good),
        VES_SETTER(VesSetOrthogonalizerType, VesOrthogonalizerType, none, unsupported, good),
        VES_SETTER(VesSetOrthoProjectorType, VesOrthoProjectorType, none, unsupported, good),
        VES_SETTER(VesSolverSetLockDetectorType, VesConvergeDetectorType, none, unsupported, good),
        VES_SETTER(VesSolverSetRankRevealerType, VesOrthogonalizerType, none, unsupported, good),
        VES_SETTER(VesSolverSetBatchLimit, int, none, incompatible, bad, good),
        VES_SETTER(VesSolverSetBatchStart, int, none, incompatible, bad, good),
        VES_SETTER(VesSolverSetPPCGSoftLocking, int, none, incompatible, bad, good),
        VES_SETTER(VesSolverSetPPCGBatch, int, none, incompatible, bad, good),
        VES_SETTER(VesSolverSetPPCGRRPeriod, int, none, incompatible, bad, good),
        VES_SETTER(VesSolverSetSelfCheck, bool, none, good),
    };
#undef VES_SETTER
    const Setter& setter = Any(setters);
    const VesSolver solver = AnySolver();
    Judge(setter.name, setter.call(solver, OneIn(2) ? AnyInt() : AnyCode()), solver == nullptr,
          setter.codes);
  }

  void SetReal() {
    const VesSolver solver = AnySolver();
    const double value = AnyDouble();
    const bool isMissing = solver == nullptr;
    switch (Below(3)) {
    case 0:
      return Judge("VesSolverSetThreshold", VesSolverSetThreshold(solver, value), isMissing,
                   {none, bad, good});
    case 1:
      return Judge("VesSolverSetLockFactor", VesSolverSetLockFactor(solver, value), isMissing,
                   {none, bad, good});
    default:
      return Judge("VesSolverSetPPCGLockFactor", VesSolverSetPPCGLockFactor(solver, value),
                   isMissing, {none, incompatible, bad, good});
    }
  }

  void SetMonitor() {
    const VesSolver solver = AnySolver();
    Judge("VesSolverSetMonitor", VesSolverSetMonitor(solver, OneIn(2) ? &Monitor : nullptr, this),
          solver == nullptr, {none, good});
  }

  void Memory() {
    const VesSolver solver = AnySolver();
    const int nRows = AnyInt(), nCols = AnyInt();
    std::size_t bytes = 0;
    const int code = VesSolverMemory(solver, nRows, nCols, OneIn(2), OneIn(16) ? nullptr : &bytes);
    // By every solver, however its batches are set.
    const bool isRunnable = nCols > 0 && nCols <= 10921 && nRows > 0 &&
                            std::int64_t{nRows} * nCols * 3 <= std::numeric_limits<int>::max();
    ++calls;
    Require(code == good || code == none || (code == bad && !isRunnable), "VesSolverMemory: code");
    Require(code != good || !isRunnable ||
                bytes >= 4 * static_cast<std::size_t>(nRows) * static_cast<std::size_t>(nCols),
            "VesSolverMemory: less than the block of the vectors");
  }

  struct Outcome {
    int iter = -1, nConv = -1;
    VesSolverReason reason = VES_REASON_NONE;
    VesSolverStats stats{};
  };

  Outcome Read(VesSolver solver);
  void ReadNothing();
  void Run(VesSolver solver, VesMatrix A, VesMatrix B, VesMatrix T, Block& x, Block& d);
  void ExpectSane(const Outcome& o, const Block& x, const Block& d, int maxIter);
  /// A problem whose parts belong together, in the first slots; later calls spoil it.
  void Prepare();
  void FillGuess(Block& v);
  void Step();

  const std::uint8_t *m_at = nullptr, *m_end = nullptr;
  Complain m_complain;
  int m_type = VES_DOUBLE; ///< of most new handles
  int m_operator = 0;      ///< what the routines do in the run at hand
  int m_wanted = 0;        ///< pairs of the run at hand
  std::array<VesMatrix, 4> m_matrices{};
  std::array<VesSolver, 3> m_solvers{};
  std::array<Block, 6> m_vectors;
  Block m_nothing;
};

} // namespace VesTest

#endif
