#include "installed_file.h"

#include <dlfcn.h>
#include <sys/stat.h>

#include <map>
#include <mutex>
#include <string>

const char* InstalledFile(const void* anchor, const char* relative) {
    if (relative == nullptr || relative[0] == '\0') return nullptr;
    Dl_info info = {};
    if (dladdr(anchor, &info) == 0 || info.dli_fname == nullptr) return nullptr;
    std::string path = info.dli_fname;
    const size_t slash = path.rfind('/');
    if (slash == std::string::npos) return nullptr;  // the main program, named without a folder
    path.resize(slash + 1);
    path += relative;
    struct stat status = {};
    if (stat(path.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) return nullptr;
    // Callers keep the pointer (it is the path the library opens), so each
    // distinct path is kept for good; there are only ever a couple.
    static std::mutex guard;
    static auto* kept = new std::map<std::string, std::string>();
    std::lock_guard<std::mutex> lock(guard);
    return kept->emplace(path, path).first->second.c_str();
}
