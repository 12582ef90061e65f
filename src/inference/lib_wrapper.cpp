#include "inference/lib_wrapper.h"

#include <dlfcn.h>

#include "platform/fixed_paths.h"
#include "platform/log.h"

namespace zt {

LibWrapper::LibWrapper() : mLibName(kAdapterLibraryPath) {}

LibWrapper::~LibWrapper() {
    if (mHandle != nullptr) {
        dlclose(mHandle);
    }
}

void* LibWrapper::getHandle() {
    if (mHandle != nullptr) {
        return mHandle;
    }
    dlerror();  // drop any stale loader error so the one reported below is ours
    if (mLibName == nullptr) {
        LOGE("%s(), mLibName is nullptr", "getHandle");
        return nullptr;
    }
    mHandle = dlopen(mLibName, RTLD_NOW);
    if (mHandle == nullptr) {
        const char* error = dlerror();
        LOGE("%s(), failed to load lib %s : %s", "getHandle", mLibName,
             error != nullptr ? error : "");
        return nullptr;
    }
    LOGI("%s(), success to load lib %s", "getHandle", mLibName);
    return mHandle;
}

void* LibWrapper::preFetchFunction(char const* name) {
    auto found = mFuncMap.find(name);
    if (found != mFuncMap.end()) {
        return found->second;
    }
    void* handle = getHandle();
    if (handle == nullptr) {
        return nullptr;
    }
    void* address = dlsym(handle, name);
    mFuncMap.emplace(name, address);
    return address;
}

}  // namespace zt
