// The adapter wrapper against a system library, and the file helpers.
#include "inference/lib_wrapper.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <functional>
#include <string>

#include "inference/npu_model_loader.h"
#include "log_capture.h"

using scancode_test::LogCapture;

namespace {

constexpr const char* kSystemLib = "libm.so.6";

TEST(LibWrapper, OpensOnceAndCachesHitsAndMisses) {
    zt::LibWrapper wrapper;
    wrapper.mLibName = kSystemLib;
    LogCapture logs;
    void* cosine = wrapper.preFetchFunction("cos");
    ASSERT_NE(cosine, nullptr);
    EXPECT_EQ(cosine, dlsym(wrapper.mHandle, "cos"));
    EXPECT_TRUE(logs.Contains(4, std::string("getHandle(), success to load lib ") + kSystemLib));
    void* handle = wrapper.getHandle();
    EXPECT_EQ(wrapper.preFetchFunction("cos"), cosine);
    EXPECT_EQ(wrapper.getHandle(), handle);
    EXPECT_EQ(logs.Count(std::string("getHandle(), success to load lib ") + kSystemLib), 1u);

    // A miss is looked up once: the second answer comes from the map, so the
    // loader has no new error to report afterwards.
    dlerror();
    EXPECT_EQ(wrapper.preFetchFunction("NoSuchAdapterFunction"), nullptr);
    EXPECT_NE(dlerror(), nullptr) << "the first ask went to dlsym";
    EXPECT_EQ(wrapper.preFetchFunction("NoSuchAdapterFunction"), nullptr);
    EXPECT_EQ(dlerror(), nullptr) << "the second ask must not";
    ASSERT_EQ(wrapper.mFuncMap.count("NoSuchAdapterFunction"), 1u);
    EXPECT_EQ(wrapper.mFuncMap["NoSuchAdapterFunction"], nullptr);
}

TEST(LibWrapper, MissingLibraryIsRetriedAndCachesNothing) {
    zt::LibWrapper wrapper;
    wrapper.mLibName = "/nonexistent/libNoAdapter.so";
    LogCapture logs;
    EXPECT_EQ(wrapper.preFetchFunction("NNModelRun"), nullptr);
    EXPECT_EQ(wrapper.preFetchFunction("NNModelRun"), nullptr);
    EXPECT_TRUE(wrapper.mFuncMap.empty());
    ASSERT_EQ(logs.lines().size(), 2u) << "each call tries to open the library again";
    const std::string prefix = "getHandle(), failed to load lib /nonexistent/libNoAdapter.so : ";
    EXPECT_EQ(logs.lines()[0].prio, 6);
    EXPECT_EQ(logs.lines()[0].text.compare(0, prefix.size(), prefix), 0) << logs.lines()[0].text;
    EXPECT_GT(logs.lines()[0].text.size(), prefix.size()) << "the loader's reason follows";
}

TEST(LibWrapper, NullNameIsReported) {
    zt::LibWrapper wrapper;
    wrapper.mLibName = nullptr;
    LogCapture logs;
    EXPECT_EQ(wrapper.getHandle(), nullptr);
    EXPECT_EQ(logs.texts(), std::vector<std::string>{"getHandle(), mLibName is nullptr"});
}

TEST(ResolveAdapterFunction, LogsAMissAsAFailedInvoke) {
    zt::LibWrapper wrapper;
    wrapper.mLibName = kSystemLib;
    LogCapture logs;
    EXPECT_EQ(ResolveAdapterFunction<void (*)()>(&wrapper, "NNModelRun"), nullptr);
    ASSERT_EQ(logs.lines().size(), 2u);  // the library opened, then the miss
    const std::string prefix = "invoke(), failed to load sym NNModelRun : ";
    EXPECT_EQ(logs.lines()[1].prio, 6);
    EXPECT_EQ(logs.lines()[1].text.compare(0, prefix.size(), prefix), 0) << logs.lines()[1].text;
}

class FileHelpersTest : public ::testing::Test {
  protected:
    void SetUp() override {
        // One file per test: CTest runs the tests of this fixture as
        // parallel processes, and one's TearDown must not remove another's.
        path_ = ::testing::TempDir() + "scancode_file_helpers_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name() + ".bin";
        std::ofstream(path_, std::ios::binary) << std::string("0123456789abcdef", 16);
    }
    void TearDown() override { std::remove(path_.c_str()); }

    static std::string Stdout(const std::function<void()>& body) {
        ::testing::internal::CaptureStdout();
        body();
        fflush(stdout);
        return ::testing::internal::GetCapturedStdout();
    }
    std::string path_;
};

TEST_F(FileHelpersTest, GetFileLength) {
    EXPECT_EQ(GetFileLength(path_.c_str()), 16u);
    EXPECT_EQ(GetFileLength(nullptr), 0u);
    const std::string out = Stdout([] { EXPECT_EQ(GetFileLength("/nonexistent/m.bin"), 0u); });
    EXPECT_EQ(out, "open file /nonexistent/m.bin failed\n");
}

TEST_F(FileHelpersTest, ReadFileReadsExactlyTheSize) {
    char buffer[17] = {};
    const std::string out = Stdout([&] { EXPECT_EQ(ReadFile(path_.c_str(), buffer, 16), 0); });
    EXPECT_STREQ(buffer, "0123456789abcdef");
    EXPECT_EQ(out, "read " + path_ + " success!\n");

    char prefix[5] = {};
    Stdout([&] { EXPECT_EQ(ReadFile(path_.c_str(), prefix, 4), 0); });
    EXPECT_STREQ(prefix, "0123");
}

TEST_F(FileHelpersTest, ReadFileRejectsBadArguments) {
    char buffer[4];
    struct Case {
        const char* path;
        void* buffer;
        int size;
    };
    const Case cases[] = {{path_.c_str(), buffer, 0},
                          {path_.c_str(), buffer, -1},
                          {nullptr, buffer, 4},
                          {path_.c_str(), nullptr, 4}};
    for (const auto& c : cases) {
        const std::string out = Stdout([&] { EXPECT_EQ(ReadFile(c.path, c.buffer, c.size), -1); });
        char expected[128];
        snprintf(expected, sizeof expected, "invalid file name: %p buf: %p size: %d\n",
                 static_cast<const void*>(c.path), c.buffer, c.size);
        EXPECT_EQ(out, expected);
    }
    const std::string out =
        Stdout([&] { EXPECT_EQ(ReadFile("/nonexistent/m.bin", buffer, 4), -1); });
    EXPECT_EQ(out, "open file /nonexistent/m.bin failed\n");
}

}  // namespace
