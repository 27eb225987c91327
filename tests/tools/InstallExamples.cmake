# SPDX-License-Identifier: MIT
# Installs the build tree BUILD_DIR into a fresh prefix under WORK_DIR and
# builds the installed example host applications against it, as a user
# would: the examples folder with find_package (C++17), and minimal_host once
# more with pkg-config (C++11, the oldest standard the headers support). The
# installed tetherctl must run without help from LD_LIBRARY_PATH, and the
# examples are installed as sources only: bin/ holds tetherctl and the
# simulator, nothing else. LIBDIR is the build's CMAKE_INSTALL_LIBDIR.
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")
set(build "${WORK_DIR}/build")

include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/RunCommand.cmake)

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")
set(examples "${prefix}/share/doc/tetherhost/examples")
foreach(installed bin/tetherctl bin/tetherhost share/doc/tetherhost/examples/CMakeLists.txt
        share/doc/tetherhost/examples/minimal_host.cpp share/doc/tetherhost/examples/list_replies.cpp
        share/doc/tetherhost/examples/hello_log.cpp share/doc/tetherhost/examples/testing/CMakeLists.txt
        share/doc/tetherhost/examples/testing/careful_host.cpp share/doc/tetherhost/examples/testing/careful_host.jsonl
        share/doc/tetherhost/examples/testing/with-tetherhost.sh
        share/doc/tetherhost/examples/testing/faults/lock-held.json
        share/doc/tetherhost/examples/first_session.cpp share/doc/tetherhost/examples/first_session.py
        include/tetherhost/session.hpp include/tetherhost/commands.hpp ${LIBDIR}/pkgconfig/tetherhost_session.pc)
  if(NOT EXISTS "${prefix}/${installed}")
    message(FATAL_ERROR "not installed: ${installed}")
  endif()
endforeach()

file(GLOB programs RELATIVE "${prefix}/bin" "${prefix}/bin/*")
list(SORT programs)
if(NOT programs STREQUAL "tetherctl;tetherhost")
  message(FATAL_ERROR "installed programs: ${programs}")
endif()

# The installed tetherctl finds the installed library by itself.
run("${prefix}/bin/tetherctl" codes)
if(NOT output MATCHES "-1001: could not send to the server")
  message(FATAL_ERROR "installed tetherctl printed: ${output}")
endif()

run(${CMAKE_COMMAND} -S "${examples}" -B "${build}" -G Ninja "-DCMAKE_PREFIX_PATH=${prefix}"
    "-DCMAKE_CXX_FLAGS=-Wall -Wextra -Werror ${EXTRA_FLAGS}" -DCMAKE_CXX_STANDARD=17)
run(${CMAKE_COMMAND} --build "${build}")

run(${CMAKE_COMMAND} -E env "PKG_CONFIG_PATH=${prefix}/${LIBDIR}/pkgconfig"
    pkg-config --cflags --libs tetherhost_client)
string(STRIP "${output}" pkgFlags)
separate_arguments(pkgFlags UNIX_COMMAND "${pkgFlags}")
separate_arguments(extra UNIX_COMMAND "${EXTRA_FLAGS}")
run(${CXX} -std=c++11 -Wall -Wextra -Werror ${extra} "${examples}/minimal_host.cpp" ${pkgFlags}
    "-Wl,-rpath,${prefix}/${LIBDIR}" -o "${build}/minimal_host_pkgconfig")

# The session layer with pkg-config, at C++17, the oldest standard it takes.
run(${CMAKE_COMMAND} -E env "PKG_CONFIG_PATH=${prefix}/${LIBDIR}/pkgconfig"
    pkg-config --cflags --libs tetherhost_session)
string(STRIP "${output}" pkgFlags)
separate_arguments(pkgFlags UNIX_COMMAND "${pkgFlags}")
run(${CXX} -std=c++17 -Wall -Wextra -Werror ${extra} "${examples}/first_session.cpp" ${pkgFlags}
    "-Wl,-rpath,${prefix}/${LIBDIR}" -o "${build}/first_session_pkgconfig")
