# Project-wide compile settings. The library itself is built for baseline
# x86-64; only the kernel family directories add instruction-set flags.
add_compile_options(-Wall -Wextra -Wno-unused-parameter)
# Multiply-adds are fused only where the code says so (fma intrinsics, std::fma):
# a compiler free to contract a*b+c in the -mfma families would make their
# scalar tails differ from the portable references.
add_compile_options(-ffp-contract=off)

# RapidJSON 1.1 adds an offset to its internal stack pointer while that is
# still null (before the first allocation); the pointer-overflow check is left
# out so that this known, harmless spot does not drown real findings.
set(TRN_UBSAN_EXCEPTIONS -fno-sanitize=pointer-overflow)

if(TRN_SANITIZE)
  add_compile_options(-fsanitize=address,undefined ${TRN_UBSAN_EXCEPTIONS} -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

if(TRN_FUZZ)
  if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    message(FATAL_ERROR "TRN_FUZZ needs clang (configure with -DCMAKE_CXX_COMPILER=clang++)")
  endif()
  add_compile_options(-fsanitize=fuzzer-no-link,address,undefined ${TRN_UBSAN_EXCEPTIONS} -fno-omit-frame-pointer
                      -fno-sanitize-recover=undefined)
  add_link_options(-fsanitize=address,undefined)
endif()

# Flags of each kernel family, applied per directory (see trn_kernel_family).
set(TRN_FLAGS_FALLBACK "")
set(TRN_FLAGS_SSE -msse4.1 -mfma)
set(TRN_FLAGS_AVX -mavx2 -mfma)

# Collects the sources of one family directory into an object library built
# with that family's flags. Objects are linked into trn_core in family order
# (fallback, SSE, AVX, SGEMM), so inline functions that several families
# instantiate keep the baseline copy.
function(trn_kernel_family name)
  cmake_parse_arguments(ARG "" "" "FLAGS" ${ARGN})
  file(GLOB_RECURSE sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.cpp)
  if(NOT sources)
    return()
  endif()
  add_library(${name} OBJECT ${sources})
  target_compile_options(${name} PRIVATE ${ARG_FLAGS})
  if(TRN_SANITIZE)
    # The register tiles are arrays filled by nested inlined lambdas: poisoning
    # each of their scopes multiplies the compile time of a kernel file by four
    # and more, while the kernels' memory accesses are still all checked.
    target_compile_options(${name} PRIVATE -fno-sanitize-address-use-after-scope)
  endif()
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR}/inc ${PROJECT_SOURCE_DIR}/src)
  target_include_directories(${name} SYSTEM PRIVATE ${RAPIDJSON_INCLUDE_DIRS})
  target_include_directories(${name} PRIVATE ${OpenBLAS_INCLUDE_DIRS})
  set_property(GLOBAL APPEND PROPERTY TRN_KERNEL_OBJECT_LIBS ${name})
endfunction()
