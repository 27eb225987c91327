# SPDX-License-Identifier: MIT
# Compares the dynamic symbols that LIBRARY defines with EXPECTED (one
# demangled name per line): exactly the exported interface, nothing more.
execute_process(COMMAND nm -D --defined-only -C "${LIBRARY}"
  OUTPUT_VARIABLE listing RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
string(REPLACE "\n" ";" lines "${listing}")
set(actual "")
foreach(line IN LISTS lines)
  # "<address> <type> <name>"; versioned or absolute markers have no name.
  if(line MATCHES "^[0-9a-f]+ [A-Za-z] (.+)$")
    list(APPEND actual "${CMAKE_MATCH_1}")
  endif()
endforeach()
list(REMOVE_DUPLICATES actual)
list(SORT actual)

file(STRINGS "${EXPECTED}" expected)
list(SORT expected)

set(missing ${expected})
list(REMOVE_ITEM missing ${actual})
set(extra ${actual})
list(REMOVE_ITEM extra ${expected})
if(missing OR extra)
  list(JOIN missing "\n  " missingText)
  list(JOIN extra "\n  " extraText)
  message(FATAL_ERROR "exported symbols differ\nmissing:\n  ${missingText}\nunexpected:\n  ${extraText}")
endif()
list(LENGTH actual count)
message(STATUS "${count} exported symbols, as expected")
