# Describes the Debian packages to CPack: `cpack` in a finished build makes them, scripts/packages
# in a build of its own, whose layout below /usr is Debian's.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "The developers of libves" CACHE STRING "Maintainer of the packages")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # each package has its own
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL library development tools python)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS library)
set(CPACK_COMPONENT_TOOLS_DEPENDS library)
set(CPACK_COMPONENT_PYTHON_DEPENDS library)
if(NOT VES_BUILD_TOOLS)
  list(REMOVE_ITEM CPACK_COMPONENTS_ALL tools)
endif()
if(VES_PAGES)
  list(APPEND CPACK_COMPONENTS_ALL documentation)
  install(DIRECTORY ${VES_PAGES} DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libves-doc
    COMPONENT documentation PATTERN .buildinfo EXCLUDE PATTERN .doctrees EXCLUDE)
endif()

set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_COMPRESSION_TYPE xz)
set(CPACK_DEBIAN_PACKAGE_SOURCE libves)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY >=)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/VesCompressPages.cmake)

# What the libraries lack themselves is the program's to choose; this is what Debian offers.
set(provider libscalapack-openmpi2.2)

# Descriptions keep to lines below 80 characters: Debian's tools show them as they stand.
set(about
"Block eigensolvers (LOBPCG, its batched form and PPCG) for the lowest
eigenpairs of large Hermitian problems A x = lambda x and A x = lambda B x.
Operators are routines of the caller; rows are distributed over processes by
MPI.")

set(CPACK_DEBIAN_LIBRARY_PACKAGE_NAME libves${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_LIBRARY_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_LIBRARY_PACKAGE_RECOMMENDS ${provider})
set(CPACK_DEBIAN_LIBRARY_DESCRIPTION "block eigensolvers for large Hermitian problems
${about}

This package holds the shared libraries, for C and for Fortran. They compute
with the BLAS, LAPACK and ScaLAPACK of the program that uses them.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libves-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS libopenmpi-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_RECOMMENDS libscalapack-openmpi-dev)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "block eigensolvers (development files)
${about}

This package holds the headers, the Fortran module, the CMake package and the
files of pkg-config.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ves-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION math)
set(CPACK_DEBIAN_TOOLS_PACKAGE_RECOMMENDS openmpi-bin)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "block eigensolvers (command line program)
${about}

This package holds the program ves, which solves problems in Matrix Market
files and model problems, checks results and compares the solvers.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-ves)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
  "${provider}, python3:any (>= 3.9), python3-numpy, python3-scipy")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SUGGESTS python3-mpi4py)
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "block eigensolvers (Python 3)
${about}

This package holds the Python package ves, for arrays of numpy, sparse
matrices and operators of scipy, and communicators of mpi4py.")

set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_NAME libves-doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCUMENTATION_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_DOCUMENTATION_DESCRIPTION "block eigensolvers (documentation)
${about}

This package holds the pages: guides, theory, reference and gallery, in
/usr/share/doc/libves-doc/html.")

# Python's byte code is made where the package is installed and goes with it.
set(control_dir ${PROJECT_BINARY_DIR}/packages/python)
file(CONFIGURE OUTPUT ${control_dir}/postinst @ONLY CONTENT
[[#!/bin/sh
set -e
if [ "$1" = configure ] && command -v py3compile >/dev/null; then
  py3compile -p @CPACK_DEBIAN_PYTHON_PACKAGE_NAME@
fi
]])
file(CONFIGURE OUTPUT ${control_dir}/prerm @ONLY CONTENT
[[#!/bin/sh
set -e
if command -v py3clean >/dev/null; then
  py3clean -p @CPACK_DEBIAN_PYTHON_PACKAGE_NAME@
fi
]])
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${control_dir}/postinst ${control_dir}/prerm)

# Only in packages: an installation by hand has no folder for each of them.
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  string(TOUPPER ${component} name)
  install(FILES ${PROJECT_SOURCE_DIR}/CHANGELOG.md RENAME changelog
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${CPACK_DEBIAN_${name}_PACKAGE_NAME}
    COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
