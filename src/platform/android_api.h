// The two platform services the library calls exactly as on the device:
// the Android log and system properties. On Android they come from liblog and
// libc; on a host from libscanhost (src/platform/host), which provides the same
// C symbols. This is the only place where the two platforms differ.
#pragma once

#if defined(__ANDROID__)
#include <android/log.h>
#include <sys/system_properties.h>
#else
extern "C" {
int __android_log_print(int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 3, 4)));
int __system_property_get(const char* name, char* value);
}
#ifndef PROP_VALUE_MAX
#define PROP_VALUE_MAX 92
#endif
#endif

namespace scancode {
// Android log priorities used by the library.
enum LogPriority : int { kLogDebug = 3, kLogInfo = 4, kLogError = 6 };
}  // namespace scancode
