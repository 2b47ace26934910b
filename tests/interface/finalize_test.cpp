// Handles that outlive MPI: destroying them after MPI_Finalize must not touch it, although the
// solver holds a process grid and a duplicate of the communicator.
#include "eigensolver/scalapack_diag.h"
#include "interface/solver_base.h"
#include "support/correctness.h"

#include <cstdio>

using namespace VesTest;

int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  int wrong = 0;
  VesSolver solver = nullptr;
  VesVector vector = nullptr;
  VesMatrix matrix = nullptr;
  {
    const Rows rows(20, MPI_COMM_WORLD);
    SparseOperator<double> A(rows, [](int i) { return SparseOperator<double>::Row{{i, 1.0 + i}}; });
    solver = MakeSolver<double>({}, false).release();
    auto& evd = dynamic_cast<Ves::ScaLapackDiag<double>&>(*solver->DenseEigenSolver);
    evd.threshold = 2;
    Pairs<double> p(rows, 3);
    p.FillRandom();
    p.Run(solver, &A);
    wrong += p.code != VES_GOOD || p.nConv != 3 || !evd.blacs->gridReady;
    vector = MakeVector<double>(MPI_COMM_WORLD, 2, 2, nullptr, 1).release();
    matrix = MakeMatrix(&A).release();
  }
  MPI_Finalize();
  VesSolverDestroy(solver);
  VesVectorDestroy(vector);
  VesMatrixDestroy(matrix);
  if (wrong == 0) std::puts("handles destroyed after MPI_Finalize");
  return wrong;
}
