// Where frames come from: pictures, folders of pictures, videos and raw NV21
// files, each frame handed out as NV21 at a size the library can take. No
// input, however damaged, makes them throw: each failure is an error naming
// the input and the reason.
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

// NV21 of a BGR picture, cut to a size the library takes (scancode::ToNv21);
// false when it is too small.
bool ToNV21Frame(const cv::Mat& bgr, Frame& frame);
