# SPDX-License-Identifier: MIT
# Passes when the page DOC holds the whole text of EXAMPLE, as it stands in
# the source tree: the first programs that the guides show are the ones the
# tests build and run.
file(READ "${DOC}" page)
file(READ "${EXAMPLE}" example)
string(FIND "${page}" "${example}" at)
if(at EQUAL -1)
  message(FATAL_ERROR "${DOC} does not show ${EXAMPLE} as it stands")
endif()
message(STATUS "${DOC} shows ${EXAMPLE}")
