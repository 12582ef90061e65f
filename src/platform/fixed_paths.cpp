#include "platform/fixed_paths.h"

#include <cstdlib>

#ifndef __ANDROID__
#include "platform/host/installed_file.h"
#endif

PlatformPath::operator const char*() const {
#ifndef __ANDROID__
    const char* value = std::getenv(mOverrideVariable);
    if (value != nullptr && value[0] != '\0') return value;
    if (const char* installed = InstalledFile(this, mBesideLibrary)) return installed;
#else
    (void)mOverrideVariable;
    (void)mBesideLibrary;
#endif
    return mFixed;
}

// The build's defaults (see CMakeLists.txt): the device's paths, or on a host
// the reference adapter and our model when they are built.
const PlatformPath kAdapterLibraryPath(SCANCODE_ADAPTER_PATH, "SCANCODE_ADAPTER_PATH",
                                       SCANCODE_INSTALLED_ADAPTER);
const PlatformPath kModelFilePath(SCANCODE_MODEL_PATH, "SCANCODE_MODEL_PATH",
                                  SCANCODE_INSTALLED_MODEL);
