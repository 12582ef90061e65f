// The model file helpers on files that are not what their size promised:
// gone short between sizing and reading, a FIFO, a directory, a device.
// Each call runs under a watchdog: the failure being guarded against is a
// call that never returns.
#include <sys/stat.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "inference/npu_model_loader.h"
#include "watchdog.h"

using namespace scancode_test;
namespace fs = std::filesystem;

namespace {

constexpr std::chrono::seconds kLimit(10);

class ModelFileTest : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = fs::path(::testing::TempDir()) /
               ("model_file_" + std::to_string(getpid()) + "_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }
    std::string Write(const std::string& name, const std::string& bytes) {
        const std::string path = (dir_ / name).string();
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }
    std::string Fifo() {
        const std::string path = (dir_ / "fifo").string();
        EXPECT_EQ(mkfifo(path.c_str(), 0600), 0);
        return path;
    }
    // Runs `body` under the watchdog and returns what it printed.
    template <typename Body>
    std::string Printed(const std::string& what, Body&& body) {
        Watchdog watchdog(kLimit, what);
        ::testing::internal::CaptureStdout();
        body();
        fflush(stdout);
        return ::testing::internal::GetCapturedStdout();
    }
    fs::path dir_;
};

TEST_F(ModelFileTest, LengthIsZeroForAnythingButARegularFile) {
    struct Case {
        const char* what;
        std::string path;
        uint64_t length;
        bool reported;
    };
    const std::vector<Case> cases = {
        {"regular file", Write("model.bin", "0123456789"), 10, false},
        {"empty file", Write("empty.bin", ""), 0, false},
        {"missing file", (dir_ / "missing.bin").string(), 0, true},
        {"directory", dir_.string(), 0, true},
        {"FIFO without a writer", Fifo(), 0, true},
        {"character device", "/dev/zero", 0, true},
    };
    for (const Case& c : cases) {
        uint64_t length = 1234;
        const std::string printed =
            Printed(c.what, [&] { length = GetFileLength(c.path.c_str()); });
        EXPECT_EQ(length, c.length) << c.what;
        EXPECT_EQ(printed, c.reported ? "open file " + c.path + " failed\n" : "") << c.what;
    }
}

// The file is measured, then cut short (as when it is replaced while the
// library loads it): the read gives up with one report.
TEST_F(ModelFileTest, FileThatShrankAfterSizingFailsOnce) {
    const std::string path = Write("model.bin", "0123456789");
    const int size = static_cast<int>(GetFileLength(path.c_str()));
    ASSERT_EQ(size, 10);
    for (const int left : {3, 0}) {
        ASSERT_EQ(truncate(path.c_str(), left), 0);
        std::vector<char> buffer(size);
        int ret = 0;
        const std::string printed =
            Printed("ReadFile", [&] { ret = ReadFile(path.c_str(), buffer.data(), size); });
        EXPECT_EQ(ret, -1) << left << " bytes left";
        EXPECT_EQ(printed, "Error: read " + std::to_string(left) + ", but want to read: 10\n")
            << left << " bytes left";
    }
}

TEST_F(ModelFileTest, DirectoryCannotBeRead) {
    char buffer[8] = {};
    int ret = 0;
    const std::string path = dir_.string();
    Printed("ReadFile on a directory", [&] { ret = ReadFile(path.c_str(), buffer, 8); });
    EXPECT_EQ(ret, -1);
}

}  // namespace
