// What one frame produced, gathered from Process's results and the info
// lines the library logs, and the forms it is shown in.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

#include "scancode.h"

struct DetectedBox {
    cv::Rect2f rect;   // frame pixels, as the library logged it
    bool listed;       // clear of the 80-pixel edge band, so used for zoom and straightening
    std::string text;  // the code's text when read (--decode)
};

struct FrameResult {
    std::string name;
    int width = 0, height = 0;
    int rc = 0;
    std::vector<DetectedBox> boxes;
    bool zoomWritten = false;
    ZoomInfoResult zoom{};
    bool sentWarp = false;
    bool decoded = false;  // the boxes' texts were asked for
    double ms = 0;         // Process wall time
};

// Fills the boxes of `result` from the library's log lines of one frame.
void ReadBoxes(const std::vector<std::string>& lines, FrameResult& result);

std::string ToText(const FrameResult& result);
// One line of JSON. Names that are not valid UTF-8 keep their valid parts,
// the rest replaced by U+FFFD, so that every line parses.
std::string ToJson(const FrameResult& result);

// The frame with its boxes (listed green, edge band red) and the suggested
// zoom view (yellow).
cv::Mat Annotate(const cv::Mat& bgr, const FrameResult& result);
