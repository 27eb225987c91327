# Installs the build tree BUILD_DIR into a fresh prefix under WORK_DIR, then
# builds and runs the consumer against it twice: with find_package (C++20) and
# with pkg-config (C++11, the oldest standard the headers support).
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")

include(${CMAKE_CURRENT_LIST_DIR}/../support/RunCommand.cmake)

function(check_consumer program)
  run(${CMAKE_COMMAND} -E env "LD_LIBRARY_PATH=${prefix}/lib"
      "NLSPATH=${prefix}/share/tetherhost/nls/%N.cat" ${program} "${WORK_DIR}/consumer.log")
  if(NOT output MATCHES "consumer")
    message(FATAL_ERROR "${program} printed: ${output}")
  endif()
  message(STATUS "${program}: ${output}")
endfunction()

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")
foreach(installed lib/libtetherhost_client.so include/tetherhost/Client.h
        include/tetherhost/ClientUtils.h include/tetherhost/LByteBuffer.h
        share/tetherhost/nls/tetherhostclient.cat lib/pkgconfig/tetherhost_client.pc
        lib/cmake/tetherhost_client/tetherhost_clientConfig.cmake)
  if(NOT EXISTS "${prefix}/${installed}")
    message(FATAL_ERROR "not installed: ${installed}")
  endif()
endforeach()

run(${CMAKE_COMMAND} -S "${SOURCE_DIR}" -B "${WORK_DIR}/cmake-build" -G Ninja
    "-DCMAKE_PREFIX_PATH=${prefix}" "-DCMAKE_CXX_FLAGS=${EXTRA_FLAGS}"
    -DCMAKE_CXX_STANDARD=20)
run(${CMAKE_COMMAND} --build "${WORK_DIR}/cmake-build")
check_consumer("${WORK_DIR}/cmake-build/consumer")

run(${CMAKE_COMMAND} -E env "PKG_CONFIG_PATH=${prefix}/lib/pkgconfig"
    pkg-config --cflags --libs tetherhost_client)
string(STRIP "${output}" pkgFlags)
separate_arguments(pkgFlags UNIX_COMMAND "${pkgFlags}")
separate_arguments(extra UNIX_COMMAND "${EXTRA_FLAGS}")
run(${CXX} -std=c++11 -Wall -Wextra -Werror ${extra} "${SOURCE_DIR}/main.cpp" ${pkgFlags}
    -o "${WORK_DIR}/pkgconfig-consumer")
check_consumer("${WORK_DIR}/pkgconfig-consumer")
