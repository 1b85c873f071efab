# Defines nimbrel_options, the one place for compiler switches: every target of the project links it,
# directly or through the library below it.

# A bare `cmake` run shall not give the unoptimised build by accident.
if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES)
  set(CMAKE_BUILD_TYPE Release CACHE STRING "Build type" FORCE)
endif()

# Static libraries end up in a shared module.
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
# One known place for the module, to be put on PYTHONPATH by runs without an install.
set(CMAKE_LIBRARY_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/lib")

add_library(nimbrel_options INTERFACE)
target_compile_features(nimbrel_options INTERFACE cxx_std_20)
target_include_directories(nimbrel_options INTERFACE "${PROJECT_SOURCE_DIR}/cpp")

# Contraction is off because results are compared bit for bit; a fused multiply-add stands in the
# source where one is meant. GCC 12 fuses a complex product all the same when it makes vectors of
# neighbouring statements, so it may not do that; the kernels are vectors already.
target_compile_options(
  nimbrel_options
  INTERFACE -ffp-contract=off
            -fno-tree-slp-vectorize
            # Paths of the build must not reach the module: two builds give the same bytes.
            "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=."
            -fvisibility=hidden
            -fvisibility-inlines-hidden
            "$<$<CONFIG:Release>:-O3>"
            "$<$<CONFIG:Debug>:-O1;-g>")

include(NimbrelProcessor)

# nimbrel_compile_with(<option>... SOURCES <source>...)
#
# Compiles sources of the caller's folder with more options than the rest of their library.
function(nimbrel_compile_with)
  cmake_parse_arguments(PARSE_ARGV 0 arg "" "" "SOURCES")
  set_property(SOURCE ${arg_SOURCES} APPEND PROPERTY COMPILE_OPTIONS ${arg_UNPARSED_ARGUMENTS})
  # A precompiled header is valid only for the options it was made with.
  set_property(SOURCE ${arg_SOURCES} PROPERTY SKIP_PRECOMPILE_HEADERS ON)
endfunction()

# Bounds checks in the standard containers: they find an index that stays inside the allocation,
# which an address sanitizer cannot see.
target_compile_definitions(nimbrel_options INTERFACE "$<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>")

target_compile_options(nimbrel_options INTERFACE -Wall -Wextra -Wpedantic -Wshadow -Wconversion
                                                 -Wsign-conversion -Wnon-virtual-dtor)
if(NIMBREL_WARNINGS_AS_ERRORS)
  target_compile_options(nimbrel_options INTERFACE -Werror)
endif()

if(NIMBREL_SANITIZE)
  list(JOIN NIMBREL_SANITIZE "," nimbrel_sanitizers)
  # No recovery: undefined behaviour is a failed test and not a line in the log.
  set(nimbrel_sanitizer_flags -fsanitize=${nimbrel_sanitizers} -fno-sanitize-recover=all
                              -fno-omit-frame-pointer)
  target_compile_options(nimbrel_options INTERFACE ${nimbrel_sanitizer_flags})
  if(NIMBREL_BUILD_FUZZ)
    # What a fuzzer follows. Comparisons are left out: they take most of its time and find little,
    # because the targets choose opcodes and sizes from tables.
    # Each accessor of the standard library is a call under -O1 or with checks of its own.
    target_compile_options(
      nimbrel_options INTERFACE -O2 -fsanitize-coverage=inline-8bit-counters,pc-table)
    if(NIMBREL_SANITIZE MATCHES undefined)
      target_compile_options(
        nimbrel_options
        INTERFACE "-fsanitize-ignorelist=${PROJECT_SOURCE_DIR}/cmake/fuzz_uninstrumented.txt")
    endif()
  endif()
  target_link_options(nimbrel_options INTERFACE ${nimbrel_sanitizer_flags})
endif()

if(NIMBREL_COVERAGE)
  target_compile_options(nimbrel_options INTERFACE -fprofile-instr-generate -fcoverage-mapping)
  target_link_options(nimbrel_options INTERFACE -fprofile-instr-generate)
endif()
