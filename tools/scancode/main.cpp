// scancode: runs pictures, folders of pictures, videos and raw NV21 files
// through the library (with scancode::Scanner) and reports
// per frame the result code, the boxes, the zoom suggestion and whether a
// straightened code was handed back. Usage: options.cpp.
#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include <opencv2/core/utils/logger.hpp>
#include <opencv2/imgcodecs.hpp>

#include "frame_report.h"
#include "frame_source.h"
#include "options.h"
#include "output_names.h"
#include "scancode/scanner.h"
#include "timing.h"

namespace {

// What Prepare returns when frames are to be run: no exit status.
constexpr int kRunFrames = -1;

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

// One run of the tool over its inputs: frames to the Scanner, results to
// the results stream and --out, failures named on stderr.
class Run {
  public:
    Run(const Options& opt, FILE* results)
        : opt_(opt), results_(results), progress_(!opt.json), scanner_(ScannerOptions(opt)) {}

    void Input(const std::string& input) {
        std::string error;
        std::unique_ptr<FrameSource> source = OpenFrameSource(input, opt_.rawSize, error);
        if (!source) return Fail(error);
        Frame frame;
        int done = 0;
        for (NextStatus status; (status = source->Next(frame, error)) != NextStatus::kEnd;) {
            progress_.Update(++done, source->Count());
            if (status == NextStatus::kFailed) {
                Fail(error);
            } else {
                Scan(frame);
            }
        }
    }

    // The summary on stderr; the exit status.
    int Finish() {
        if (!opt_.json && frames_ > 0) {
            fprintf(stderr, "%d frame(s), %d with boxes, %d straightened; Process %s\n", frames_,
                    withBoxes_, straightened_, timing_.Summary().c_str());
        }
        if (failures_ > 0) fprintf(stderr, "scancode: %d input(s) could not be read\n", failures_);
        return failures_ ? 1 : 0;
    }

  private:
    static scancode::ScannerOptions ScannerOptions(const Options& opt) {
        scancode::ScannerOptions o;
        o.decode = opt.decode;
        if (opt.verbose) {
            o.log = [](int priority, const char* tag, const char* text) {
                fprintf(stderr, "%c/%s: %s\n", "??VDIWEF"[priority & 7], tag, text);
            };
        }
        return o;
    }

    void Scan(const Frame& frame) {
        scancode::Result r;
        try {
            r = scanner_.Scan(frame.nv21.data(), frame.nv21.size(), frame.width, frame.height);
        } catch (const scancode::Error& e) {
            return Fail(frame.name + ": " + e.what());
        }
        progress_.Interrupt();
        const std::string line = opt_.json ? ToJson(frame.name, r) : ToText(frame.name, r);
        fprintf(results_, "%s\n", line.c_str());
        fflush(results_);
        if (!opt_.outDir.empty()) WritePictures(frame, r);
        ++frames_;
        withBoxes_ += !r.boxes.empty();
        straightened_ += !r.straightened.empty();
        timing_.Add(r.ms, r.firstOfSession);
    }

    void WritePictures(const Frame& frame, const scancode::Result& r) {
        const std::string stem = opt_.outDir + "/" + names_.For(frame.name);
        const auto write = [&](const std::string& path, const cv::Mat& picture) {
            bool written = false;
            try {
                written = cv::imwrite(path, picture);
            } catch (const cv::Exception& e) {
                return Fail(path + ": cannot write (" + e.err + ")");
            }
            if (!written) Fail(path + ": cannot write");
        };
        write(stem + ".boxes.jpg",
              Annotate(scancode::Nv21ToBgr(frame.nv21.data(), frame.width, frame.height), r));
        if (!r.straightened.empty()) {
            write(stem + ".returned.jpg",
                  scancode::Nv21ToBgr(r.straightened.data(), frame.width, frame.height));
        }
    }

    void Fail(const std::string& why) {
        progress_.Interrupt();
        fprintf(stderr, "scancode: %s\n", why.c_str());
        ++failures_;
    }

    const Options& opt_;
    FILE* results_;
    Progress progress_;
    scancode::Scanner scanner_;
    OutputNames names_;
    Timing timing_;
    int frames_ = 0, withBoxes_ = 0, straightened_ = 0, failures_ = 0;
};

// kRun when the command line asks for frames to be run, else what to exit with.
int Prepare(int argc, char** argv, Options& opt) {
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
    return kRunFrames;
}

}  // namespace

int main(int argc, char** argv) {
    Options opt;
    if (const int exit = Prepare(argc, argv, opt); exit != kRunFrames) return exit;
    QuietReaders(opt.verbose);
    FILE* results = TakeStdoutForResults(opt.verbose);
    try {
        Run run(opt, results);
        for (const std::string& input : opt.inputs) run.Input(input);
        return run.Finish();
    } catch (const scancode::Error& e) {
        // Only a library that cannot start ends the run early.
        fprintf(stderr, "scancode: %s (--verbose shows the library's log)\n", e.what());
        return 1;
    }
}
