// The library as a user runs it, through scancode::Scanner: Init, Process,
// DeInit through the public header, the boxes it found read by the Scanner.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "scancode/scanner.h"

struct LibraryFrame {
    int rc = 0;
    // Every box that survived suppression, and those the library keeps:
    // clear of its edge band.
    std::vector<cv::Rect2f> survivors, kept;
    int countLine = -1;  // the library's own count of kept boxes, -1 when not logged
    bool sentWarp = false;
    std::vector<uint8_t> returned;  // NV21 handed back (valid when sentWarp)
    double ms = 0;                  // Process wall time
};

class LibraryRunner {
  public:
    // Throws scancode::Error when the library cannot start; `model` empty
    // for the library's configured model.
    explicit LibraryRunner(const std::string& model);

    // Runs one NV21 frame; a new frame size starts a new session.
    void Run(const std::vector<uint8_t>& nv21, int width, int height, LibraryFrame& out);
    // Frames whose count line disagreed with the boxes read as kept.
    int countMismatches() const { return mCountMismatches; }

  private:
    scancode::Scanner mScanner;
    int mCountMismatches = 0;
};
