include(GoogleTest)
find_package(GTest REQUIRED)

# Where logs and preferences of tests go that do not say otherwise: never to the developer's own.
set(FSYS_TEST_HOME ${CMAKE_BINARY_DIR}/home)
file(MAKE_DIRECTORY ${FSYS_TEST_HOME})

# One binary per folder of tests. Every TEST is a ctest entry of its own, in a process of its own; under a
# sanitizer, where a process costs more than most tests, a binary is one entry and leaves the results of its
# tests in gtest/TARGET.xml.
#   fsys_add_tests(TARGET SOURCES ... LINKS ...)
function(fsys_add_tests target)
  cmake_parse_arguments(arg "" "" "SOURCES;LINKS" ${ARGN})
  if(NOT arg_SOURCES)
    return()
  endif()
  add_executable(${target} ${arg_SOURCES})
  target_link_libraries(${target} PRIVATE ${arg_LINKS} GTest::gtest GTest::gmock GTest::gtest_main fsys_warnings)
  target_precompile_headers(${target} PRIVATE <gtest/gtest.h> <gmock/gmock.h>)
  if(FSYS_SANITIZE)
    add_test(NAME ${target} COMMAND ${target} --gtest_output=xml:${CMAKE_BINARY_DIR}/gtest/${target}.xml)
    # The longest entries of these builds: they begin first.
    set_tests_properties(${target} PROPERTIES TIMEOUT 900 COST 2000 ENVIRONMENT HOME=${FSYS_TEST_HOME})
  else()
    gtest_discover_tests(${target} DISCOVERY_MODE PRE_TEST
      PROPERTIES TIMEOUT 120 ENVIRONMENT HOME=${FSYS_TEST_HOME})
  endif()
endfunction()

# One TEST in a process that starts with its own configuration: what is read at load cannot be changed
# afterwards. The binary must hold only tests that are registered this way.
#   fsys_add_configured_test(TARGET FILTER VARIABLE=VALUE ...)
function(fsys_add_configured_test target filter)
  add_test(NAME ${filter} COMMAND ${target} --gtest_filter=${filter})
  set_tests_properties(${filter} PROPERTIES ENVIRONMENT "HOME=${FSYS_TEST_HOME};${ARGN}" TIMEOUT 120
    FAIL_REGULAR_EXPRESSION "0 tests from 0 test")
endfunction()
