# Options, language level and the one list of compiler flags.

option(QN_BUILD_TOOLS "Build tools/ and examples/" ON)
option(QN_BUILD_TESTS "Build tests/ and the replay of fuzz/" ON)
option(QN_BUILD_BENCHMARKS "Build benchmarks/" OFF)
option(QN_BUILD_FUZZERS "Build the fuzz targets with libFuzzer (clang)" OFF)
option(QN_WERROR "Warnings are errors" ON)
set(QN_SANITIZE "" CACHE STRING "Value of -fsanitize=, e.g. address,undefined or thread")

if(NOT CMAKE_BUILD_TYPE)
  set(CMAKE_BUILD_TYPE Release)
endif()
set(CMAKE_CXX_STANDARD 20)
set(CMAKE_CXX_STANDARD_REQUIRED ON)
set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)
set(CMAKE_EXPORT_COMPILE_COMMANDS ON)
set(CMAKE_CXX_FLAGS_RELEASE "-O2 -DNDEBUG")

# The arithmetic of the kernels is exact in its order: no contraction into fused operations that the source
# does not ask for, and no fast-math anywhere. -fno-gnu-unique keeps two copies of the library in one
# process apart.
add_library(qn_flags INTERFACE)
target_compile_features(qn_flags INTERFACE cxx_std_20)
target_compile_options(qn_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wundef -Wcast-align -Wnon-virtual-dtor -Woverloaded-virtual
  -Wnull-dereference -Wimplicit-fallthrough -Wvla
  -ffp-contract=off
  $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique -Wduplicated-cond -Wlogical-op>
  $<$<BOOL:${QN_WERROR}>:-Werror>)
target_include_directories(qn_flags INTERFACE ${CMAKE_SOURCE_DIR})
if(QN_SANITIZE)
  target_compile_options(qn_flags INTERFACE -fsanitize=${QN_SANITIZE} -fno-omit-frame-pointer -g1)
  # GCC's flow analysis of instrumented code reports null dereferences that are none.
  if(CMAKE_CXX_COMPILER_ID STREQUAL GNU)
    target_compile_options(qn_flags INTERFACE -Wno-null-dereference -Wno-maybe-uninitialized)
  else()
    # Clang does not unroll every loop as told once checks stand in it, which is no fault here.
    target_compile_options(qn_flags INTERFACE -Wno-pass-failed)
  endif()
  target_link_options(qn_flags INTERFACE -fsanitize=${QN_SANITIZE})
  if(QN_SANITIZE MATCHES undefined)
    target_compile_options(qn_flags INTERFACE -fno-sanitize-recover=undefined)
  endif()
endif()
if(QN_BUILD_FUZZERS)
  target_compile_options(qn_flags INTERFACE -fsanitize=fuzzer-no-link)
endif()
