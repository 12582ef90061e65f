#include "platform/log.h"

#include <gtest/gtest.h>

#include "debug_switch.h"
#include "host_shim.h"
#include "log_capture.h"

using scancode_test::LogCapture;
using scancode_test::ScopedDebugLog;

namespace {

TEST(ReadDebugSwitch, NeedsTheFlagAndADebuggableUserType) {
    const struct {
        const char* debugOn;   // null: unset
        const char* userType;  // null: unset
        bool expected;
    } cases[] = {{"1", "3", true},      {"1", "5", true},   {"1", "35", false},
                 {"1", nullptr, false}, {"10", "3", false}, {"true", "3", false},
                 {nullptr, "5", false}, {"2", "5", false}};
    for (const auto& c : cases) {
        ScanHostSetProperty("persist.sys.Quarn.debug.on", c.debugOn);
        ScanHostSetProperty("ro.logsystem.usertype", c.userType);
        EXPECT_EQ(ReadDebugSwitch(), c.expected)
            << (c.debugOn ? c.debugOn : "unset") << "/" << (c.userType ? c.userType : "unset");
    }
    ScanHostSetProperty("persist.sys.Quarn.debug.on", nullptr);
    ScanHostSetProperty("ro.logsystem.usertype", nullptr);
}

TEST(LogSyncTime, PrintsOnlyWithTheSwitchOn) {
    LogCapture logs;
    timeval start = TimeMark();
    {
        ScopedDebugLog off(false);
        LogSyncTime("step ", start);
    }
    EXPECT_TRUE(logs.lines().empty());
    EXPECT_GE(gSyncTimeEnd.tv_sec, start.tv_sec);  // the end mark is taken regardless

    start.tv_sec -= 1;  // a step that lasted at least one second
    {
        ScopedDebugLog on(true);
        LogSyncTime("step ", start);
    }
    ASSERT_EQ(logs.lines().size(), 1u);
    EXPECT_EQ(logs.lines()[0].prio, 3);
    // At least a second has passed, far less than two.
    double ms = 0;
    char unit[8] = {};
    const std::string& text = logs.lines()[0].text;
    ASSERT_EQ(sscanf(text.c_str(), "SYNC_DDK_TIME , step   : %lf%2s", &ms, unit), 2) << text;
    EXPECT_STREQ(unit, "ms");
    EXPECT_GE(ms, 1000.0);
    EXPECT_LT(ms, 2000.0);
    EXPECT_EQ(text.substr(text.size() - 5, 1), ".");  // two decimals
}

}  // namespace
