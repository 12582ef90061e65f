#include "warp/rectify.h"

#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdlib>

#include <opencv2/imgproc.hpp>

#include "platform/log.h"
#include "warp/line.h"

namespace {

// Morphology of the Otsu image: three 5 x 5 dilations close the gaps between
// a code's light modules, one 5 x 5 erosion takes back part of the growth.
constexpr int kDilateSize = 5;
constexpr int kDilateTimes = 3;
constexpr int kErodeSize = 5;
constexpr int kErodeTimes = 1;

// An outline with more points than this share of the crop's perimeter is too
// ragged to be a code's.
constexpr double kMaxOutlinePerimeterShare = 1.25;
// A contour covering more than this share of the crop is the crop itself.
constexpr double kCropFillingArea = 0.9;
// A contour covering less than this share is too small to be the code.
constexpr double kMinCodeArea = 0.1;
// Sides differing by this ratio or more call for a perspective warp.
constexpr double kSkewedQuadRatio = 1.14;

enum Side { kTop, kBottom, kLeft, kRight };

cv::Mat resizeToSquare(const cv::Mat& img) {
    const int side = std::max(img.cols, img.rows);
    cv::Mat square;
    cv::resize(img, square, cv::Size(side, side), 0, 0, cv::INTER_LINEAR);
    return square;
}

// Whole-crop fall-back: the far corners lie one pixel beyond the last column
// and row.
cv::Mat wholeCropFallback(const cv::Mat& crop, QRInformation& info) {
    cv::Mat picture = resizeToSquare(crop);
    const float w = static_cast<float>(crop.cols);
    const float h = static_cast<float>(crop.rows);
    info.isValid = true;
    info.qrSize = picture.cols;
    info.topLeft = {0.0f, 0.0f};
    info.topRight = {w, 0.0f};
    info.bottomRight = {w, h};
    info.bottomLeft = {0.0f, h};
    return picture;
}

// The contour is the crop itself: take the box of the dark pixels instead,
// with inclusive bounds as corners.
cv::Mat darkRegionPicture(const cv::Mat& crop, const cv::Mat& binary, QRInformation& info) {
    const std::vector<int> box = detectQrcodePosByBlackRegion(binary);
    const int x0 = box[0], y0 = box[1], x1 = box[2], y1 = box[3];
    cv::Mat picture = resizeToSquare(crop(cv::Rect(x0, y0, x1 - x0 + 1, y1 - y0 + 1)));
    info.isValid = true;
    info.qrSize = picture.cols;
    info.topLeft = cv::Point2f(static_cast<float>(x0), static_cast<float>(y0));
    info.topRight = cv::Point2f(static_cast<float>(x1), static_cast<float>(y0));
    info.bottomRight = cv::Point2f(static_cast<float>(x1), static_cast<float>(y1));
    info.bottomLeft = cv::Point2f(static_cast<float>(x0), static_cast<float>(y1));
    return picture;
}

// The code's own outline: fit its four edges, intersect them and straighten
// the quadrilateral. Falls back to the whole crop when an edge is missing.
cv::Mat outlinePicture(const cv::Mat& crop, const std::vector<std::vector<cv::Point>>& contours,
                       int chosen, QRInformation& info) {
    const cv::Rect bRect = cv::boundingRect(contours[chosen]);
    cv::Mat mask = cv::Mat::zeros(crop.rows, crop.cols, CV_8UC1);
    cv::drawContours(mask, contours, chosen, cv::Scalar(255), 1, cv::LINE_8, cv::noArray(), INT_MAX,
                     cv::Point(0, 0));
    const cv::Mat maskView = mask(bRect);
    const cv::Mat cropView = crop(bRect);

    timeval start = TimeMark();
    std::vector<Line> lines = extractLineFromHough(maskView);
    LogSyncTime("Total rectifyQrcodeImg extract lines Time", start);

    // The centre stays in crop coordinates while the lines are relative to
    // the bounding box; with the crop's margins it still falls inside the
    // outline, which is all the side test needs.
    const cv::Moments m = cv::moments(contours[chosen]);
    std::vector<std::vector<Line>> groups;
    classifyLinesByDirection(lines, groups, m.m10 / m.m00, m.m01 / m.m00);

    Line edges[4];
    for (int side = kTop; side <= kRight; ++side) {
        if (groups[side].empty()) return wholeCropFallback(crop, info);
    }
    for (int side = kTop; side <= kRight; ++side) {
        std::vector<Line> merged = mergeLines(groups[side], bRect.height, bRect.width);
        if (merged.empty()) return wholeCropFallback(crop, info);
        edges[side] = chooseFinalLineLongest(merged);
    }

    const cv::Point2f tl = calculateInterPointOfLines(edges[kTop], edges[kLeft]);
    const cv::Point2f tr = calculateInterPointOfLines(edges[kTop], edges[kRight]);
    const cv::Point2f bl = calculateInterPointOfLines(edges[kBottom], edges[kLeft]);
    const cv::Point2f br = calculateInterPointOfLines(edges[kBottom], edges[kRight]);
    const cv::Point2f origin(static_cast<float>(bRect.x), static_cast<float>(bRect.y));
    info.isValid = true;
    info.topLeft = tl + origin;
    info.topRight = tr + origin;
    info.bottomRight = br + origin;
    info.bottomLeft = bl + origin;

    const scancode::QuadEdges quad = scancode::measureQuadEdges(tl, tr, br, bl);
    info.qrSize = scancode::truncToInt(quad.longest);
    if (!scancode::needsPerspectiveWarp(quad)) return resizeToSquare(cropView);

    start = TimeMark();
    cv::Mat picture = warpImage(cropView, {tl, tr, bl, br});
    LogSyncTime("Total rectifyQrcodeImg warp Time", start);
    return picture;
}

}  // namespace

namespace scancode {

QuadEdges measureQuadEdges(const cv::Point2f& topLeft, const cv::Point2f& topRight,
                           const cv::Point2f& bottomRight, const cv::Point2f& bottomLeft) {
    const auto length = [](const cv::Point2f& a, const cv::Point2f& b) {
        const float dx = a.x - b.x;
        const float dy = a.y - b.y;
        return std::sqrt(dx * dx + dy * dy);
    };
    float edges[4] = {length(topLeft, topRight), length(topRight, bottomRight),
                      length(bottomLeft, bottomRight), length(bottomLeft, topLeft)};
    // lineCompare treats sides less than a pixel apart as equal, so the
    // order, and with it the ratio, is the one qsort leaves.
    std::qsort(edges, 4, sizeof(float), lineCompare);
    return {edges[0], edges[3]};
}

bool needsPerspectiveWarp(const QuadEdges& edges) {
    return static_cast<double>(edges.longest / edges.shortest) >= kSkewedQuadRatio;
}

}  // namespace scancode

cv::Mat rectifyQrcodeImg(const cv::Mat& crop, QRInformation& info) {
    const int channels = crop.channels();
    if (crop.empty() || crop.depth() != CV_8U || channels == 2 || channels > 4) {
        info = QRInformation{false, 0, {}, {}, {}, {}};
        return cv::Mat();
    }

    cv::Mat grey;
    if (channels == 1)
        grey = crop;
    else
        cv::cvtColor(crop, grey, channels == 3 ? cv::COLOR_BGR2GRAY : cv::COLOR_BGRA2GRAY);
    timeval start = TimeMark();
    cv::Mat binary;
    cv::threshold(grey, binary, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
    const cv::Mat morph =
        dilateAndErode(binary, kDilateSize, kDilateTimes, kErodeSize, kErodeTimes);
    LogSyncTime("Total rectifyQrcodeImg binary Time", start);

    start = TimeMark();
    std::vector<std::vector<cv::Point>> contours;
    std::vector<cv::Vec4i> hierarchy;
    cv::findContours(morph, contours, hierarchy, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE,
                     cv::Point(0, 0));
    LogSyncTime("Total rectifyQrcodeImg contour Time", start);

    // Largest by unsigned area; ties keep the earlier contour.
    int chosen = -1;
    double maxArea = 0;
    for (size_t i = 0; i < contours.size(); ++i) {
        const double area = cv::contourArea(contours[i]);
        if (area > maxArea) {
            maxArea = area;
            chosen = static_cast<int>(i);
        }
    }
    if (chosen < 0) return wholeCropFallback(crop, info);

    const int W = morph.cols;
    const int H = morph.rows;
    const double points = static_cast<double>(contours[chosen].size());
    if (points > kMaxOutlinePerimeterShare * (2 * (W + H))) return wholeCropFallback(crop, info);
    if (maxArea > kCropFillingArea * W * H) return darkRegionPicture(crop, binary, info);
    if (maxArea >= kMinCodeArea * W * H) return outlinePicture(crop, contours, chosen, info);
    return wholeCropFallback(crop, info);
}

cv::Mat binarizeImageByOTSU(const cv::Mat& src, cv::Mat& dst, int dilateSize, int dilateTimes,
                            int erodeSize, int erodeTimes, bool doMorphology) {
    if (src.empty() || src.type() != CV_8UC1) {
        dst.release();
        return cv::Mat();
    }
    cv::threshold(src, dst, 0, 255, cv::THRESH_BINARY | cv::THRESH_OTSU);
    if (doMorphology) return dilateAndErode(dst, dilateSize, dilateTimes, erodeSize, erodeTimes);
    return dst;
}

cv::Mat dilateAndErode(const cv::Mat& src, int dilateSize, int dilateTimes, int erodeSize,
                       int erodeTimes) {
    if (src.empty()) return cv::Mat();
    cv::Mat dilated;
    cv::Mat eroded;
    cv::dilate(
        src, dilated, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(dilateSize, dilateSize)),
        cv::Point(-1, -1), dilateTimes, cv::BORDER_CONSTANT, cv::morphologyDefaultBorderValue());
    cv::erode(
        dilated, eroded, cv::getStructuringElement(cv::MORPH_RECT, cv::Size(erodeSize, erodeSize)),
        cv::Point(-1, -1), erodeTimes, cv::BORDER_CONSTANT, cv::morphologyDefaultBorderValue());
    return eroded;
}

std::vector<int> detectQrcodePosByBlackRegion(const cv::Mat& binary) {
    const int W = binary.cols;
    const int H = binary.rows;
    int minX = INT_MAX, maxX = -1, minY = -1, maxY = -1;
    if (binary.type() == CV_8UC1) {
        for (int y = 0; y < H; ++y) {
            const uchar* row = binary.ptr<uchar>(y);
            const uchar* end = row + W;
            const uchar* first = std::find(row, end, 0);
            if (first == end) continue;
            const uchar* last =
                std::find(std::make_reverse_iterator(end), std::make_reverse_iterator(first), 0)
                    .base() -
                1;
            if (minY < 0) minY = y;
            maxY = y;
            minX = std::min(minX, static_cast<int>(first - row));
            maxX = std::max(maxX, static_cast<int>(last - row));
        }
    }
    if (minY < 0) return {0, 0, W - 1, H - 1};
    return {minX - minX / 4, minY - minY / 4, maxX + (W - maxX) / 4, maxY + (H - maxY) / 4};
}

cv::Mat warpImage(const cv::Mat& img, std::vector<cv::Point2f> corners) {
    if (img.empty() || corners.size() < 4) return cv::Mat();
    // Rounded to the nearest whole pixel, ties to even.
    cv::Point p[4];
    for (int i = 0; i < 4; ++i) p[i] = cv::Point(cvRound(corners[i].x), cvRound(corners[i].y));
    const double longest = std::max(
        {calculatePoint2PointDistance(p[0], p[1]), calculatePoint2PointDistance(p[2], p[3]),
         calculatePoint2PointDistance(p[0], p[2]), calculatePoint2PointDistance(p[1], p[3])});
    const int n = scancode::truncToInt(longest);
    const float nf = static_cast<float>(n);

    // The corners land on N, one pixel beyond the last row and column.
    const cv::Point2f src[4] = {corners[0], corners[1], corners[2], corners[3]};
    const cv::Point2f dst[4] = {{0.0f, 0.0f}, {nf, 0.0f}, {0.0f, nf}, {nf, nf}};
    const cv::Mat transform = cv::getPerspectiveTransform(src, dst, cv::DECOMP_LU);
    cv::Mat warped;
    cv::warpPerspective(img, warped, transform, cv::Size(n, n), cv::INTER_LINEAR,
                        cv::BORDER_CONSTANT, cv::Scalar(0));
    return warped;
}
