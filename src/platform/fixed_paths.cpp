#include "platform/fixed_paths.h"

#include <cstdlib>

PlatformPath::operator const char*() const {
#ifndef __ANDROID__
    const char* value = std::getenv(mOverrideVariable);
    if (value != nullptr && value[0] != '\0') return value;
#else
    (void)mOverrideVariable;  // the device's paths are not negotiable
#endif
    return mFixed;
}

// Compiled once per library variant, with the paths given at configure time.
const PlatformPath kAdapterLibraryPath(SCANCODE_ADAPTER_PATH, "SCANCODE_ADAPTER_PATH");
const PlatformPath kModelFilePath(SCANCODE_MODEL_PATH, "SCANCODE_MODEL_PATH");
