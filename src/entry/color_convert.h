// Conversions between the camera's NV21 frames and the library's 3-channel
// 8-bit frame image.
//
// The integer arithmetic of all three is fixed, wrap-arounds included: the
// detector sees exactly what the decoder produces and the camera shows exactly
// what the encoder writes. Buffers are walked as contiguous streams (no
// strides); widths that are not a multiple of the group size are not
// converted to the end of the row, and the following rows come out shifted.
#pragma once

#include <cstdint>

#include <opencv2/core.hpp>

#include "platform/export.h"

// Decodes a tightly packed NV21 frame into width x height 3-channel pixels at
// `dst` (3 * width bytes a row), 8 pixels at a time. Channel 0 takes the first
// chroma byte of each pair, channel 2 the second. Writes nothing when
// height < 1 or width < 8. Returns the luma pointer after the last byte read.
const uint8_t* NV21toRGB_NEON(const uint8_t* src, uint8_t* dst, int width, int height);

// Encodes the 3-channel image at src.data (channel 0 = B, 1 = G, 2 = R) into
// NV21 at `dst`, 16 pixels at a time: limited-range luma for every pixel,
// chroma (V, U, clamped) from the even-column pixel of each pair on even rows.
// Writes nothing when height < 1 or width < 16. `dst` must hold
// width * height luma bytes plus `width` bytes for every even row.
void BGRtoNV21_NEON(uint8_t* dst, cv::Mat src, int width, int height);

// Scalar encoder kept for the exported surface (with its C++ signature): the
// library does not call it. Channel 0 = R, 2 = B, every pixel converted,
// chroma (modulo 256) on even rows from the pixels whose running index
// row * width + column is odd.
SCANCODE_EXPORT void BGRtoNV21(uint8_t* dst, cv::Mat src, int width, int height);
