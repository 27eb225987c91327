# Install rules: the library, its headers under include/tetherhost/, the
# compiled message catalogue, a CMake package (tetherhost::client) and a
# pkg-config file.
include(CMakePackageConfigHelpers)

install(TARGETS tetherhost_client EXPORT tetherhost_clientTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tetherhost)
install(FILES
  ${PROJECT_SOURCE_DIR}/include/Client.h
  ${PROJECT_SOURCE_DIR}/include/ClientUtils.h
  ${PROJECT_SOURCE_DIR}/include/LByteBuffer.h
  ${PROJECT_SOURCE_DIR}/include/TetherhostExport.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tetherhost)
install(FILES ${TETHERHOST_CATALOGUE}
  DESTINATION ${CMAKE_INSTALL_DATADIR}/tetherhost/nls)

set(TETHERHOST_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tetherhost_client)
install(EXPORT tetherhost_clientTargets
  NAMESPACE tetherhost::
  DESTINATION ${TETHERHOST_CMAKE_DIR})
configure_package_config_file(
  ${PROJECT_SOURCE_DIR}/cmake/tetherhost_clientConfig.cmake.in
  ${PROJECT_BINARY_DIR}/tetherhost_clientConfig.cmake
  INSTALL_DESTINATION ${TETHERHOST_CMAKE_DIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/tetherhost_clientConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/tetherhost_clientConfig.cmake
  ${PROJECT_BINARY_DIR}/tetherhost_clientConfigVersion.cmake
  DESTINATION ${TETHERHOST_CMAKE_DIR})

configure_file(${PROJECT_SOURCE_DIR}/cmake/tetherhost_client.pc.in
  ${PROJECT_BINARY_DIR}/tetherhost_client.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/tetherhost_client.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
