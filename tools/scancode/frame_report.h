// The forms one frame's result is shown in: a text line, a JSON line, and
// the frame with its boxes drawn.
#pragma once

#include <string>

#include <opencv2/core.hpp>

#include "scancode/scanner.h"

// "<name>: rc 0, 1 box(es) [757,380 286x281] ..."; an edge-band box is marked
// "edge", and with decoding each box's text or "(not read)".
std::string ToText(const std::string& name, const scancode::Result& result);
// One line of JSON. Names that are not valid UTF-8 keep their valid parts,
// the rest replaced by U+FFFD, so that every line parses.
std::string ToJson(const std::string& name, const scancode::Result& result);

// The frame with its boxes (listed green, edge band red) and the suggested
// zoom view (yellow).
cv::Mat Annotate(const cv::Mat& bgr, const scancode::Result& result);
