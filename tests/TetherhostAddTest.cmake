# SPDX-License-Identifier: MIT
# tetherhost_add_test(): one GoogleTest program and its ctest registration.
#
#   tetherhost_add_test(<target> PREFIX <prefix>
#     SOURCES <file>... LIBRARIES <target>...
#     [ISOLATED]                    run in namespaces of its own (RunIsolated.sh)
#     [CATALOGUE]                   needs the message catalogues built first
#     [DEFINITIONS <definition>...] compile definitions
#     [DEPENDS <target>...]         targets to build before it
#     [DISCOVERY <option>...]       extra options of gtest_discover_tests
#     [PROPERTIES <name> <value>...] properties of every test it holds)
#
# Every test is named <prefix>.<Suite>.<Test>; GTest::gtest_main gives the
# program its main.
include(GoogleTest)

function(tetherhost_add_test target)
  cmake_parse_arguments(PARSE_ARGV 1 TEST "ISOLATED;CATALOGUE" "PREFIX"
    "SOURCES;LIBRARIES;DEFINITIONS;DEPENDS;DISCOVERY;PROPERTIES")
  add_executable(${target} ${TEST_SOURCES})
  target_link_libraries(${target} PRIVATE ${TEST_LIBRARIES} GTest::gtest_main)
  if(TEST_DEFINITIONS)
    target_compile_definitions(${target} PRIVATE ${TEST_DEFINITIONS})
  endif()
  if(TEST_CATALOGUE)
    list(APPEND TEST_DEPENDS tetherhost_catalogues)
  endif()
  if(TEST_DEPENDS)
    add_dependencies(${target} ${TEST_DEPENDS})
  endif()
  if(TEST_ISOLATED)
    set_target_properties(${target} PROPERTIES
      CROSSCOMPILING_EMULATOR ${PROJECT_SOURCE_DIR}/tests/support/RunIsolated.sh)
  endif()
  set(properties)
  if(TEST_PROPERTIES)
    set(properties PROPERTIES ${TEST_PROPERTIES})
  endif()
  gtest_discover_tests(${target} TEST_PREFIX "${TEST_PREFIX}." ${TEST_DISCOVERY} ${properties})
endfunction()
