// LoadNpuModel through the real dlopen path into the scripted adapter.
#include "inference/npu_model_loader.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <fstream>
#include <sstream>

#include "debug_switch.h"
#include "log_capture.h"
#include "platform/fixed_paths.h"
#include "scripted_session.h"

using namespace scancode_test;

namespace {

std::string FileBytes(const char* path) {
    std::ifstream file(path, std::ios::binary);
    std::ostringstream bytes;
    bytes << file.rdbuf();
    return bytes.str();
}

class LoadNpuModelTest : public ScriptedAdapterTest {
  protected:
    void TearDown() override {
        net_.UnloadModel();
        EXPECT_EQ(NewManagers(), 0);
        ScriptedAdapterTest::TearDown();
    }
    // Stdout carries the file helpers' reports; keep it out of the test log.
    int Load() {
        ::testing::internal::CaptureStdout();
        const int ret = LoadNpuModel(net_);
        fflush(stdout);
        stdout_ = ::testing::internal::GetCapturedStdout();
        return ret;
    }
    NpuNetwork net_;
    std::string stdout_;
};

TEST_F(LoadNpuModelTest, LoadsTheModelFileAndLogsEachStep) {
    net_.SetModelType(CODE_DETECT);
    LogCapture logs;
    ASSERT_EQ(Load(), 0);
    EXPECT_TRUE(net_.GetLoadFlag());
    EXPECT_EQ(net_.loadCount.load(), 1);
    EXPECT_EQ(net_.modelName, "codeDetect");
    EXPECT_STREQ(getenv("ADSP_LIBRARY_PATH"), "/vendor/lib64/rfsa");
    const std::vector<LogLine> expected = {
        {4, "load npu model in"},
        {4, "modelType:0"},
        {4, "SetEnv: ADSP_LIBRARY_PATH is set to /vendor/lib64/rfsa\n"},
        {4, std::string("getHandle(), success to load lib ") + kAdapterLibraryPath},
        {4, "inputNum is 1"},
        {4, "outputNum is 5"},
        {4, std::string("modelPath is ") + kModelFilePath},
        {4, "load from Files success, ret=0"},
    };
    EXPECT_EQ(logs.lines(), expected);
    EXPECT_EQ(stdout_, std::string("read ") + kModelFilePath + " success!\n");
    EXPECT_EQ(AdapterCalls(), (std::vector<std::string>{"NNModelManagerCreateWithConfig",
                                                        "NNModelLoadFromBuffer"}));
    EXPECT_TRUE(net_.netLock.try_lock()) << "the loader releases the lock";
    net_.netLock.unlock();
}

TEST_F(LoadNpuModelTest, ManagerConfigurationOnTheWire) {
    net_.SetModelType(CODE_DETECT);
    ASSERT_EQ(Load(), 0);
    const std::string config = Blob(FindCall("NNModelManagerCreateWithConfig"), "config");
    ASSERT_EQ(config.size(), 64u);
    EXPECT_TRUE(AllZero(config, 0, 32));
    EXPECT_EQ(At<int32_t>(config, 32), 1);
    EXPECT_EQ(At<int32_t>(config, 36), 0);
    EXPECT_EQ(At<int32_t>(config, 40), 1);
    EXPECT_TRUE(AllZero(config, 44, 64));
    EXPECT_EQ(At<void*>(Blob(0, "result"), 0), static_cast<void*>(net_.mAiModelManager));
}

TEST_F(LoadNpuModelTest, ModelDescriptorOnTheWire) {
    net_.SetModelType(CODE_DETECT);
    ASSERT_EQ(Load(), 0);
    const int load = FindCall("NNModelLoadFromBuffer");
    const std::string d = Blob(load, "descriptor");
    ASSERT_EQ(d.size(), 128u);
    EXPECT_EQ(Blob(load, "name"), "codeDetect");
    const std::string model = FileBytes(kModelFilePath);
    ASSERT_FALSE(model.empty());
    EXPECT_EQ(Blob(load, "model"), model);
    EXPECT_EQ(At<int32_t>(d, 16), static_cast<int32_t>(model.size()));
    EXPECT_EQ(d.substr(24, 4), "EFAC");
    EXPECT_EQ(At<int32_t>(d, 24), 0x43414645);
    EXPECT_EQ(At<int32_t>(d, 28), 1);
    EXPECT_EQ(At<int32_t>(d, 32), 2);
    EXPECT_EQ(At<int16_t>(d, 36), 0);
    EXPECT_TRUE(AllZero(d, 40, 56));
    EXPECT_EQ(At<int32_t>(d, 56), 1);
    EXPECT_EQ(At<int32_t>(d, 60), 5);
    EXPECT_TRUE(AllZero(d, 80, 128));
    EXPECT_EQ(At<int32_t>(Blob(load, "count"), 0), 1);
    EXPECT_EQ(At<void*>(Blob(load, "manager"), 0), static_cast<void*>(net_.mAiModelManager));

    const std::string input = Blob(load, "input0");
    ASSERT_EQ(input.size(), 64u);
    EXPECT_EQ(At<int32_t>(input, 0), 1);
    EXPECT_EQ(At<int32_t>(input, 4), 640);
    EXPECT_EQ(At<int32_t>(input, 8), 640);
    EXPECT_EQ(At<int32_t>(input, 12), 3);
    EXPECT_EQ(Blob(load, "input0_name"), "inputs");
    EXPECT_EQ(At<int32_t>(input, 40), 0);

    // One output record serves all five entries and ends up describing the
    // last output.
    const std::string pointers = Blob(load, "outputs");
    ASSERT_EQ(pointers.size(), 40u);
    for (int i = 0; i < 5; ++i) {
        EXPECT_EQ(At<void*>(pointers, 8 * i), At<void*>(pointers, 0)) << i;
        const std::string record = Blob(load, ("output" + std::to_string(i)).c_str());
        ASSERT_EQ(record.size(), 64u);
        EXPECT_EQ(At<int32_t>(record, 0), 1);
        EXPECT_EQ(At<int32_t>(record, 4), 5);
        EXPECT_EQ(At<int32_t>(record, 8), 5);
        EXPECT_EQ(At<int32_t>(record, 12), 6);
        EXPECT_EQ(At<int32_t>(record, 16), 0);
        EXPECT_EQ(At<int32_t>(record, 20), 4);
        EXPECT_EQ(At<int32_t>(record, 24), 1);
        EXPECT_EQ(At<int32_t>(record, 40), 4);
        EXPECT_TRUE(AllZero(record, 44, 64));
        EXPECT_EQ(Blob(load, ("output" + std::to_string(i) + "_name").c_str()), "_372");
    }
}

struct EnvCase {
    const char* before;  // null: unset
    const char* line;
};

void PrintTo(const EnvCase& c, std::ostream* os) {
    *os << (c.before ? c.before : "(unset)");
}

class DspSearchPathTest : public LoadNpuModelTest, public ::testing::WithParamInterface<EnvCase> {};

TEST_P(DspSearchPathTest, SetsOrKeepsTheVariable) {
    if (GetParam().before != nullptr) setenv("ADSP_LIBRARY_PATH", GetParam().before, 1);
    net_.SetModelType(CODE_DETECT);
    LogCapture logs;
    ASSERT_EQ(Load(), 0);
    EXPECT_STREQ(getenv("ADSP_LIBRARY_PATH"), "/vendor/lib64/rfsa");
    EXPECT_TRUE(logs.Contains(4, GetParam().line));
}

INSTANTIATE_TEST_SUITE_P(
    Values, DspSearchPathTest,
    ::testing::Values(
        EnvCase{"/vendor/lib64/rfsa",
                "SetEnv: ADSP_LIBRARY_PATH is already set to /vendor/lib64/rfsa\n"},
        EnvCase{"/vendor/lib64/rfsa;/vendor/dsp",
                "SetEnv: ADSP_LIBRARY_PATH is set to /vendor/lib64/rfsa\n"},
        EnvCase{"/vendor/lib64/rfs", "SetEnv: ADSP_LIBRARY_PATH is set to /vendor/lib64/rfsa\n"},
        EnvCase{nullptr, "SetEnv: ADSP_LIBRARY_PATH is set to /vendor/lib64/rfsa\n"}));

TEST_F(LoadNpuModelTest, SecondLoadOnlyCounts) {
    net_.SetModelType(CODE_DETECT);
    ASSERT_EQ(Load(), 0);
    ScriptedAdapterClearCalls();
    ScopedDebugLog debug(true);
    LogCapture logs;
    EXPECT_EQ(Load(), 0);
    EXPECT_EQ(net_.loadCount.load(), 2);
    EXPECT_TRUE(AdapterCalls().empty());
    EXPECT_EQ(logs.texts(), (std::vector<std::string>{"load npu model in", "modelType:0",
                                                      "Already loaded: codeDetect"}));
}

TEST_F(LoadNpuModelTest, ManagerCreationFailure) {
    net_.SetModelType(CODE_DETECT);
    ScriptedAdapterSetStatus("NNModelManagerCreateWithConfig", -1, 0);
    LogCapture logs;
    EXPECT_EQ(Load(), -1);
    EXPECT_TRUE(logs.Contains(6, "mAiModelManager == nullptr\n"));
    EXPECT_FALSE(net_.GetLoadFlag()) << "Init was never reached";
    EXPECT_EQ(AdapterCalls(), std::vector<std::string>{"NNModelManagerCreateWithConfig"});
}

TEST_F(LoadNpuModelTest, InitFailureReleasesManagerAndWrapper) {
    // A network whose type was never set cannot describe its tensors.
    LogCapture logs;
    EXPECT_EQ(Load(), -1);
    EXPECT_TRUE(logs.Contains(6, "get input and out tensor info failed"));
    EXPECT_TRUE(logs.Contains(6, "init detect_quantized model fail!"));
    EXPECT_EQ(AdapterCalls(), (std::vector<std::string>{"NNModelManagerCreateWithConfig",
                                                        "NNModelManagerDestroy"}));
    EXPECT_EQ(NewManagers(), 0);
    EXPECT_TRUE(net_.GetLoadFlag()) << "Init raised the flag first and nothing lowers it";
    EXPECT_EQ(net_.loadCount.load(), 0);
    // The network now holds stale pointers; forget them before TearDown.
    net_.mAiModelManager = nullptr;
    net_.libWrapper = nullptr;
}

TEST_F(LoadNpuModelTest, RejectedLoadLeavesManagerWithTheNetwork) {
    net_.SetModelType(CODE_DETECT);
    ScriptedAdapterSetStatus("NNModelLoadFromBuffer", -7, 0);
    LogCapture logs;
    EXPECT_EQ(Load(), -1);
    EXPECT_TRUE(logs.Contains(6, "load from Files, ret=-7"));
    EXPECT_EQ(net_.loadCount.load(), 0);
    EXPECT_NE(net_.mAiModelManager, nullptr);
    EXPECT_NE(net_.libWrapper, nullptr);
    EXPECT_TRUE(net_.GetLoadFlag()) << "raised by Init";
    EXPECT_EQ(NewManagers(), 1);  // TearDown's unload destroys it
}

TEST_F(LoadNpuModelTest, OtherTypesLoadNoFileAndNoTensorRecords) {
    net_.SetModelType(RESOLUTION);
    LogCapture logs;
    EXPECT_EQ(Load(), -1) << "nothing to load is a failed load";
    // An empty path cannot be opened; the empty buffer is then refused.
    EXPECT_EQ(stdout_.rfind("open file  failed\ninvalid file name: ", 0), 0u) << stdout_;
    EXPECT_EQ(stdout_.substr(stdout_.size() - 8), "size: 0\n") << stdout_;
    const int load = FindCall("NNModelLoadFromBuffer");
    EXPECT_EQ(Blob(load, "name"), "");
    EXPECT_EQ(At<int32_t>(Blob(load, "descriptor"), 60), 1);
    EXPECT_EQ(At<void*>(Blob(load, "outputs"), 0), nullptr);
    EXPECT_EQ(net_.modelName, "");
}

}  // namespace
