# SPDX-License-Identifier: MIT
# Writes OUTPUT (a man page) and OUTPUT.gz with help2man from PROGRAM's
# --help and --version; see ManPages.cmake. Run as
#   cmake -DHELP2MAN=... -DGZIP=... -DPROGRAM=... -DNAME=... [-DINCLUDE=...]
#         [-DSUBCOMMANDS=<listing option>] -DOUTPUT=... -P WriteManPage.cmake

include(${CMAKE_CURRENT_LIST_DIR}/RunCommand.cmake)

get_filename_component(programName "${PROGRAM}" NAME)
set(include "${OUTPUT}.h2m")
set(sections "")
if(INCLUDE)
  file(READ "${INCLUDE}" sections)
endif()

if(SUBCOMMANDS)
  run("${PROGRAM}" --version)
  string(STRIP "${output}" version)
  run("${PROGRAM}" ${SUBCOMMANDS})
  string(REPLACE "\n" ";" lines "${output}")
  string(APPEND sections "[COMMANDS]\n")
  foreach(line IN LISTS lines)
    # "<program> <subcommand> <word>..."; the program's own line has none.
    if(NOT line MATCHES "^[^ ]+ ([a-z][^ ]*)")
      continue()
    endif()
    set(subcommand "${CMAKE_MATCH_1}")
    run("${HELP2MAN}" --no-info "--version-string=${version}" "--help-option=${subcommand} --help"
        --name=x "${PROGRAM}")
    # The subcommand's page from its description on, its sections turned
    # into paragraphs of this one.
    string(FIND "${output}" ".SH DESCRIPTION\n" start)
    string(LENGTH ".SH DESCRIPTION\n" skip)
    math(EXPR start "${start} + ${skip}")
    string(SUBSTRING "${output}" ${start} -1 body)
    string(REPLACE "\n.SH OPTIONS\n" "\n.SH Options:\n" body "\n${body}")
    string(REGEX REPLACE "\n\\.SH ([^\n]*)" "\n.PP\n\\\\fI\\1\\\\fR" body "${body}")
    string(REGEX REPLACE "\n\\.SS \"([^\n]*)\"" "\n.PP\n\\\\fI\\1\\\\fR" body "${body}")
    string(APPEND sections ".SS \"${programName} ${subcommand}\"${body}")
  endforeach()
endif()
file(WRITE "${include}" "${sections}")

run("${HELP2MAN}" --no-info "--name=${NAME}" "--include=${include}" "--output=${OUTPUT}" "${PROGRAM}")
execute_process(COMMAND "${GZIP}" -9 -n -c "${OUTPUT}" OUTPUT_FILE "${OUTPUT}.gz" RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "gzip failed on ${OUTPUT}")
endif()
