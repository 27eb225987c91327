# SPDX-License-Identifier: MIT
# PROGRAM --version must print exactly "NAME VERSION" and exit 0.
execute_process(COMMAND "${PROGRAM}" --version RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT status EQUAL 0 OR NOT out STREQUAL "${NAME} ${VERSION}\n" OR NOT err STREQUAL "")
  message(FATAL_ERROR "${PROGRAM} --version: exit ${status}, printed '${out}', errors '${err}'")
endif()
