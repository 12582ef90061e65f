// The two peers the library is compared with, run on a frame's luma:
// zxing-cpp (a full read, which also decodes) and OpenCV's QR detector. Each
// hands back its codes' outlines as boxes, scored by the same matcher as the
// library's (neither has an edge band).
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include <opencv2/core.hpp>
#include <opencv2/objdetect.hpp>

#include "content_match.h"

struct PeerCode {
    cv::Rect2f box;     // bounding box of the outline's four corners
    std::string bytes;  // as stored in the symbol (zxing-cpp only)
    std::string text;   // UTF-8 (zxing-cpp only)
};

// zxing-cpp's ReadBarcodes with its default (thorough) settings, QR codes
// only, on an 8-bit grey picture.
std::vector<PeerCode> ReadWithZxing(const cv::Mat& luma);

// OpenCV's QRCodeDetector::detectMulti (detection only) on an 8-bit grey picture.
class OpenCvPeer {
  public:
    std::vector<PeerCode> Detect(const cv::Mat& luma);

  private:
    cv::QRCodeDetector mDetector;
};

// Whether zxing-cpp's read says what `bytes` / `text` hold (content_match.h).
bool SameContent(const PeerCode& read, const std::string& bytes, const std::string& text);
