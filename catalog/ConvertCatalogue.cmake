# SPDX-License-Identifier: MIT
# Turns the gencat source of the message catalogue into
#   MODE=builtin: a C++ table of {number, "template"} entries for the texts
#                 built into the library;
#   MODE=tagged:  a gencat source whose templates begin with their number
#                 (the catalogue the tests point NLSPATH at).
# Only plain message lines "<number> <text>", "$" directives and comments are
# accepted: the templates carry no escapes, so both outputs keep them verbatim.
file(STRINGS "${INPUT}" lines ENCODING UTF-8)
set(out "")
foreach(line IN LISTS lines)
  if(line MATCHES "^\\$" OR line STREQUAL "")
    if(MODE STREQUAL "tagged")
      string(APPEND out "${line}\n")
    endif()
    continue()
  endif()
  if(NOT line MATCHES "^([0-9]+) (.*)$")
    message(FATAL_ERROR "${INPUT}: not a message line: ${line}")
  endif()
  set(number "${CMAKE_MATCH_1}")
  set(text "${CMAKE_MATCH_2}")
  if(text MATCHES "[\\\\\"]")
    message(FATAL_ERROR "${INPUT}: message ${number} holds a backslash or a double quote")
  endif()
  if(MODE STREQUAL "builtin")
    string(APPEND out "{${number}, \"${text}\"},\n")
  else()
    string(APPEND out "${number} ${number} ${text}\n")
  endif()
endforeach()
file(WRITE "${OUTPUT}.tmp" "${out}")
file(COPY_FILE "${OUTPUT}.tmp" "${OUTPUT}" ONLY_IF_DIFFERENT)
file(REMOVE "${OUTPUT}.tmp")
