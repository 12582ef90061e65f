// Straightening of one crop around a QR code: Otsu binarization, morphology,
// the largest outer contour, its four edges as straight lines, their corners
// and a perspective warp to an upright square. When the contour does not look
// like a code's outline, the picture is a square resize of the dark region or
// of the whole crop, so a picture always comes back.
#pragma once

#include <vector>

#include <opencv2/core.hpp>

#include "warp/warp_types.h"

// Returns the straightened square picture (the crop's type) and fills every
// field of `info`, corners in crop coordinates. An empty crop, or one that is
// not 8-bit with 1, 3 or 4 channels, gives an empty picture and an invalid
// `info`.
cv::Mat rectifyQrcodeImg(const cv::Mat& crop, QRInformation& info);

// Otsu threshold of the 8-bit grey `src` into `dst`; with `doMorphology`
// returns dilateAndErode of it, else a header sharing `dst`.
cv::Mat binarizeImageByOTSU(const cv::Mat& src, cv::Mat& dst, int dilateSize, int dilateTimes,
                            int erodeSize, int erodeTimes, bool doMorphology);

// Rectangular dilation (dilateTimes iterations) followed by rectangular
// erosion (erodeTimes iterations), both with a constant border.
cv::Mat dilateAndErode(const cv::Mat& src, int dilateSize, int dilateTimes, int erodeSize,
                       int erodeTimes);

// {x0, y0, x1, y1}: inclusive box of the zero pixels of `binary`, widened by
// a quarter of the margin on each side; the whole image when it has none.
std::vector<int> detectQrcodePosByBlackRegion(const cv::Mat& binary);

// Perspective warp of the quadrilateral `corners` (top-left, top-right,
// bottom-left, bottom-right) onto an N x N square, N the longest side.
cv::Mat warpImage(const cv::Mat& img, std::vector<cv::Point2f> corners);

namespace scancode {

// Shortest and longest side of a corner quadrilateral, ordered as the C
// library's qsort orders them with lineCompare.
struct QuadEdges {
    float shortest;
    float longest;
};
QuadEdges measureQuadEdges(const cv::Point2f& topLeft, const cv::Point2f& topRight,
                           const cv::Point2f& bottomRight, const cv::Point2f& bottomLeft);

// A quadrilateral whose sides differ by 14 % or more needs the perspective
// warp; a flatter one is only resized. A zero-length side always warps.
bool needsPerspectiveWarp(const QuadEdges& edges);

}  // namespace scancode
