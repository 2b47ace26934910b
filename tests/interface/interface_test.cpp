// The flat interface: every return code that a caller can cause, in the order of the checks, and
// what a refused call leaves as it was. Runs are in run_solver_test.cpp.
#include "data/matrix_shell.h"
#include "data/vector_dense.h"
#include "interface/solver_base.h"
#include "support/correctness.h"

#include <array>
#include <limits>

using namespace VesTest;

namespace {

constexpr auto noScalar = static_cast<VesScalarType>(4);
constexpr auto negativeScalar = static_cast<VesScalarType>(-1);
constexpr VesScalarType scalarTypes[] = {VES_DOUBLE, VES_FLOAT, VES_COMPLEX_DOUBLE,
                                         VES_COMPLEX_FLOAT};

TEST(Codes, NumbersAreFixed) {
  EXPECT_EQ((std::array<int, 7>{VES_GOOD, VES_ERR_INVALID_VALUE, VES_ERR_OUT_OF_RANGE,
                                VES_ERR_UNSUPPORTED, VES_ERR_MISMATCH, VES_ERR_INCOMPATIBLE,
                                VES_ERR_NULL_POINTER}),
            (std::array<int, 7>{0, -1, -2, -4, -5, -6, -7}));
  EXPECT_EQ((std::array<int, 4>{VES_DOUBLE, VES_FLOAT, VES_COMPLEX_DOUBLE, VES_COMPLEX_FLOAT}),
            (std::array<int, 4>{0, 1, 2, 3}));
  EXPECT_EQ((std::array<int, 5>{VES_MATRIX_SHELL, VES_VECTOR_DENSE, VES_PPCG, VES_SVD_QR,
                                VES_RESIDUALS_OR_EIGENVALUES}),
            (std::array<int, 5>{1, 1, 2, 1, 3}));
}

/// All create functions refuse alike: no place to write, then the scalar type (which clears the
/// handle), then the kind (which leaves it).
template <typename Handle, typename Kind>
void ExpectCreateCodes(VesReturnCode (*create)(Handle*, VesScalarType, Kind) noexcept, Kind known,
                       Kind unknown, void (*destroy)(Handle) noexcept) {
  Handle const untouched = reinterpret_cast<Handle>(&create);
  EXPECT_EQ(create(nullptr, noScalar, unknown), VES_ERR_NULL_POINTER);
  for (const VesScalarType wrong : {noScalar, negativeScalar})
    for (const Kind kind : {known, unknown}) {
      Handle handle = untouched;
      EXPECT_EQ(create(&handle, wrong, kind), VES_ERR_MISMATCH);
      EXPECT_EQ(handle, nullptr);
    }
  for (const VesScalarType scalarType : scalarTypes) {
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
  VesMatrix matrix = nullptr;
  ASSERT_EQ(VesMatrixCreate(&matrix, VES_FLOAT, VES_MATRIX_SHELL), VES_GOOD);
  const MatrixHandle owner(matrix);
  EXPECT_EQ(matrix->nRows, 0);
  EXPECT_EQ(VesMatrixGetShellUserData(matrix), nullptr);
  EXPECT_EQ(VesMatrixSetDim(nullptr, -1, 1), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesMatrixSetDim(matrix, 4, 3), VES_GOOD);
  EXPECT_EQ(VesMatrixSetDim(matrix, 5, -1), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(VesMatrixSetDim(matrix, -1, 5), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(matrix->nRows, 4);
  EXPECT_EQ(matrix->nCols, 3);

  int data = 0;
  EXPECT_EQ(VesMatrixSetShellMatVec(nullptr, &data, NoProduct), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesMatrixSetShellMatVec(matrix, &data, NoProduct), VES_GOOD);
  EXPECT_EQ(VesMatrixGetShellUserData(matrix), &data);
  EXPECT_EQ(VesMatrixGetShellUserData(nullptr), nullptr);
  EXPECT_EQ(VesMatrixSetCalledEverywhere(nullptr, true), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesMatrixSetCalledEverywhere(matrix, true), VES_GOOD);
  VesMatrixEmpty empty;
  EXPECT_EQ(VesMatrixSetCalledEverywhere(&empty, true), VES_ERR_INCOMPATIBLE);
  EXPECT_EQ(VesMatrixSetShellMatVec(&empty, &data, NoProduct), VES_ERR_INCOMPATIBLE);
  EXPECT_EQ(VesMatrixGetShellUserData(&empty), nullptr);
  matrix->scalarType = noScalar;
  EXPECT_EQ(VesMatrixSetShellMatVec(matrix, &data, NoProduct), VES_ERR_UNSUPPORTED);
  EXPECT_EQ(VesMatrixGetShellUserData(matrix), nullptr);
}

TEST(Codes, Vectors) {
  VesVector vector = nullptr;
  ASSERT_EQ(VesVectorCreate(&vector, VES_DOUBLE, VES_VECTOR_DENSE), VES_GOOD);
  const VectorHandle owner(vector);
  EXPECT_EQ(vector->comm, MPI_COMM_WORLD);
  EXPECT_EQ(vector->auxComm, MPI_COMM_SELF);
  EXPECT_EQ(VesVectorSetComm(nullptr, 2, MPI_COMM_NULL), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesVectorSetComm(vector, 2, MPI_COMM_NULL), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(VesVectorSetComm(vector, 2, MPI_COMM_SELF), VES_ERR_UNSUPPORTED);
  EXPECT_EQ(VesVectorSetComm(vector, 1, MPI_COMM_WORLD), VES_GOOD);
  EXPECT_EQ(vector->auxComm, MPI_COMM_WORLD);

  EXPECT_EQ(VesVectorSetDim(nullptr, -1, 0), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesVectorSetDim(vector, 0, 0), VES_GOOD);
  EXPECT_EQ(VesVectorSetDim(vector, 3, 2), VES_GOOD);
  EXPECT_EQ(VesVectorSetDim(vector, -1, 5), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(vector->nRows, 3);

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
  EXPECT_EQ(VesVectorReplicate(nullptr, &made, true, true), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesVectorReplicate(src.get(), nullptr, true, true), VES_ERR_NULL_POINTER);

  EXPECT_EQ(VesVectorReplicate(src.get(), &made, false, true), VES_GOOD);
  EXPECT_EQ(VesVectorDenseGetValues(made), nullptr);
  EXPECT_EQ(made->comm, MPI_COMM_SELF);
  VesVectorDestroy(made);

  EXPECT_EQ(VesVectorReplicate(src.get(), &made, true, true), VES_GOOD);
  const auto* copy = static_cast<double*>(VesVectorDenseGetValues(made));
  EXPECT_NE(copy, values);
  EXPECT_EQ((std::array<double, 4>{copy[0], copy[1], copy[3], copy[4]}),
            (std::array<double, 4>{1, 2, 3, 4}));
  // Storage of the caller in the place of its own: the old is released, the new never.
  EXPECT_EQ(VesVectorDenseSetValues(made, values, 3), VES_GOOD);
  VesVectorDestroy(made);

  // A shape that never got storage has the leading dimension 1, which its replica must not keep.
  const VectorHandle bare = MakeVector<double>(MPI_COMM_SELF, 50, 4, nullptr, 1);
  EXPECT_EQ(VesVectorReplicate(bare.get(), &made, true, true), VES_ERR_NULL_POINTER);
  VesVectorDestroy(made);
  EXPECT_EQ(VesVectorReplicate(bare.get(), &made, true, false), VES_GOOD);
  EXPECT_EQ(Ves::AsDense<double>(*made).ld, 50);
  VesVectorDestroy(made);

  EXPECT_EQ(VesVectorSetDim(src.get(), 1, std::numeric_limits<int>::max()), VES_GOOD);
  EXPECT_EQ(VesVectorReplicate(src.get(), &made, true, false), VES_ERR_INVALID_VALUE);
  VesVectorDestroy(made);
}

TEST(Vectors, NormAndResidual) {
  const int rank = RankIn(MPI_COMM_WORLD), p = SizeOf(MPI_COMM_WORLD);
  std::vector<double> x{3, 4, 1, 1}, norms(2), r(4), d{2, 1};
  const VectorHandle X = MakeVector(MPI_COMM_WORLD, 2, 2, x.data(), 2);
  const VectorHandle N = MakeVector(MPI_COMM_WORLD, 2, 1, norms.data(), 2);
  EXPECT_EQ(VesVectorNorm(nullptr, N.get()), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesVectorNorm(X.get(), nullptr), VES_ERR_NULL_POINTER);
  const VectorHandle bare = MakeVector<double>(MPI_COMM_WORLD, 2, 2, nullptr, 2);
  EXPECT_EQ(VesVectorNorm(bare.get(), N.get()), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesVectorNorm(X.get(), X.get()), VES_ERR_INCOMPATIBLE);
  const VectorHandle flat = MakeVector(MPI_COMM_WORLD, 2, 1, norms.data(), 1);
  EXPECT_EQ(VesVectorNorm(X.get(), flat.get()), VES_ERR_INVALID_VALUE);
  // Shapes are judged first, then types, then what is missing.
  const VectorHandle floats = MakeVector<float>(MPI_COMM_WORLD, 2, 1, nullptr, 1);
  EXPECT_EQ(VesVectorNorm(bare.get(), X.get()), VES_ERR_INCOMPATIBLE);
  EXPECT_EQ(VesVectorNorm(bare.get(), floats.get()), VES_ERR_UNSUPPORTED);
  // Storage missing on one process only: none may wait for it.
  EXPECT_EQ(VesVectorNorm(rank == 0 ? bare.get() : X.get(), N.get()), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesVectorNorm(X.get(), N.get()), VES_GOOD);
  EXPECT_DOUBLE_EQ(norms[0], 5 * std::sqrt(p));
  EXPECT_DOUBLE_EQ(norms[1], std::sqrt(2.0 * p));

  const Rows rows(2 * p, MPI_COMM_WORLD);
  SparseOperator<double> A(rows, [](int i) { return SparseOperator<double>::Row{{i, 1.0 + i}}; });
  SparseOperator<double> B(rows, [](int i) { return SparseOperator<double>::Row{{i, 3.0}}; });
  const MatrixHandle a = MakeMatrix(&A), b = MakeMatrix(&B);
  const VectorHandle D = MakeVector(MPI_COMM_WORLD, 2, 1, d.data(), 2);
  const VectorHandle R = MakeVector(MPI_COMM_WORLD, 2, 2, r.data(), 2);
  EXPECT_EQ(VesEigResidual(nullptr, b.get(), X.get(), D.get(), R.get()), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(VesEigResidual(a.get(), b.get(), X.get(), nullptr, R.get()), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(VesEigResidual(a.get(), b.get(), X.get(), D.get(), nullptr), VES_ERR_INVALID_VALUE);
  EXPECT_EQ(VesEigResidual(a.get(), b.get(), bare.get(), D.get(), R.get()), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesEigResidual(a.get(), b.get(), X.get(), X.get(), R.get()), VES_ERR_INCOMPATIBLE);
  VesMatrix idle = nullptr;
  ASSERT_EQ(VesMatrixCreate(&idle, VES_DOUBLE, VES_MATRIX_SHELL), VES_GOOD);
  const MatrixHandle noRoutine(idle);
  EXPECT_EQ(VesEigResidual(idle, nullptr, X.get(), D.get(), R.get()), VES_ERR_NULL_POINTER);
  EXPECT_EQ(VesEigResidual(a.get(), idle, X.get(), D.get(), R.get()), VES_ERR_NULL_POINTER);
  const VectorHandle floatR = MakeVector<float>(MPI_COMM_WORLD, 2, 2, nullptr, 1);
  EXPECT_EQ(VesEigResidual(idle, nullptr, X.get(), D.get(), floatR.get()), VES_ERR_INCOMPATIBLE);
  EXPECT_EQ(VesEigResidual(idle, nullptr, bare.get(), X.get(), R.get()), VES_ERR_INCOMPATIBLE);
  EXPECT_EQ(VesEigResidual(idle, nullptr, bare.get(), floats.get(), R.get()), VES_ERR_MISMATCH);
  EXPECT_EQ(VesEigResidual(a.get(), nullptr, X.get(), D.get(), R.get()), VES_GOOD);
  EXPECT_DOUBLE_EQ(r[0], (1.0 + 2 * rank - 2) * 3);
  EXPECT_EQ(VesEigResidual(a.get(), b.get(), X.get(), D.get(), R.get()), VES_GOOD);
  EXPECT_DOUBLE_EQ(r[1], (2.0 + 2 * rank - 6) * 4);
  EXPECT_DOUBLE_EQ(r[3], (2.0 + 2 * rank - 3) * 1);
}

/// The processes of x are those that reduce, in whatever communicator the norms hold them.
TEST(Vectors, NormsOnOtherCommunicators) {
  const int rank = RankIn(MPI_COMM_WORLD), p = SizeOf(MPI_COMM_WORLD);
  const bool isAlone = p == 1;
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
      {"processes that do not call", MPI_COMM_SELF, MPI_COMM_WORLD, 1, 2,
       isAlone ? VES_GOOD : VES_ERR_MISMATCH},
      {"no columns, no storage", MPI_COMM_WORLD, MPI_COMM_WORLD, 0, 0, VES_GOOD},
      {"columns here only", MPI_COMM_WORLD, twin, rank == 0 ? 1 : 0, 2,
       isAlone ? VES_GOOD : VES_ERR_MISMATCH},
      {"norms of another stride here", MPI_COMM_WORLD, twin, 1, rank == 0 ? 1 : 2,
       isAlone ? VES_GOOD : VES_ERR_MISMATCH},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.what);
    double x[] = {3, 4}, norms[] = {-1, -1};
    if (c.ofX == MPI_COMM_SELF && rank > 0) continue;
    const VectorHandle X = MakeVector(c.ofX, 2, c.k, c.ld > 0 ? x : nullptr, 2);
    const VectorHandle N = MakeVector(c.ofNorms, c.k, 1, c.ld > 0 ? norms : nullptr, c.ld);
    EXPECT_EQ(VesVectorNorm(X.get(), N.get()), c.code);
    EXPECT_EQ(N->comm, c.ofNorms);
    EXPECT_DOUBLE_EQ(norms[0], c.code == VES_GOOD && c.k > 0 ? 5 * std::sqrt(p) : -1);
  }
  MPI_Comm_free(&twin);
}

TEST(Solvers, SettersAndDefaults) {
  VesSolver solver = nullptr;
  ASSERT_EQ(VesSolverCreate(&solver, VES_COMPLEX_FLOAT, VES_LOBPCG), VES_GOOD);
  const SolverHandle owner(solver);
  EXPECT_EQ(solver->threshold, 1e-6);
  EXPECT_EQ(solver->maxIter, 100);
  EXPECT_EQ(solver->mu, 0.01);
  EXPECT_EQ(solver->denseEigenSolverType, VES_SCALAPACK_DIAG);
  EXPECT_EQ(solver->rankRevealerType, VES_SVD_QR);
  EXPECT_EQ(solver->LockDetector, nullptr);
  EXPECT_TRUE(solver->needResidualNorms);

  EXPECT_EQ(VesSolverSetMaxOrthoIter(solver, 3), VES_GOOD);
  for (const int wrong : {0, -2}) {
    EXPECT_EQ(VesSolverSetMaxOrthoIter(solver, wrong), VES_ERR_INVALID_VALUE);
    EXPECT_EQ(VesSolverSetMaxIter(solver, wrong), VES_ERR_INVALID_VALUE);
    EXPECT_EQ(VesSolverSetThreshold(solver, wrong), VES_ERR_INVALID_VALUE);
  }
  EXPECT_EQ(solver->maxOrthoIter, 3);
  EXPECT_EQ(solver->maxOrthoInnerIter, 3);
  EXPECT_EQ(solver->threshold, 1e-6);
  EXPECT_EQ(VesSolverSetThreshold(solver, std::nan("")), VES_GOOD);
  EXPECT_EQ(VesSolverSetProblemType(solver, static_cast<VesProblemType>(17)), VES_GOOD);

  const auto* detector = solver->ConvergeDetector.get();
  EXPECT_EQ(VesSetConvergeDetectorType(solver, static_cast<VesConvergeDetectorType>(4)),
            VES_ERR_UNSUPPORTED);
  EXPECT_EQ(solver->ConvergeDetector.get(), detector);
  EXPECT_EQ(VesSetDenseEigenSolverType(solver, static_cast<VesDenseEigenSolverType>(2)),
            VES_ERR_UNSUPPORTED);
  EXPECT_EQ(VesSetOrthogonalizerType(solver, static_cast<VesOrthogonalizerType>(-1)),
            VES_ERR_UNSUPPORTED);
  EXPECT_EQ(VesSetOrthoProjectorType(solver, static_cast<VesOrthoProjectorType>(1)),
            VES_ERR_UNSUPPORTED);
  EXPECT_EQ(VesSetConvergeDetectorType(solver, VES_EIGENVALUES), VES_GOOD);
  EXPECT_EQ(solver->ConvergeDetector->detectorType, VES_EIGENVALUES);
  EXPECT_TRUE(solver->needResidualNorms); // set once, never cleared
}

TEST(Solvers, NullHandles) {
  const SolverHandle owner = MakeSolver<double>({}, false);
  VesSolver const none = nullptr, some = owner.get();
  int count = 0;
  std::size_t bytes = 5;
  VesSolverReason reason = VES_REASON_NONE;
  VesSolverStats stats;
  const VesReturnCode codes[] = {
      VesSolverSetProblemType(none, VES_PROBLEM_STANDARD),
      VesSolverSetMaxIter(none, 0),
      VesSolverSetMaxOrthoIter(none, 0),
      VesSolverSetThreshold(none, 0),
      VesSetDenseEigenSolverType(none, VES_LAPACK_DIAG),
      VesSetConvergeDetectorType(none, VES_RESIDUALS),
      VesSetOrthogonalizerType(none, VES_SVD_QR),
      VesSetOrthoProjectorType(none, VES_GRAM_SCHMIDT),
      VesSolverSetPPCGSoftLocking(none, 9),
      VesSolverSetPPCGBatch(none, 0),
      VesSolverSetPPCGRRPeriod(none, -1),
      VesSolverSetPPCGLockFactor(none, -1),
      VesSolverSetBatchLimit(none, 0),
      VesSolverSetBatchStart(none, -1),
      VesSolverSetMonitor(none, nullptr, nullptr),
      VesSolverSetSelfCheck(none, true),
      VesSolverSetLockFactor(none, 2),
      VesSolverSetLockDetectorType(none, static_cast<VesConvergeDetectorType>(4)),
      VesSolverSetRankRevealerType(none, static_cast<VesOrthogonalizerType>(2)),
      VesGetSolverIter(none, &count),
      VesGetSolverIter(some, nullptr),
      VesGetSolverConv(none, &count),
      VesGetSolverConv(some, nullptr),
      VesGetSolverReason(none, &reason),
      VesGetSolverReason(some, nullptr),
      VesGetSolverStats(none, &stats),
      VesGetSolverStats(some, nullptr),
      VesSolverMemory(none, -1, -1, false, &bytes),
      VesSolverMemory(some, -1, -1, false, nullptr),
  };
  for (const VesReturnCode& code : codes)
    EXPECT_EQ(code, VES_ERR_NULL_POINTER) << "call " << &code - codes;
  EXPECT_EQ(VesGetSolverIter(some, &count), VES_GOOD);
  EXPECT_EQ(count, 0);
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
  const auto succeed = [&] {
    ++calls;
    return VES_GOOD;
  };
  VES_ASSERT_GOOD(succeed());
  EXPECT_EQ(calls, 1);
}

} // namespace
