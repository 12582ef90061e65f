// The library as a user runs it: Init, Process, DeInit through the public
// header, with the boxes it found read from its own info lines (through the
// host log stand-in).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

struct LibraryFrame {
    int rc = 0;
    // Every box that survived suppression ("x = ..., y = ..., w = ..., h = ..."),
    // and those the library keeps: clear of its 80-pixel edge band.
    std::vector<cv::Rect2f> survivors, kept;
    int countLine = -1;  // "the num of qrcode is %d", -1 when not logged
    bool sentWarp = false;
    std::vector<uint8_t> returned;  // NV21 handed back (valid when sentWarp)
    double ms = 0;                  // Process wall time
};

class LibraryRunner {
  public:
    LibraryRunner();  // takes the host log sink
    ~LibraryRunner();
    LibraryRunner(const LibraryRunner&) = delete;
    LibraryRunner& operator=(const LibraryRunner&) = delete;

    // Runs one NV21 frame; a new frame size starts a new session (the
    // library's frame image is sized by the first frame). False when Init fails.
    bool Run(const std::vector<uint8_t>& nv21, int width, int height, LibraryFrame& out);
    // Frames whose count line disagreed with the boxes read as kept.
    int countMismatches() const { return mCountMismatches; }

  private:
    static void Collect(int priority, const char* tag, const char* text, void* user);
    void* mHandle = nullptr;
    int mWidth = 0, mHeight = 0;
    std::vector<std::string> mLines;
    int mCountMismatches = 0;
};
