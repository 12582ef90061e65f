// Opens the adapter library on first use and caches the functions looked up
// in it by name.
#pragma once

#include <dlfcn.h>

#include <map>
#include <string>

#include "platform/log.h"

namespace zt {

class LibWrapper {
  public:
    LibWrapper();
    virtual ~LibWrapper();  // closes the library if it was opened
    LibWrapper(const LibWrapper&) = delete;
    LibWrapper& operator=(const LibWrapper&) = delete;

    // The library handle, opening the library (RTLD_NOW) when not yet open.
    // Null when it cannot be opened; the next call tries again.
    void* getHandle();

    // The address of `name` in the library, or null. Every answer is cached,
    // misses included, so a name the library lacks is looked up only once.
    void* preFetchFunction(char const* name);

    void* mHandle = nullptr;
    const char* mLibName;  // not owned
    std::map<std::string, void*> mFuncMap;
};

}  // namespace zt

// Resolves `name` through `lib` as a function of type `Fn`; a miss (or a null
// wrapper) logs "%s(), failed to load sym %s : %s" and yields null, so every
// caller treats a missing function like a failed call.
template <typename Fn>
Fn ResolveAdapterFunction(zt::LibWrapper* lib, const char* name) {
    void* address = lib != nullptr ? lib->preFetchFunction(name) : nullptr;
    if (address == nullptr) {
        const char* error = dlerror();
        LOGE("%s(), failed to load sym %s : %s", "invoke", name, error != nullptr ? error : "");
        return nullptr;
    }
    return reinterpret_cast<Fn>(address);
}
