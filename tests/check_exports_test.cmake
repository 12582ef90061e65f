# The export check against altered copies of the real map: it is only worth
# something if each kind of drift makes it fail. Run with LIB, NM, MAP, CHECK
# (check_exports.cmake) and WORK_DIR.
file(READ ${MAP} real_map)
file(MAKE_DIRECTORY ${WORK_DIR})

# check_case(<name> <EXACT> <expect PASS|FAIL> <map text> [<named>]): a
# failure must name <named>, the symbol or entry that drifted.
function(check_case name exact expect text)
  set(map ${WORK_DIR}/${name}.map)
  file(WRITE ${map} "${text}")
  execute_process(COMMAND ${CMAKE_COMMAND} -DLIB=${LIB} -DNM=${NM} -DMAP=${map} -DEXACT=${exact}
                          -P ${CHECK}
                  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
  if(rc EQUAL 0)
    set(got PASS)
  else()
    set(got FAIL)
  endif()
  if(NOT got STREQUAL expect)
    message(SEND_ERROR "${name}: expected ${expect}, got ${got}\n${out}${err}")
  elseif(ARGC GREATER 4 AND NOT "${err}" MATCHES "${ARGV4}")
    message(SEND_ERROR "${name}: the failure does not name ${ARGV4}\n${err}")
  else()
    message(STATUS "${name}: ${got}")
  endif()
endfunction()

macro(variant out from to)
  string(REPLACE "${from}" "${to}" ${out} "${real_map}")
  if("${${out}}" STREQUAL "${real_map}")
    message(FATAL_ERROR "the map no longer contains '${from}'")
  endif()
endmacro()

check_case(real_map ON PASS "${real_map}")
# Exported but not listed.
variant(no_c_name "    isDebug;\n" "")
check_case(unlisted_c_name ON FAIL "${no_c_name}" "isDebug")
variant(no_cxx_name "\"SetThreadAffinity()\";" "")
check_case(unlisted_cxx_function ON FAIL "${no_cxx_name}" "SetThreadAffinity")
# Listed but not exported: only an exact check minds.
variant(absent "\"SetThreadAffinity()\";" "\"SetThreadAffinity()\"; \"Nowhere(int)\";")
check_case(absent_exact ON FAIL "${absent}" "Nowhere")
check_case(absent_loose OFF PASS "${absent}")
variant(absent_c "    isDebug;\n" "    isDebug;\n    nowhere;\n")
check_case(absent_c_exact ON FAIL "${absent_c}" "nowhere")
# A signature that differs in one parameter matches nothing.
variant(wrong_signature "\"Fp16ToFp32(unsigned long, half const*, float*)\""
        "\"Fp16ToFp32(unsigned int, half const*, float*)\"")
check_case(wrong_signature ON FAIL "${wrong_signature}" "unsigned int, half")
# A pattern that takes in two overloads hides which of them is meant.
variant(broad_pattern "\"Uint8ToFP32(int, unsigned char const*, float*, int, float)\";"
        "Uint8ToFP32*;")
string(REPLACE "\"Uint8ToFP32(int, int, int, unsigned char const*, float*, int, float)\";" ""
               broad_pattern "${broad_pattern}")
check_case(pattern_matching_two ON FAIL "${broad_pattern}" "more than once:[ \n]+Uint8ToFP32")
