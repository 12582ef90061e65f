# scancode_use_adapter(<target> <adapter target> <model file>): the library in
# the program <target> opens this adapter and model in place of the build's
# defaults. The program sets SCANCODE_ADAPTER_PATH and SCANCODE_MODEL_PATH for
# itself before main, so it behaves the same under CTest and run by hand.
function(scancode_use_adapter target adapter model)
  target_sources(${target} PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/adapter_paths.c)
  target_compile_definitions(${target} PRIVATE SCANCODE_TEST_ADAPTER="$<TARGET_FILE:${adapter}>"
                             SCANCODE_TEST_MODEL="${model}")
  add_dependencies(${target} ${adapter})
endfunction()
