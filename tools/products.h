#ifndef VES_TOOLS_PRODUCTS_H
#define VES_TOOLS_PRODUCTS_H

namespace VesTools {

/// Whether small products of the BLAS (gemm, herk or syrk, trsm) are what plain loops give, in all
/// four types: old releases have kernels that are wrong on some processors.
bool AreProductsRight();

} // namespace VesTools

#endif
