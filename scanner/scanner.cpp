#include "scancode/scanner.h"

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <mutex>

#include "code_reader.h"
#include "detect/detection_rules.h"
#include "host_shim.h"
#include "scancode.h"

namespace scancode {

namespace {

// What the library holds once per process: its handle's users and the frame
// size the first frame after the first Init fixed. Guarded by `lock`, which
// also keeps Process calls from overlapping and owns the log sink.
struct LibraryState {
    std::mutex lock;
    int users = 0;
    cv::Size fixedSize;  // 0 x 0 while no frame has run since the first Init
};

LibraryState& Library() {
    static LibraryState state;
    return state;
}

// The library's lines while one call runs: box and count lines kept, the
// rest handed to the host's callback, errors remembered for messages.
class LineCollector {
  public:
    explicit LineCollector(const ScannerOptions& options) : options_(options) {
        ScanHostSetLogSink(&LineCollector::Sink, this);
    }
    ~LineCollector() { ScanHostSetLogSink(nullptr, nullptr); }
    LineCollector(const LineCollector&) = delete;
    LineCollector& operator=(const LineCollector&) = delete;

    std::vector<detection_rules::LoggedBox> boxes;
    int count = -1;
    std::string firstError;  // the most specific: later ones report its consequences

  private:
    static void Sink(int priority, const char* tag, const char* text, void* user) {
        auto* self = static_cast<LineCollector*>(user);
        detection_rules::LoggedBox box;
        if (detection_rules::ParseBoxLine(text, box)) {
            self->boxes.push_back(box);
        } else if (!detection_rules::ParseCountLine(text, self->count)) {
            if (priority >= 6 && self->firstError.empty()) self->firstError = text;  // E, F
            if (self->options_.log) self->options_.log(priority, tag, text);
        }
    }
    const ScannerOptions& options_;
};

// Sets an environment variable for the life of this object when `value` is
// not empty; the library reads its adapter and model paths there at Init.
class ScopedEnv {
  public:
    ScopedEnv(const char* name, const std::string& value) : name_(name) {
        if (value.empty()) return;
        if (const char* old = getenv(name)) old_ = old;
        set_ = true;
        setenv(name, value.c_str(), 1);
    }
    ~ScopedEnv() {
        if (!set_) return;
        if (old_) {
            setenv(name_, old_->c_str(), 1);
        } else {
            unsetenv(name_);
        }
    }

  private:
    const char* name_;
    bool set_ = false;
    std::optional<std::string> old_;
};

void CheckFile(const char* what, const std::string& path) {
    if (path.empty()) return;
    std::error_code ec;
    if (!std::filesystem::is_regular_file(path, ec)) {
        throw Error(std::string(what) + " " + path + ": no such file");
    }
}

// The path the library was given for a file: the Scanner's option, else
// the environment's, else its built-in one.
std::string Named(const std::string& option, const char* variable) {
    if (!option.empty()) return option;
    const char* value = getenv(variable);
    if (value != nullptr && *value != '\0') return std::string(value) + " from " + variable;
    return "built in";
}

std::vector<Box> ListedBoxes(const std::vector<detection_rules::LoggedBox>& logged, int width,
                             int height) {
    std::vector<Box> boxes;
    for (const detection_rules::LoggedBox& b : logged) {
        const bool listed = detection_rules::ClearOfEdgeBand(
            b.x, b.y, b.w, b.h, static_cast<float>(width), static_cast<float>(height));
        boxes.push_back({{b.x, b.y, b.w, b.h}, listed, {}});
    }
    return boxes;
}

}  // namespace

int Result::listedCount() const {
    int n = 0;
    for (const Box& b : boxes) n += b.listed;
    return n;
}

Scanner::Scanner(ScannerOptions options) : options_(std::move(options)) {
    CheckFile("adapter", options_.adapterPath);
    CheckFile("model", options_.modelPath);
    std::lock_guard<std::mutex> hold(Library().lock);
    Open();
}

Scanner::~Scanner() {
    std::lock_guard<std::mutex> hold(Library().lock);
    Close();
}

// Both with the library's lock held.
void Scanner::Open() {
    LineCollector lines(options_);
    ScopedEnv adapter("SCANCODE_ADAPTER_PATH", options_.adapterPath);
    ScopedEnv model("SCANCODE_MODEL_PATH", options_.modelPath);
    if (Init(&handle_) != 0 || handle_ == nullptr) {
        DeInit(handle_);  // Init counts a user even when loading fails
        handle_ = nullptr;
        throw Error("the library could not start (adapter: " +
                    Named(options_.adapterPath, "SCANCODE_ADAPTER_PATH") +
                    ", model: " + Named(options_.modelPath, "SCANCODE_MODEL_PATH") + ")" +
                    (lines.firstError.empty() ? "" : ": " + lines.firstError));
    }
    ++Library().users;
    ++sessions_;
    size_ = cv::Size();
}

void Scanner::Close() {
    if (handle_ == nullptr) return;
    LineCollector lines(options_);
    DeInit(handle_);
    handle_ = nullptr;
    if (--Library().users == 0) Library().fixedSize = cv::Size();
}

// A session that takes frames of width x height: this Scanner's own, or a
// new one when the library's session has another size and this Scanner is
// its only user (the library forgets the size when its last user leaves).
void Scanner::Prepare(int width, int height) {
    LibraryState& library = Library();
    if (!library.fixedSize.empty() && library.fixedSize != cv::Size(width, height)) {
        if (library.users > (handle_ != nullptr ? 1 : 0)) {
            throw Error("frame of " + std::to_string(width) + "x" + std::to_string(height) +
                        ": another Scanner holds the library's session at " +
                        std::to_string(library.fixedSize.width) + "x" +
                        std::to_string(library.fixedSize.height) +
                        " (one frame size per process while sessions are open)");
        }
        Close();
    }
    if (handle_ == nullptr) Open();
}

Result Scanner::Scan(const uint8_t* nv21, size_t bytes, int width, int height) {
    if (const std::string why = CheckFrameSize(width, height); !why.empty()) throw Error(why);
    const size_t frameBytes = static_cast<size_t>(width) * height * 3 / 2;
    if (nv21 == nullptr || bytes != frameBytes) {
        throw Error("an NV21 frame of " + std::to_string(width) + "x" + std::to_string(height) +
                    " has " + std::to_string(frameBytes) + " bytes, not " + std::to_string(bytes));
    }
    LibraryState& library = Library();
    std::lock_guard<std::mutex> hold(library.lock);
    const cv::Size size(width, height);
    Prepare(width, height);
    Result r;
    r.width = width;
    r.height = height;
    r.firstOfSession = size_.empty();
    std::vector<uint8_t> returned(frameBytes);
    ZoomInfoResult zoom{-1.0f, -1.0f};
    WarpPicInfo pic{returned.data(), false};
    LineCollector lines(options_);
    const auto t0 = std::chrono::steady_clock::now();
    r.code = Process(handle_, nv21, width, height, width, height, &zoom, &pic);
    r.ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0).count();
    size_ = size;
    library.fixedSize = size;
    if (zoom.bestZoom != -1.0f) r.zoom = Zoom{zoom.bestZoom, zoom.maxEdgeRatio};
    if (pic.sendWarpPic) r.straightened = std::move(returned);
    r.boxes = ListedBoxes(lines.boxes, width, height);
    r.libraryCount = lines.count;
    if (options_.decode) {
        r.decoded = true;
        const std::vector<std::string> texts = ReadCodes(
            nv21, r.straightened.empty() ? nullptr : r.straightened.data(), width, height, r.boxes);
        for (size_t i = 0; i < texts.size(); ++i) r.boxes[i].text = texts[i];
    }
    return r;
}

Result Scanner::Scan(const cv::Mat& picture) {
    cv::Size size;
    const std::vector<uint8_t> nv21 = ToNv21(picture, size);
    return Scan(nv21.data(), nv21.size(), size.width, size.height);
}

}  // namespace scancode
