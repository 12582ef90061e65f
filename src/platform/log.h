// The one way every part of the library writes a log line and times a step.
//
//   LOGD(...)  debug line, printed only while the debug switch is on
//   LOGI(...)  info line, always printed
//   LOGE(...)  error line, always printed
//
//   timeval start = TimeMark();
//   ... step ...
//   LogSyncTime("label", start);   // "SYNC_DDK_TIME , label  : 1.23ms" when debug is on
#pragma once

#include <sys/time.h>

#include "platform/android_api.h"

#define SCANCODE_LOG_TAG "SCAN_CODE_LIB_MSG"

// Reads the switch from "persist.sys.Quarn.debug.on" and
// "ro.logsystem.usertype": on only for "1" together with "3" or "5", each a
// one-character value.
bool ReadDebugSwitch();

// The debug switch, read once at load (ReadDebugSwitch).
extern bool gDebugLogOn;

#define LOGD(...)                                                                                 \
    do {                                                                                          \
        if (gDebugLogOn) __android_log_print(scancode::kLogDebug, SCANCODE_LOG_TAG, __VA_ARGS__); \
    } while (0)
#define LOGI(...) __android_log_print(scancode::kLogInfo, SCANCODE_LOG_TAG, __VA_ARGS__)
#define LOGE(...) __android_log_print(scancode::kLogError, SCANCODE_LOG_TAG, __VA_ARGS__)

// End mark of the latest timed step on this thread.
extern thread_local timeval gSyncTimeEnd;

// Records the end mark and, with the debug switch on, prints the elapsed time
// since `start` in milliseconds.
void LogSyncTime(const char* label, const timeval& start);

// Elapsed milliseconds between two marks, in the single-precision arithmetic
// the timing lines have always used.
float ElapsedMs(const timeval& start, const timeval& end);

inline timeval TimeMark() {
    timeval t;
    gettimeofday(&t, nullptr);
    return t;
}
