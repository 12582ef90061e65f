#include "host_shim.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <mutex>
#include <string>

#define SCANHOST_API extern "C" __attribute__((visibility("default")))

namespace {

constexpr int kPropValueMax = 92;  // Android's PROP_VALUE_MAX, NUL included
constexpr int kLogLineMax = 4068;  // liblog truncates longer messages

std::mutex gMutex;
ScanHostLogSink gSink = nullptr;
void* gSinkUser = nullptr;

std::map<std::string, std::string>& Properties() {
    static std::map<std::string, std::string> props;
    return props;
}

char PriorityLetter(int prio) {
    static const char kLetters[] = "??VDIWEF";
    return prio >= 0 && prio < 8 ? kLetters[prio] : '?';
}

std::string EnvName(const char* name) {
    std::string env = "SCANCODE_PROP_";
    for (const char* p = name; *p; ++p) {
        const char c = *p;
        const bool alnum =
            (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
        env += alnum ? c : '_';
    }
    return env;
}

}  // namespace

SCANHOST_API int __android_log_print(int prio, const char* tag, const char* fmt, ...) {
    char text[kLogLineMax];
    va_list args;
    va_start(args, fmt);
    vsnprintf(text, sizeof text, fmt, args);
    va_end(args);

    std::lock_guard<std::mutex> lock(gMutex);
    if (gSink) {
        gSink(prio, tag ? tag : "", text, gSinkUser);
    } else {
        fprintf(stderr, "%c/%s: %s\n", PriorityLetter(prio), tag ? tag : "", text);
    }
    return static_cast<int>(strlen(text));
}

SCANHOST_API int __system_property_get(const char* name, char* value) {
    std::string found;
    bool have = false;
    {
        std::lock_guard<std::mutex> lock(gMutex);
        auto it = Properties().find(name);
        if (it != Properties().end()) {
            found = it->second;
            have = true;
        }
    }
    if (!have) {
        if (const char* env = getenv(EnvName(name).c_str())) {
            found = env;
            have = true;
        }
    }
    // Like the device: an unset property reads as "" with length 0.
    const size_t len = have ? std::min(found.size(), size_t(kPropValueMax - 1)) : 0;
    memcpy(value, found.data(), len);
    value[len] = '\0';
    return static_cast<int>(len);
}

SCANHOST_API void ScanHostSetLogSink(ScanHostLogSink sink, void* user) {
    std::lock_guard<std::mutex> lock(gMutex);
    gSink = sink;
    gSinkUser = user;
}

SCANHOST_API void ScanHostSetProperty(const char* name, const char* value) {
    std::lock_guard<std::mutex> lock(gMutex);
    if (value) {
        Properties()[name] = value;
    } else {
        Properties().erase(name);
    }
}
