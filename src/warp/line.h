// Straight edges of a code's outline: Hough segments, their sorting into the
// four sides, the merging of segments that lie on one edge, and the small
// geometry helpers these steps share.
#pragma once

#include <cstdint>
#include <vector>

#include <opencv2/core.hpp>

// A segment between two integer points. Once extracted and classified it is
// oriented: a more horizontal line runs left to right, a more vertical one
// top to bottom.
struct Line {
    cv::Point startPoint;
    cv::Point endPoint;
    // Carried for layout compatibility with the exported record; nothing in
    // the library sets or reads them.
    int64_t reserved0 = 0;
    int64_t reserved1 = 0;
    int64_t reserved2 = 0;

    Line() = default;
    Line(cv::Point start, cv::Point end) : startPoint(start), endPoint(end) {}
};

static_assert(sizeof(Line) == 40, "two points and three 64-bit fields");

// Oriented segments of a one-channel mask, longest first. Empty for a mask
// with more than one channel.
std::vector<Line> extractLineFromHough(const cv::Mat& mask);

// Appends the lists top, bottom, left, right to `groups` and sorts every line
// of `lines` into one of them by its side of the centre (cx, cy). Reorients
// lines in `lines` where needed.
void classifyLinesByDirection(std::vector<Line>& lines, std::vector<std::vector<Line>>& groups,
                              double cx, double cy);

// One merged line per cluster of similar lines; rows and cols bound the
// image the lines live in.
std::vector<Line> mergeLines(std::vector<Line>& lines, int rows, int cols);

// The line spanning a cluster, along its first line.
Line mergeSimilarLines(std::vector<Line>& cluster, int rows, int cols);

bool isTwoLinesSimilar(const Line& a, const Line& b, const double& angleThreshold,
                       const double& distanceThreshold, const double& endThreshold);

// Intersection of the two infinite lines in whole pixels; (-1, -1) for
// parallel lines.
cv::Point2f calculateInterPointOfLines(const Line& a, const Line& b);

// Direction in degrees, [0, 360).
double calculateLineAngle(const Line& l);
double calculatePoint2LineDistance(const cv::Point& p, const Line& l);
double calculatePoint2PointDistance(const cv::Point& a, const cv::Point& b);
bool isPointInsideImage(const cv::Point& p, int rows, int cols);
// Side test of the classification with p as the centre: true when the
// cross product (start - p) x (end - p) is positive (y pointing down).
bool isPointCounterClockofLine(const cv::Point& p, const Line& l);

bool SortLinesByLength(const Line& a, const Line& b);
bool SortPointsByXaxis(const cv::Point& a, const cv::Point& b);
bool SortPointsByYaxis(const cv::Point& a, const cv::Point& b);
// qsort comparator over floats: the difference truncated to int, so values
// less than one apart compare equal.
int lineCompare(const void* a, const void* b);

Line chooseFinalLineLongest(std::vector<Line>& lines);

namespace scancode {

// Float-to-int truncation that saturates at the int range and maps NaN to 0,
// as the arm64 conversion instruction does; plain casts of out-of-range
// values are undefined in C++.
int truncToInt(double v);

inline double lineLength(const Line& l) {
    return calculatePoint2PointDistance(l.startPoint, l.endPoint);
}

// Foot of the perpendicular from p onto the infinite line through l.
cv::Point2d projectPointOntoLine(const cv::Point& p, const Line& l);

// 32-bit product with two's-complement wrap-around and no undefined
// behaviour on overflow.
inline int32_t mul32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) * static_cast<uint32_t>(b));
}
inline int32_t sub32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) - static_cast<uint32_t>(b));
}

}  // namespace scancode
