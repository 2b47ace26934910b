#include "elpa_kernel.h"

#include <elpa/elpa.h>

#include <complex>

namespace Ves {

static_assert(ElpaKernel::oneStage == ELPA_SOLVER_1STAGE &&
              ElpaKernel::twoStage == ELPA_SOLVER_2STAGE && ELPA_OK == 0);

ElpaKernel::ElpaKernel() {
  // Never undone: the program may use ELPA itself.
  constexpr int apiVersion = 20200417;
  static const int initError = elpa_init(apiVersion);
  m_error = initError;
  if (m_error == ELPA_OK) m_handle = elpa_allocate(&m_error);
}

ElpaKernel::~ElpaKernel() {
  int ignored = 0;
  if (m_handle != nullptr) elpa_deallocate(m_handle, &ignored);
}

void ElpaKernel::Set(const char* name, int value) {
  if (m_error == ELPA_OK) elpa_set_integer(m_handle, name, value, &m_error);
}

void ElpaKernel::Setup() {
  if (m_error == ELPA_OK) m_error = elpa_setup(m_handle);
}

template <typename Scalar>
void ElpaKernel::Decompose(Scalar* A, RealType<Scalar>* values, Scalar* vectors) {
  if (m_error == ELPA_OK) elpa_eigenvectors(m_handle, A, values, vectors, &m_error);
}

template void ElpaKernel::Decompose(double*, double*, double*);
template void ElpaKernel::Decompose(std::complex<double>*, double*, std::complex<double>*);

} // namespace Ves
