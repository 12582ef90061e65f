// The exported build stamp.
#pragma once

#include "platform/export.h"

// Kept for the exported surface; its result must never be dereferenced.
extern "C" SCANCODE_EXPORT char* GetCompileTime();
