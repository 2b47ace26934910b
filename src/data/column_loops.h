#ifndef VES_DATA_COLUMN_LOOPS_H
#define VES_DATA_COLUMN_LOOPS_H

#include "../kernel/in_pieces.h"
#include "../parallel/thread_team.h"
#include "vector_dense.h"

namespace Ves {

/// Calls change(j, first, count) for rows from first on of every column, few enough to stay in the
/// cache from one vector operation to the next; columns are shared by the threads of the run.
template <typename Change>
void ForEachPiece(int rows, int columns, Change change) {
  constexpr int most = 1024;
  ShareColumns(rows, columns, [&](int j) {
    InPieces(rows, most, [&](int first, int count) { change(j, first, count); });
  });
}

template <typename Scalar>
Scalar* At(const VectorDense<Scalar>& block, int column, int row) {
  return block.Column(column) + row;
}

/// y = ofY y + ofX x
template <typename Scalar>
void Combine(int count, double ofY, double ofX, const Scalar* x, Scalar* y) {
  const auto b = static_cast<RealType<Scalar>>(ofY), a = static_cast<RealType<Scalar>>(ofX);
  for (int i = 0; i < count; ++i)
    y[i] = b * y[i] + a * x[i];
}

/// Adds Re x^H y of each column to the products, over the rows of this process.
template <typename Scalar>
void AddProducts(const VectorDense<Scalar>& x, const VectorDense<Scalar>& y, double* products) {
  ForEachPiece(x.nRows, x.nCols, [&](int j, int first, int count) {
    const int one = MathConstants<int>::ONE;
    const Scalar* const left = At(x, j, first);
    const Scalar* const right = At(y, j, first);
    products[j] +=
        static_cast<double>(std::real(MathKernel<Scalar>::Dot(&count, left, &one, right, &one)));
  });
}

} // namespace Ves

#endif
