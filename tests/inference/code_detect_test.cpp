// The code detector end to end over the scripted adapter: float image in,
// five dequantized maps out.
#include "inference/code_detect.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <vector>

#include "log_capture.h"
#include "scripted_session.h"

using namespace scancode_test;

namespace {

const int kOutputElements[5] = {38400, 9600, 2400, 600, 150};
// The model's quantization, written out independently of the library's table.
const int kZeroPoints[5] = {-189, -221, -178, -168, -255};
const float kScales[5] = {0.06613318622112274f, 0.15657134354114532f, 0.07030908763408661f,
                          0.07131850719451904f, 0.0829123929142952f};

class CodeDetectTest : public ScriptedAdapterTest {
  protected:
    void SetUp() override {
        ScriptedAdapterTest::SetUp();
        detector_.reset(GetCodeDetect());
        input_.resize(kDetectorInputFloats);
        for (int i = 0; i < kDetectorInputFloats; ++i) input_[i] = static_cast<float>(i % 256);
        output_.assign(detector_layout::kOutputValues, -1234.0f);
        // Output i serves bytes (k * (i + 3)) mod 256 for element k.
        for (int i = 0; i < 5; ++i) {
            served_[i].resize(kOutputElements[i]);
            for (int k = 0; k < kOutputElements[i]; ++k)
                served_[i][k] = static_cast<uint8_t>(k * (i + 3));
            ScriptedAdapterSetOutput(i, served_[i].data(), served_[i].size());
        }
    }
    void TearDown() override {
        detector_->UnloadModel();
        detector_.reset();
        EXPECT_EQ(NewManagers(), 0);
        EXPECT_EQ(NewTensors(), 0);
        ScriptedAdapterTest::TearDown();
    }

    NetLock& lock() { return static_cast<CodeDetectNpu*>(detector_.get())->network.netLock; }

    void ExpectDequantizedOutputs() {
        for (int i = 0, offset = 0; i < 5; offset += kOutputElements[i++]) {
            for (int k = 0; k < kOutputElements[i]; ++k) {
                const float expected = static_cast<float>((served_[i][k] + kZeroPoints[i]) *
                                                          static_cast<double>(kScales[i]));
                ASSERT_EQ(output_[offset + k], expected) << "output " << i << " k " << k;
            }
        }
    }

    std::unique_ptr<CodeDetectbase> detector_;
    std::vector<float> input_;
    std::vector<float> output_;
    std::vector<uint8_t> served_[5];
};

TEST_F(CodeDetectTest, LazyLoadThenDetect) {
    ASSERT_EQ(detector_->CodeDetect(input_.data(), output_.data(), detector_layout::kOutputValues),
              0);
    EXPECT_FALSE(lock().try_lock()) << "set up: the lock is held";
    ExpectDequantizedOutputs();

    LogCapture logs;
    EXPECT_EQ(detector_->LoadModel(), 0);
    EXPECT_TRUE(logs.Contains(4, "EdgeDetectNpu model already loadedret: 0"));
    ASSERT_EQ(detector_->CodeDetect(input_.data(), output_.data(), 0), 0);
    EXPECT_EQ(CountCalls("NNModelLoadFromBuffer"), 1);

    EXPECT_EQ(detector_->UnloadModel(), 0);
    EXPECT_FALSE(detector_->GetLoadFlag());
    EXPECT_TRUE(lock().try_lock()) << "teardown released the lock";
    lock().unlock();
    output_.assign(detector_layout::kOutputValues, 0.0f);
    ASSERT_EQ(detector_->CodeDetect(input_.data(), output_.data(), 0), 0) << "loads again";
    ExpectDequantizedOutputs();
    EXPECT_EQ(CountCalls("NNModelLoadFromBuffer"), 2);
}

TEST_F(CodeDetectTest, FailuresAreReported) {
    ScriptedAdapterSetStatus("NNModelLoadFromBuffer", 9, 0);
    LogCapture logs;
    EXPECT_EQ(detector_->LoadModel(), -1);
    EXPECT_TRUE(logs.Contains(6, "load edge detect model failed, ret: -1"));
    EXPECT_TRUE(lock().try_lock()) << "no set-up after a failed load";
    lock().unlock();
    detector_->UnloadModel();

    ScriptedAdapterSetStatus("NNModelLoadFromBuffer", 0, 0);
    ASSERT_EQ(detector_->LoadModel(), 0);
    EXPECT_EQ(detector_->CodeDetect(nullptr, output_.data(), 0), -1);
    EXPECT_TRUE(logs.Contains(6, "memcpy_s FAIL"));
    EXPECT_EQ(FindCall("NNModelRun"), -1);

    ScriptedAdapterSetStatus("NNModelRun", 2, 0);
    EXPECT_EQ(detector_->CodeDetect(input_.data(), output_.data(), 0), -1);
    EXPECT_TRUE(logs.Contains(6, "run code detect model fail"));
    EXPECT_TRUE(logs.Contains(6, "do code detect failed"));
    EXPECT_EQ(output_[0], -1234.0f);
}

}  // namespace
