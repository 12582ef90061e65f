#pragma once
// The adapter library and model file the library opens. Fixed on the device;
// a host build may point them at the reference adapter and our own model.
extern const char* const kAdapterLibraryPath;
extern const char* const kModelFilePath;
