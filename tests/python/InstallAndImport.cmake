# SPDX-License-Identifier: MIT
# Installs the build tree BUILD_DIR into a fresh prefix under WORK_DIR and
# imports the installed module with only its site folder on the path: the
# extension finds the library through its RPATH, the plugin's entry point is
# there for pytest, and the module starts the server from the prefix's bin.
# Under the configured prefix, when it is /usr/local (the default) or /usr,
# the same site folder is on the interpreter's own path, so such an install
# imports with no path set at all.
file(REMOVE_RECURSE "${WORK_DIR}")
set(prefix "${WORK_DIR}/prefix")
include(${CMAKE_CURRENT_LIST_DIR}/../../cmake/RunCommand.cmake)
# (The Python lines below are joined by newlines: run() takes its arguments
# as a CMake list, in which a semicolon would split one.)

run(${CMAKE_COMMAND} --install "${BUILD_DIR}" --prefix "${prefix}")
set(package "${prefix}/${SITE}/tetherhost")
foreach(installed __init__.py _paths.py _tetherhost.pyi py.typed pytest_plugin.py servers.py
        ../tetherhost-${VERSION}.dist-info/entry_points.txt ../tetherhost-${VERSION}.dist-info/METADATA)
  if(NOT EXISTS "${package}/${installed}")
    message(FATAL_ERROR "not installed: ${package}/${installed}")
  endif()
endforeach()
file(GLOB extension "${package}/_tetherhost*.so")
if(NOT extension)
  message(FATAL_ERROR "the extension is not installed in ${package}")
endif()

run(${CMAKE_COMMAND} -E env --unset=LD_LIBRARY_PATH "PYTHONPATH=${prefix}/${SITE}" ${PYTHON} -c
    "import importlib.metadata as m, tetherhost, tetherhost._paths as p\nprint(tetherhost.__version__, tetherhost.describe(-1022), p.SERVER_DIRECTORY, [e.value for e in m.entry_points(group='pytest11') if e.name == 'tetherhost'])")
string(STRIP "${output}" output)
set(expected "${VERSION} no scan return data to collect ${prefix}/bin ['tetherhost.pytest_plugin']")
if(NOT output STREQUAL expected)
  message(FATAL_ERROR "the installed module says\n  ${output}\nnot\n  ${expected}")
endif()

if(INSTALL_PREFIX STREQUAL "/usr/local" OR INSTALL_PREFIX STREQUAL "/usr")
  run(${PYTHON} -c "import sys\nprint('${INSTALL_PREFIX}/${SITE}' in sys.path)")
  string(STRIP "${output}" output)
  if(NOT output STREQUAL "True")
    message(FATAL_ERROR "${INSTALL_PREFIX}/${SITE} is not on the interpreter's path")
  endif()
endif()
message(STATUS "installed in ${package}, imports, finds its plugin and its server folder")
