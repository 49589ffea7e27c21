# Tests with GoogleTest. Each test is a ctest entry.

find_package(GTest REQUIRED)
include(GoogleTest)

# Builds only the test programs of the core and the plug-in.
add_custom_target(kelElementTests)
add_dependencies(kelElementTests kelLibsndfile)

# Builds only the programs whose tests are labelled "threads".
add_custom_target(kelThreadTests)
add_dependencies(kelThreadTests kelLibsndfile kelhost)

# The headers that most tests include, compiled once for all test programs.
if(KEL_PRECOMPILED_HEADERS)
  file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/test-headers.cpp CONTENT "int main() {}\n")
  add_executable(kelTestHeaders EXCLUDE_FROM_ALL ${PROJECT_BINARY_DIR}/test-headers.cpp)
  set_target_properties(kelTestHeaders PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests)
  target_link_libraries(kelTestHeaders PRIVATE GTest::gmock_main kelProjectSettings)
  target_compile_options(kelTestHeaders PRIVATE $<$<CONFIG:Release>:-O0>)
  target_precompile_headers(kelTestHeaders PRIVATE
    <gmock/gmock.h> <gtest/gtest.h>
    <algorithm> <cstddef> <cstdint> <filesystem> <functional> <memory> <string> <utility> <vector>)
endif()

# The test programs and their sources, for scripts/test-targets.
function(kel_write_test_programs)
  get_property(programs GLOBAL PROPERTY KEL_TEST_PROGRAMS)
  file(WRITE ${PROJECT_BINARY_DIR}/test-programs.txt "${programs}")
endfunction()
cmake_language(DEFER DIRECTORY ${PROJECT_SOURCE_DIR} CALL kel_write_test_programs)

# kel_add_test(NAME SOURCES file... [LIBRARIES target...] [DEFINITIONS definition...]
#              [LABELS label] [FIXTURES fixture])
# Adds a test program and a ctest entry for each of its tests. In a release build, the code of the tests is
# not optimised, which halves the time to compile it. An instrumented program needs longer to start than
# most tests need to run, so there an entry is a tenth of its tests.
function(kel_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "LABELS;FIXTURES" "SOURCES;LIBRARIES;DEFINITIONS")
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE
    ${arg_LIBRARIES} kelTestSupport kelCore::kelCore GTest::gmock_main kelProjectSettings)
  target_compile_definitions(${name} PRIVATE ${arg_DEFINITIONS})
  target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-O0>)
  if(TARGET kelTestHeaders)
    target_precompile_headers(${name} REUSE_FROM kelTestHeaders)
    # Other files replace functions of the system or belong to the libraries.
    set(others ${arg_SOURCES})
    list(FILTER others EXCLUDE REGEX "Tests\\.cpp$")
    set_source_files_properties(${others} PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
  endif()
  set_target_properties(${name} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/tests
    INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  if(name MATCHES "^kel(Core|Libsndfile)")
    add_dependencies(kelElementTests ${name})
  endif()
  if("threads" IN_LIST arg_LABELS)
    add_dependencies(kelThreadTests ${name})
  endif()
  list(TRANSFORM arg_SOURCES PREPEND ${CMAKE_CURRENT_SOURCE_DIR}/ REGEX "^[^/]")
  set_property(GLOBAL APPEND_STRING PROPERTY KEL_TEST_PROGRAMS "${name};${arg_SOURCES}\n")
  set(properties TIMEOUT 300)
  if(arg_LABELS)
    list(APPEND properties LABELS ${arg_LABELS})
  endif()
  if(arg_FIXTURES)
    list(APPEND properties FIXTURES_REQUIRED ${arg_FIXTURES})
  endif()
  if(NOT KEL_SANITIZE)
    # Without the values themselves, which are addresses for some parameters.
    gtest_discover_tests(${name} NO_PRETTY_VALUES DISCOVERY_TIMEOUT 60 PROPERTIES ${properties})
    return()
  endif()
  foreach(shard RANGE 9)
    add_test(NAME ${name}.${shard} COMMAND ${name})
    set_tests_properties(${name}.${shard} PROPERTIES ${properties}
      ENVIRONMENT "GTEST_TOTAL_SHARDS=10;GTEST_SHARD_INDEX=${shard}")
  endforeach()
endfunction()

# kel_add_test_plugin(NAME file...)
# Adds a plug-in that only tests use: only they know its directory.
set(KEL_TEST_PLUGIN_DIRECTORY ${PROJECT_BINARY_DIR}/tests/plugins)
function(kel_add_test_plugin name)
  add_library(${name} MODULE ${ARGN})
  target_link_libraries(${name} PRIVATE kelCore::kelCore kelProjectSettings)
  target_compile_options(${name} PRIVATE $<$<CONFIG:Release>:-O0>)
  set_target_properties(${name} PROPERTIES
    LIBRARY_OUTPUT_DIRECTORY ${KEL_TEST_PLUGIN_DIRECTORY}
    INSTALL_RPATH "$ORIGIN/../../${CMAKE_INSTALL_LIBDIR}")
endfunction()
