# Installation: headers, the shared library with its symlinks, a CMake package
# (find_package(Norvane) gives Norvane::norvane) and a pkg-config file.
include(CMakePackageConfigHelpers)

set(NORVANE_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Norvane)

install(TARGETS norvane EXPORT NorvaneTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
# Internal headers, the tests' helpers (*_test_*.h) and their data stay in the source tree.
install(DIRECTORY ${PROJECT_SOURCE_DIR}/norvane/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/norvane
  FILES_MATCHING PATTERN "*.h" PATTERN "*_internal.h" EXCLUDE PATTERN "*_test_*.h" EXCLUDE
  PATTERN "testdata" EXCLUDE)
install(EXPORT NorvaneTargets NAMESPACE Norvane:: DESTINATION ${NORVANE_CMAKE_DIR})

configure_package_config_file(cmake/NorvaneConfig.cmake.in
  ${PROJECT_BINARY_DIR}/NorvaneConfig.cmake INSTALL_DESTINATION ${NORVANE_CMAKE_DIR})
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/NorvaneConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/NorvaneConfig.cmake ${PROJECT_BINARY_DIR}/NorvaneConfigVersion.cmake
  DESTINATION ${NORVANE_CMAKE_DIR})

# The .pc file finds the prefix relative to itself, so the installed tree can move.
file(RELATIVE_PATH NORVANE_PC_TO_PREFIX /root/${CMAKE_INSTALL_LIBDIR}/pkgconfig /root)
configure_file(cmake/norvane.pc.in ${PROJECT_BINARY_DIR}/norvane.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/norvane.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
