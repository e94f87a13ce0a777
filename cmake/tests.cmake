# vnk_test(<name> [THREADED] [ROOMS <room>...] [LIBS <target>...] [SOURCES <file>...]): one GoogleTest
# program of the sources in this folder, each test of it a ctest entry. THREADED marks what the thread
# sanitizer run takes.
function(vnk_test name)
  cmake_parse_arguments(PARSE_ARGV 1 TEST "THREADED;SERIAL" "TIMEOUT" "ROOMS;LIBS;SOURCES")
  if(NOT TEST_SOURCES)
    file(GLOB TEST_SOURCES CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  endif()
  if(NOT TEST_SOURCES)
    return()
  endif()
  add_executable(${name} ${TEST_SOURCES})
  foreach(room IN LISTS TEST_ROOMS)
    target_link_libraries(${name} PRIVATE vnk-${room})
    target_sources(${name} PRIVATE $<TARGET_OBJECTS:vnk-${room}>)
  endforeach()
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/include)
  target_compile_definitions(${name} PRIVATE VNK_TEST_DATA="${PROJECT_SOURCE_DIR}/tests/data"
    VNK_SOURCE_DIR="${PROJECT_SOURCE_DIR}")
  # Tests need no speed of their own; what they test is built as it is shipped.
  target_compile_options(${name} PRIVATE ${VNK_TEST_OPTIONS})
  target_link_libraries(${name} PRIVATE ${TEST_LIBS} GTest::gmock_main Threads::Threads)
  target_precompile_headers(${name} REUSE_FROM vnk-test-precompiled)
  set(properties TIMEOUT 300)
  if(TEST_TIMEOUT)
    set(properties TIMEOUT ${TEST_TIMEOUT})
  endif()
  if(TEST_SERIAL)
    list(APPEND properties RUN_SERIAL TRUE)
  endif()
  if(TEST_THREADED)
    list(APPEND properties LABELS threaded)
  endif()
  gtest_discover_tests(${name} TEST_PREFIX ${name}. DISCOVERY_MODE PRE_TEST PROPERTIES ${properties})
endfunction()

if(VNK_BUILD_TESTS)
  find_package(GTest REQUIRED)
  find_package(rapidcheck QUIET)
  include(GoogleTest)

  set(VNK_TEST_OPTIONS ${VNK_SMALL_OPTIONS})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # g++ 12 sees sums of short strings beyond their bounds where they are inlined from a precompiled header.
    list(APPEND VNK_TEST_OPTIONS -Wno-array-bounds -Wno-restrict -Wno-stringop-overflow)
  endif()

  # What every test includes, parsed once: it was a third of the time of a whole build.
  file(CONFIGURE OUTPUT ${CMAKE_BINARY_DIR}/precompiled.cpp CONTENT "")
  add_library(vnk-test-precompiled OBJECT ${CMAKE_BINARY_DIR}/precompiled.cpp)
  set_target_properties(vnk-test-precompiled PROPERTIES POSITION_INDEPENDENT_CODE OFF)
  target_compile_options(vnk-test-precompiled PRIVATE ${VNK_TEST_OPTIONS} -fPIE)
  target_link_libraries(vnk-test-precompiled PRIVATE GTest::gmock Threads::Threads)
  target_precompile_headers(vnk-test-precompiled PRIVATE <gmock/gmock.h> <gtest/gtest.h> <atomic> <chrono>
    <cmath> <complex> <condition_variable> <cstdint> <cstring> <filesystem> <fstream> <functional> <map> <memory>
    <mutex> <numbers> <random> <span> <sstream> <string> <thread> <vector>)
endif()
