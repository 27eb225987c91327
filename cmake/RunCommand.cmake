# SPDX-License-Identifier: MIT
# run(<command> [<arg>...]): runs a command from a CMake script (a test, the
# man pages) and stops the script with the command's output when it fails;
# on success its standard output is left in the variable `output` of the
# caller.
function(run)
  execute_process(COMMAND ${ARGV} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(NOT status EQUAL 0)
    message(FATAL_ERROR "failed: ${ARGV}\n${out}\n${err}")
  endif()
  set(output "${out}" PARENT_SCOPE)
endfunction()
