# SPDX-License-Identifier: MIT
# Installs the project into a fresh prefix under WORK_DIR with the library
# folder LIBDIR, then builds and runs the consumer against it twice: with
# find_package (C++20) and with pkg-config (C++11, the oldest standard the
# headers support). The tree installed is either the build tree BUILD_DIR
# (configured with LIBDIR) or, when SOURCE_ROOT is given, the library alone
# configured from SOURCE_ROOT with CMAKE_INSTALL_LIBDIR=LIBDIR and
# CONFIGURE_ARGS, and built here. Both consumers must print the VERSION of
# the installed tetherhost/version.h, and the pkg-config variables must
# resolve into the prefix whatever the depth of LIBDIR.
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/RunCommand.cmake)

if(SOURCE_ROOT)
  set(BUILD_DIR "${WORK_DIR}/library-build")
  run(${CMAKE_COMMAND} -S "${SOURCE_ROOT}" -B "${BUILD_DIR}" -G Ninja "-DCMAKE_INSTALL_LIBDIR=${LIBDIR}"
      -DTETHERHOST_BUILD_TESTS=OFF -DTETHERHOST_BUILD_BENCH=OFF -DTETHERHOST_BUILD_SERVER=OFF
      -DTETHERHOST_BUILD_TOOLS=OFF ${CONFIGURE_ARGS})
  run(${CMAKE_COMMAND} --build "${BUILD_DIR}")
endif()

function(check_consumer program)
  run(${CMAKE_COMMAND} -E env "LD_LIBRARY_PATH=${prefix}/${LIBDIR}"
      "NLSPATH=${prefix}/share/tetherhost/nls/%N.cat" ${program} "${WORK_DIR}/consumer.log")
  if(NOT output MATCHES "consumer" OR NOT output MATCHES "\nbuilt against tetherhost ${VERSION}\n$")
    message(FATAL_ERROR "${program} printed: ${output}")
  endif()
  message(STATUS "${program}: ${output}")
endfunction()

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")
foreach(installed ${LIBDIR}/libtetherhost_client.so ${LIBDIR}/libtetherhost_svf.so include/tetherhost/Client.h
        include/tetherhost/ClientUtils.h include/tetherhost/LByteBuffer.h include/tetherhost/SvfPlayer.h
        include/tetherhost/version.h share/tetherhost/nls/tetherhostclient.cat
        share/tetherhost/wireshark/tetherhost.lua
        ${LIBDIR}/pkgconfig/tetherhost_client.pc ${LIBDIR}/pkgconfig/tetherhost_svf.pc
        ${LIBDIR}/cmake/tetherhost_client/tetherhost_clientConfig.cmake)
  if(NOT EXISTS "${prefix}/${installed}")
    message(FATAL_ERROR "not installed: ${installed}")
  endif()
endforeach()

# find_package looks in lib64 only where the platform keeps 64-bit libraries
# there (FIND_LIBRARY_USE_LIB64_PATHS), not on Debian: there a lib64 install
# is named by its package folder, as a user would.
set(packageDir "")
if(LIBDIR STREQUAL "lib64")
  set(packageDir "-Dtetherhost_client_DIR=${prefix}/lib64/cmake/tetherhost_client")
endif()
run(${CMAKE_COMMAND} -S "${SOURCE_DIR}" -B "${WORK_DIR}/cmake-build" -G Ninja
    "-DCMAKE_PREFIX_PATH=${prefix}" "-DCMAKE_CXX_FLAGS=${EXTRA_FLAGS}"
    -DCMAKE_CXX_STANDARD=20 ${packageDir})
run(${CMAKE_COMMAND} --build "${WORK_DIR}/cmake-build")
check_consumer("${WORK_DIR}/cmake-build/consumer")

set(pkgConfig ${CMAKE_COMMAND} -E env "PKG_CONFIG_PATH=${prefix}/${LIBDIR}/pkgconfig" pkg-config)
foreach(variable prefix libdir includedir nlsdir)
  run(${pkgConfig} --variable=${variable} tetherhost_client)
  string(STRIP "${output}" value)
  file(REAL_PATH "${value}" pc_${variable})
endforeach()
file(REAL_PATH "${prefix}" realPrefix)
foreach(pair "prefix=${realPrefix}" "libdir=${realPrefix}/${LIBDIR}" "includedir=${realPrefix}/include"
        "nlsdir=${realPrefix}/share/tetherhost/nls")
  string(REPLACE "=" ";" pair "${pair}")
  list(GET pair 0 variable)
  list(GET pair 1 expected)
  if(NOT "${pc_${variable}}" STREQUAL "${expected}")
    message(FATAL_ERROR "pkg-config's ${variable} is ${pc_${variable}}, not ${expected}")
  endif()
endforeach()
run(${pkgConfig} --modversion tetherhost_svf)
if(NOT output STREQUAL "${VERSION}\n")
  message(FATAL_ERROR "tetherhost_svf.pc has version ${output}")
endif()

run(${pkgConfig} --cflags --libs tetherhost_client)
string(STRIP "${output}" pkgFlags)
separate_arguments(pkgFlags UNIX_COMMAND "${pkgFlags}")
separate_arguments(extra UNIX_COMMAND "${EXTRA_FLAGS}")
run(${CXX} -std=c++11 -Wall -Wextra -Werror ${extra} "${SOURCE_DIR}/main.cpp" ${pkgFlags}
    -o "${WORK_DIR}/pkgconfig-consumer")
check_consumer("${WORK_DIR}/pkgconfig-consumer")
