// The code detector end to end over the scripted adapter: float image in,
// five dequantized maps out.
#include "inference/code_detect.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <memory>
#include <vector>

#include "debug_switch.h"
#include "inference/quantize.h"
#include "log_capture.h"
#include "scripted_session.h"

using namespace scancode_test;

namespace {

constexpr int kInputFloats = 640 * 640 * 3;
const int kOutputElements[5] = {38400, 9600, 2400, 600, 150};
const int kOutputOffsets[5] = {0, 38400, 48000, 50400, 51000};

class CodeDetectTest : public ScriptedAdapterTest {
  protected:
    void SetUp() override {
        ScriptedAdapterTest::SetUp();
        detector_.reset(GetCodeDetect());
        input_.resize(kInputFloats);
        for (int i = 0; i < kInputFloats; ++i) input_[i] = static_cast<float>(i % 256);
        output_.assign(kCodeDetectOutputFloats, -1234.0f);
        // Output i serves bytes (k * (i + 3)) mod 256 for element k.
        for (int i = 0; i < 5; ++i) {
            std::vector<uint8_t> bytes(kOutputElements[i]);
            for (int k = 0; k < kOutputElements[i]; ++k)
                bytes[k] = static_cast<uint8_t>(k * (i + 3));
            served_[i] = bytes;
            ScriptedAdapterSetOutput(i, bytes.data(), bytes.size());
        }
    }
    void TearDown() override {
        detector_->UnloadModel();
        detector_.reset();
        EXPECT_EQ(NewManagers(), 0);
        EXPECT_EQ(NewTensors(), 0);
        ScriptedAdapterTest::TearDown();
    }

    CodeDetectNpu& npu() { return *static_cast<CodeDetectNpu*>(detector_.get()); }

    void ExpectDequantizedOutputs() {
        for (int i = 0; i < 5; ++i) {
            for (int k = 0; k < kOutputElements[i]; ++k) {
                const double q = served_[i][k];
                const float expected = static_cast<float>(
                    (q + kCodeDetectZeroPoints[i]) * static_cast<double>(kCodeDetectScales[i]));
                ASSERT_EQ(output_[kOutputOffsets[i] + k], expected) << "output " << i << " k " << k;
            }
        }
    }

    std::unique_ptr<CodeDetectbase> detector_;
    std::vector<float> input_;
    std::vector<float> output_;
    std::vector<uint8_t> served_[5];
};

TEST_F(CodeDetectTest, LoadThenDetect) {
    ASSERT_EQ(detector_->LoadModel(), 0);
    EXPECT_TRUE(detector_->GetLoadFlag());
    EXPECT_FALSE(npu().network.netLock.try_lock()) << "set up: the lock is held";

    ASSERT_EQ(detector_->CodeDetect(input_.data(), output_.data(), 51150), 0);
    ExpectDequantizedOutputs();

    // The network saw the input quantized to round-half-up pixels.
    std::vector<uint8_t> expected(kInputFloats);
    QuantizePixelBlocksRef(input_.data(), expected.data(), kInputFloats);
    size_t size = 0;
    const void* seen = ScriptedAdapterRunInput(&size);
    ASSERT_EQ(size, static_cast<size_t>(kInputFloats));
    EXPECT_EQ(memcmp(seen, expected.data(), size), 0);
}

TEST_F(CodeDetectTest, KnownDequantizedValues) {
    std::vector<uint8_t> head0(38400, 189);
    head0[1] = 255;
    head0[2] = 0;
    ScriptedAdapterSetOutput(0, head0.data(), head0.size());
    ASSERT_EQ(detector_->CodeDetect(input_.data(), output_.data(), -5), 0) << "n is not used";
    EXPECT_EQ(output_[0], 0.0f);
    EXPECT_FALSE(std::signbit(output_[0]));
    EXPECT_EQ(output_[1], static_cast<float>(66.0 * 0.06613318622112274));
    EXPECT_EQ(output_[2], static_cast<float>(-189.0 * 0.06613318622112274));
}

TEST_F(CodeDetectTest, LazyLoadOnFirstDetection) {
    ScopedDebugLog debug(true);
    LogCapture logs;
    ASSERT_EQ(detector_->CodeDetect(input_.data(), output_.data(), 0), 0);
    EXPECT_TRUE(logs.Contains(3, "Load CodeDetectNelk models"));
    EXPECT_TRUE(logs.Contains(3, "code detect base GetLoadFlag, flag = 0"));
    ExpectDequantizedOutputs();

    logs.Clear();
    ASSERT_EQ(detector_->CodeDetect(input_.data(), output_.data(), 0), 0);
    EXPECT_FALSE(logs.Contains("Load CodeDetectNelk models"));
    EXPECT_EQ(CountCalls("NNModelLoadFromBuffer"), 1);
}

TEST_F(CodeDetectTest, SecondLoadModelIsANoOp) {
    ASSERT_EQ(detector_->LoadModel(), 0);
    LogCapture logs;
    EXPECT_EQ(detector_->LoadModel(), 0);
    EXPECT_EQ(logs.texts(), std::vector<std::string>{"EdgeDetectNpu model already loadedret: 0"});
}

TEST_F(CodeDetectTest, RejectedLoadIsReported) {
    ScriptedAdapterSetStatus("NNModelLoadFromBuffer", 9, 0);
    LogCapture logs;
    EXPECT_EQ(detector_->LoadModel(), -1);
    EXPECT_TRUE(logs.Contains(6, "load from Files, ret=9"));
    EXPECT_TRUE(logs.Contains(6, "load edge detect model failed, ret: -1"));
    EXPECT_TRUE(npu().network.netLock.try_lock()) << "no set-up after a failed load";
    npu().network.netLock.unlock();
}

TEST_F(CodeDetectTest, RunFailureEndsTheFrame) {
    ASSERT_EQ(detector_->LoadModel(), 0);
    ScriptedAdapterSetStatus("NNModelRun", 2, 0);
    LogCapture logs;
    EXPECT_EQ(detector_->CodeDetect(input_.data(), output_.data(), 0), -1);
    EXPECT_TRUE(logs.Contains(6, "run code detect model fail"));
    EXPECT_TRUE(logs.Contains(6, "do code detect failed"));
    EXPECT_EQ(output_[0], -1234.0f);
}

TEST_F(CodeDetectTest, NullInputIsACopyFailure) {
    ASSERT_EQ(detector_->LoadModel(), 0);
    LogCapture logs;
    EXPECT_EQ(detector_->CodeDetect(nullptr, output_.data(), 0), -1);
    EXPECT_TRUE(logs.Contains(6, "memcpy_s FAIL"));
    EXPECT_EQ(FindCall("NNModelRun"), -1);
}

TEST_F(CodeDetectTest, UnloadTearsDownAndAllowsAReload) {
    ASSERT_EQ(detector_->LoadModel(), 0);
    ASSERT_EQ(detector_->CodeDetect(input_.data(), output_.data(), 0), 0);
    EXPECT_EQ(detector_->UnloadModel(), 0);
    EXPECT_FALSE(detector_->GetLoadFlag());
    EXPECT_TRUE(npu().network.netLock.try_lock()) << "teardown released the lock";
    npu().network.netLock.unlock();
    EXPECT_EQ(NewTensors(), 0);

    output_.assign(kCodeDetectOutputFloats, 0.0f);
    ASSERT_EQ(detector_->CodeDetect(input_.data(), output_.data(), 0), 0) << "loads again";
    ExpectDequantizedOutputs();
    EXPECT_EQ(CountCalls("NNModelLoadFromBuffer"), 2);
}

}  // namespace
