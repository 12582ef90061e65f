// Loading a model into an NpuNetwork: the DSP search path, the adapter's
// model manager, and the model file handed over from memory.
#pragma once

#include <cstdint>

#include "inference/npu_network.h"

// Size of the file at `path` in bytes; 0 for a null path or a path that cannot
// be opened or is not a regular file (which prints "open file %s failed\n" to
// stdout).
uint64_t GetFileLength(char const* path);

// Reads exactly `size` bytes of `path` into `buffer`; 0, or -1 when the file
// cannot be opened or ends (or fails) before `size` bytes are in. Reports go
// to stdout, not to the log.
int ReadFile(char const* path, void* buffer, int size);

// Loads the model of `net`'s type through the adapter and raises its loaded
// flag; a network already loaded only counts the call. 0 or -1.
int LoadNpuModel(NpuNetwork& net);

// Display name of a model type for log lines; empty past the named types.
const char* ModelTypeName(ModelType type);
