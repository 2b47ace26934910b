#include "cyclic_layout.h"

#include "../kernel/blacs_kernel.h"

#include <algorithm>

namespace Ves {

void CyclicLayout::DealOut(int n, int blockOrder) {
  nb = blockOrder;
  locRows = inGrid ? BlacsKernel::Numroc(n, nb, myrow, 0, nprow) : 0;
  locCols = inGrid ? BlacsKernel::Numroc(n, nb, mycol, 0, npcol) : 0;
  lld = std::max(1, locRows);
}

} // namespace Ves
