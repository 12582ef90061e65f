// scancode::Scanner: the library for hosts that want the boxes. It runs
// frames through the library's own entry points (Init, Process, DeInit) and
// hands back one value per frame: the result code, every box that survived
// suppression (those in the edge band marked so), the zoom suggestion, the
// frame handed back when a code was straightened, and optionally each code's
// text.
//
//   scancode::Scanner scanner;                          // throws scancode::Error
//   scancode::Result r = scanner.Scan(cv::imread("photo.jpg"));
//   for (const scancode::Box& b : r.boxes) if (b.listed) use(b.rect);
//
// What the library allows, and how the Scanner keeps to it:
// - One Process at a time per process: Scan calls of all Scanners are
//   serialised by one lock, so Scanners may be used from several threads,
//   but frames never run in parallel.
// - One frame size per session: the library sizes its frame image by the
//   first frame after Init. A Scanner starts a new session (DeInit, Init)
//   when the size changes; while another Scanner of the process holds a
//   session at another size, that is impossible and Scan throws Error.
// - The adapter and model are loaded by the first session of the process;
//   the paths given to a later Scanner while one is open are not used.
// - Boxes come from the library's info lines, read while Process runs through
//   the host log stand-in (host_shim.h); a host's own log sink is replaced
//   during Init, Process and DeInit, after which lines print to stderr again.
//   The lines carry a thousandth of a pixel: a box within that of the edge
//   band's border could be judged otherwise than the library judged it, which
//   Result::libraryCount (the library's own count of kept boxes) would show.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

// The library's build hides what it does not mark.
#define SCANCODE_SCANNER_API __attribute__((visibility("default")))

namespace scancode {

// Every failure the Scanner reports: bad frames, a library that cannot start.
class SCANCODE_SCANNER_API Error : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

struct Box {
    cv::Rect2f rect;     // frame pixels, as the library logged it
    bool listed = true;  // clear of the edge band: the library used it for zoom and straightening
    std::string text;    // the code's text when decoding was asked for and it read
};

struct Zoom {
    float bestZoom = 1.0f;  // share of the frame's width and height to show, centred
    float maxEdgeRatio = 0.0f;
};

struct SCANCODE_SCANNER_API Result {
    int code = -1;              // Process's result: 0, -1 or -2 (scancode.h)
    int width = 0, height = 0;  // the frame as the library ran it
    std::vector<Box> boxes;     // in the library's order, best score first
    std::optional<Zoom> zoom;   // when the library suggested one
    // The frame handed back, NV21 of width x height, when a code was
    // straightened; empty otherwise.
    std::vector<uint8_t> straightened;
    bool decoded = false;         // texts were asked for
    bool firstOfSession = false;  // the session's first frame (pays for warm-up)
    int libraryCount = -1;        // boxes the library counted as listed, -1 when it did not say
    double ms = 0;                // Process wall time

    int listedCount() const;
};

struct ScannerOptions {
    std::string adapterPath;  // empty: the library's own lookup (environment, installed, built)
    std::string modelPath;    // likewise
    bool decode = false;      // read each box's code with zxing-cpp
    // Receives the library's log lines other than the box and count lines;
    // without it they are dropped.
    std::function<void(int priority, const char* tag, const char* text)> log;
};

class SCANCODE_SCANNER_API Scanner {
  public:
    // Opens a session; throws Error naming the adapter or model when the
    // library cannot start.
    explicit Scanner(ScannerOptions options = {});
    ~Scanner();
    Scanner(const Scanner&) = delete;
    Scanner& operator=(const Scanner&) = delete;

    // A tightly packed NV21 frame of `bytes` = width * height * 3 / 2 bytes;
    // the size must be one the library takes (CheckFrameSize). Throws Error
    // on a bad frame.
    Result Scan(const uint8_t* nv21, size_t bytes, int width, int height);
    // An 8-bit picture, BGR, grey or BGRA, cut to a size the library takes
    // (ToNv21). Throws Error on a picture of another kind or too small.
    Result Scan(const cv::Mat& picture);

    const ScannerOptions& options() const { return options_; }
    int sessions() const { return sessions_; }  // sessions opened so far

  private:
    void Open();
    void Close();
    void Prepare(int width, int height);
    ScannerOptions options_;
    void* handle_ = nullptr;
    cv::Size size_;  // 0 x 0 until the session's first frame
    int sessions_ = 0;
};

// The library's conversions work in steps of this many pixels across.
constexpr int kWidthStep = 16;
// Empty when the library takes frames of width x height (positive, a width
// that is a multiple of kWidthStep, an even height), else why not.
SCANCODE_SCANNER_API std::string CheckFrameSize(int width, int height);

// NV21 of an 8-bit BGR, grey or BGRA picture, cut to a width that is a
// multiple of kWidthStep and an even height; `size` receives the frame's
// size. Throws Error when the picture is of another kind or too small.
SCANCODE_SCANNER_API std::vector<uint8_t> ToNv21(const cv::Mat& picture, cv::Size& size);
// BGR picture of an NV21 frame.
SCANCODE_SCANNER_API cv::Mat Nv21ToBgr(const uint8_t* nv21, int width, int height);

// A picture file, or its bytes, decoded to BGR. Throws Error with the reason
// (unreadable, not a picture, too large for the decoder) but not the name;
// callers add it.
SCANCODE_SCANNER_API cv::Mat ReadPicture(const std::string& path);
SCANCODE_SCANNER_API cv::Mat DecodePicture(const std::vector<uint8_t>& bytes);

}  // namespace scancode
