/* Points the library at the adapter and model file that a test program was
 * built for (scancode_use_adapter() in cmake/use_adapter.cmake), in place of
 * the build's defaults. The library reads the two variables whenever it opens
 * the adapter or loads the model, i.e. at Init, so setting them before main
 * is early enough. They are overwritten: a test must not depend on what the
 * caller's environment happens to hold. */
#define _POSIX_C_SOURCE 200809L
#include <stdlib.h>

__attribute__((constructor)) static void UseTestAdapter(void) {
    setenv("SCANCODE_ADAPTER_PATH", SCANCODE_TEST_ADAPTER, 1);
    setenv("SCANCODE_MODEL_PATH", SCANCODE_TEST_MODEL, 1);
}
