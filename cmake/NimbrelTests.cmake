# nimbrel_add_tests(<area> <library>...)
#
# One GoogleTest executable from every tests/native/<area>/*_test.cpp, linked with the libraries named.
# Each of its tests is a CTest test with the label <area>, so `ctest -L bit` runs one area.
function(nimbrel_add_tests area)
  file(GLOB sources CONFIGURE_DEPENDS "${CMAKE_CURRENT_SOURCE_DIR}/${area}/*_test.cpp")
  if(NOT sources)
    message(FATAL_ERROR "tests/native/${area} has no *_test.cpp: an area without tests is a mistake")
  endif()

  string(REPLACE "/" "_" target "nimbrel_${area}_tests")
  add_executable(${target} ${sources})
  target_include_directories(${target} PRIVATE "${CMAKE_CURRENT_SOURCE_DIR}")
  target_link_libraries(${target} PRIVATE ${ARGN} GTest::gtest_main)
  # Most of a test file's compile time is this header.
  target_precompile_headers(${target} PRIVATE <gtest/gtest.h>)

  if(CMAKE_CROSSCOMPILING)
    # To start an emulator takes longer than most tests, so it is started once for all of an area.
    add_test(NAME ${area} COMMAND ${target})
    set_tests_properties(${area} PROPERTIES LABELS ${area})
    return()
  endif()
  # Listed when CTest runs and not after linking: a sanitized program may need its environment first.
  gtest_discover_tests(
    ${target}
    TEST_PREFIX "${area}/"
    DISCOVERY_MODE PRE_TEST
    PROPERTIES LABELS ${area})
endfunction()

# nimbrel_add_narrow_tests(<area> <library>...)
#
# The tests of an area once more, on kernels of 256 bits: without this, a processor with wider vectors
# would never run them.
function(nimbrel_add_narrow_tests area)
  string(REPLACE "/" "_" target "nimbrel_${area}_tests")
  add_executable(${target}_narrow $<TARGET_OBJECTS:${target}> narrow_kernels.cpp)
  target_link_libraries(${target}_narrow PRIVATE ${ARGN} GTest::gtest_main)
  gtest_discover_tests(
    ${target}_narrow
    TEST_PREFIX "${area}/narrow/"
    DISCOVERY_MODE PRE_TEST
    PROPERTIES LABELS ${area})
endfunction()
