# What depends on the processor: the vector types, the options for them and the sources that only some
# processors can run. Nothing else in the build asks for the processor.

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64|amd64)$")
  set(nimbrel_default_vectors avx)
  set(nimbrel_pause_source pause_x86_64.cpp)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(aarch64|arm64)$")
  set(nimbrel_default_vectors plain)
  set(nimbrel_pause_source pause_aarch64.cpp)
else()
  set(nimbrel_default_vectors plain)
  set(nimbrel_pause_source pause_generic.cpp)
endif()

set(NIMBREL_VECTORS ${nimbrel_default_vectors}
    CACHE STRING "Vector types: avx (x86-64 alone, and AVX-512 where the processor has it) or plain")
set_property(CACHE NIMBREL_VECTORS PROPERTY STRINGS avx plain)

if(NIMBREL_VECTORS STREQUAL "avx")
  if(NOT nimbrel_default_vectors STREQUAL "avx")
    message(FATAL_ERROR "NIMBREL_VECTORS=avx needs x86-64; this is ${CMAKE_SYSTEM_PROCESSOR}")
  endif()
  # The processor that the engine needs, named and not probed for: a wheel must run elsewhere than on
  # the machine that built it.
  target_compile_options(nimbrel_options INTERFACE -mavx -mfma -mpopcnt)
  set(nimbrel_processor_check processor_check.cpp)
  set(nimbrel_processor_features processor_features.cpp)
elseif(NIMBREL_VECTORS STREQUAL "plain")
  # No option: the engine runs on every processor of the family.
  target_compile_definitions(nimbrel_options INTERFACE NIMBREL_PLAIN_VECTORS)
  set(nimbrel_processor_check any_processor.cpp)
  set(nimbrel_processor_features)
else()
  message(FATAL_ERROR "NIMBREL_VECTORS is ${NIMBREL_VECTORS}; it must be avx or plain")
endif()

# nimbrel_compile_for_any_processor(<source>...)
#
# Sources of the caller's folder that run before the module has looked at the processor: its entry
# and whatever defines an object that is made when the library is loaded.
function(nimbrel_compile_for_any_processor)
  if(NIMBREL_VECTORS STREQUAL "avx")
    nimbrel_compile_with(-mno-avx -mno-fma -mno-popcnt SOURCES ${ARGN})
  endif()
endfunction()

# nimbrel_add_wide_kernels(<target> <option>... SOURCES <source>... CHOICE <source>
#                          [BESIDE <source>...] ABSENT <source>)
#
# SOURCES run only where the processor has the instructions of the options, so nothing else may be
# compiled with them. CHOICE asks the processor when the library is loaded. BESIDE calls them. Plain
# vectors have one width: there ABSENT stands in for all of these.
function(nimbrel_add_wide_kernels target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "" "CHOICE;ABSENT" "SOURCES;BESIDE")
  if(NOT NIMBREL_VECTORS STREQUAL "avx")
    target_sources(${target} PRIVATE ${arg_ABSENT})
    return()
  endif()
  target_sources(${target} PRIVATE ${arg_SOURCES} ${arg_CHOICE} ${arg_BESIDE})
  # GCC 12 warns of registers that its own header leaves undefined on purpose.
  nimbrel_compile_with(
    ${arg_UNPARSED_ARGUMENTS}
    $<$<CXX_COMPILER_ID:GNU>:-Wno-uninitialized;-Wno-maybe-uninitialized>
    SOURCES ${arg_SOURCES})
  nimbrel_compile_for_any_processor(${arg_CHOICE})
endfunction()
