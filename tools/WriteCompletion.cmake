# SPDX-License-Identifier: MIT
# Writes tetherctl's bash completion OUTPUT from TEMPLATE and the words that
# PROGRAM --completion-words prints. Run as
#   cmake -DPROGRAM=... -DTEMPLATE=... -DOUTPUT=... -P WriteCompletion.cmake
execute_process(COMMAND "${PROGRAM}" --completion-words
  RESULT_VARIABLE status OUTPUT_VARIABLE listing ERROR_VARIABLE err)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "${PROGRAM} --completion-words failed: ${err}")
endif()
string(REPLACE "\n" ";" lines "${listing}")
set(SUBCOMMANDS "")
set(SUBCOMMAND_CASES "")
foreach(line IN LISTS lines)
  if(line MATCHES "^[^ ]+ ([a-z][^ ]*) (.*)$")
    list(APPEND SUBCOMMANDS ${CMAKE_MATCH_1})
    string(APPEND SUBCOMMAND_CASES "        ${CMAKE_MATCH_1}) echo \"${CMAKE_MATCH_2}\" ;;\n")
  elseif(line MATCHES "^[^ ]+ (-.*)$")
    set(PROGRAM_WORDS "${CMAKE_MATCH_1}")
  endif()
endforeach()
if(NOT SUBCOMMANDS OR NOT PROGRAM_WORDS)
  message(FATAL_ERROR "${PROGRAM} --completion-words printed no subcommands or options:\n${listing}")
endif()
list(JOIN SUBCOMMANDS " " SUBCOMMANDS)
string(STRIP "${SUBCOMMAND_CASES}" SUBCOMMAND_CASES)
set(SUBCOMMAND_CASES "        ${SUBCOMMAND_CASES}")
configure_file("${TEMPLATE}" "${OUTPUT}" @ONLY)
