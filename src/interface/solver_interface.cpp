#include "../data/vector_dense.h"
#include "../parallel/thread_team.h"
#include "../solver/lobpcg.h"
#include "../solver/lobpcg_batch.h"
#include "../solver/ppcg.h"
#include "operand_checks.h"
#include "scalar_dispatch.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <vector>

using namespace Ves;

namespace {

VesReturnCode CheckTypesAndShapes(const VesSolverBase& solver, const VesMatrixBase& A,
                                  const VesMatrixBase& B, const VesMatrixBase& T,
                                  const VesVectorBase& X, const VesVectorBase& D) {
  const VesScalarType scalarType = solver.scalarType;
  if (A.scalarType != scalarType || X.scalarType != scalarType || D.scalarType != scalarType)
    return VES_ERR_MISMATCH;
  if (B.IsPresent() && B.scalarType != scalarType) return VES_ERR_MISMATCH;
  if (T.IsPresent() && T.scalarType != scalarType) return VES_ERR_MISMATCH;
  if (X.nCols != D.nRows || D.nCols != 1) return VES_ERR_MISMATCH;
  return VES_GOOD;
}

bool UsesB(const VesSolverBase& solver) {
  return solver.problemType == VES_PROBLEM_GENERALIZED;
}

/// The workspaces of the dense eigensolvers have 32-bit sizes.
bool FitsSizes(const VesSolverBase& solver, int nCols) {
  return solver.DenseOrder(nCols) <= VesSolverBase::largestDenseOrder;
}

/// Columns to be deflated are distributed as the vectors are.
template <typename Scalar>
VesReturnCode DeflationVerdict(const VesSolverBase& solver, const VectorDense<Scalar>& X) {
  if (solver.deflation == nullptr) return VES_GOOD;
  const auto& Y = AsDense<Scalar>(*solver.deflation);
  if (!HaveStorage(Y, Y)) return VES_ERR_NULL_POINTER;
  if (Y.comm != X.comm || Y.auxComm != X.auxComm || Y.nRows != X.nRows) return VES_ERR_MISMATCH;
  return Y.nCols == 0 || Y.ld >= Y.nRows ? VES_GOOD : VES_ERR_INVALID_VALUE;
}

/// What this process alone can see of the blocks and operators of a run.
template <typename Scalar>
VesReturnCode LocalVerdict(const VesSolverBase& solver, const VesMatrixBase& A,
                           const VesMatrixBase& B, const VesMatrixBase& T,
                           const VectorDense<Scalar>& X, const VectorDense<Scalar>& D) {
  if (!HaveStorage(X, D)) return VES_ERR_NULL_POINTER;
  if (LacksRoutine(A) || LacksRoutine(T)) return VES_ERR_NULL_POINTER;
  if (UsesB(solver) && LacksRoutine(B)) return VES_ERR_NULL_POINTER;
  if (!HasRowsOf(A, X) || !HasRowsOf(T, X) || (UsesB(solver) && !HasRowsOf(B, X)))
    return VES_ERR_MISMATCH;
  if (X.comm != D.comm || X.auxComm != D.auxComm) return VES_ERR_MISMATCH;
  if ((X.nCols > 0 && X.ld < X.nRows) || D.ld < D.nRows) return VES_ERR_INVALID_VALUE;
  if (const VesReturnCode code = DeflationVerdict(solver, X); code != VES_GOOD) return code;
  return FitsSizes(solver, X.nCols) ? VES_GOOD : VES_ERR_INVALID_VALUE;
}

/// Which operators have a routine for single precision: others are applied to fewer columns at a
/// time.
int LowRoutines(const VesSolverBase& solver, const VesMatrixBase& A, const VesMatrixBase& B,
                const VesMatrixBase& T) {
  return (A.lowered ? 1 : 0) + (UsesB(solver) && B.lowered ? 2 : 0) + (T.lowered ? 4 : 0);
}

/// All that steers the collective calls of a run: numbers that must be the same on all processes.
std::vector<int> WhatMustAgree(const VesSolverBase& solver, const VesMatrixBase& A,
                               const VesMatrixBase& B, const VesMatrixBase& T, int nPairs) {
  const auto kindOf = [](const auto& chosen) { return chosen ? static_cast<int>(*chosen) : -1; };
  std::vector<int> numbers{nPairs,
                           solver.scalarType,
                           solver.solverType,
                           solver.problemType,
                           PartOf(A),
                           UsesB(solver) ? PartOf(B) : 0,
                           PartOf(T),
                           solver.monitor != nullptr ? 1 : 0,
                           solver.maxIter,
                           solver.maxOrthoIter,
                           solver.denseEigenSolverType,
                           solver.convergeDetectorType,
                           kindOf(solver.chosenLockDetector),
                           solver.orthogonalizerType,
                           solver.orthoProjectorType,
                           kindOf(solver.chosenRankRevealer),
                           solver.selfCheck ? 1 : 0,
                           solver.wantedPairs,
                           solver.deflation != nullptr ? solver.deflation->nCols : -1,
                           solver.innerSteps,
                           solver.threads,
                           solver.mixedPrecision ? 1 + LowRoutines(solver, A, B, T) : 0};
  for (const double number : {solver.threshold, solver.mu}) { // bit by bit, also a NaN
    int halves[2];
    static_assert(sizeof(halves) == sizeof(number), "a double is two ints");
    std::memcpy(halves, &number, sizeof(number));
    numbers.insert(numbers.end(), std::begin(halves), std::end(halves));
  }
  const auto own = solver.OwnSettings();
  numbers.insert(numbers.end(), own.begin(), own.end());
  return numbers;
}

/// Changes a field that only one algorithm has, after the checks that all such setters make.
template <template <typename> class Algorithm, typename Change>
VesReturnCode SetOwn(VesSolver solver, VesSolverType type, bool isValid, Change change) {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  if (solver->solverType != type) return VES_ERR_INCOMPATIBLE;
  if (!isValid) return VES_ERR_INVALID_VALUE;
  return DispatchScalar(solver->scalarType, VES_ERR_UNSUPPORTED, [&](auto tag) {
    change(dynamic_cast<Algorithm<typename decltype(tag)::type>&>(*solver));
    return VES_GOOD;
  });
}

} // namespace

VesReturnCode VesSolverCreate(VesSolver* out, VesScalarType scalarType,
                              VesSolverType solverType) noexcept {
  if (out == nullptr) return VES_ERR_NULL_POINTER;
  const auto create = [&](auto tag) {
    using Scalar = typename decltype(tag)::type;
    switch (solverType) {
    case VES_LOBPCG:
      *out = new LOBPCG<Scalar>();
      return VES_GOOD;
    case VES_LOBPCG_BATCH:
      *out = new LOBPCG_BATCH<Scalar>();
      return VES_GOOD;
    case VES_PPCG:
      *out = new PPCG<Scalar>();
      return VES_GOOD;
    default:
      return VES_ERR_UNSUPPORTED;
    }
  };
  const VesReturnCode code = DispatchScalar(scalarType, VES_ERR_MISMATCH, create);
  if (code == VES_ERR_MISMATCH) *out = nullptr;
  return code;
}

void VesSolverDestroy(VesSolver solver) noexcept {
  delete solver;
}

VesReturnCode VesSolverSetProblemType(VesSolver solver, VesProblemType problemType) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  solver->problemType = problemType;
  return VES_GOOD;
}

VesReturnCode VesSolverSetMaxIter(VesSolver solver, int maxIter) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  if (maxIter <= 0) return VES_ERR_INVALID_VALUE;
  solver->maxIter = maxIter;
  return VES_GOOD;
}

VesReturnCode VesSolverSetMaxOrthoIter(VesSolver solver, int maxOrthoIter) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  if (maxOrthoIter <= 0) return VES_ERR_INVALID_VALUE;
  solver->maxOrthoIter = maxOrthoIter;
  solver->maxOrthoInnerIter = maxOrthoIter;
  return VES_GOOD;
}

VesReturnCode VesSolverSetThreshold(VesSolver solver, double threshold) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  if (threshold <= 0.0) return VES_ERR_INVALID_VALUE;
  solver->threshold = threshold;
  return VES_GOOD;
}

VesReturnCode VesSetDenseEigenSolverType(VesSolver solver, VesDenseEigenSolverType type) noexcept {
  return solver == nullptr ? VES_ERR_NULL_POINTER : solver->SetDenseEigenSolver(type);
}

VesReturnCode VesSetConvergeDetectorType(VesSolver solver, VesConvergeDetectorType type) noexcept {
  return solver == nullptr ? VES_ERR_NULL_POINTER : solver->SetConvergeDetector(type);
}

VesReturnCode VesSetOrthogonalizerType(VesSolver solver, VesOrthogonalizerType type) noexcept {
  return solver == nullptr ? VES_ERR_NULL_POINTER : solver->SetOrthogonalizer(type);
}

VesReturnCode VesSetOrthoProjectorType(VesSolver solver, VesOrthoProjectorType type) noexcept {
  return solver == nullptr ? VES_ERR_NULL_POINTER : solver->SetOrthoProjector(type);
}

VesReturnCode VesSolverSetPPCGSoftLocking(VesSolver solver, int type) noexcept {
  return SetOwn<PPCG>(solver, VES_PPCG, type >= 0 && type <= 2,
                      [&](auto& ppcg) { ppcg.softLockingType = type; });
}

VesReturnCode VesSolverSetPPCGBatch(VesSolver solver, int nBatch) noexcept {
  return SetOwn<PPCG>(solver, VES_PPCG, nBatch > 0, [&](auto& ppcg) { ppcg.nBatch = nBatch; });
}

VesReturnCode VesSolverSetPPCGRRPeriod(VesSolver solver, int rrPeriod) noexcept {
  return SetOwn<PPCG>(solver, VES_PPCG, rrPeriod >= 0,
                      [&](auto& ppcg) { ppcg.rrPeriod = rrPeriod; });
}

VesReturnCode VesSolverSetPPCGLockFactor(VesSolver solver, double mu) noexcept {
  return SetOwn<PPCG>(solver, VES_PPCG, mu >= 0.0 && mu <= 1.0, [&](auto& ppcg) { ppcg.mu = mu; });
}

VesReturnCode VesSolverSetBatchLimit(VesSolver solver, int limit) noexcept {
  return SetOwn<LOBPCG_BATCH>(solver, VES_LOBPCG_BATCH, limit > 0,
                              [&](auto& batched) { batched.batchLimit = limit; });
}

VesReturnCode VesSolverSetBatchStart(VesSolver solver, int width) noexcept {
  return SetOwn<LOBPCG_BATCH>(solver, VES_LOBPCG_BATCH, width >= 0,
                              [&](auto& batched) { batched.batchStart = width; });
}

VesReturnCode VesSolverSetLockFactor(VesSolver solver, double factor) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  if (!(factor >= 0.0 && factor <= 1.0)) return VES_ERR_INVALID_VALUE;
  solver->mu = factor;
  return VES_GOOD;
}

VesReturnCode VesSolverSetLockDetectorType(VesSolver solver,
                                           VesConvergeDetectorType type) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  const VesReturnCode code = solver->SetLockDetector(type);
  if (code == VES_GOOD) solver->chosenLockDetector = type;
  return code;
}

VesReturnCode VesSolverSetRankRevealerType(VesSolver solver, VesOrthogonalizerType type) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  const VesReturnCode code = solver->SetRankRevealer(type);
  if (code == VES_GOOD) solver->chosenRankRevealer = type;
  return code;
}

VesReturnCode VesSolverSetSelfCheck(VesSolver solver, bool isOn) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  solver->selfCheck = isOn;
  return VES_GOOD;
}

VesReturnCode VesSolverSetMixedPrecision(VesSolver solver, bool isOn) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  const bool isDouble =
      solver->scalarType == VES_DOUBLE || solver->scalarType == VES_COMPLEX_DOUBLE;
  if (isOn && !isDouble) return VES_ERR_UNSUPPORTED;
  solver->mixedPrecision = isOn;
  return VES_GOOD;
}

VesReturnCode VesSolverSetInnerSteps(VesSolver solver, int count) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  if (count < -1 || count > 1000) return VES_ERR_INVALID_VALUE;
  solver->innerSteps = count;
  return VES_GOOD;
}

VesReturnCode VesSolverSetThreads(VesSolver solver, int count) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  if (count < -1 || count > 1024) return VES_ERR_INVALID_VALUE;
  if (count > 1 && !ThreadTeam::IsAvailable()) return VES_ERR_UNSUPPORTED;
  solver->threads = count;
  return VES_GOOD;
}

VesReturnCode VesSolverSetWanted(VesSolver solver, int count) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  if (count < 0) return VES_ERR_INVALID_VALUE;
  solver->wantedPairs = count;
  return VES_GOOD;
}

VesReturnCode VesSolverSetDeflation(VesSolver solver, VesVector Y) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  if (Y != nullptr && Y->scalarType != solver->scalarType) return VES_ERR_MISMATCH;
  const bool isDense = Y == nullptr || DispatchScalar(solver->scalarType, false, [&](auto tag) {
                         return AllDense<typename decltype(tag)::type>(*Y);
                       });
  if (!isDense) return VES_ERR_UNSUPPORTED;
  solver->deflation = Y;
  return VES_GOOD;
}

VesReturnCode VesSolverSetMonitor(VesSolver solver, VesMonitor monitor, void* data) noexcept {
  if (solver == nullptr) return VES_ERR_NULL_POINTER;
  solver->monitor = monitor;
  solver->monitorData = data;
  return VES_GOOD;
}

VesReturnCode VesSolverMemory(VesSolver solver, int nRows, int nCols, bool generalized,
                              size_t* bytes) noexcept {
  if (solver == nullptr || bytes == nullptr) return VES_ERR_NULL_POINTER;
  if (nRows < 0 || nCols < 0) return VES_ERR_INVALID_VALUE;
  if (!FitsSizes(*solver, nCols)) return VES_ERR_INVALID_VALUE;
  *bytes = solver->Memory(nRows, nCols, generalized);
  return VES_GOOD;
}

VesReturnCode VesGetSolverReason(VesSolver solver, VesSolverReason* reason) noexcept {
  if (solver == nullptr || reason == nullptr) return VES_ERR_NULL_POINTER;
  *reason = solver->reason;
  return VES_GOOD;
}

VesReturnCode VesGetSolverStats(VesSolver solver, VesSolverStats* stats) noexcept {
  if (solver == nullptr || stats == nullptr) return VES_ERR_NULL_POINTER;
  *stats = solver->stats;
  return VES_GOOD;
}

VesReturnCode VesGetSolverIter(VesSolver solver, int* iter) noexcept {
  if (solver == nullptr || iter == nullptr) return VES_ERR_NULL_POINTER;
  *iter = solver->iter;
  return VES_GOOD;
}

VesReturnCode VesGetSolverConv(VesSolver solver, int* nConv) noexcept {
  if (solver == nullptr || nConv == nullptr) return VES_ERR_NULL_POINTER;
  *nConv = solver->nConv;
  return VES_GOOD;
}

VesReturnCode VesRunSolver(VesSolver solver, VesMatrix A, VesMatrix B, VesMatrix T, VesVector X,
                           VesVector D) noexcept {
  if (solver == nullptr || A == nullptr || X == nullptr || D == nullptr)
    return VES_ERR_INVALID_VALUE;
  const VesMatrixBase &matB = OrAbsent(B), &matT = OrAbsent(T);
  VesReturnCode verdict = CheckTypesAndShapes(*solver, *A, matB, matT, *X, *D);
  if (verdict == VES_GOOD)
    verdict = DispatchScalar(solver->scalarType, VES_ERR_UNSUPPORTED, [&](auto tag) {
      using Scalar = typename decltype(tag)::type;
      if (!AllDense<Scalar>(*X, *D)) return VES_ERR_UNSUPPORTED;
      return LocalVerdict(*solver, *A, matB, matT, AsDense<Scalar>(*X), AsDense<Scalar>(*D));
    });
  verdict = AgreeOn(verdict, WhatMustAgree(*solver, *A, matB, matT, X->nCols), X->comm);
  return verdict == VES_GOOD ? solver->Solve(*A, matB, matT, *X, *D) : verdict;
}
