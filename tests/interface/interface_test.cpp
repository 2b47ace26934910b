// The flat interface: every return code that a caller can cause, in the order of the checks, and
// what a refused call leaves as it was. Runs are in run_solver_test.cpp.
#include "data/matrix_shell.h"
#include "data/vector_dense.h"
#include "eigensolver/scalapack_diag.h"
#include "interface/setters.h"
#include "interface/solver_base.h"
#include "support/correctness.h"

#include <array>
#include <limits>

using namespace VesTest;

namespace {

constexpr auto noScalar = static_cast<VesScalarType>(4);

/// All create functions refuse alike: no place to write, then the scalar type (which clears the
/// handle), then the kind (which leaves it).
template <typename Handle, typename Kind>
void ExpectCreateCodes(VesReturnCode (*create)(Handle*, VesScalarType, Kind) noexcept, Kind known,
                       Kind unknown, void (*destroy)(Handle) noexcept) {
  Handle const untouched = reinterpret_cast<Handle>(&create);
  EXPECT_EQ(create(nullptr, noScalar, unknown), VES_ERR_NULL_POINTER);
  for (const VesScalarType wrong : {noScalar, static_cast<VesScalarType>(-1)}) {
    Handle handle = untouched;
    EXPECT_EQ(create(&handle, wrong, unknown), VES_ERR_MISMATCH);
    EXPECT_EQ(handle, nullptr);
  }
  for (const auto scalarType : {VES_DOUBLE, VES_FLOAT, VES_COMPLEX_DOUBLE, VES_COMPLEX_FLOAT}) {
    Handle handle = untouched;
    EXPECT_EQ(create(&handle, scalarType, unknown), VES_ERR_UNSUPPORTED);
    EXPECT_EQ(handle, untouched);
    EXPECT_EQ(create(&handle, scalarType, known), VES_GOOD);
    EXPECT_EQ(handle->scalarType, scalarType);
    destroy(handle);
  }
  destroy(nullptr);
}

TEST(Codes, Creation) {
  ExpectCreateCodes(VesMatrixCreate, VES_MATRIX_SHELL, VES_MATRIX_EMPTY, VesMatrixDestroy);
  ExpectCreateCodes(VesVectorCreate, VES_VECTOR_DENSE, static_cast<VesVectorType>(0),
                    VesVectorDestroy);
  ExpectCreateCodes(VesSolverCreate, VES_LOBPCG, static_cast<VesSolverType>(3), VesSolverDestroy);
}

void NoProduct(void*, void*, void*, int, int, int) {}

TEST(Codes, Matrices) {
  int data = 0;
  const MatrixHandle owner = ves::makeMatrix<float>(NoProduct, &data);
  VesMatrix const matrix = owner.get();
  EXPECT_EQ(VesMatrixSetDim(matrix, 4, 3), VES_GOOD);
  EXPECT_EQ(VesMatrixSetDim(matrix, 5, -1), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(VesMatrixSetDim(matrix, -1, 5), VES_ERR_INVALID_VALUE);
  EXPECT_TRUE(matrix->nRows == 4 && matrix->nCols == 3);

  EXPECT_EQ(VesMatrixGetShellUserData(matrix), &data);
  EXPECT_EQ(VesMatrixGetShellUserData(nullptr), nullptr);
  VesMatrixEmpty empty;
  EXPECT_EQ(VesMatrixGetShellUserData(&empty), nullptr);
  EXPECT_EQ(VesMatrixSetCalledEverywhere(&empty, true), VES_ERR_INCOMPATIBLE);
  EXPECT_EQ(VesMatrixSetShellPair(matrix, nullptr, &data, nullptr), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesMatrixSetShellPair(matrix, &empty, &data, nullptr), VES_ERR_INCOMPATIBLE);
  EXPECT_EQ(VesMatrixSetShellPair(matrix, matrix, &data, nullptr), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(VesMatrixSetShellMatVec(nullptr, &data, NoProduct), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesMatrixSetShellMatVec(&empty, &data, NoProduct), VES_ERR_INCOMPATIBLE);
  matrix->scalarType = noScalar;
  EXPECT_EQ(VesMatrixSetShellMatVec(matrix, &data, NoProduct), VES_ERR_UNSUPPORTED);
  EXPECT_EQ(VesMatrixGetShellUserData(matrix), nullptr);
}

TEST(Codes, Vectors) {
  VesVector vector = nullptr;
  ASSERT_EQ(VesVectorCreate(&vector, VES_DOUBLE, VES_VECTOR_DENSE), VES_GOOD);
  const VectorHandle owner(vector);
  EXPECT_TRUE(vector->comm == MPI_COMM_WORLD && vector->auxComm == MPI_COMM_SELF);
  const auto setByFortran = [](VesVector v, int slot, MPI_Comm comm) {
    return VesVectorSetComm_f(v, slot, MPI_Comm_c2f(comm));
  };
  using SetComm = std::function<VesReturnCode(VesVector, int, MPI_Comm)>;
  for (const SetComm& set : {SetComm(VesVectorSetComm), SetComm(setByFortran)}) {
    EXPECT_EQ(set(nullptr, 2, MPI_COMM_NULL), VES_ERR_NULL_POINTER);
    EXPECT_EQ(set(vector, 2, MPI_COMM_NULL), VES_ERR_INVALID_VALUE);
    EXPECT_EQ(set(vector, 2, MPI_COMM_SELF), VES_ERR_UNSUPPORTED);
    for (const MPI_Comm other : {MPI_COMM_SELF, MPI_COMM_WORLD}) {
      EXPECT_EQ(set(vector, 0, other), VES_GOOD);
      EXPECT_EQ(set(vector, 1, other), VES_GOOD);
      EXPECT_TRUE(vector->comm == other && vector->auxComm == other);
    }
  }

  EXPECT_EQ(VesVectorSetDim(vector, 3, 0), VES_GOOD);
  EXPECT_EQ(VesVectorSetDim(vector, -1, 5), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(VesVectorSetDim(vector, 5, -1), VES_ERR_INVALID_VALUE);
  EXPECT_TRUE(vector->nRows == 3 && vector->nCols == 0);

  double values[8] = {};
  EXPECT_EQ(VesVectorDenseSetValues(nullptr, values, 0), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesVectorDenseSetValues(vector, nullptr, 0), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesVectorDenseSetValues(vector, values, 0), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(VesVectorDenseGetValues(vector), nullptr);
  EXPECT_EQ(VesVectorDenseSetValues(vector, values, 4), VES_GOOD);
  EXPECT_EQ(VesVectorDenseGetValues(vector), values);
  EXPECT_EQ(VesVectorDenseGetValues(nullptr), nullptr);
  vector->scalarType = noScalar;
  EXPECT_EQ(VesVectorDenseSetValues(vector, values, 4), VES_ERR_UNSUPPORTED);
  EXPECT_EQ(VesVectorDenseGetValues(vector), nullptr);
  vector->storageType = static_cast<VesVectorType>(0);
  EXPECT_EQ(VesVectorDenseSetValues(vector, values, 4), VES_ERR_INCOMPATIBLE);
}

TEST(Vectors, Replicate) {
  double values[] = {1, 2, 777, 3, 4, 777};
  const VectorHandle src = MakeVector(MPI_COMM_SELF, 2, 2, values, 3);
  VesVector made = nullptr;
  const auto replicate = [&](const VectorHandle& from, bool allocate, bool copy) {
    VesVectorDestroy(made);
    made = nullptr;
    return VesVectorReplicate(from.get(), &made, allocate, copy);
  };
  EXPECT_EQ(replicate(nullptr, true, true), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesVectorReplicate(src.get(), nullptr, true, true), VES_ERR_NULL_POINTER);

  EXPECT_EQ(replicate(src, false, true), VES_GOOD);
  EXPECT_EQ(VesVectorDenseGetValues(made), nullptr);
  EXPECT_EQ(made->comm, MPI_COMM_SELF);

  EXPECT_EQ(replicate(src, true, true), VES_GOOD);
  const auto* copy = static_cast<double*>(VesVectorDenseGetValues(made));
  EXPECT_NE(copy, values);
  EXPECT_EQ((std::array<double, 4>{copy[0], copy[1], copy[3], copy[4]}),
            (std::array<double, 4>{1, 2, 3, 4}));
  // Storage of the caller in the place of its own: the old is released, the new never.
  EXPECT_EQ(VesVectorDenseSetValues(made, values, 3), VES_GOOD);

  // A shape that never got storage has the leading dimension 1, which its replica must not keep.
  const VectorHandle bare = MakeVector<double>(MPI_COMM_SELF, 50, 4, nullptr, 1);
  EXPECT_EQ(replicate(bare, true, true), VES_ERR_NULL_POINTER);
  EXPECT_EQ(replicate(bare, true, false), VES_GOOD);
  EXPECT_EQ(Ves::AsDense<double>(*made).ld, 50);

  constexpr int most = std::numeric_limits<int>::max(); // no address space has the square
  EXPECT_EQ(VesVectorSetDim(src.get(), most, most), VES_GOOD);
  EXPECT_EQ(replicate(src, true, false), VES_ERR_INVALID_VALUE);
  VesVectorDestroy(made);
}

/// Two columns of two rows on each process, their values, operators, and what does not fit to them.
class ColumnsTest : public testing::Test {
protected:
  using Row = SparseOperator<double>::Row;

  template <typename Scalar>
  static VectorHandle Make(int nRows, int nCols, Scalar* values, int ld) {
    return MakeVector(MPI_COMM_WORLD, nRows, nCols, values, ld);
  }

  static constexpr double* noValues = nullptr;
  const int rank = RankIn(MPI_COMM_WORLD), p = SizeOf(MPI_COMM_WORLD);
  std::vector<double> x{3, 4, 1, 1}, r = std::vector<double>(4), d{2, 1};
  const VectorHandle X = Make(2, 2, x.data(), 2), R = Make(2, 2, r.data(), 2),
                     D = Make(2, 1, d.data(), 2), none;
  const VectorHandle bare = Make(2, 2, noValues, 2), flat = Make(2, 1, d.data(), 1),
                     floats = Make<float>(2, 1, nullptr, 1), floatR = Make<float>(2, 2, nullptr, 1);
  const Rows rows{2 * p, MPI_COMM_WORLD};
  SparseOperator<double> opA{rows,
                             [](int i) {
                               return Row{{i, 1.0 + i}};
                             }},
      opB{rows, [](int i) {
            return Row{{i, 3.0}};
          }};
  const MatrixHandle A = MakeMatrix(&opA), B = MakeMatrix(&opB), noB,
                     idle = ves::makeMatrix<double>(nullptr, nullptr);
};

TEST_F(ColumnsTest, Norms) {
  // Shapes are judged first, then types, then what is missing.
  const struct {
    const VectorHandle &x, &norms;
    VesReturnCode code;
  } refused[] = {
      {none, D, VES_ERR_NULL_POINTER},
      {X, none, VES_ERR_NULL_POINTER},
      {bare, floatR, VES_ERR_INCOMPATIBLE},
      {X, X, VES_ERR_INCOMPATIBLE},
      {bare, floats, VES_ERR_UNSUPPORTED},
      {bare, flat, VES_ERR_NULL_POINTER},
      {X, flat, VES_ERR_INVALID_VALUE},
      {rank == 0 ? bare : X, D, VES_ERR_NULL_POINTER}, // none may wait for the first
  };
  for (const auto& c : refused)
    EXPECT_EQ(VesVectorNorm(c.x.get(), c.norms.get()), c.code) << "row " << &c - refused;
  EXPECT_EQ(d, (std::vector<double>{2, 1}));
  EXPECT_EQ(VesVectorNorm(X.get(), D.get()), VES_GOOD);
  EXPECT_DOUBLE_EQ(d[0], 5 * std::sqrt(p));
  EXPECT_DOUBLE_EQ(d[1], std::sqrt(2.0 * p));
}

/// The processes of x are those that reduce, in whatever communicator the norms hold them.
TEST_F(ColumnsTest, NormsOnOtherCommunicators) {
  const VesReturnCode unlessAlone = p == 1 ? VES_GOOD : VES_ERR_MISMATCH;
  MPI_Comm twin = MPI_COMM_NULL;
  MPI_Comm_dup(MPI_COMM_WORLD, &twin);
  const struct {
    const char* what;
    MPI_Comm ofX, ofNorms;
    int k, ld;
    VesReturnCode code;
  } cases[] = {
      {"the same processes", MPI_COMM_WORLD, twin, 1, 2, VES_GOOD},
      {"others on each process", MPI_COMM_WORLD, rank == 0 ? twin : MPI_COMM_WORLD, 1, 2, VES_GOOD},
      {"processes that do not call", MPI_COMM_SELF, MPI_COMM_WORLD, 1, 2, unlessAlone},
      {"no columns, no storage", MPI_COMM_WORLD, MPI_COMM_WORLD, 0, 0, VES_GOOD},
      {"columns here only", MPI_COMM_WORLD, twin, rank == 0 ? 1 : 0, 2, unlessAlone},
      {"norms of another stride here", MPI_COMM_WORLD, twin, 1, rank == 0 ? 1 : 2, unlessAlone},
  };
  for (const auto& c : cases) {
    if (c.ofX == MPI_COMM_SELF && rank > 0) continue;
    double norms[] = {-1, -1};
    const VectorHandle few = MakeVector(c.ofX, 2, c.k, c.ld > 0 ? x.data() : nullptr, 2);
    const VectorHandle N = MakeVector(c.ofNorms, c.k, 1, c.ld > 0 ? norms : nullptr, c.ld);
    EXPECT_EQ(VesVectorNorm(few.get(), N.get()), c.code) << c.what;
    EXPECT_EQ(N->comm, c.ofNorms) << c.what;
    EXPECT_DOUBLE_EQ(norms[0], c.code == VES_GOOD && c.k > 0 ? 5 * std::sqrt(p) : -1) << c.what;
  }
  MPI_Comm_free(&twin);
}

TEST_F(ColumnsTest, Residuals) {
  const VectorHandle huge = Make(2, 2, x.data(), 1 << 30); // 2^31 entries
  const struct {
    const MatrixHandle &A, &B;
    const VectorHandle &X, &D, &R;
    VesReturnCode code;
  } refused[] = {
      {noB, B, X, D, R, VES_ERR_INVALID_VALUE},
      {A, B, none, D, R, VES_ERR_INVALID_VALUE},
      {A, B, X, none, R, VES_ERR_INVALID_VALUE},
      {A, B, X, D, none, VES_ERR_INVALID_VALUE},
      {idle, noB, X, D, floatR, VES_ERR_INCOMPATIBLE},
      {idle, noB, bare, X, R, VES_ERR_INCOMPATIBLE},
      {idle, noB, bare, floats, R, VES_ERR_MISMATCH},
      {A, B, bare, D, R, VES_ERR_NULL_POINTER},
      {idle, noB, X, D, R, VES_ERR_NULL_POINTER},
      {A, idle, X, D, R, VES_ERR_NULL_POINTER},
      {A, B, huge, D, R, VES_ERR_INVALID_VALUE},
  };
  for (const auto& c : refused)
    EXPECT_EQ(VesEigResidual(c.A.get(), c.B.get(), c.X.get(), c.D.get(), c.R.get()), c.code)
        << "row " << &c - refused;
  EXPECT_EQ(VesEigResidual(A.get(), nullptr, X.get(), D.get(), R.get()), VES_GOOD);
  EXPECT_DOUBLE_EQ(r[0], (1.0 + 2 * rank - 2) * 3);
  EXPECT_EQ(VesEigResidual(A.get(), B.get(), X.get(), D.get(), R.get()), VES_GOOD);
  EXPECT_DOUBLE_EQ(r[1], (2.0 + 2 * rank - 6) * 4);
  EXPECT_DOUBLE_EQ(r[3], (2.0 + 2 * rank - 3) * 1);
}

/// What is wrong on the last process alone all refuse, but for the first rows, which need no word.
TEST_F(ColumnsTest, CheckOfPairs) {
  const VectorHandle overlapping = Make(2, 2, x.data(), 1), one = Make(1, 1, d.data(), 1);
  double found[] = {-1, -1}, *const first = &found[0], *const second = &found[1];
  const struct {
    const MatrixHandle &A, &B;
    const VectorHandle &X, &D;
    double *residual, *orthoError;
    VesReturnCode code;
    bool isLocal = false;
  } refused[] = {
      {noB, B, X, D, nullptr, nullptr, VES_ERR_INVALID_VALUE, true},
      {A, B, none, D, nullptr, nullptr, VES_ERR_INVALID_VALUE, true},
      {A, B, X, none, nullptr, nullptr, VES_ERR_INVALID_VALUE, true},
      {A, B, X, floats, nullptr, second, VES_ERR_NULL_POINTER, true},
      {A, B, X, floats, first, nullptr, VES_ERR_NULL_POINTER, true},
      {idle, idle, bare, floats, first, second, VES_ERR_MISMATCH},
      {idle, noB, overlapping, D, first, second, VES_ERR_NULL_POINTER},
      {A, idle, overlapping, D, first, second, VES_ERR_NULL_POINTER},
      {A, B, bare, one, first, second, VES_ERR_NULL_POINTER},
      {A, B, overlapping, one, first, second, VES_ERR_INVALID_VALUE},
      {A, B, X, flat, first, second, VES_ERR_INVALID_VALUE},
      {A, B, X, one, first, second, VES_ERR_INCOMPATIBLE},
  };
  for (const auto& c : refused) {
    const bool isHere = c.isLocal || rank == p - 1;
    EXPECT_EQ(VesCheckEigenpairs((isHere ? c.A : A).get(), (isHere ? c.B : B).get(),
                                 (isHere ? c.X : X).get(), (isHere ? c.D : D).get(), c.residual,
                                 c.orthoError),
              c.code)
        << "row " << &c - refused;
  }
  EXPECT_TRUE(found[0] == -1 && found[1] == -1);
}

/// All that setters change, with the components that they replace.
auto SettingsOf(const VesSolverBase& s) {
  return std::make_tuple(
      s.threshold, s.mu, s.OwnSettings(), s.ConvergeDetector.get(), s.Orthogonalizer.get(),
      s.DenseEigenSolver.get(),
      std::vector<int>{s.problemType, s.maxIter, s.maxOrthoIter, s.maxOrthoInnerIter, s.selfCheck,
                       s.mixedPrecision, s.wantedPairs, s.innerSteps, s.threads,
                       s.denseEigenSolverType, s.convergeDetectorType, s.orthogonalizerType,
                       s.chosenLockDetector.has_value(), s.chosenRankRevealer.has_value()});
}

TEST(Solvers, Setters) {
  for (const Setter& set : Setters())
    for (const VesSolverType type : allSolvers) {
      SCOPED_TRACE(testing::Message() << set.name << ", solver " << type);
      const SolverHandle solver = ves::makeSolver<std::complex<double>>(type);
      const auto before = SettingsOf(*solver);
      const bool isForeign = set.owner.value_or(type) != type;
      EXPECT_EQ(set.call(nullptr, set.wrong.empty() ? 0 : set.wrong[0]), VES_ERR_NULL_POINTER);
      for (const double wrong : set.wrong)
        EXPECT_EQ(set.call(solver.get(), wrong), isForeign ? VES_ERR_INCOMPATIBLE : set.refusal);
      EXPECT_TRUE(SettingsOf(*solver) == before);
      for (const double right : set.taken)
        EXPECT_EQ(set.call(solver.get(), right), isForeign ? VES_ERR_INCOMPATIBLE : VES_GOOD);
      EXPECT_EQ(SettingsOf(*solver) != before, !isForeign);
    }
}

TEST(Solvers, DefaultsAndWhatOnlyOneSetterDoes) {
  const SolverHandle owner = ves::makeSolver<std::complex<float>>(VES_LOBPCG);
  VesSolver const solver = owner.get();
  EXPECT_TRUE(solver->threshold == 1e-6 && solver->maxIter == 100 && solver->mu == 0.01);
  EXPECT_EQ(solver->denseEigenSolverType, VES_SCALAPACK_DIAG);
  EXPECT_EQ(solver->LockDetector, nullptr);
  EXPECT_TRUE(solver->needResidualNorms);
  EXPECT_EQ(VesSetConvergeDetectorType(solver, VES_EIGENVALUES), VES_GOOD);
  EXPECT_EQ(solver->ConvergeDetector->detectorType, VES_EIGENVALUES);
  EXPECT_TRUE(solver->needResidualNorms); // set once, never cleared
  EXPECT_EQ(VesSolverSetMaxOrthoIter(solver, 3), VES_GOOD);
  EXPECT_EQ(solver->maxOrthoInnerIter, 3);
  EXPECT_EQ(VesSolverSetThreshold(solver, std::nan("")), VES_GOOD);
  EXPECT_EQ(VesSetOrthoProjectorType(solver, static_cast<VesOrthoProjectorType>(1)),
            VES_ERR_UNSUPPORTED);
  EXPECT_NE(solver->OrthoProjector, nullptr);
}

TEST(Solvers, NothingToWriteTo) {
  const SolverHandle solver = ves::makeSolver<double>(VES_LOBPCG);
  std::size_t bytes = 5;
  EXPECT_EQ(VesGetSolverIter(solver.get(), nullptr), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesGetSolverConv(solver.get(), nullptr), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesGetSolverReason(solver.get(), nullptr), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesGetSolverStats(solver.get(), nullptr), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesSolverMemory(solver.get(), -1, -1, false, nullptr), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesSolverMemory(solver.get(), -1, 1, false, &bytes), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(VesSolverMemory(solver.get(), 1, -1, false, &bytes), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(bytes, 5U);
}

/// Destroyed after MPI_Finalize, handles must not touch MPI, although the solver holds a process
/// grid and a duplicate of the communicator.
TEST(Handles, OutliveMpi) {
  static const SolverHandle solver = MakeSolver<double>({}, false);
  static const VectorHandle vector = MakeVector<double>(MPI_COMM_WORLD, 2, 2, nullptr, 1);
  static const MatrixHandle matrix = ves::makeMatrix<double>(NoProduct, nullptr);
  const Rows rows(20, MPI_COMM_WORLD);
  SparseOperator<double> A(rows, [](int i) { return SparseOperator<double>::Row{{i, 1.0 + i}}; });
  auto& evd = dynamic_cast<Ves::ScaLapackDiag<double>&>(*solver->DenseEigenSolver);
  evd.threshold = 2;
  Pairs<double> p(rows, 3);
  p.FillRandom();
  p.Run(solver.get(), &A);
  EXPECT_EQ(p.nConv, 3);
  EXPECT_TRUE(evd.blacs->gridReady);
}

/// The message of an assertion: expression, source from src/, line and full signature; the call
/// is evaluated once, in every build type.
TEST(AssertionDeathTest, SaysWhatFailedWhere) {
  const auto applyToNothing = [] {
    Ves::MatrixShell<double> A;
    A.SetShellMatVec(NoProduct);
    const VesMatrixEmpty B;
    Ves::VectorDense<double> X(MPI_COMM_SELF, MPI_COMM_SELF, 2, 1, 2);
    Ves::VectorDense<double> R(MPI_COMM_SELF, MPI_COMM_SELF, 2, 1, 2), D;
    D.SetDims(1, 1, 1);
    R.EigResidual(A, B, X, D); // X has no storage
  };
  EXPECT_DEATH(applyToNothing(), "\\(matA\\.Apply\\(vecX, vecAX\\)\\) == VES_GOOD failed in "
                                 "src/data/vector_dense.*\\.cpp:[0-9]+, .*EigResidual\\(.*double");
  int calls = 0;
  VES_ASSERT_GOOD((++calls, VES_GOOD));
  EXPECT_EQ(calls, 1);
}

} // namespace
