// The command-line tool's frame sources on any bytes: a picture file (and
// the picture decoder under it), a folder holding one, and raw NV21 of a
// chosen size. Each must give frames the library can take or an error that
// names the input, never throw, crash or hang.
#include <unistd.h>

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>

#include <fuzzer/FuzzedDataProvider.h>
#include <opencv2/core/utils/logger.hpp>

#include "frame_source.h"
#include "scancode/scanner.h"

namespace fs = std::filesystem;

namespace {

const fs::path& WorkDir() {
    static const fs::path dir = [] {
        cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
        const fs::path d =
            fs::temp_directory_path() / ("frame_source_fuzz_" + std::to_string(getpid()));
        fs::create_directories(d);
        return d;
    }();
    return dir;
}

void Check(bool ok, const char* what) {
    if (!ok) {
        fprintf(stderr, "frame_source_fuzz: %s\n", what);
        abort();
    }
}

// Every frame of the source holds a whole NV21 frame of a size the library
// takes; every failure names `path`.
void Drain(const std::string& path, cv::Size rawSize) {
    std::string error;
    std::unique_ptr<FrameSource> source = OpenFrameSource(path, rawSize, error);
    if (!source) {
        Check(error.rfind(path, 0) == 0, "an open failure that does not name the input");
        return;
    }
    Frame frame;
    for (NextStatus s; (s = source->Next(frame, error)) != NextStatus::kEnd;) {
        if (s == NextStatus::kFailed) {
            Check(error.rfind(path, 0) == 0, "a frame failure that does not name the input");
            continue;
        }
        Check(scancode::CheckFrameSize(frame.width, frame.height).empty(), "a bad frame size");
        Check(frame.nv21.size() == size_t(frame.width) * frame.height * 3 / 2,
              "an NV21 buffer of the wrong length");
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const int kind = in.ConsumeIntegralInRange(0, 2);
    const cv::Size rawSize(16 * in.ConsumeIntegralInRange(0, 8),
                           2 * in.ConsumeIntegralInRange(0, 8));
    const std::string bytes = in.ConsumeRemainingBytesAsString();
    static const char* const kNames[] = {"picture.png", "folder/picture.jpg", "frames.nv21"};
    const fs::path path = WorkDir() / kNames[kind];
    fs::create_directories(path.parent_path());
    std::ofstream(path, std::ios::binary | std::ios::trunc) << bytes;
    Drain(kind == 1 ? path.parent_path().string() : path.string(), rawSize);
    return 0;
}
