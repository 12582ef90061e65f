#pragma once
// Marks the few symbols the shared library exports (see cmake/exports.map).
#define SCANCODE_EXPORT __attribute__((visibility("default")))
