#ifndef VES_TOOLS_KERNELS_H
#define VES_TOOLS_KERNELS_H

#include <ostream>
#include <string>
#include <vector>

namespace VesTools {

/// What OpenBLAS multiplies with. It takes its kernels when it is loaded: those named in
/// OPENBLAS_CORETYPE, else by the processor, for one that it does not know those of 2004.
struct Kernels {
  std::string inUse;                ///< empty with another BLAS
  std::string better;               ///< newer ones that the processor runs, or empty
  std::vector<std::string> refused; ///< newer ones that did not pass the check
  bool isChosen = false;            ///< by the program
};

/// Where OpenBLAS took kernels older than the processor, and nobody chose them, starts the program
/// anew with the newest ones that pass a check of small products, and does not return. To be called
/// first: before MPI is initialised, and before anything is printed.
Kernels ChooseKernels(char** argv);

/// A line where newer kernels could be had, and one where some cannot be used.
void PrintAdvice(std::ostream& out, const Kernels& kernels);

} // namespace VesTools

#endif
