include(GoogleTest)
find_package(GTest REQUIRED)

# One binary per folder of tests; every TEST is a ctest entry of its own, in a process of its own.
#   fsys_add_tests(TARGET SOURCES ... LINKS ...)
function(fsys_add_tests target)
  cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
  if(NOT arg_SOURCES)
    return()
  endif()
  add_executable(${target} ${arg_SOURCES})
  target_link_libraries(${target} PRIVATE ${arg_LINKS} GTest::gtest GTest::gmock GTest::gtest_main fsys_warnings)
  target_precompile_headers(${target} PRIVATE <gtest/gtest.h> <gmock/gmock.h>)
  gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST PROPERTIES TIMEOUT 120)
endfunction()

# One TEST in a process that starts with its own configuration: what is read at load cannot be changed
# afterwards. The binary must hold only tests that are registered this way.
#   fsys_add_configured_test(TARGET FILTER VARIABLE=VALUE ...)
function(fsys_add_configured_test target filter)
  add_test(NAME ${filter} COMMAND ${target} --gtest_filter=${filter})
  set_tests_properties(${filter} PROPERTIES ENVIRONMENT "${ARGN}" TIMEOUT 120
    FAIL_REGULAR_EXPRESSION "0 tests from 0 test")
endfunction()
