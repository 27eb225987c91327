# SPDX-License-Identifier: MIT
# Install rules and packages. Everything installed belongs to one of six
# components, and CPack makes one Debian package of each but the last:
#   runtime      libtetherhost-client1      the client library and its message catalogue
#   svf          libtetherhost-svf1         the SVF player library
#   development  libtetherhost-client-dev   headers (the session layer's too), version.h, the CMake
#                                           package, the pkg-config files
#   tools        tetherhost-tools           tetherctl, the tetherhost simulator and its chains,
#                                           their man pages, tetherctl's bash completion,
#                                           the Wireshark dissector
#   docs         tetherhost-doc             the user guide, the examples as sources, the changelog
#   python       (none)                     the tetherhost Python module, which cmake --install puts
#                                           into the interpreter's site directory under the prefix
# The folders' own CMakeLists.txt tag their installs; this file installs the
# library's files and writes the packages' metadata (docs/packaging.md).
include(CMakePackageConfigHelpers)

install(TARGETS tetherhost_client EXPORT tetherhost_clientTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tetherhost)
install(FILES
  ${PROJECT_SOURCE_DIR}/include/Client.h
  ${PROJECT_SOURCE_DIR}/include/ClientUtils.h
  ${PROJECT_SOURCE_DIR}/include/LByteBuffer.h
  ${PROJECT_SOURCE_DIR}/include/TetherhostExport.h
  ${TETHERHOST_GENERATED_INCLUDE_DIR}/tetherhost/version.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/tetherhost COMPONENT development)
install(FILES ${TETHERHOST_CATALOGUE}
  DESTINATION ${CMAKE_INSTALL_DATADIR}/tetherhost/nls COMPONENT runtime)

set(TETHERHOST_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/tetherhost_client)
install(EXPORT tetherhost_clientTargets
  NAMESPACE tetherhost::
  DESTINATION ${TETHERHOST_CMAKE_DIR} COMPONENT development)
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
  DESTINATION ${TETHERHOST_CMAKE_DIR} COMPONENT development)

# The pkg-config file finds its prefix from where it lies: as many folders up
# from <libdir>/pkgconfig as the libdir is deep (lib, lib64: two;
# lib/x86_64-linux-gnu: three). A folder given as an absolute path is written
# as it is.
file(RELATIVE_PATH TETHERHOST_PC_UP "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
string(REGEX REPLACE "/$" "" TETHERHOST_PC_UP "${TETHERHOST_PC_UP}")
set(TETHERHOST_PC_PREFIX "\${pcfiledir}/${TETHERHOST_PC_UP}")
foreach(dir LIBDIR INCLUDEDIR DATADIR)
  if(IS_ABSOLUTE "${CMAKE_INSTALL_${dir}}")
    set(TETHERHOST_PC_${dir} "${CMAKE_INSTALL_${dir}}")
  else()
    set(TETHERHOST_PC_${dir} "\${prefix}/${CMAKE_INSTALL_${dir}}")
  endif()
endforeach()
if(IS_ABSOLUTE "${CMAKE_INSTALL_LIBDIR}")
  set(TETHERHOST_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
endif()
foreach(library tetherhost_client tetherhost_svf tetherhost_session)
  configure_file(${PROJECT_SOURCE_DIR}/cmake/${library}.pc.in ${PROJECT_BINARY_DIR}/${library}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/${library}.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)
endforeach()

# Debian packages: one per component. Every package carries the license as
# /usr/share/doc/<package>/copyright.
set(TETHERHOST_PACKAGES
  runtime libtetherhost-client${PROJECT_VERSION_MAJOR}
  svf libtetherhost-svf${PROJECT_VERSION_MAJOR}
  development libtetherhost-client-dev
  tools tetherhost-tools
  docs tetherhost-doc)
set(components)
while(TETHERHOST_PACKAGES)
  list(POP_FRONT TETHERHOST_PACKAGES component package)
  list(APPEND components ${component})
  string(TOUPPER ${component} COMPONENT)
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${package})
  install(FILES ${PROJECT_SOURCE_DIR}/LICENSE RENAME copyright
    DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component})
endwhile()
install(FILES ${PROJECT_SOURCE_DIR}/LICENSE ${PROJECT_SOURCE_DIR}/CHANGELOG.md
  DESTINATION ${CMAKE_INSTALL_DOCDIR} COMPONENT docs)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME tetherhost)
set(CPACK_PACKAGE_VENDOR "The tetherhost developers")
set(CPACK_PACKAGE_CONTACT "The tetherhost developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Each package's description begins with its own synopsis line. CPack puts
# the project's summary before every one of them unless the summary is
# CPack's default, so the default it is.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${CMAKE_PROJECT_NAME} built using CMake")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
# Binaries go into the packages stripped, as dh_strip would leave them.
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL ${components})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# dpkg-shlibdeps names the system libraries each package loads; our own two
# are found in the build tree and named below with their exact version.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
# The library packages' shlibs files: what is built against them depends on
# this version or later of the same SONAME.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(tetherhostExact "(= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE})")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "client library of the tetherhost cable server
libtetherhost_client drives a hardware programming cable through the local
tetherhost server over TCP on 127.0.0.1:4001: a host application connects
(the library starts the server when none answers), takes the server's locks,
sends numbered commands and reads replies and scan data.

This package holds the shared library and its message catalogue.")

set(CPACK_DEBIAN_SVF_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_SVF_DESCRIPTION "SVF player of the tetherhost cable server
libtetherhost_svf reads Serial Vector Format files in bounded memory and
plays their scans through libtetherhost_client, checking every TDO.

This package holds the shared library.")
set(CPACK_DEBIAN_SVF_PACKAGE_DEPENDS "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} ${tetherhostExact}")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "development files of the tetherhost client library
The headers of libtetherhost_client and libtetherhost_svf (C++11 and later,
no Qt needed), tetherhost/version.h, the CMake package
(find_package(tetherhost_client): tetherhost::client, tetherhost::svf) and the
pkg-config files tetherhost_client.pc and tetherhost_svf.pc.")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} ${tetherhostExact}, ${CPACK_DEBIAN_SVF_PACKAGE_NAME} ${tetherhostExact}")

set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION electronics)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "tetherctl and the tetherhost server simulator
tetherctl drives the tetherhost cable server from the command line: JTAG
chain and scans, SSPI and I2C transfers, the pump buffer, SVF files and raw
commands. tetherhost is a simulator of the server with a virtual cable (a
JTAG chain, an SSPI flash, an I2C EEPROM), which libtetherhost_client starts
when no server answers; it also serves OpenOCD's remote_bitbang and the
Xilinx Virtual Cable protocols on the same chain.")
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
  "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} ${tetherhostExact}, ${CPACK_DEBIAN_SVF_PACKAGE_NAME} ${tetherhostExact}")

set(CPACK_DEBIAN_DOCS_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOCS_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_DOCS_DESCRIPTION "documentation of the tetherhost client library
The user guide of libtetherhost_client and its tools (the Client calls,
status codes, messages, the wire protocol, tetherctl, the simulator), the
example host applications as buildable sources, and the changelog.")

include(CPack)
