// scancode: runs pictures, folders of pictures, videos and raw NV21 files
// through the library's public API (Init / Process / DeInit) and reports
// per frame the result code, the boxes, the zoom suggestion and whether a
// straightened code was handed back. Usage: options.cpp.
#include <fcntl.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>

#include "code_reader.h"
#include "frame_report.h"
#include "frame_source.h"
#include "host_shim.h"
#include "options.h"
#include "output_names.h"
#include "scancode.h"
#include "timing.h"

namespace {

struct LogLines {
    std::vector<std::string> lines;
    bool echo = false;
};

void CollectLine(int prio, const char* tag, const char* text, void* user) {
    auto* log = static_cast<LogLines*>(user);
    log->lines.emplace_back(text);
    if (log->echo) fprintf(stderr, "%c/%s: %s\n", "??VDIWEF"[prio & 7], tag, text);
}

// The readers' own chatter (a GStreamer back end that is tried and gives up,
// FFmpeg's notes on a damaged file) says nothing the tool's messages do not;
// --verbose keeps it. Set before the first reader is opened.
void QuietReaders(bool verbose) {
    if (verbose) return;
    cv::utils::logging::setLogLevel(cv::utils::logging::LOG_LEVEL_SILENT);
    setenv("OPENCV_FFMPEG_LOGLEVEL", "-8", 0);  // AV_LOG_QUIET
    setenv("OPENCV_VIDEOIO_PRIORITY_GSTREAMER", "0", 0);
}

class Progress {
  public:
    explicit Progress(bool shown) : shown_(shown && isatty(STDERR_FILENO)) {}
    void Update(int done, int total) {
        if (!shown_ || total <= 1) return;
        const int width = 30, filled = std::min(done, total) * width / total;
        fprintf(stderr, "\r[%.*s%*s] %d/%d", filled, "##############################",
                width - filled, "", done, total);
        if (done >= total) fputc('\n', stderr);
    }
    // Clears a partly drawn bar before another line goes to stderr.
    void Interrupt() {
        if (shown_) fputs("\r\033[K", stderr);
    }

  private:
    bool shown_;
};

// The library's frame image takes the size of the first frame after Init,
// so a change of size starts a new session.
class Session {
  public:
    ~Session() { Close(); }
    // False when Init failed; `fresh` tells whether this frame starts a session.
    bool Ready(int width, int height, bool& fresh) {
        fresh = !(handle_ && width == width_ && height == height_);
        if (!fresh) return true;
        Close();
        if (Init(&handle_) != 0) {
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

// The library prints its model loader's messages on stdout; results own
// stdout, so those go to stderr with --verbose and nowhere otherwise.
// Returns the results stream.
FILE* TakeStdoutForResults(bool verbose) {
    const int results = dup(STDOUT_FILENO);
    const int sink = verbose ? STDERR_FILENO : open("/dev/null", O_WRONLY | O_CLOEXEC);
    if (sink >= 0) dup2(sink, STDOUT_FILENO);
    setvbuf(stdout, nullptr, _IOLBF, 0);
    return fdopen(results, "w");
}

// Empty when `dir` exists as a folder or could be created, else why not.
std::string PrepareOutDir(const std::string& dir) {
    std::error_code ec;
    if (std::filesystem::exists(dir, ec) && !std::filesystem::is_directory(dir, ec)) {
        return "--out " + dir + ": exists and is not a folder";
    }
    std::filesystem::create_directories(dir, ec);
    return ec ? "--out " + dir + ": cannot create (" + ec.message() + ")" : std::string();
}

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    std::string error;
    switch (ParseOptions(std::vector<std::string>(argv + 1, argv + argc), opt, error)) {
        case Command::kHelp:
            fputs(kUsage, stdout);
            return 0;
        case Command::kVersion:
            // The library's GetCompileTime hands back a released block that
            // must never be read, so the build time shown is the tool's,
            // which is built with the library.
            printf("scancode %s (built %s %s)\n", SCANCODE_VERSION, __DATE__, __TIME__);
            return 0;
        case Command::kBadUsage:
            fprintf(stderr, "scancode: %s\n%s", error.c_str(), kUsage);
            return 2;
        case Command::kRun:
            break;
    }
    if (!opt.outDir.empty()) {
        if (const std::string why = PrepareOutDir(opt.outDir); !why.empty()) {
            fprintf(stderr, "scancode: %s\n", why.c_str());
            return 2;
        }
    }
    QuietReaders(opt.verbose);
    FILE* results = TakeStdoutForResults(opt.verbose);

    LogLines log;
    log.echo = opt.verbose;
    ScanHostSetLogSink(&CollectLine, &log);

    Session session;
    OutputNames names;
    Timing timing;
    Progress progress(!opt.json);
    int frames = 0, withBoxes = 0, sent = 0, failures = 0;
    auto fail = [&](const std::string& why) {
        progress.Interrupt();
        fprintf(stderr, "scancode: %s\n", why.c_str());
        ++failures;
    };
    for (const std::string& input : opt.inputs) {
        std::unique_ptr<FrameSource> source = OpenFrameSource(input, opt.rawSize, error);
        if (!source) {
            fail(error);
            continue;
        }
        Frame frame;
        int done = 0;
        for (NextStatus status; (status = source->Next(frame, error)) != NextStatus::kEnd;) {
            progress.Update(++done, source->Count());
            if (status == NextStatus::kFailed) {
                fail(error);
                continue;
            }
            bool fresh = false;
            if (!session.Ready(frame.width, frame.height, fresh)) {
                fail("Init failed (adapter or model missing? --verbose shows the library's log)");
                ScanHostSetLogSink(nullptr, nullptr);
                return 1;
            }
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
            if (opt.decode) {
                r.decoded = true;
                const std::vector<std::string> texts =
                    ReadCodes(frame.nv21.data(), r.sentWarp ? returned.data() : nullptr,
                              frame.width, frame.height, r.boxes);
                for (size_t i = 0; i < texts.size(); ++i) r.boxes[i].text = texts[i];
            }

            progress.Interrupt();
            fprintf(results, "%s\n", (opt.json ? ToJson(r) : ToText(r)).c_str());
            fflush(results);
            if (!opt.outDir.empty()) {
                const std::string stem = opt.outDir + "/" + names.For(r.name);
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
            timing.Add(r.ms, fresh);
        }
    }
    session.Close();
    ScanHostSetLogSink(nullptr, nullptr);
    if (!opt.json && frames > 0) {
        fprintf(stderr, "%d frame(s), %d with boxes, %d straightened; Process %s\n", frames,
                withBoxes, sent, timing.Summary().c_str());
    }
    if (failures > 0) fprintf(stderr, "scancode: %d input(s) could not be read\n", failures);
    return failures ? 1 : 0;
}
