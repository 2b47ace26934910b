# Finds a ScaLAPACK with its BLACS, LAPACK and BLAS. Debian's own package config names a missing
# path, so: the cache variable SCALAPACK_LIBRARIES first, then pkg-config, then a search by name;
# the result must link.
#
#   SCALAPACK_FOUND, SCALAPACK_LIBRARIES, target SCALAPACK::SCALAPACK
include(CheckCSourceCompiles)
include(CMakePushCheckState)
include(FindPackageHandleStandardArgs)
find_package(MPI REQUIRED COMPONENTS C)

if(NOT SCALAPACK_LIBRARIES)
  find_package(PkgConfig QUIET)
  foreach(name scalapack-openmpi scalapack-mpich scalapack)
    if(PKG_CONFIG_FOUND AND NOT SCALAPACK_LIBRARY)
      pkg_check_modules(SCALAPACK_PC QUIET ${name})
      find_library(SCALAPACK_LIBRARY NAMES ${SCALAPACK_PC_LIBRARIES}
        HINTS ${SCALAPACK_PC_LIBRARY_DIRS})
    endif()
  endforeach()
  find_library(SCALAPACK_LIBRARY NAMES scalapack-openmpi scalapack-mpich scalapack)
  # ScaLAPACK draws in LAPACK and BLAS by these names; another name would be a second copy.
  find_library(SCALAPACK_LAPACK_LIBRARY NAMES lapack openblas)
  find_library(SCALAPACK_BLAS_LIBRARY NAMES blas openblas)
  mark_as_advanced(SCALAPACK_LIBRARY SCALAPACK_LAPACK_LIBRARY SCALAPACK_BLAS_LIBRARY)
  if(SCALAPACK_LIBRARY AND SCALAPACK_LAPACK_LIBRARY AND SCALAPACK_BLAS_LIBRARY)
    set(SCALAPACK_LIBRARIES
      ${SCALAPACK_LIBRARY} ${SCALAPACK_LAPACK_LIBRARY} ${SCALAPACK_BLAS_LIBRARY})
  endif()
endif()

if(SCALAPACK_LIBRARIES)
  cmake_push_check_state(RESET)
  set(CMAKE_REQUIRED_LIBRARIES ${SCALAPACK_LIBRARIES} MPI::MPI_C m)
  set(CMAKE_REQUIRED_QUIET ON)
  check_c_source_compiles(
    "void pdsyevd_(void); void blacs_gridmap_(void); void zheevd_(void); void zgemm_(void);
     int main(void) { pdsyevd_(); blacs_gridmap_(); zheevd_(); zgemm_(); return 0; }"
    SCALAPACK_LINKS)
  cmake_pop_check_state()
endif()

find_package_handle_standard_args(SCALAPACK REQUIRED_VARS SCALAPACK_LIBRARIES SCALAPACK_LINKS)

if(SCALAPACK_FOUND AND NOT TARGET SCALAPACK::SCALAPACK)
  add_library(SCALAPACK::SCALAPACK INTERFACE IMPORTED)
  set_target_properties(SCALAPACK::SCALAPACK PROPERTIES
    INTERFACE_LINK_LIBRARIES "${SCALAPACK_LIBRARIES};MPI::MPI_C")
endif()
