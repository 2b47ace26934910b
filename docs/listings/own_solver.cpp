// A solver of a class of its own: preconditioned steepest descent. An iteration minimizes the
// Rayleigh quotient over the span of the vectors X and their residuals,
//     [X R]^H A [X R] C = C diag(D),   X := [X R] C_X,   R := T (A X - B X diag(D)),
// where [X R] is B-orthonormal and C_X are the eigenvectors of the k lowest values.
#include <ves.hpp>
#include <ves/solver/block_solver.h>

#include <algorithm>
#include <cmath>
#include <cstdio>

class SteepestDescent : public Ves::BlockSolver<double> {
public:
  VesReturnCode SolveDense(const VesMatrixBase& matA, const VesMatrixBase& matB,
                           const VesMatrixBase& matT, Block& vecX, Block& vecD) const override {
    ReadProblem(vecX, matB);
    nConv = 0;
    const auto code = AllocateOnAll(Plan(nPW, ldQ, nBands, isGeneralized));
    if (code != VES_GOOD) return code;
    Start(vecX, matA, matB);
    for (iter = 0;; ++iter) {
      Rotate();
      if (info != 0) break;
      Test();
      Report(iter, workD, nConv, 0, nBands);
      if (nConv >= Goal(nBands) || check.IsOver() || iter >= iterLimit) break;
      AddDirections(matA, matB, matT);
      if (info != 0 || check.IsOver()) break;
    }
    Confirm(matA, matB);
    HandBack(vecX, vecD);
    Plan(nPW, ldQ, 1, isGeneralized).Free();
    return VES_GOOD;
  }

  // For k pairs: the basis [X R] and room to rotate it, with their images, and residuals.
  Ves::WorkspacePlan<double> Plan(int nRows, int ld, int nCols, bool generalized) const override {
    const long long k = nCols;
    Ves::WorkspacePlan<double> plan(nRows, ld);
    for (Block* const block : {&workZ, &workAZ})
      plan.AddTall(*block, 2 * k);
    if (generalized) plan.AddTall(workBZ, 2 * k);
    plan.AddTall(workR, k);
    plan.AddBand(workS, k);
    plan.AddSmall(workM, 2 * k, 2 * k);
    for (Block* const column : {&workW, &workD, &workF})
      plan.AddSmall(*column, column == &workW ? 2 * k : k, 1);
    plan.denseOrder = 2 * k;
    plan.widestBlock = k;
    return plan;
  }

private:
  Pairs Z(int first, int count) const {
    return Pairs(workZ, isGeneralized ? workBZ : workZ, workAZ, isGeneralized)
        .Columns(first, count);
  }

  // A guess that has no full rank, also after it was completed, leaves fewer pairs.
  void Start(const Block& vecX, const VesMatrixBase& matA, const VesMatrixBase& matB) const {
    Block guess = Columns(workZ, 0, nBands);
    VES_ASSERT_GOOD(guess.CopyData(vecX));
    VES_ASSERT_GOOD(workD.Set2Val(Ves::MathConstants<double>::INFTY));
    nBands = m_nV = OrthonormalizeGuess(Z(0, nBands), matB, 0, nBands);
    Z(0, nBands).RefreshA(matA);
  }

  void Rotate() const {
    workM.SetDims(m_nV, m_nV, m_nV);
    workW.SetDims(m_nV, 1, m_nV);
    VES_ASSERT_GOOD(workM.InnerProduct(Z(0, m_nV).X, Z(0, m_nV).AX));
    VES_ASSERT_GOOD(DenseEigenSolver->RunEvd(workM, workW, info));
    if (info != 0) return;
    NoteRitzValues(workW);
    Z(0, m_nV).Rotate(Block(workM, 0, 0, m_nV, nBands), Z(0, nBands), workS);
  }

  // Residuals, and the pairs that they let pass.
  void Test() const {
    const Pairs x = Z(0, nBands);
    const Block values(workW, 0, 0, nBands, 1), before(workD, 0, 0, nBands, 1);
    int total = 0;
    workR.SetDims(nPW, nBands, ldQ);
    workF.SetDims(nBands, 1, nBands);
    VES_ASSERT_GOOD(workR.ScaleAdd(x.AX, x.BX, values, -1));
    VES_ASSERT_GOOD(ConvergeDetector->Run(workR, values, before, threshold, workF, total, nConv));
    KeepResiduals(0);
    Block now(workD, 0, 0, nBands, 1);
    VES_ASSERT_GOOD(now.CopyData(values));
  }

  void AddDirections(const VesMatrixBase& matA, const VesMatrixBase& matB,
                     const VesMatrixBase& matT) const {
    const auto room = std::min<long long>(nRowsTotal - nBands, nBands - nConv);
    const int count = static_cast<int>(room);
    Pairs directions = Z(nBands, count);
    const Block open = Columns(workR, nBands - count, count);
    if (matT.IsPresent())
      VES_ASSERT_GOOD(matT.Apply(open, directions.X));
    else
      VES_ASSERT_GOOD(directions.X.CopyData(open));
    directions.RefreshB(matB);
    if (!AllFinite(directions)) { // what T or B returned
      info = 1;
      return;
    }
    if (count > 0) ProjectAndOrthonormalize(Z(0, nBands), directions, matB, true);
    if (directions.Count() == 0) check.CallStagnated(); // nothing can change X any more
    directions.RefreshA(matA);
    m_nV = nBands + directions.Count();
  }

  // Images that were only rotated drift, and so may the basis: claims rest on fresh ones.
  void Confirm(const VesMatrixBase& matA, const VesMatrixBase& matB) const {
    check.FindCulprit(Z(0, nBands).X);
    if (info == 0) {
      Z(0, nBands).Refresh(matA, matB);
      const int claimed = nConv;
      Test();
      nConv = std::min(nConv, claimed);
    }
    if (info != 0 || !(OrthoError(Z(0, nBands), 0, nBands) <= Limit::result)) nConv = 0;
  }

  void HandBack(Block& vecX, Block& vecD) const {
    VES_ASSERT_GOOD(vecX.Set2Zero());
    VES_ASSERT_GOOD(vecD.CopyData(workD));
    Block found = Columns(vecX, 0, nBands);
    VES_ASSERT_GOOD(found.CopyData(Columns(workZ, 0, nBands)));
  }

  mutable int m_nV = 0;                // columns of the basis
  mutable Block workZ, workAZ, workBZ; // basis and its images
  mutable Block workR, workS;          // residuals, scratch of a rotation
  mutable Block workM, workW;          // Rayleigh-Ritz matrix, its values
  mutable Block workD, workF;          // estimates of the pairs, flags of the test
};

// The lowest pairs of diag(1, 2, 3, ...) x = lambda diag(2) x, with a crude inverse for T.
int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  int rank = 0, wrong = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  { // blocks and solvers go before MPI does
    const int n = 100, pairs = 4;
    const auto diagonal = [&](auto entry) {
      return ves::Operator<double>([&, entry](auto x, auto y) {
        for (int j = 0; j < x.cols(); ++j)
          for (int i = 0; i < x.rows(); ++i)
            y(i, j) = entry(1.0 + n * rank + i) * x(i, j);
      });
    };
    const auto A = diagonal([](double i) { return i; }), B = diagonal([](double) { return 2.0; }),
               T = diagonal([](double i) { return 1 / std::sqrt(i); });
    const ves::Block<double> X(n, pairs, MPI_COMM_WORLD), D(pairs, 1, MPI_COMM_WORLD);
    ves::fillRandom(X);

    SteepestDescent solver;
    solver.problemType = VES_PROBLEM_GENERALIZED;
    solver.maxIter = 1000;
    wrong += VesRunSolver(&solver, A.handle(), B.handle(), T.handle(), X.handle(), D.handle()) !=
                 VES_GOOD ||
             solver.reason != VES_REASON_CONVERGED;
    for (int j = 0; j < pairs; ++j) {
      wrong += !(std::abs(D(j, 0) - (1 + j) / 2.0) < 1e-8);
      if (rank == 0) std::printf("%.8f\n", D(j, 0));
    }
  }
  MPI_Finalize();
  return wrong;
}
