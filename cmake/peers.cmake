# Libraries used only by tests and benchmarks, as oracles or as peers to
# compare against: libyuv, libqrencode, zxing-cpp. Imported targets:
# peer::yuv, peer::qrencode, peer::zxing.
function(scancode_find_peer target header lib)
  if(TARGET ${target})
    return()
  endif()
  find_path(_inc_${lib} ${header} REQUIRED)
  find_library(_lib_${lib} ${lib} REQUIRED)
  add_library(${target} INTERFACE IMPORTED GLOBAL)
  target_include_directories(${target} INTERFACE ${_inc_${lib}})
  target_link_libraries(${target} INTERFACE ${_lib_${lib}})
endfunction()

scancode_find_peer(peer::yuv libyuv.h yuv)
scancode_find_peer(peer::qrencode qrencode.h qrencode)
if(NOT TARGET peer::zxing)
  # the command-line tool may have found it already in this directory
  if(NOT TARGET ZXing::ZXing)
    find_package(ZXing REQUIRED)
  endif()
  add_library(peer::zxing INTERFACE IMPORTED GLOBAL)
  target_link_libraries(peer::zxing INTERFACE ZXing::ZXing)
endif()
