#ifndef VES_KERNEL_INSTANTIATE_H
#define VES_KERNEL_INSTANTIATE_H

#include <complex>

/// Last line of a class header: the four instantiations live in the class's own source files.
#define VES_EXTERN_TEMPLATE(Class)                                                                 \
  extern template class Class<double>;                                                             \
  extern template class Class<float>;                                                              \
  extern template class Class<std::complex<double>>;                                               \
  extern template class Class<std::complex<float>>

/// Last line of each source file of a class: instantiates the members defined in that file.
#define VES_INSTANTIATE(Class)                                                                     \
  template class Class<double>;                                                                    \
  template class Class<float>;                                                                     \
  template class Class<std::complex<double>>;                                                      \
  template class Class<std::complex<float>>

#endif
