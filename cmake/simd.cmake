# Vector kernel variants. The library, the tools and the tests are built for
# the architecture's baseline; only the files that hold a variant get the
# instruction set it needs, and the library picks a variant at run time from
# what the CPU has (src/platform/cpu_features.h). arm64 always has NEON, which
# its baseline already enables. FMA goes only where the reference itself
# fuses the multiply and add: -ffp-contract=off keeps the compiler from
# fusing anything else.
if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64")
  set(_simd_files
      src/entry/color_convert_sse41.cpp "-msse4.1"
      src/entry/color_convert_avx2.cpp "-mavx2"
      src/inference/quantize_avx2.cpp "-mavx2"
      src/inference/quantize_avx2fma.cpp "-mavx2,-mfma"
      src/inference/tensor_convert_avx2.cpp "-mavx2")
  # Pairs of file and options, the options separated by commas.
  while(_simd_files)
    list(POP_FRONT _simd_files _file _options)
    string(REPLACE "," ";" _options "${_options}")
    set_source_files_properties(${PROJECT_SOURCE_DIR}/${_file} PROPERTIES COMPILE_OPTIONS
                                "${_options}")
  endwhile()
endif()
