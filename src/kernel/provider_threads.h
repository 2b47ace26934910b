#ifndef VES_KERNEL_PROVIDER_THREADS_H
#define VES_KERNEL_PROVIDER_THREADS_H

#include <ves.h>

namespace Ves {

/// The threads of the BLAS that the program has loaded.
struct VES_EXPORT ProviderThreads {
  /// Sets their number where the provider is one that can be told (OpenBLAS), and leaves it for a
  /// number below 1. \return what it was; 0: it cannot be told
  static int Change(int count);
};

} // namespace Ves

#endif
