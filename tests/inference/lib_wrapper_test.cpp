// The adapter wrapper against a system library, and the file helpers.
#include "inference/lib_wrapper.h"

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
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
    EXPECT_EQ(wrapper.preFetchFunction("cos"), cosine);
    EXPECT_EQ(logs.Count(std::string("getHandle(), success to load lib ") + kSystemLib), 1u);

    // A miss is looked up once: the second answer comes from the map, so the
    // loader has no new error to report afterwards.
    dlerror();
    EXPECT_EQ(wrapper.preFetchFunction("NoSuchAdapterFunction"), nullptr);
    EXPECT_NE(dlerror(), nullptr) << "the first ask went to dlsym";
    EXPECT_EQ(wrapper.preFetchFunction("NoSuchAdapterFunction"), nullptr);
    EXPECT_EQ(dlerror(), nullptr) << "the second ask must not";
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

    wrapper.mLibName = nullptr;
    logs.Clear();
    EXPECT_EQ(wrapper.getHandle(), nullptr);
    EXPECT_EQ(logs.texts(), std::vector<std::string>{"getHandle(), mLibName is nullptr"});
}

}  // namespace
