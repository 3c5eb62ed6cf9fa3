# Install rules: the shared library, its public headers, a CMake package
# (find_package(Setvault) gives Setvault::setvault) and a pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS setvault EXPORT SetvaultTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR}
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/setvault
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})

set(SETVAULT_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/Setvault)
install(EXPORT SetvaultTargets NAMESPACE Setvault:: DESTINATION ${SETVAULT_CMAKE_DIR})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/SetvaultConfig.cmake.in
  ${CMAKE_CURRENT_BINARY_DIR}/SetvaultConfig.cmake
  INSTALL_DESTINATION ${SETVAULT_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/SetvaultConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/SetvaultConfig.cmake
              ${CMAKE_CURRENT_BINARY_DIR}/SetvaultConfigVersion.cmake
  DESTINATION ${SETVAULT_CMAKE_DIR})

file(RELATIVE_PATH SETVAULT_PC_TO_INCLUDE
  /prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig /prefix/${CMAKE_INSTALL_INCLUDEDIR})
configure_file(${PROJECT_SOURCE_DIR}/cmake/setvault.pc.in
  ${CMAKE_CURRENT_BINARY_DIR}/setvault.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/setvault.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
