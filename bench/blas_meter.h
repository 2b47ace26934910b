// Counts the products of BLAS that a run makes, by shape, and tells how long they would take by
// themselves.
#ifndef VES_BENCH_BLAS_METER_H
#define VES_BENCH_BLAS_METER_H

namespace VesBench {

/// What the products on tall blocks cost, and on bands of their rows.
struct BlasCost {
  double seconds = 0.0; ///< in the run
  double alone = 0.0;   ///< the same shapes again, each the best of a few calls, operands in memory
  double flops = 0.0;   ///< real additions and multiplications
};

/// Forgets what was counted.
void ResetBlasMeter();
/// Operations of the products on tall blocks that were counted, those of TallProducts.
double TallFlops(int order);
/// Leaves out what LAPACK calls on small matrices: products both of whose long sides, the sum's and
/// the result's, are at most order. Takes as long as the counted products, once for each shape.
BlasCost TallProducts(int order);

} // namespace VesBench

#endif
