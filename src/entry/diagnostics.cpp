#include "entry/diagnostics.h"

#include <cstdint>
#include <cstdlib>

char* GetCompileTime() {
    // Reserves and releases 32 bytes and hands back their (now stale) address.
    void* block = malloc(32);
    volatile uintptr_t address = reinterpret_cast<uintptr_t>(block);
    free(block);
    return reinterpret_cast<char*>(address);
}
