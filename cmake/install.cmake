# What `cmake --install` lays out under the prefix: the public header and the
# library; on a host also what the library needs at run time (the stand-in
# for liblog and system properties beside it, the reference adapter and our
# model), a CMake package (find_package(scancode CONFIG): scancode::scancode,
# and scancode::scanner where scanner/ installs the Scanner) and a pkg-config
# file (scancode.pc); scanner/ adds its own (scancode-scanner.pc) and the
# Python module. Nothing installed names the prefix: the library finds the
# adapter and model relative to its own folder, and the package files find
# the prefix relative to theirs.
include(CMakePackageConfigHelpers)

set(SCANCODE_INSTALL_ADAPTERDIR ${CMAKE_INSTALL_LIBDIR}/scancode)
set(SCANCODE_INSTALL_MODELDIR ${CMAKE_INSTALL_DATADIR}/scancode)
set(SCANCODE_INSTALL_CMAKEDIR ${CMAKE_INSTALL_LIBDIR}/cmake/scancode)
set(SCANCODE_INSTALL_PKGCONFIGDIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

# scancode_install_relative(<var> <from folder> <to path>): the relative path
# between two install locations, whatever the prefix.
function(scancode_install_relative var from to)
  foreach(p from to)
    if(NOT IS_ABSOLUTE "${${p}}")
      set(${p} "/prefix/${${p}}")
    endif()
  endforeach()
  file(RELATIVE_PATH relative "${from}" "${to}")
  string(REGEX REPLACE "/$" "" relative "${relative}")
  set(${var} "${relative}" PARENT_SCOPE)
endfunction()

# The adapter and model as the installed library looks them up, relative to
# its folder; none where the reference adapter is not built.
set(SCANCODE_INSTALLED_ADAPTER "")
set(SCANCODE_INSTALLED_MODEL "")
if(NOT ANDROID AND TARGET scanref_adapter)
  get_filename_component(_model_name ${SCANCODE_MODEL_FILE} NAME)
  scancode_install_relative(_adapterdir ${CMAKE_INSTALL_LIBDIR} ${SCANCODE_INSTALL_ADAPTERDIR})
  set(SCANCODE_INSTALLED_ADAPTER "${_adapterdir}/$<TARGET_FILE_NAME:scanref_adapter>")
  scancode_install_relative(SCANCODE_INSTALLED_MODEL ${CMAKE_INSTALL_LIBDIR}
                            ${SCANCODE_INSTALL_MODELDIR}/${_model_name})
endif()

# Install-time RPATH for a target installed to <folder> that loads libraries
# from the library folder.
function(scancode_install_rpath target folder)
  if(NOT ANDROID)
    scancode_install_relative(relative ${folder} ${CMAKE_INSTALL_LIBDIR})
    if(relative STREQUAL "")
      set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN")
    else()
      set_target_properties(${target} PROPERTIES INSTALL_RPATH "$ORIGIN/${relative}")
    endif()
  endif()
endfunction()

function(scancode_install)
  set_target_properties(scancode PROPERTIES PUBLIC_HEADER ${PROJECT_SOURCE_DIR}/include/scancode.h)
  install(TARGETS scancode LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
          PUBLIC_HEADER DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
  if(NOT ANDROID)
    scancode_install_rpath(scancode ${CMAKE_INSTALL_LIBDIR})
    install(TARGETS scanhost LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
  endif()
  if(SCANCODE_INSTALLED_ADAPTER)
    install(TARGETS scanref_adapter LIBRARY DESTINATION ${SCANCODE_INSTALL_ADAPTERDIR})
    install(FILES ${SCANCODE_MODEL_FILE} DESTINATION ${SCANCODE_INSTALL_MODELDIR})
  endif()

  set(SCANCODE_INSTALLED_LIBRARY
      ${CMAKE_INSTALL_LIBDIR}/${CMAKE_SHARED_LIBRARY_PREFIX}scancode${CMAKE_SHARED_LIBRARY_SUFFIX})
  # The Scanner (scanner/) is installed with the tools; the package offers it
  # where it is there.
  set(SCANCODE_INSTALLED_SCANNER
      ${CMAKE_INSTALL_LIBDIR}/${CMAKE_SHARED_LIBRARY_PREFIX}scancode_scanner${CMAKE_SHARED_LIBRARY_SUFFIX})
  configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/scancodeConfig.cmake.in ${PROJECT_BINARY_DIR}/scancodeConfig.cmake
    INSTALL_DESTINATION ${SCANCODE_INSTALL_CMAKEDIR}
    PATH_VARS SCANCODE_INSTALLED_LIBRARY SCANCODE_INSTALLED_SCANNER CMAKE_INSTALL_INCLUDEDIR)
  write_basic_package_version_file(${PROJECT_BINARY_DIR}/scancodeConfigVersion.cmake
                                   COMPATIBILITY SameMajorVersion)
  install(FILES ${PROJECT_BINARY_DIR}/scancodeConfig.cmake
                ${PROJECT_BINARY_DIR}/scancodeConfigVersion.cmake
          DESTINATION ${SCANCODE_INSTALL_CMAKEDIR})

  scancode_install_relative(SCANCODE_PC_PREFIX ${SCANCODE_INSTALL_PKGCONFIGDIR} "")
  configure_file(${PROJECT_SOURCE_DIR}/cmake/scancode.pc.in ${PROJECT_BINARY_DIR}/scancode.pc
                 @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/scancode.pc DESTINATION ${SCANCODE_INSTALL_PKGCONFIGDIR})
endfunction()
