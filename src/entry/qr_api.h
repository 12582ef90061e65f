// Library-wide state behind the entry functions of scancode.h.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "platform/export.h"
#include "scancode.h"

extern SCANCODE_EXPORT cv::Mat
    rgbImg;  // the frame image, allocated by the first Process after Init
extern SCANCODE_EXPORT cv::Mat gOutFrame;  // debug copy of the frame, drawn on when isDebug is set
extern SCANCODE_EXPORT bool isFirstProcess;  // true once rgbImg has been allocated since Init
extern SCANCODE_EXPORT int32_t gFrameCount;
extern SCANCODE_EXPORT unsigned char mask[128];
extern SCANCODE_EXPORT std::vector<cv::Rect> rect2;

// Number of Init calls not yet matched by DeInit.
int32_t UserCount();
