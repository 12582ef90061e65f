// Test helpers around the scripted adapter: reading back the recorded calls
// and the bytes of the records the library handed over.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "inference/detector_layout.h"
#include "inference/npu_model_loader.h"
#include "scripted_adapter.h"

namespace scancode_test {

constexpr int kDetectorInputFloats = detector_layout::kInputFloats;

// What `body` printed; the file helpers report to stdout, kept out of the
// test log.
template <typename Body>
std::string StdoutOf(Body&& body) {
    ::testing::internal::CaptureStdout();
    body();
    fflush(stdout);
    return ::testing::internal::GetCapturedStdout();
}

inline std::vector<std::string> AdapterCalls() {
    std::vector<std::string> names;
    for (int i = 0; i < ScriptedAdapterCallCount(); ++i)
        names.push_back(ScriptedAdapterCallName(i));
    return names;
}

// Index of the `nth` (0-based) recorded call of `function`, or -1.
inline int FindCall(const std::string& function, int nth = 0) {
    for (int i = 0; i < ScriptedAdapterCallCount(); ++i) {
        if (function == ScriptedAdapterCallName(i) && nth-- == 0) return i;
    }
    return -1;
}

inline int CountCalls(const std::string& function) {
    const auto calls = AdapterCalls();
    return static_cast<int>(std::count(calls.begin(), calls.end(), function));
}

// The recorded bytes, empty when the key is missing.
inline std::string Blob(int call, const char* key) {
    size_t size = 0;
    const void* data = ScriptedAdapterCallBlob(call, key, &size);
    return data != nullptr ? std::string(static_cast<const char*>(data), size) : std::string();
}

template <typename T>
T At(const std::string& bytes, size_t offset) {
    T v{};
    EXPECT_LE(offset + sizeof v, bytes.size()) << "record too short";
    if (offset + sizeof v <= bytes.size()) memcpy(&v, bytes.data() + offset, sizeof v);
    return v;
}

inline bool AllZero(const std::string& bytes, size_t from, size_t to) {
    return bytes.substr(from, to - from) == std::string(to - from, '\0');
}

// Every adapter test starts from a clean script and the DSP path unset.
// Adapter objects outlive a test only where the runtime abandons them on
// purpose, so counts are taken relative to the start of the test.
class ScriptedAdapterTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ScriptedAdapterReset();
        unsetenv("ADSP_LIBRARY_PATH");
        managersAtStart_ = ScriptedAdapterLiveManagers();
        tensorsAtStart_ = ScriptedAdapterLiveTensors();
    }
    void TearDown() override { ScriptedAdapterReset(); }

    // A code detector network loaded, set up and given an all-ones input.
    static void LoadAndSetUp(NpuNetwork& net) {
        net.SetModelType(CODE_DETECT);
        ASSERT_EQ(LoadNpuModel(net), 0);
        ASSERT_TRUE(net.SetupModel());
        std::fill(net.GetInputBuffer(0), net.GetInputBuffer(0) + kDetectorInputFloats, 1.0f);
    }

    int NewManagers() const { return ScriptedAdapterLiveManagers() - managersAtStart_; }
    int NewTensors() const { return ScriptedAdapterLiveTensors() - tensorsAtStart_; }

    int managersAtStart_ = 0;
    int tensorsAtStart_ = 0;
};

}  // namespace scancode_test
