// An operator of a class of its own: A + shift U U^H lifts states that are known, the columns of U,
// out of the lowest part of the spectrum of A.
#include <ves/data/vector_dense.h>
#include <ves/solver/lobpcg.h>

#include <cmath>
#include <cstdio>

using Block = Ves::VectorDense<double>;

/// The diagonal A, with states that are lifted.
class Lifted : public VesMatrixBase {
public:
  Lifted(const Block& diagonal, const Block& known, double shift)
      : m_diagonal(diagonal), m_known(known), m_shift(shift) {
    scalarType = VES_DOUBLE;
    matrixType = static_cast<VesMatrixType>(100); // of its own: any number that ves.h does not use
    isCalledEverywhere = true;                    // its reduction is one of all processes
  }

  VesReturnCode Apply(const VesVectorBase& x, VesVectorBase& y) const override {
    if (!Ves::AllDense<double>(x, y)) return VES_ERR_UNSUPPORTED;
    if (x.nCols == 0) return VES_GOOD;
    const Block& from = Ves::AsDense<double>(x);
    Block& to = Ves::AsDense<double>(y);
    Block overlaps(x.comm, x.auxComm, m_known.nCols, x.nCols, m_known.nCols);
    overlaps.AllocateMem();
    VES_ASSERT_GOOD(overlaps.InnerProduct(m_known, from));
    VES_ASSERT_GOOD(overlaps.ScaleByVal(m_shift));
    for (int j = 0; j < x.nCols; ++j)
      for (int i = 0; i < x.nRows; ++i)
        to(i, j) = m_diagonal(i) * from(i, j);
    return to.Gemm(m_known, overlaps, 'N', 'N', 1, 1);
  }

private:
  const Block &m_diagonal, &m_known;
  double m_shift;
};

// The lowest pairs of diag(1, 2, 3, ...), without the first two.
int main(int argc, char** argv) {
  MPI_Init(&argc, &argv);
  int rank = 0, wrong = 0;
  MPI_Comm_rank(MPI_COMM_WORLD, &rank);
  { // blocks and solvers go before MPI does
    const int n = 40, pairs = 3;
    Block diagonal(MPI_COMM_WORLD, MPI_COMM_SELF, n, 1, n);
    Block known(MPI_COMM_WORLD, MPI_COMM_SELF, n, 2, n),
        X(MPI_COMM_WORLD, MPI_COMM_SELF, n, pairs, n);
    Block D(MPI_COMM_WORLD, MPI_COMM_SELF, pairs, 1, pairs);
    for (Block* const block : {&diagonal, &known, &X, &D})
      block->AllocateMem();
    for (int i = 0; i < n; ++i)
      diagonal(i) = 1 + n * rank + i;
    known.Set2Zero();
    known(0, 0) = known(1, 1) = rank == 0 ? 1 : 0;
    X.Set2Random(rank);

    const Lifted A(diagonal, known, 1000);
    const VesMatrixEmpty none; // no B, no T
    Ves::LOBPCG<double> solver;
    solver.maxIter = 1000;
    wrong += solver.Solve(A, none, none, X, D) != VES_GOOD || solver.nConv < pairs;
    for (int j = 0; j < pairs; ++j)
      wrong += !(std::abs(D(j) - (3 + j)) < 1e-8);
    if (rank == 0) std::printf("%.6f %.6f %.6f\n", D(0), D(1), D(2));
  }
  MPI_Finalize();
  return wrong;
}
