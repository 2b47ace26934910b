# How the provider returns a complex dot product (value or hidden first argument) and how wide its
# integers are. The library is compiled for 32-bit integers; its provider may still be exchanged
# when a program is linked, which the library's own tests notice.
include(CheckCXXSourceRuns)
include(CMakePushCheckState)

if(NOT CMAKE_CROSSCOMPILING)
  cmake_push_check_state(RESET)
  set(CMAKE_REQUIRED_LIBRARIES SCALAPACK::SCALAPACK)
  set(dot_arguments "const int*, const Z*, const int*, const Z*, const int*")
  set(dot_data "const int n = 2, one = 1; const Z x[] = {{1, 2}, {3, -1}}, y[] = {{0, 1}, {2, 2}};")
  check_cxx_source_runs("
    #include <complex>
    using Z = std::complex<double>;
    extern \"C\" Z zdotc_(${dot_arguments});
    int main() { ${dot_data} return zdotc_(&n, x, &one, y, &one) == Z(6, 9) ? 0 : 1; }"
    VES_COMPLEX_DOT_BY_VALUE)
  if(NOT VES_COMPLEX_DOT_BY_VALUE)
    check_cxx_source_runs("
      #include <complex>
      using Z = std::complex<double>;
      extern \"C\" void zdotc_(Z*, ${dot_arguments});
      int main() {
        ${dot_data} Z r; zdotc_(&r, &n, x, &one, y, &one); return r == Z(6, 9) ? 0 : 1; }"
      VES_COMPLEX_DOT_BY_ARGUMENT)
    if(NOT VES_COMPLEX_DOT_BY_ARGUMENT)
      message(FATAL_ERROR "The BLAS found returns complex dot products in no known way")
    endif()
  endif()
  # Of the two words (1, -1) a 64-bit interface reads a negative length and does nothing.
  check_cxx_source_runs("
    extern \"C\" void dscal_(const int*, const double*, double*, const int*);
    int main() {
      alignas(8) const int n[] = {1, -1}, inc[] = {1, 0};
      const double two = 2; double x[] = {1, 1};
      dscal_(n, &two, x, inc); return x[0] == 2 && x[1] == 1 ? 0 : 1; }"
    VES_PROVIDER_HAS_32_BIT_INTEGERS)
  if(NOT VES_PROVIDER_HAS_32_BIT_INTEGERS)
    message(FATAL_ERROR "The BLAS found does not take 32-bit integers")
  endif()
  cmake_pop_check_state()
endif()
