# Installs library, headers, CMake package and pkg-config file. The components of all rules, here
# and in the folders of tools and bindings, are the packages of VesPackages: library, development,
# tools and python.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ves)
install(TARGETS ves EXPORT vesTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    COMPONENT library NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(FILES include/ves.h include/ves.hpp include/ves_operators.hpp include/ves_blocks.hpp
  include/ves_petsc.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
install(DIRECTORY src/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ves COMPONENT development
  FILES_MATCHING PATTERN "*.h" PATTERN "fortran.h" EXCLUDE)
install(EXPORT vesTargets NAMESPACE ves:: DESTINATION ${package_dir} COMPONENT development)

configure_package_config_file(cmake/vesConfig.cmake.in vesConfig.cmake
  INSTALL_DESTINATION ${package_dir})
write_basic_package_version_file(vesConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${CMAKE_CURRENT_BINARY_DIR}/vesConfig.cmake
  ${CMAKE_CURRENT_BINARY_DIR}/vesConfigVersion.cmake
  cmake/FindSCALAPACK.cmake
  DESTINATION ${package_dir} COMPONENT development)

# The prefix may be chosen at installation, so ves.pc finds it from its own place.
file(RELATIVE_PATH ves_prefix_from_pc
  ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
configure_file(cmake/ves.pc.in ves.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/ves.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
  COMPONENT development)
