# SIMD level of the x86-64 fast paths, chosen at build time. The arm64 build
# always has NEON. The scalar reference is compiled everywhere.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  set(SCANCODE_X86_SIMD "avx2" CACHE STRING "x86-64 SIMD level: none, sse41 or avx2")
  if(SCANCODE_X86_SIMD STREQUAL "avx2")
    target_compile_options(scancode_objs PUBLIC -mavx2)
  elseif(SCANCODE_X86_SIMD STREQUAL "sse41")
    target_compile_options(scancode_objs PUBLIC -msse4.1)
  endif()
endif()
