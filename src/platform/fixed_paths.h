#pragma once
// The adapter library and model file the library opens. Fixed on the device;
// a host build may point them at the reference adapter and our own model.
//
// On a host the path is chosen each time it is converted to a string, i.e.
// when the adapter is opened or the model read (at Init), never cached at
// load:
//   1. the environment (SCANCODE_ADAPTER_PATH, SCANCODE_MODEL_PATH), so that
//      an evaluation can try another model file without a rebuild;
//   2. the file installed with the library, relative to the library's own
//      folder, when it exists (an installed copy runs wherever it was
//      installed to);
//   3. the path the library was built with (the build tree's reference
//      adapter and model). Tests that need others use step 1.
// Android builds compile no lookup: the device's paths are not negotiable.
class PlatformPath {
  public:
    constexpr PlatformPath(const char* fixed, const char* overrideVariable,
                           const char* besideLibrary)
        : mFixed(fixed), mOverrideVariable(overrideVariable), mBesideLibrary(besideLibrary) {}
    // The path to open now.
    operator const char*() const;

  private:
    const char* mFixed;
    const char* mOverrideVariable;
    const char* mBesideLibrary;  // relative to the library's folder
};

extern const PlatformPath kAdapterLibraryPath;
extern const PlatformPath kModelFilePath;
