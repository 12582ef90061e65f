// Where frames come from: pictures, folders of pictures, videos and raw NV21
// files, each frame handed out as NV21 at a size the library can take.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

struct Frame {
    std::string name;           // file, plus "#<n>" for frames of a video or raw file
    int width = 0, height = 0;  // even height, width a multiple of 16
    std::vector<uint8_t> nv21;
};

// What Next gave: a frame, an item that could not be read (a picture of a
// folder, a frame of a video; `error` names it and says why), or the end.
enum class NextStatus { kFrame, kFailed, kEnd };

class FrameSource {
  public:
    virtual ~FrameSource() = default;
    virtual NextStatus Next(Frame& frame, std::string& error) = 0;
    // Frames in total, or 0 when unknown.
    virtual int Count() const = 0;
};

// Opens `path`: a picture, a folder of pictures, a video, or a raw NV21 file
// (".nv21" or ".yuv", which needs `rawSize`). Null with `error` set (naming
// the path and the reason) when the path cannot be read.
std::unique_ptr<FrameSource> OpenFrameSource(const std::string& path, cv::Size rawSize,
                                             std::string& error);

// Empty when the library can take frames of `size` (positive, a width that is
// a multiple of 16, an even height), else why not.
std::string CheckFrameSize(cv::Size size);

// NV21 of a BGR picture, cut to a width that is a multiple of 16 and an even
// height (the library's conversions work in 16-pixel steps).
bool ToNV21Frame(const cv::Mat& bgr, Frame& frame);

// BGR picture of an NV21 frame.
cv::Mat FromNV21(const uint8_t* nv21, int width, int height);
