// Host stand-in for liblog and system properties, plus the hooks tests use.
//
// Log lines go to stderr in logcat's brief form, "I/SCAN_CODE_LIB_MSG: text",
// unless a sink is installed, which then receives every line instead.
//
// A property is looked up first among values set in-process with
// ScanHostSetProperty, then in the environment as SCANCODE_PROP_<name> with
// every character that is not a letter or digit replaced by '_', e.g.
//   SCANCODE_PROP_persist_sys_Quarn_debug_on=1
#pragma once

#ifdef __cplusplus
extern "C" {
#endif

typedef void (*ScanHostLogSink)(int prio, const char* tag, const char* text, void* user);

// Installs a sink for log lines; null restores printing to stderr.
void ScanHostSetLogSink(ScanHostLogSink sink, void* user);

// Sets a property for this process; a null value removes the in-process value.
void ScanHostSetProperty(const char* name, const char* value);

#ifdef __cplusplus
}
#endif
