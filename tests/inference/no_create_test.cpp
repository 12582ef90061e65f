// The adapter variant without "NNModelManagerCreateWithConfig".
#include <gtest/gtest.h>

#include "log_capture.h"
#include "scripted_session.h"

using namespace scancode_test;

namespace {

TEST_F(ScriptedAdapterTest, MissingManagerFactoryGivesBothErrorLines) {
    NpuNetwork net;
    net.SetModelType(CODE_DETECT);
    LogCapture logs;
    EXPECT_EQ(LoadNpuModel(net), -1);
    std::vector<LogLine> errors;
    for (const auto& line : logs.lines())
        if (line.prio == 6) errors.push_back(line);
    ASSERT_EQ(errors.size(), 2u);
    const std::string prefix = "invoke(), failed to load sym NNModelManagerCreateWithConfig : ";
    EXPECT_EQ(errors[0].text.compare(0, prefix.size(), prefix), 0) << errors[0].text;
    EXPECT_EQ(errors[1].text, "mAiModelManager == nullptr\n");
    EXPECT_FALSE(net.GetLoadFlag());
    EXPECT_TRUE(AdapterCalls().empty());
}

}  // namespace
