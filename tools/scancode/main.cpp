// scancode: runs pictures, folders of pictures, videos and raw NV21 files
// through the library's public API (Init / Process / DeInit) and reports
// per frame the result code, the boxes, the zoom suggestion and whether a
// straightened code was handed back.
//
//   scancode [--json] [--out DIR] [--size WxH] [--verbose] INPUT...
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>

#include "frame_report.h"
#include "frame_source.h"
#include "host_shim.h"
#include "scancode.h"

namespace {

struct Options {
    bool json = false;
    bool verbose = false;
    std::string outDir;
    cv::Size rawSize;
    std::vector<std::string> inputs;
};

int Usage(const char* message) {
    if (message) fprintf(stderr, "scancode: %s\n", message);
    fprintf(stderr,
            "usage: scancode [--json] [--out DIR] [--size WxH] [--verbose] INPUT...\n"
            "  INPUT      a picture, a folder of pictures, a video, or raw NV21 (.nv21/.yuv)\n"
            "  --json     one JSON line per frame on stdout\n"
            "  --out DIR  write each frame with its boxes and zoom view, and the frame the\n"
            "             library handed back when it straightened a code\n"
            "  --size WxH frame size of raw NV21 input\n"
            "  --verbose  show the library's log lines on stderr\n");
    return 2;
}

bool ParseOptions(int argc, char** argv, Options& o) {
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--json") {
            o.json = true;
        } else if (a == "--verbose") {
            o.verbose = true;
        } else if (a == "--out" && i + 1 < argc) {
            o.outDir = argv[++i];
        } else if (a == "--size" && i + 1 < argc) {
            if (sscanf(argv[++i], "%dx%d", &o.rawSize.width, &o.rawSize.height) != 2) return false;
        } else if (a.rfind("--", 0) == 0) {
            return false;
        } else {
            o.inputs.push_back(a);
        }
    }
    return !o.inputs.empty();
}

struct LogLines {
    std::vector<std::string> lines;
    bool echo = false;
};

void CollectLine(int prio, const char* tag, const char* text, void* user) {
    auto* log = static_cast<LogLines*>(user);
    log->lines.emplace_back(text);
    if (log->echo) fprintf(stderr, "%c/%s: %s\n", "??VDIWEF"[prio & 7], tag, text);
}

void Progress(int done, int total) {
    if (total <= 1 || !isatty(STDERR_FILENO)) return;
    const int width = 30, filled = done * width / total;
    fprintf(stderr, "\r[%.*s%*s] %d/%d", filled, "##############################", width - filled,
            "", done, total);
    if (done == total) fputc('\n', stderr);
}

std::string FileStem(const std::string& name) {
    std::string stem = std::filesystem::path(name).filename().string();
    for (char& c : stem) {
        if (c == '#' || c == ' ') c = '_';
    }
    return stem;
}

// The library's frame image takes the size of the first frame after Init,
// so a change of size starts a new session.
class Session {
  public:
    ~Session() { Close(); }
    bool Ready(int width, int height) {
        if (handle_ && width == width_ && height == height_) return true;
        Close();
        if (Init(&handle_) != 0) {
            fprintf(stderr, "scancode: Init failed (adapter or model missing?)\n");
            DeInit(handle_);
            handle_ = nullptr;
            return false;
        }
        width_ = width;
        height_ = height;
        return true;
    }
    void* handle() const { return handle_; }
    void Close() {
        if (handle_) DeInit(handle_);
        handle_ = nullptr;
    }

  private:
    void* handle_ = nullptr;
    int width_ = 0, height_ = 0;
};

// The library prints a few loader messages on stdout; results own stdout, so
// everything else written there goes to stderr. Returns the results stream.
FILE* TakeStdoutForResults() {
    const int results = dup(STDOUT_FILENO);
    dup2(STDERR_FILENO, STDOUT_FILENO);
    return fdopen(results, "w");
}

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    if (!ParseOptions(argc, argv, opt)) return Usage(argc > 1 ? "bad arguments" : nullptr);
    FILE* results = TakeStdoutForResults();
    if (!opt.outDir.empty()) std::filesystem::create_directories(opt.outDir);

    LogLines log;
    log.echo = opt.verbose;
    ScanHostSetLogSink(&CollectLine, &log);

    Session session;
    int frames = 0, withBoxes = 0, sent = 0, failures = 0;
    double totalMs = 0;
    for (const std::string& input : opt.inputs) {
        std::string error;
        std::unique_ptr<FrameSource> source = OpenFrameSource(input, opt.rawSize, error);
        if (!source) {
            fprintf(stderr, "scancode: %s\n", error.c_str());
            ++failures;
            continue;
        }
        Frame frame;
        for (int done = 0; source->Next(frame);) {
            if (!session.Ready(frame.width, frame.height)) return 1;
            FrameResult r;
            r.name = frame.name;
            r.width = frame.width;
            r.height = frame.height;
            std::vector<uint8_t> returned(frame.nv21.size());
            ZoomInfoResult zoom{-1.0f, -1.0f};
            WarpPicInfo pic{returned.data(), false};

            log.lines.clear();
            const auto t0 = std::chrono::steady_clock::now();
            r.rc = Process(session.handle(), frame.nv21.data(), frame.width, frame.height,
                           frame.width, frame.height, &zoom, &pic);
            r.ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0)
                       .count();
            r.zoomWritten = zoom.bestZoom != -1.0f;
            r.zoom = zoom;
            r.sentWarp = pic.sendWarpPic;
            ReadBoxes(log.lines, r);

            fprintf(results, "%s\n", (opt.json ? ToJson(r) : ToText(r)).c_str());
            fflush(results);
            if (!opt.outDir.empty()) {
                const std::string stem = opt.outDir + "/" + FileStem(r.name);
                const cv::Mat bgr = FromNV21(frame.nv21.data(), frame.width, frame.height);
                cv::imwrite(stem + ".boxes.jpg", Annotate(bgr, r));
                if (r.sentWarp) {
                    cv::imwrite(stem + ".returned.jpg",
                                FromNV21(returned.data(), frame.width, frame.height));
                }
            }
            ++frames;
            withBoxes += !r.boxes.empty();
            sent += r.sentWarp;
            totalMs += r.ms;
            Progress(++done, source->Count());
        }
    }
    session.Close();
    ScanHostSetLogSink(nullptr, nullptr);
    if (!opt.json && frames > 0) {
        fprintf(stderr, "%d frame(s), %d with boxes, %d straightened, %.1f ms per frame\n", frames,
                withBoxes, sent, totalMs / frames);
    }
    return failures ? 1 : 0;
}
