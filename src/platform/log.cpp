#include "platform/log.h"

#include <cmath>
#include <cstring>

bool ReadDebugSwitch() {
    char value[PROP_VALUE_MAX];
    memset(value, 0, sizeof value);
    value[0] = '0';
    if (__system_property_get("persist.sys.Quarn.debug.on", value) != 1 || value[0] != '1') {
        return false;
    }
    memset(value, 0, sizeof value);
    value[0] = '0';
    const int len = __system_property_get("ro.logsystem.usertype", value);
    return len == 1 && (value[0] == '3' || value[0] == '5');
}

bool gDebugLogOn = ReadDebugSwitch();
thread_local timeval gSyncTimeEnd = {0, 0};

float ElapsedMs(const timeval& start, const timeval& end) {
    // The seconds scaling and the end microseconds are one fused multiply-add.
    const float us = fmaf(static_cast<float>(end.tv_sec - start.tv_sec), 1000000.0f,
                          static_cast<float>(end.tv_usec)) -
                     static_cast<float>(start.tv_usec);
    return us * 0.001f;
}

void LogSyncTime(const char* label, const timeval& start) {
    gettimeofday(&gSyncTimeEnd, nullptr);
    if (gDebugLogOn) {
        __android_log_print(scancode::kLogDebug, SCANCODE_LOG_TAG, "SYNC_DDK_TIME , %s  : %.2fms",
                            label, static_cast<double>(ElapsedMs(start, gSyncTimeEnd)));
    }
}
