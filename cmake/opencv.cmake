# OpenCV modules by name. Debian's per-module -dev packages ship headers and
# libraries but no CMake package file (only the all-modules libopencv-dev
# does), so fall back to finding them directly; the Android SDK's
# OpenCVConfig.cmake is used when present.
# scancode_find_opencv(<module>...) defines the imported targets opencv::<module>.
function(scancode_find_opencv)
  find_package(OpenCV 4 QUIET COMPONENTS ${ARGN})
  find_path(SCANCODE_OPENCV_INCLUDE opencv2/core.hpp
            HINTS ${OpenCV_INCLUDE_DIRS} PATH_SUFFIXES opencv4 REQUIRED)
  foreach(module ${ARGN})
    if(TARGET opencv::${module})
      continue()
    endif()
    add_library(opencv::${module} INTERFACE IMPORTED GLOBAL)
    if(OpenCV_FOUND)
      target_link_libraries(opencv::${module} INTERFACE opencv_${module})
    else()
      find_library(SCANCODE_OPENCV_${module} opencv_${module} REQUIRED)
      target_link_libraries(opencv::${module} INTERFACE ${SCANCODE_OPENCV_${module}})
    endif()
    target_include_directories(opencv::${module} INTERFACE ${SCANCODE_OPENCV_INCLUDE})
  endforeach()
endfunction()
