#include "random_calls.h"

namespace VesTest {

namespace {

double RealAt(const void* values, int type, int j) {
  switch (type) {
  case VES_DOUBLE:
    return static_cast<const double*>(values)[j];
  case VES_FLOAT:
    return static_cast<double>(static_cast<const float*>(values)[j]);
  case VES_COMPLEX_DOUBLE:
    return static_cast<const double*>(values)[2 * j];
  default:
    return static_cast<double>(static_cast<const float*>(values)[2 * j]);
  }
}

} // namespace

RandomCalls::Outcome RandomCalls::Read(VesSolver solver) {
  Outcome o;
  const bool isMissing = solver == nullptr;
  Judge("VesGetSolverIter", VesGetSolverIter(solver, &o.iter), isMissing, {none, good});
  Judge("VesGetSolverConv", VesGetSolverConv(solver, &o.nConv), isMissing, {none, good});
  Judge("VesGetSolverReason", VesGetSolverReason(solver, &o.reason), isMissing, {none, good});
  Judge("VesGetSolverStats", VesGetSolverStats(solver, &o.stats), isMissing, {none, good});
  return o;
}

void RandomCalls::ReadNothing() {
  const VesSolver solver = AnySolver();
  Judge("VesGetSolverIter", VesGetSolverIter(solver, nullptr), true, {none});
  Judge("VesGetSolverConv", VesGetSolverConv(solver, nullptr), true, {none});
  Judge("VesGetSolverReason", VesGetSolverReason(solver, nullptr), true, {none});
  Judge("VesGetSolverStats", VesGetSolverStats(solver, nullptr), true, {none});
  const int number = AnyInt();
  Require(VesErrorString(static_cast<VesReturnCode>(number)) != nullptr &&
              VesReasonString(static_cast<VesSolverReason>(number)) != nullptr &&
              VesGetVersion() != nullptr,
          "a text is missing");
}

void RandomCalls::Run(VesSolver solver, VesMatrix A, VesMatrix B, VesMatrix T, Block& x, Block& d) {
  const bool isRefused = x.nCols > 32765 || IsBeyond32Bits(x); // by every solver
  if (!(x.Fits() && d.Fits()) && !isRefused) return;
  // Limits that a test can wait for.
  const int maxIter = 1 + Below(12);
  if (solver != nullptr) {
    Judge("VesSolverSetMaxIter", VesSolverSetMaxIter(solver, maxIter), false, {none, good});
    Judge("VesSolverSetMaxOrthoIter", VesSolverSetMaxOrthoIter(solver, 1 + Below(3)), false,
          {none, good});
  }
  m_operator = Below(7);
  m_wanted = x.nCols;
  const Outcome before = Read(solver);
  const auto ownX = x.own, ownD = d.own;
  const int code = VesRunSolver(solver, A, B, T, x.handle, d.handle);
  Judge("VesRunSolver", code,
        solver == nullptr || A == nullptr || x.handle == nullptr || d.handle == nullptr,
        {bad, mismatch, unsupported, none, bad, good});
  const Outcome after = Read(solver);
  if (code == good) {
    ++runs;
    ExpectSane(after, x, d, maxIter);
  } else {
    ++refusedRuns;
    Require(std::memcmp(ownX.data(), x.own.data(), ownX.size() * sizeof(ownX[0])) == 0 &&
                std::memcmp(ownD.data(), d.own.data(), ownD.size() * sizeof(ownD[0])) == 0 &&
                before.iter == after.iter && before.nConv == after.nConv &&
                before.reason == after.reason,
            "a refused run has changed something");
  }
}

void RandomCalls::ExpectSane(const Outcome& o, const Block& x, const Block& d, int maxIter) {
  Require(o.nConv >= 0 && o.nConv <= x.nCols, "more pairs converged than were wanted");
  // The pass that lets the rest of a guess into a batch comes on top.
  Require(o.iter >= 0 && o.iter <= maxIter + 1, "more iterations than allowed");
  Require(o.reason != VES_REASON_NONE && (o.reason == VES_REASON_CONVERGED) == (o.nConv == x.nCols),
          "a reason that does not fit the count");
  const bool isEmpty = x.nCols == 0; // and then made without a word
  Require(o.stats.columnsA >= 0 && o.stats.columnsB >= 0 && o.stats.columnsT >= 0 &&
              (o.stats.reductions > 0) != isEmpty && (o.stats.bytesReduced > 0) != isEmpty,
          "impossible costs");
  if (&x == &d) return;
  const void* const values = VesVectorDenseGetValues(d.handle);
  for (int j = 0; j < d.nRows; ++j)
    Require(!std::isnan(RealAt(values, d.type, j)), "a value that is no number");
}

void RandomCalls::Prepare() {
  m_type = Below(4);
  CreateMatrix(m_matrices[0], m_type, VES_MATRIX_SHELL);
  CreateMatrix(m_matrices[1], m_type, VES_MATRIX_SHELL);
  CreateSolver(m_solvers[0], m_type, Below(3));
  const int nRows = Below(13), nCols = Below(7);
  for (const std::size_t i : {0U, 1U, 2U})
    CreateVector(m_vectors[i], m_type, VES_VECTOR_DENSE);
  SetDim(m_vectors[0], nRows, nCols);
  SetDim(m_vectors[1], nCols, 1);
  SetDim(m_vectors[2], nRows, nCols);
  FillGuess(m_vectors[0]);
  SetValues(m_vectors[0], 1 + nRows + Below(3));
  SetValues(m_vectors[1], 1 + nCols);
  SetValues(m_vectors[2], 1 + nRows);
}

void RandomCalls::FillGuess(Block& v) {
  const int seed = Byte();
  for (std::size_t i = 0; i < v.own.size(); ++i)
    v.own[i] = seed == 255 ? 0.0 : std::sin(static_cast<double>(i + 1) * (1 + seed));
  if (v.type == VES_DOUBLE || v.type == VES_COMPLEX_DOUBLE) return;
  auto* const narrow = reinterpret_cast<float*>(v.own.data());
  for (std::size_t i = 0; i < 4 * v.own.size(); ++i)
    narrow[i] = seed == 255 ? 0.0F : std::sin(static_cast<float>(i + 1) * static_cast<float>(seed));
}

void RandomCalls::Step() {
  switch (Below(30)) {
  case 0:
    return CreateMatrix(Any(m_matrices), AnyType(), OneIn(8) ? AnyCode() : VES_MATRIX_SHELL);
  case 1:
    return CreateVector(Any(m_vectors), AnyType(), OneIn(8) ? AnyCode() : VES_VECTOR_DENSE);
  case 2:
    return CreateSolver(Any(m_solvers), AnyType(), OneIn(4) ? AnyCode() : Below(3));
  case 3: {
    VesMatrix& matrix = Any(m_matrices);
    VesMatrixDestroy(matrix);
    matrix = nullptr;
    return;
  }
  case 4:
    return Replace(Any(m_vectors), nullptr, VES_DOUBLE);
  case 5: {
    VesSolver& solver = Any(m_solvers);
    VesSolverDestroy(solver);
    solver = nullptr;
    return;
  }
  case 6: {
    const VesMatrix matrix = AnyMatrix();
    Judge("VesMatrixSetCalledEverywhere", VesMatrixSetCalledEverywhere(matrix, OneIn(2)),
          matrix == nullptr, {none, incompatible, good});
    return Judge("VesMatrixSetDim", VesMatrixSetDim(matrix, AnyInt(), AnyInt()), matrix == nullptr,
                 {none, bad, good});
  }
  case 7: {
    Block& v = AnyVector();
    const int nRows = AnyInt();
    return SetDim(v, nRows, AnyInt());
  }
  case 8: {
    Block& v = AnyVector();
    return SetValues(v, AnyInt());
  }
  case 9:
    return SetComm(AnyVector());
  case 10:
    return Replicate();
  case 11:
    return Norm();
  case 12:
    return Residual();
  case 13:
    return CheckPairs();
  case 14:
  case 15:
  case 16:
    return Set();
  case 17:
    return SetReal();
  case 18:
    return SetMonitor();
  case 19:
    return Memory();
  case 20:
    return ReadNothing();
  case 21:
  case 22:
  case 23:
    return Prepare();
  default: {
    const VesSolver solver = AnySolver();
    const VesMatrix A = AnyMatrix(), B = MaybeMatrix(), T = MaybeMatrix();
    Block& x = AnyVector(0);
    return Run(solver, A, B, T, x, AnyVector(1));
  }
  }
}

} // namespace VesTest
