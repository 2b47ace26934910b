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
  include/ves_groups.hpp include/ves_petsc.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development)
# Solvers, components, blocks and operators, to use and to derive from (docs/deriving.md), with what
# their headers include. The others are the library's own.
foreach(header
    cholesky/cholesky_factorizer cholesky/lapack_chol cholesky/scalapack_chol
    data/assertion data/imaged data/joint_sum data/matrix_base data/matrix_shell data/metered_operator
    data/panelled_operator data/replicate data/shared_products data/vector_base data/vector_dense
    detector/converge_detector detector/eigenvalues detector/flag_pairs
    detector/relative_residuals detector/residuals detector/residuals_or_eigenvalues
    eigensolver/dense_eigensolver eigensolver/lapack_diag eigensolver/scalapack_diag
    interface/solver_base
    kernel/in_pieces kernel/instantiate kernel/math_constants kernel/math_kernel
    kernel/scalar_traits
    orthogonalizer/cholesky_qr orthogonalizer/dense_orthogonalizer orthogonalizer/group_products
    orthogonalizer/orthogonalizer orthogonalizer/svd_qr
    parallel/blacs_wrapper parallel/cyclic_layout parallel/mpi_wrapper parallel/thread_team
    projector/gram_schmidt projector/ortho_projector
    solver/block_solver solver/deflation solver/lobpcg solver/lobpcg_batch solver/lobpcg_steps
    solver/ppcg solver/progress_watch solver/self_check solver/shared_images solver/tolerances
    solver/workspace_plan)
  cmake_path(GET header PARENT_PATH folder)
  install(FILES src/${header}.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ves/${folder}
    COMPONENT development)
endforeach()
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
