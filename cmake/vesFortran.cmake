# ves::fortran, for projects that enable Fortran.
if(CMAKE_Fortran_COMPILER_LOADED)
  find_package(MPI QUIET COMPONENTS Fortran)
  if(MPI_Fortran_FOUND)
    include("${CMAKE_CURRENT_LIST_DIR}/vesFortranTargets.cmake")
    set(ves_fortran_FOUND TRUE)
  endif()
endif()
