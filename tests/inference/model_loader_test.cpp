// LoadNpuModel through the real dlopen path into the scripted adapter.
#include "inference/npu_model_loader.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <sstream>
#include <string>
#include <utility>

#include "log_capture.h"
#include "platform/fixed_paths.h"
#include "scripted_session.h"

using namespace scancode_test;

namespace {

class LoadNpuModelTest : public ScriptedAdapterTest {
  protected:
    void TearDown() override {
        net_.UnloadModel();
        EXPECT_EQ(NewManagers(), 0);
        ScriptedAdapterTest::TearDown();
        // Tests change the paths; the next one starts from the scripted set-up.
        for (const auto& [name, value] : saved_) setenv(name, value.c_str(), 1);
    }
    // Stdout carries the file helpers' reports; keep it out of the test log.
    int Load(ModelType type = CODE_DETECT) {
        if (type != MODEL_TYPE_MAX) net_.SetModelType(type);
        int ret = 0;
        StdoutOf([&] { ret = LoadNpuModel(net_); });
        return ret;
    }
    NpuNetwork net_;
    static std::string Env(const char* name) {
        const char* value = getenv(name);
        return value != nullptr ? value : "";
    }
    const std::pair<const char*, std::string> saved_[2] = {
        {"SCANCODE_MODEL_PATH", Env("SCANCODE_MODEL_PATH")},
        {"SCANCODE_ADAPTER_PATH", Env("SCANCODE_ADAPTER_PATH")}};
};

TEST_F(LoadNpuModelTest, RecordsOnTheWire) {
    ASSERT_EQ(Load(), 0);
    const std::string config = Blob(FindCall("NNModelManagerCreateWithConfig"), "config");
    ASSERT_EQ(config.size(), 64u);
    EXPECT_TRUE(AllZero(config, 0, 32));
    for (auto [offset, value] : {std::pair{32, 1}, {36, 0}, {40, 1}})
        EXPECT_EQ(At<int32_t>(config, offset), value) << "config at " << offset;
    EXPECT_TRUE(AllZero(config, 44, 64));

    const int load = FindCall("NNModelLoadFromBuffer");
    const std::string d = Blob(load, "descriptor");
    ASSERT_EQ(d.size(), 128u);
    EXPECT_EQ(Blob(load, "name"), "codeDetect");
    std::ostringstream model;
    model << std::ifstream(kModelFilePath, std::ios::binary).rdbuf();
    ASSERT_FALSE(model.str().empty());
    EXPECT_EQ(Blob(load, "model"), model.str());
    EXPECT_EQ(d.substr(24, 4), "EFAC");
    const int size = static_cast<int>(model.str().size());
    for (auto [offset, value] : {std::pair{16, size}, {28, 1}, {32, 2}, {56, 1}, {60, 5}})
        EXPECT_EQ(At<int32_t>(d, offset), value) << "descriptor at " << offset;
    EXPECT_EQ(At<int16_t>(d, 36), 0);
    EXPECT_TRUE(AllZero(d, 40, 56));
    EXPECT_TRUE(AllZero(d, 80, 128));
    EXPECT_EQ(At<void*>(Blob(load, "manager"), 0), static_cast<void*>(net_.mAiModelManager));

    // One output record serves all five entries and ends up describing the
    // last output. The record layout itself is checked where tensors are made.
    const std::string outputs = Blob(load, "outputs");
    ASSERT_EQ(outputs.size(), 40u);
    for (int i = 1; i < 5; ++i) EXPECT_EQ(At<void*>(outputs, 8 * i), At<void*>(outputs, 0));
    EXPECT_EQ(At<int32_t>(Blob(load, "output0"), 40), 4);
    EXPECT_EQ(Blob(load, "output0_name"), "_372");
    EXPECT_EQ(Blob(load, "input0").size(), 64u);
    EXPECT_EQ(Blob(load, "input0_name"), "inputs");
}

// On a host, SCANCODE_MODEL_PATH and SCANCODE_ADAPTER_PATH replace the
// configured paths when set, read when the model is loaded (so a program may
// set them just before Init), and an empty value leaves the default.
// The program runs with both variables naming the scripted set-up; without
// them the library falls back to the paths it was built with.
TEST_F(LoadNpuModelTest, EnvironmentOverridesPathsAtLoad) {
    const std::string scriptedModel(kModelFilePath);
    const std::string scriptedAdapter(kAdapterLibraryPath);
    ASSERT_EQ(unsetenv("SCANCODE_MODEL_PATH"), 0);
    ASSERT_EQ(unsetenv("SCANCODE_ADAPTER_PATH"), 0);
    const std::string builtInModel(kModelFilePath);
    EXPECT_NE(builtInModel, scriptedModel);
    EXPECT_STRNE(kAdapterLibraryPath, scriptedAdapter.c_str());
    ASSERT_EQ(setenv("SCANCODE_ADAPTER_PATH", scriptedAdapter.c_str(), 1), 0);

    const std::string other = ::testing::TempDir() + "other_model.bin";
    std::ofstream(other, std::ios::binary) << "another model's bytes";
    ASSERT_EQ(setenv("SCANCODE_MODEL_PATH", other.c_str(), 1), 0);
    EXPECT_EQ(std::string(kModelFilePath), other);
    ASSERT_EQ(Load(), 0);
    EXPECT_EQ(Blob(FindCall("NNModelLoadFromBuffer"), "model"), "another model's bytes");
    std::remove(other.c_str());

    // An empty value counts as unset.
    ASSERT_EQ(setenv("SCANCODE_MODEL_PATH", "", 1), 0);
    EXPECT_EQ(std::string(kModelFilePath), builtInModel);
    ASSERT_EQ(setenv("SCANCODE_ADAPTER_PATH", "/elsewhere/adapter.so", 1), 0);
    EXPECT_STREQ(kAdapterLibraryPath, "/elsewhere/adapter.so");
}

TEST_F(LoadNpuModelTest, InitFailureReleasesManagerAndWrapper) {
    // A network whose type was never set cannot describe its tensors.
    LogCapture logs;
    EXPECT_EQ(Load(MODEL_TYPE_MAX), -1);
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

}  // namespace
