// The debug switch and the timing log; see platform/log.h for the macros
// every part of the library uses.
#pragma once

#include "platform/export.h"
#include "platform/log.h"

// Reads the switch from "persist.sys.Quarn.debug.on" and
// "ro.logsystem.usertype": on only for "1" together with "3" or "5", each a
// one-character value. Evaluated once at load into gDebugLogOn.
bool ReadDebugSwitch();

// Elapsed milliseconds between two marks, in the single-precision arithmetic
// the timing lines have always used.
float ElapsedMs(const timeval& start, const timeval& end);

// Kept for the exported surface; its result must never be dereferenced.
extern "C" SCANCODE_EXPORT char* GetCompileTime();
