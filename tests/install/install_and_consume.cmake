# Installs the build into a fresh prefix, then builds and runs a program
# outside the project against it twice: found with find_package and with
# pkg-config. The installed library must find the installed adapter and
# model (not the build tree's) and find the code in the sample frame. Where
# the build has the Scanner, a C++ program uses it the same two ways, and
# the Python module runs from the prefix.
#   cmake -DBUILD_DIR= -DWORK_DIR= -DCONSUMER_DIR= -DWRITE_NV21= -DSAMPLE=
#         -DVERSION= -DLIBDIR= -DC_COMPILER= [-DSANITIZE_FLAGS=]
#         [-DSCANNER_CONSUMER_DIR= -DCXX_COMPILER=] [-DPYTHON= -DPYTHONDIR=]
#         -P install_and_consume.cmake
function(run)
  execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE out)
  if(NOT rc EQUAL 0)
    message(FATAL_ERROR "failed (${rc}): ${ARGN}\n${out}")
  endif()
  set(out "${out}" PARENT_SCOPE)
endfunction()

set(prefix ${WORK_DIR}/prefix)
file(REMOVE_RECURSE ${WORK_DIR})
run(${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${prefix})
run(${WRITE_NV21} ${SAMPLE} ${WORK_DIR}/frame.nv21)
string(STRIP "${out}" size)
string(REPLACE " " ";" size "${size}")

set(ENV{PKG_CONFIG_PATH} ${prefix}/${LIBDIR}/pkgconfig)
unset(ENV{SCANCODE_ADAPTER_PATH})
unset(ENV{SCANCODE_MODEL_PATH})
foreach(with cmake pkg-config)
  set(build ${WORK_DIR}/consumer-${with})
  run(${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${build} -DCMAKE_BUILD_TYPE=Debug
      -DCMAKE_C_COMPILER=${C_COMPILER} -DCMAKE_PREFIX_PATH=${prefix}
      -DSCANCODE_FIND_WITH=${with} -DSCANCODE_EXPECTED_VERSION=${VERSION}
      "-DCMAKE_C_FLAGS=${SANITIZE_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${SANITIZE_FLAGS}")
  run(${CMAKE_COMMAND} --build ${build})
  run(${build}/consumer ${WORK_DIR}/frame.nv21 ${size})
  message(STATUS "${with}: ${out}")
  string(FIND "${out}" "modelPath is ${prefix}/" model_at)
  string(FIND "${out}" "success to load lib ${prefix}/" adapter_at)
  if(model_at EQUAL -1 OR adapter_at EQUAL -1)
    message(FATAL_ERROR "${with}: the installed library did not use the installed adapter "
                        "and model under ${prefix}")
  endif()
endforeach()

if(SCANNER_CONSUMER_DIR)
  foreach(with cmake pkg-config)
    set(build ${WORK_DIR}/scanner-${with})
    run(${CMAKE_COMMAND} -S ${SCANNER_CONSUMER_DIR} -B ${build} -DCMAKE_BUILD_TYPE=Debug
        -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_PREFIX_PATH=${prefix}
        -DSCANCODE_FIND_WITH=${with}
        "-DCMAKE_CXX_FLAGS=${SANITIZE_FLAGS}" "-DCMAKE_EXE_LINKER_FLAGS=${SANITIZE_FLAGS}")
    run(${CMAKE_COMMAND} --build ${build})
    run(${build}/scanner_consumer ${SAMPLE})
    message(STATUS "scanner, ${with}: ${out}")
  endforeach()
endif()

if(PYTHON)
  set(ENV{PYTHONPATH} ${prefix}/${PYTHONDIR})
  run(${PYTHON} -c [=[
import sys
import scancode
assert scancode.__file__.startswith(sys.argv[2]), scancode.__file__
result = scancode.scan_file(sys.argv[1])
assert any(box["listed"] and box["text"] for box in result["boxes"]), result
print("python:", result["boxes"])
]=] ${SAMPLE} ${prefix}/)
  message(STATUS "${out}")
endif()
file(REMOVE_RECURSE ${WORK_DIR})
