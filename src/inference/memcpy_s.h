// Bounds-checked copy with the platform secure C library's contract; the host
// C library has none, so the library carries its own (not exported).
#pragma once

#include <cstddef>

// Copies `count` bytes from `src` to `dest`. Returns 0, or non-zero without
// copying when either pointer is null or `count` exceeds `destSize`.
int memcpy_s(void* dest, size_t destSize, const void* src, size_t count);
