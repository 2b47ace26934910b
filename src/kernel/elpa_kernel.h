#ifndef VES_KERNEL_ELPA_KERNEL_H
#define VES_KERNEL_ELPA_KERNEL_H

#include "scalar_traits.h"

struct elpa_struct;

namespace Ves {

/// A problem of ELPA: settings by name, then one decomposition. The first error is kept, and what
/// comes after it does nothing.
class ElpaKernel {
public:
  ElpaKernel();
  ElpaKernel(const ElpaKernel&) = delete;
  ElpaKernel& operator=(const ElpaKernel&) = delete;
  ~ElpaKernel();

  static constexpr int oneStage = 1, twoStage = 2; ///< values of "solver"
  void Set(const char* name, int value);

  /// Takes the settings up. Collective over the communicator among them.
  void Setup();

  /// Of the local piece A, both triangles, which becomes anything: all values in ascending order
  /// and the local piece of as many vectors as are set. In double precision: ELPA is often built
  /// without the single one. Collective like Setup.
  template <typename Scalar>
  void Decompose(Scalar* A, RealType<Scalar>* values, Scalar* vectors);

  int Error() const { return m_error; } ///< of ELPA; 0 as long as there was none

private:
  elpa_struct* m_handle = nullptr;
  int m_error = 0;
};

} // namespace Ves

#endif
