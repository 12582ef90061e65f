#include "platform/fixed_paths.h"

// Compiled once per library variant, with the paths given at configure time.
const char* const kAdapterLibraryPath = SCANCODE_ADAPTER_PATH;
const char* const kModelFilePath = SCANCODE_MODEL_PATH;
