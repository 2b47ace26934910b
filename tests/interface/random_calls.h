// Sequences of flat calls made of bytes: any order, any values, null handles, and a model of what
// the caller has set, which keeps out what the library cannot see (storage smaller than the shape)
// and what would take hours. Every answer is held against the documentation of its function.
#ifndef VES_TESTS_INTERFACE_RANDOM_CALLS_H
#define VES_TESTS_INTERFACE_RANDOM_CALLS_H

#include "random_choices.h"
#include "setters.h"

#include <ves_blocks.hpp>

#include <algorithm>
#include <array>
#include <cstring>

namespace VesTest {

class RandomCalls : public RandomChoices {
public:
  using RandomChoices::RandomChoices;

  long runs = 0, refusedRuns = 0;

  /// Makes calls until the bytes are used up; handles live on.
  void Feed(const std::uint8_t* bytes, std::size_t count) {
    using Action = void (RandomCalls::*)();
    static constexpr Action actions[] = {
        &RandomCalls::CreateMatrix, &RandomCalls::CreateVector, &RandomCalls::CreateSolver,
        &RandomCalls::Destroy,      &RandomCalls::SetMatrix,    &RandomCalls::SetDim,
        &RandomCalls::SetValues,    &RandomCalls::SetComm,      &RandomCalls::Norm,
        &RandomCalls::Residual,     &RandomCalls::CheckPairs,   &RandomCalls::SetMonitor,
        &RandomCalls::SetRows,      &RandomCalls::Multiply,     &RandomCalls::Multiply,
        &RandomCalls::Set,          &RandomCalls::Set,          &RandomCalls::Set,
        &RandomCalls::Prepare,      &RandomCalls::Prepare,      &RandomCalls::Prepare,
        &RandomCalls::Run,          &RandomCalls::Run,          &RandomCalls::Run,
        &RandomCalls::Run,          &RandomCalls::Run,          &RandomCalls::Run};
    m_at = bytes;
    m_end = bytes + count;
    while (m_at != m_end)
      (this->*Any(actions))();
  }

private:
  using Storage = std::vector<std::complex<double>>;
  static constexpr std::int64_t ownEntries = 16 * 16;
  /// What the caller knows of a block, whose storage is the slot's own.
  struct Block {
    ves::VectorHandle handle;
    int type = VES_DOUBLE, nRows = 0, nCols = 0, ld = 1;
    bool hasStorage = false;
    Storage own = Storage(ownEntries + 16);

    VesVector get() const { return handle.get(); }
    /// Reach of the shape, at least a column: an empty block of the library has one of slack.
    std::int64_t Entries() const {
      return std::int64_t{ld} * (nCols > 1 ? nCols - 1 : 0) + (nRows > ld ? nRows : ld);
    }
    /// Its storage holds what the shape says, and loops over it are short.
    bool Fits() const { return Entries() <= (hasStorage ? 1 : 16) * ownEntries; }
  };

  // ---------------------------------------------------------------- choices

  int AnyType() { return OneIn(16) ? AnyCode() : m_type; }
  MPI_Comm AnyComm() {
    const MPI_Comm comms[] = {MPI_COMM_WORLD, MPI_COMM_WORLD, MPI_COMM_SELF, MPI_COMM_NULL};
    return Any(comms);
  }
  /// Mostly the handles that belong together: solver 0, operators 0 and 1, blocks 0 to 2.
  VesMatrix AnyMatrix(std::size_t usual = 0) {
    return OneIn(16) ? nullptr : (OneIn(8) ? Any(m_matrices) : m_matrices[usual]).get();
  }
  VesMatrix MaybeMatrix() { return OneIn(2) ? nullptr : AnyMatrix(1); }
  VesSolver AnySolver() {
    return OneIn(16) ? nullptr : (OneIn(4) ? Any(m_solvers) : m_solvers[0]).get();
  }
  Block& AnyVector(std::size_t usual) {
    if (OneIn(32)) return m_nothing = Block();
    return OneIn(8) ? Any(m_vectors) : m_vectors[usual];
  }
  Block& AnyVector() { return OneIn(32) ? m_nothing = Block() : Any(m_vectors); }

  // ---------------------------------------------------------------- routines of the caller

  template <typename Scalar>
  static void Product(void* data, void* x, void* y, int nRows, int nCols, int ld) {
    using Real = ves::Real<Scalar>;
    auto* self = static_cast<RandomCalls*>(data);
    self->Require(nRows >= 0 && nCols > 0 && ld >= nRows &&
                      (nRows == 0 || (x != nullptr && y != nullptr)),
                  "a routine was called on a block of impossible shape");
    const ves::View in(static_cast<Scalar*>(x), nRows, nCols, ld),
        out(static_cast<Scalar*>(y), nRows, nCols, ld);
    for (int j = 0; j < nCols; ++j)
      for (int i = 0; i < nRows; ++i) {
        const double factors[] = {1.0 + i, 1.0, 0.0, i % 2 - 0.5, 1e-200, 1e30, std::nan("")};
        out(i, j) = in(i, j) * static_cast<Real>(factors[self->m_operator]);
      }
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

  /// Null where the call was refused.
  template <typename Handle, typename Kind>
  Handle Make(VesReturnCode (*create)(Handle*, VesScalarType, Kind) noexcept, int type, int kind) {
    Handle made = nullptr;
    const bool noOut = OneIn(32);
    const VesReturnCode code = VES_JUDGE(
        create(noOut ? nullptr : &made, static_cast<VesScalarType>(type), static_cast<Kind>(kind)),
        noOut, none, mismatch, unsupported, good);
    Require((code == good) == (made != nullptr), "the code of a creation and its handle disagree");
    return made;
  }

  /// Gets only a routine of its own type: the library cannot tell.
  void MakeMatrix(ves::MatrixHandle& slot, int type, int kind) {
    constexpr VesShellMatVec products[] = {&Product<double>, &Product<float>,
                                           &Product<std::complex<double>>,
                                           &Product<std::complex<float>>};
    VesMatrix const made = Make(VesMatrixCreate, type, kind);
    if (made == nullptr) return;
    slot.reset(made);
    VES_JUDGE(VesMatrixSetShellMatVec(made, this, OneIn(16) ? nullptr : products[type]), false,
              none, good);
    Require(VesMatrixGetShellUserData(made) == this, "other user data than were set");
  }
  void CreateMatrix() {
    MakeMatrix(Any(m_matrices), AnyType(), OneIn(8) ? AnyCode() : VES_MATRIX_SHELL);
  }

  void Replace(Block& slot, VesVector made, int type) {
    slot = Block();
    slot.handle.reset(made);
    slot.type = type;
  }
  void CreateVector() {
    const int type = AnyType();
    VesVector const made = Make(VesVectorCreate, type, OneIn(8) ? AnyCode() : VES_VECTOR_DENSE);
    if (made != nullptr) Replace(Any(m_vectors), made, type);
  }

  void CreateSolver() {
    VesSolver const made = Make(VesSolverCreate, AnyType(), OneIn(4) ? AnyCode() : Below(3));
    if (made != nullptr) Any(m_solvers).reset(made);
  }

  void Destroy() {
    switch (Below(3)) {
    case 0:
      return Any(m_matrices).reset();
    case 1:
      return Replace(Any(m_vectors), nullptr, VES_DOUBLE);
    default:
      return Any(m_solvers).reset();
    }
  }

  void SetMatrix() {
    VesMatrix const matrix = AnyMatrix();
    const int nRows = AnyInt(), nCols = AnyInt();
    VES_JUDGE(VesMatrixSetCalledEverywhere(matrix, OneIn(2)), matrix == nullptr, none, good);
    VES_JUDGE(VesMatrixSetDim(matrix, nRows, nCols), matrix == nullptr, none, bad, good);
  }

  /// Now and then with a fault; values are what is in a block.
  void SetRows() {
    VesMatrix const matrix = AnyMatrix();
    const int nRows = OneIn(16) ? -1 : Below(13);
    std::vector<long long> starts{OneIn(32) ? 1 : 0}, columns;
    for (int i = 0; i < nRows; ++i) {
      for (int left = Below(4); left > 0; --left)
        columns.push_back(OneIn(32) ? nRows : Below(nRows));
      starts.push_back(static_cast<long long>(columns.size()) - (OneIn(64) ? 1 : 0));
    }
    VES_JUDGE(VesMatrixSetRows(matrix, AnyComm(), nRows, OneIn(32) ? nullptr : starts.data(),
                               columns.data(), OneIn(32) ? nullptr : m_vectors[0].own.data()),
              matrix == nullptr, none, none, bad, unsupported, good);
  }

  void Multiply() {
    VesMatrix const matrix = AnyMatrix();
    const Block &x = AnyVector(0), &y = AnyVector(2);
    if (!x.Fits() || !y.Fits()) return;
    m_operator = Below(7);
    VES_JUDGE(VesMatrixMultiply(matrix, x.get(), y.get()),
              matrix == nullptr || x.get() == nullptr || y.get() == nullptr, none, none, mismatch,
              bad, good);
  }

  void SetDim(Block& v, int nRows, int nCols) {
    const bool isMissing = v.get() == nullptr;
    if (VES_JUDGE(VesVectorSetDim(v.get(), nRows, nCols), isMissing, none, bad, good) != good)
      return;
    v.nRows = nRows;
    v.nCols = nCols;
  }
  void SetDim() {
    const int nRows = AnyInt();
    SetDim(AnyVector(), nRows, AnyInt());
  }

  void SetValues(Block& v, int ld) {
    void* const values = OneIn(32) ? nullptr : v.own.data();
    const VesReturnCode code =
        VES_JUDGE(VesVectorDenseSetValues(v.get(), values, ld),
                  v.get() == nullptr || values == nullptr, none, bad, incompatible, good);
    if (code != good) return;
    v.ld = ld;
    v.hasStorage = true;
    Require(VesVectorDenseGetValues(v.get()) == values, "values in another place");
  }
  void SetValues() { SetValues(AnyVector(), AnyInt()); }

  void SetComm() {
    const Block& v = AnyVector();
    const MPI_Comm comm = AnyComm();
    const int slot = Below(5) - 1;
    VES_JUDGE(OneIn(2) ? VesVectorSetComm_f(v.get(), slot, MPI_Comm_c2f(comm))
                       : VesVectorSetComm(v.get(), slot, comm),
              v.get() == nullptr, none, bad, unsupported, good);
  }

  // ---------------------------------------------------------------- pairs

  void Norm() {
    const Block &x = AnyVector(0), &norms = AnyVector(1);
    if (!x.Fits() || !norms.Fits()) return;
    VES_JUDGE(VesVectorNorm(x.get(), norms.get()), x.get() == nullptr || norms.get() == nullptr,
              none, incompatible, unsupported, none, bad, mismatch, good);
  }

  void Residual() {
    VesMatrix const A = AnyMatrix(), B = MaybeMatrix();
    const Block &x = AnyVector(0), &d = AnyVector(1), &r = AnyVector(2);
    if (!x.Fits() || !d.Fits() || !r.Fits()) return;
    m_operator = Below(7);
    const bool isMissing =
        A == nullptr || x.get() == nullptr || d.get() == nullptr || r.get() == nullptr;
    VES_JUDGE(VesEigResidual(A, B, x.get(), d.get(), r.get()), isMissing, bad, incompatible,
              mismatch, none, bad, good);
  }

  void CheckPairs() {
    VesMatrix const A = AnyMatrix(), B = MaybeMatrix();
    const Block &x = AnyVector(0), &d = AnyVector(1);
    if (!x.Fits() || !d.Fits()) return;
    double residual = -1.0, orthoError = -1.0;
    const VesReturnCode code =
        VES_JUDGE(VesCheckEigenpairs(A, B, x.get(), d.get(), OneIn(16) ? nullptr : &residual,
                                     OneIn(16) ? nullptr : &orthoError),
                  A == nullptr || x.get() == nullptr || d.get() == nullptr, bad, none, mismatch,
                  none, bad, incompatible, good);
    for (const double error : {residual, orthoError})
      Require(code == good ? !(error < 0) : error == -1.0, "what a check found, and its code");
  }

  // ---------------------------------------------------------------- solvers

  void Set() {
    const Setter& setter = Any(Setters());
    VesSolver const solver = AnySolver();
    const double value = setter.isReal ? AnyDouble() : OneIn(2) ? AnyInt() : AnyCode();
    Codes codes{none, setter.refusal, good};
    if (setter.owner) codes.push_back(incompatible);
    Judge(setter.name, setter.call(solver, value), solver == nullptr, codes);
  }

  void SetMonitor() {
    VesSolver const solver = AnySolver();
    VES_JUDGE(VesSolverSetMonitor(solver, OneIn(2) ? &Monitor : nullptr, this), solver == nullptr,
              none, good);
  }

  struct Outcome {
    int iter = -1, nConv = -1;
    VesSolverReason reason = VES_REASON_NONE;
    VesSolverStats stats{};
  };

  Outcome Read(VesSolver solver) {
    Outcome o;
    const bool isMissing = solver == nullptr;
    VES_JUDGE(VesGetSolverIter(solver, &o.iter), isMissing, none, good);
    VES_JUDGE(VesGetSolverConv(solver, &o.nConv), isMissing, none, good);
    VES_JUDGE(VesGetSolverReason(solver, &o.reason), isMissing, none, good);
    VES_JUDGE(VesGetSolverStats(solver, &o.stats), isMissing, none, good);
    return o;
  }

  void Run() {
    VesSolver const solver = AnySolver();
    VesMatrix const A = AnyMatrix(), B = MaybeMatrix(), T = MaybeMatrix();
    const Block &x = AnyVector(0), &d = AnyVector(1);
    const bool isRefused = x.nCols > 32765; // by every solver
    if (!(x.Fits() && d.Fits()) && !isRefused) return;
    // Limits that a test can wait for.
    const int maxIter = 1 + Below(12);
    const bool isMissing = solver == nullptr;
    VES_JUDGE(VesSolverSetMaxIter(solver, maxIter), isMissing, none, good);
    VES_JUDGE(VesSolverSetMaxOrthoIter(solver, 1 + Below(3)), isMissing, none, good);
    VES_JUDGE(VesSolverSetInnerSteps(solver, Below(5) - 1), isMissing, none, good);
    const int wanted = Below(4);
    VES_JUDGE(VesSolverSetWanted(solver, wanted), isMissing, none, good);
    const Block& y = AnyVector(2);
    VesVector const space = y.Fits() && OneIn(3) ? y.get() : nullptr;
    VES_JUDGE(VesSolverSetDeflation(solver, space), isMissing, none, mismatch, unsupported, good);
    m_operator = Below(7);
    m_wanted = x.nCols;
    const Outcome before = Read(solver);
    const Storage ownX = x.own, ownD = d.own;
    const VesReturnCode code =
        VES_JUDGE(VesRunSolver(solver, A, B, T, x.get(), d.get()),
                  isMissing || A == nullptr || x.get() == nullptr || d.get() == nullptr, bad,
                  mismatch, unsupported, none, bad, good);
    const Outcome after = Read(solver);
    VES_JUDGE(VesSolverSetDeflation(solver, nullptr), isMissing, none, good);
    if (code == good) {
      ++runs;
      ExpectSane(after, x, d, maxIter, wanted);
      return;
    }
    ++refusedRuns;
    Require(IsSame(ownX, x.own) && IsSame(ownD, d.own) && before.iter == after.iter &&
                before.nConv == after.nConv && before.reason == after.reason,
            "a refused run has changed something");
  }

  static bool IsSame(const Storage& a, const Storage& b) {
    return std::memcmp(a.data(), b.data(), a.size() * sizeof(a[0])) == 0;
  }

  void ExpectSane(const Outcome& o, const Block& x, const Block& d, int maxIter, int wanted) {
    Require(o.nConv >= 0 && o.nConv <= x.nCols, "more pairs converged than were wanted");
    const int goal = wanted > 0 ? std::min(wanted, x.nCols) : x.nCols;
    // The pass that lets the rest of a guess into a batch comes on top.
    Require(o.iter >= 0 && o.iter <= maxIter + 1, "more iterations than allowed");
    Require(o.reason != VES_REASON_NONE && (o.reason == VES_REASON_CONVERGED) == (o.nConv >= goal),
            "a reason that does not fit the count");
    const bool isEmpty = x.nCols == 0; // and then made without a word
    Require(o.stats.columnsA >= 0 && o.stats.columnsB >= 0 && o.stats.columnsT >= 0 &&
                (o.stats.reductions > 0) != isEmpty && (o.stats.bytesReduced > 0) != isEmpty,
            "impossible costs");
    const auto* const values = static_cast<const double*>(VesVectorDenseGetValues(d.get()));
    if (&x == &d || (d.type != VES_DOUBLE && d.type != VES_COMPLEX_DOUBLE)) return;
    for (int j = 0; j < d.nRows; ++j)
      Require(!std::isnan(values[d.type == VES_DOUBLE ? j : 2 * j]), "a value that is no number");
  }

  /// A problem whose parts belong together, in the first slots; later calls spoil it.
  void Prepare() {
    m_type = Below(4);
    for (const std::size_t i : {0U, 1U})
      MakeMatrix(m_matrices[i], m_type, VES_MATRIX_SHELL);
    if (VesSolver const made = Make(VesSolverCreate, m_type, Below(3))) m_solvers[0].reset(made);
    const int nRows = Below(13), nCols = Below(7);
    for (const std::size_t i : {0U, 1U, 2U}) {
      VesVector const made = Make(VesVectorCreate, m_type, VES_VECTOR_DENSE);
      if (made != nullptr) Replace(m_vectors[i], made, m_type);
      SetDim(m_vectors[i], i == 1 ? nCols : nRows, i == 1 ? 1 : nCols);
      SetValues(m_vectors[i], 1 + (i == 1 ? nCols : nRows + Below(3)));
    }
    FillGuess(m_vectors[0]);
  }

  void FillGuess(Block& v) {
    const int seed = Byte();
    const auto fill = [&](auto* numbers) {
      using Real = std::remove_pointer_t<decltype(numbers)>;
      for (std::size_t i = 0; i < v.own.size() * sizeof(v.own[0]) / sizeof(Real); ++i)
        numbers[i] = static_cast<Real>(std::sin(static_cast<double>(i + 1) * seed));
    };
    if (v.type == VES_DOUBLE || v.type == VES_COMPLEX_DOUBLE)
      fill(reinterpret_cast<double*>(v.own.data()));
    else
      fill(reinterpret_cast<float*>(v.own.data()));
  }
  int m_type = VES_DOUBLE; ///< of most new handles
  int m_operator = 0;      ///< what the routines do in the call at hand
  int m_wanted = 0;        ///< pairs of the run at hand
  std::array<ves::MatrixHandle, 4> m_matrices;
  std::array<ves::SolverHandle, 3> m_solvers;
  std::array<Block, 6> m_vectors;
  Block m_nothing;
};

} // namespace VesTest

#endif
