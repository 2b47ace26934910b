# Links ELPA to the library, where VES_ELPA asks for it, and leaves the sources that need it out
# elsewhere; VES_HAS_ELPA says which. ELPA itself brings the BLAS, LAPACK and ScaLAPACK that it
# needs, which must be those of the program.
set_property(CACHE VES_ELPA PROPERTY STRINGS OFF ON AUTO)
set(VES_HAS_ELPA FALSE)
if(VES_ELPA)
  find_package(PkgConfig QUIET)
  if(PKG_CONFIG_FOUND)
    pkg_check_modules(ELPA_PC QUIET elpa)
  endif()
  find_path(ELPA_INCLUDE_DIR elpa/elpa.h HINTS ${ELPA_PC_INCLUDE_DIRS})
  find_library(ELPA_LIBRARY elpa HINTS ${ELPA_PC_LIBRARY_DIRS})
  mark_as_advanced(ELPA_INCLUDE_DIR ELPA_LIBRARY)
  if(ELPA_INCLUDE_DIR AND ELPA_LIBRARY)
    set(VES_HAS_ELPA TRUE)
  elseif(NOT VES_ELPA STREQUAL "AUTO")
    message(FATAL_ERROR "VES_ELPA is ${VES_ELPA}, but there is no ELPA;"
      " on Debian: scripts/install-deps elpa")
  endif()
endif()

if(VES_HAS_ELPA)
  message(STATUS "Dense eigensolvers of ELPA: ${ELPA_LIBRARY}")
  target_include_directories(ves SYSTEM PRIVATE ${ELPA_INCLUDE_DIR})
  target_link_libraries(ves PRIVATE ${ELPA_LIBRARY})
  set_source_files_properties(src/interface/solver_base.cpp
    PROPERTIES COMPILE_DEFINITIONS VES_HAS_ELPA)
else()
  set_source_files_properties(src/kernel/elpa_kernel.cpp src/eigensolver/elpa_diag.cpp
    PROPERTIES HEADER_FILE_ONLY ON)
endif()
