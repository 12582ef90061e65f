// NpuNetwork driven through the real dlopen path into the scripted adapter.
#include "inference/npu_network.h"

#include <gtest/gtest.h>

#include <cstring>
#include <utility>
#include <vector>

#include "inference/quantize.h"
#include "log_capture.h"
#include "scripted_session.h"

using namespace scancode_test;

namespace {

class NpuNetworkTest : public ScriptedAdapterTest {
  protected:
    void SetUp() override {
        ScriptedAdapterTest::SetUp();
        LoadAndSetUp(net_);
        if (HasFatalFailure()) return;
        ScriptedAdapterClearCalls();
    }
    void TearDown() override {
        net_.UnloadModel();
        net_.TeardownModel();
        EXPECT_EQ(NewManagers(), 0);
        ScriptedAdapterTest::TearDown();
    }
    NpuNetwork net_;
};

TEST_F(NpuNetworkTest, TensorRecordsOnTheWire) {
    ASSERT_EQ(net_.RunModel(), 0);
    struct Expected {
        int dims[4];
        const char* name;
        int index;
    };
    const Expected expected[] = {{{1, 640, 640, 3}, "inputs", 0}, {{1, 80, 80, 6}, "outputs", 0},
                                 {{1, 40, 40, 6}, "_306", 1},     {{1, 20, 20, 6}, "_328", 2},
                                 {{1, 10, 10, 6}, "_350", 3},     {{1, 5, 5, 6}, "_372", 4}};
    ASSERT_EQ(CountCalls("NNTensorBufferCreateWithConfig"), 6);
    for (int t = 0; t < 6; ++t) {
        const int call = FindCall("NNTensorBufferCreateWithConfig", t);
        const std::string record = Blob(call, "config");
        ASSERT_EQ(record.size(), 64u);
        for (int d = 0; d < 4; ++d) EXPECT_EQ(At<int32_t>(record, 4 * d), expected[t].dims[d]);
        for (auto [offset, value] : {std::pair{16, 0}, {20, 4}, {24, 1}, {40, expected[t].index}})
            EXPECT_EQ(At<int32_t>(record, offset), value) << "tensor " << t << " at " << offset;
        EXPECT_EQ(Blob(call, "name"), expected[t].name);
        EXPECT_TRUE(AllZero(record, 44, 64));
        EXPECT_EQ(At<void*>(Blob(call, "manager"), 0), static_cast<void*>(net_.mAiModelManager));
    }
    ASSERT_EQ(net_.RunModel(), 0);
    EXPECT_EQ(CountCalls("NNTensorBufferCreateWithConfig"), 6) << "created once";
}

TEST_F(NpuNetworkTest, RunQuantizesAndExposesTheAdaptersOutputMemory) {
    float* in = net_.GetInputBuffer(0);
    for (int i = 0; i < kDetectorInputFloats; ++i)
        in[i] = static_cast<float>((i * 37) % 2600) / 10.0f - 2.0f;
    std::vector<uint8_t> expected(kDetectorInputFloats);
    QuantizePixels_C(in, expected.data(), kDetectorInputFloats);
    const std::vector<uint8_t> head(150, 0x7f);
    ScriptedAdapterSetOutput(4, head.data(), head.size());

    ASSERT_EQ(net_.RunModel(), 0);
    size_t size = 0;
    const void* seen = ScriptedAdapterRunInput(&size);
    ASSERT_EQ(size, static_cast<size_t>(kDetectorInputFloats));
    EXPECT_EQ(memcmp(seen, expected.data(), size), 0);
    const int run = FindCall("NNModelRun");
    ASSERT_GE(run, 0);
    EXPECT_EQ(Blob(run, "name"), "codeDetect");
    for (auto [key, value] : {std::pair{"input_count", 1}, {"output_count", 5}, {"timeout", 1000}})
        EXPECT_EQ(At<int32_t>(Blob(run, key), 0), value) << key;
    EXPECT_EQ(At<void*>(Blob(run, "inputs"), 0), static_cast<void*>(net_.mInputTensor));
    for (int i = 0; i < 5; ++i)
        EXPECT_EQ(At<void*>(Blob(run, "outputs"), 8 * i),
                  static_cast<void*>(net_.outputTensors[i]));
    int shape[4] = {};
    unsigned char* out4 = net_.GetOutputUint8Buffer(4, shape);
    ASSERT_NE(out4, nullptr);
    EXPECT_EQ(std::vector<int>(shape, shape + 4), (std::vector<int>{1, 6, 5, 5}));
    EXPECT_EQ(out4[149], 0x7f);
}

TEST_F(NpuNetworkTest, FailedTensorOrRunIsReportedAndRecovered) {
    net_.ReleaseTensor();
    ScriptedAdapterSetStatus("NNTensorBufferCreateWithConfig", -1, 3);  // output 2 fails
    LogCapture logs;
    EXPECT_EQ(net_.RunModel(), -1);
    EXPECT_TRUE(logs.Contains(6, "NpuNetwork allocateBuffer output failed.\n"));
    EXPECT_FALSE(net_.tensorsAllocated);
    EXPECT_EQ(FindCall("NNModelRun"), -1);
    EXPECT_EQ(NewTensors(), 3) << "input and outputs 0 and 1 are abandoned, not destroyed";
    ScriptedAdapterSetStatus("NNTensorBufferCreateWithConfig", -1, 0);
    EXPECT_EQ(net_.RunModel(), -1);
    EXPECT_TRUE(logs.Contains(6, "NpuNetwork allocateBuffer input failed.\n"));

    ScriptedAdapterSetStatus("NNTensorBufferCreateWithConfig", 0, 0);
    ASSERT_EQ(net_.RunModel(), 0) << "the next run creates them all again";
    unsigned char* before = net_.GetOutputUint8Buffer(0, nullptr);
    ScriptedAdapterSetStatus("NNModelRun", 7, 0);
    EXPECT_EQ(net_.RunModel(), -1);
    EXPECT_TRUE(logs.Contains(6, "NpuNetwork::NNModelRun run failed, ret is 7 \n"));
    EXPECT_TRUE(net_.tensorsAllocated);
    EXPECT_EQ(net_.GetOutputUint8Buffer(0, nullptr), before);
}

}  // namespace
