# SPDX-License-Identifier: MIT
# The recorded ABI of the shared libraries (abi/*.abi, written by abidw from
# abigail-tools) and the target that rewrites it. The test suite compares
# every suitable build against the record (tests/packaging); an intended
# change is recorded with
#   cmake --build build --target abi_record
# together with the version and the changelog (docs/packaging.md).
# The record keeps no paths: no corpus or compilation folder, and source
# locations by file name only, which abi/suppressions.ini needs to tell the
# exported headers' types from the rest.
set(TETHERHOST_ABI_LIBRARIES tetherhost_client tetherhost_svf_player)
set(TETHERHOST_ABI_SUPPRESSIONS ${PROJECT_SOURCE_DIR}/abi/suppressions.ini)

# tetherhost_abi_record_file(<target> <variable>): the record of a library.
function(tetherhost_abi_record_file target variable)
  get_target_property(name ${target} OUTPUT_NAME)
  if(NOT name)
    set(name ${target})
  endif()
  set(${variable} ${PROJECT_SOURCE_DIR}/abi/lib${name}.abi PARENT_SCOPE)
endfunction()

find_program(ABIDW_EXECUTABLE abidw)
if(ABIDW_EXECUTABLE)
  set(commands)
  foreach(library IN LISTS TETHERHOST_ABI_LIBRARIES)
    tetherhost_abi_record_file(${library} record)
    list(APPEND commands COMMAND ${ABIDW_EXECUTABLE} --no-corpus-path --no-comp-dir-path --short-locs
         --type-id-style hash --out-file ${record} $<TARGET_FILE:${library}>)
  endforeach()
  add_custom_target(abi_record ${commands}
    DEPENDS ${TETHERHOST_ABI_LIBRARIES}
    COMMENT "Recording the libraries' ABI in abi/"
    VERBATIM)
endif()
