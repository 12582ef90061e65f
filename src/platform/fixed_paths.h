#pragma once
// The adapter library and model file the library opens. Fixed on the device;
// a host build may point them at the reference adapter and our own model.
//
// On a host the environment may override either at run time
// (SCANCODE_ADAPTER_PATH, SCANCODE_MODEL_PATH), so that an evaluation can try
// another model file without a rebuild. The override is looked up each time a
// path is converted to a string, i.e. when the adapter is opened or the model
// read (at Init), never cached at load; Android builds compile no lookup.
class PlatformPath {
  public:
    constexpr PlatformPath(const char* fixed, const char* overrideVariable)
        : mFixed(fixed), mOverrideVariable(overrideVariable) {}
    // The path to open now.
    operator const char*() const;

  private:
    const char* mFixed;
    const char* mOverrideVariable;
};

extern const PlatformPath kAdapterLibraryPath;
extern const PlatformPath kModelFilePath;
