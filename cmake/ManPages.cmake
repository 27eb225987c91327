# SPDX-License-Identifier: MIT
# tetherhost_man_page(<program> NAME <one line> [INCLUDE <file.h2m>]
#                     [SUBCOMMANDS <option>])
#
# The program's man page, section 1, written at build time by help2man from
# the program's own --help and --version, so the page and the program cannot
# disagree. INCLUDE adds hand-written sections (help2man's include format);
# SUBCOMMANDS names the hidden option that lists the subcommands (one
# "<program> <subcommand> ..." line each), and each subcommand's --help then
# becomes a part of the COMMANDS section. The page is installed gzipped
# (gzip -n: no name or time inside, so builds are reproducible) into man1.
# help2man takes the page's date from SOURCE_DATE_EPOCH when it is set.
function(tetherhost_man_page program)
  cmake_parse_arguments(PARSE_ARGV 1 MAN "" "NAME;INCLUDE;SUBCOMMANDS" "")
  find_program(HELP2MAN_EXECUTABLE help2man REQUIRED)
  find_program(GZIP_EXECUTABLE gzip REQUIRED)
  set(page ${PROJECT_BINARY_DIR}/man/${program}.1)
  add_custom_command(OUTPUT ${page} ${page}.gz
    COMMAND ${CMAKE_COMMAND} -DHELP2MAN=${HELP2MAN_EXECUTABLE} -DGZIP=${GZIP_EXECUTABLE}
            -DPROGRAM=$<TARGET_FILE:${program}> -DNAME=${MAN_NAME} -DINCLUDE=${MAN_INCLUDE}
            -DSUBCOMMANDS=${MAN_SUBCOMMANDS} -DOUTPUT=${page} -P ${PROJECT_SOURCE_DIR}/cmake/WriteManPage.cmake
    DEPENDS ${program} ${MAN_INCLUDE} ${PROJECT_SOURCE_DIR}/cmake/WriteManPage.cmake
    COMMENT "Writing the man page ${program}(1) from ${program} --help"
    VERBATIM)
  add_custom_target(${program}_man_page ALL DEPENDS ${page} ${page}.gz)
  install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
endfunction()
