// Distances, angles, intersections and orderings of lines and points.
#include <algorithm>
#include <climits>
#include <cmath>

#include "warp/line.h"

namespace scancode {

int truncToInt(double v) {
    if (std::isnan(v)) return 0;
    if (v >= 2147483647.0) return INT_MAX;
    if (v <= -2147483648.0) return INT_MIN;
    return static_cast<int>(v);
}

// The 1e-6 keeps a zero-length line from dividing by zero.
cv::Point2d projectPointOntoLine(const cv::Point& p, const Line& l) {
    const double dx = static_cast<double>(l.endPoint.x) - l.startPoint.x;
    const double dy = static_cast<double>(l.endPoint.y) - l.startPoint.y;
    const double px = static_cast<double>(p.x) - l.startPoint.x;
    const double py = static_cast<double>(p.y) - l.startPoint.y;
    const double t = (px * dx + py * dy) / (dx * dx + dy * dy + 1e-6);
    return {l.startPoint.x + t * dx, l.startPoint.y + t * dy};
}

}  // namespace scancode

namespace {

constexpr double kDegreesPerRadian = 57.29577951308232;

int64_t sub64(int64_t a, int64_t b) {
    return static_cast<int64_t>(static_cast<uint64_t>(a) - static_cast<uint64_t>(b));
}

}  // namespace

double calculateLineAngle(const Line& l) {
    const double dy = static_cast<double>(l.endPoint.y) - l.startPoint.y;
    const double dx = static_cast<double>(l.endPoint.x) - l.startPoint.x;
    double angle = std::atan2(dy, dx) * kDegreesPerRadian;
    if (angle < 0) angle += 360.0;
    return angle;
}

double calculatePoint2LineDistance(const cv::Point& p, const Line& l) {
    const cv::Point2d foot = scancode::projectPointOntoLine(p, l);
    const double dx = p.x - foot.x;
    const double dy = p.y - foot.y;
    return std::sqrt(dx * dx + dy * dy);
}

double calculatePoint2PointDistance(const cv::Point& a, const cv::Point& b) {
    const double dx = static_cast<double>(a.x) - b.x;
    const double dy = static_cast<double>(a.y) - b.y;
    return std::sqrt(dx * dx + dy * dy);
}

bool isPointInsideImage(const cv::Point& p, int rows, int cols) {
    return p.x >= 0 && p.x < cols && p.y >= 0 && p.y < rows;
}

bool isPointCounterClockofLine(const cv::Point& p, const Line& l) {
    using scancode::mul32;
    using scancode::sub32;
    const cv::Point& s = l.startPoint;
    const cv::Point& e = l.endPoint;
    return mul32(sub32(e.y, p.y), sub32(s.x, p.x)) > mul32(sub32(s.y, p.y), sub32(e.x, p.x));
}

bool SortLinesByLength(const Line& a, const Line& b) {
    return scancode::lineLength(a) > scancode::lineLength(b);
}

bool SortPointsByXaxis(const cv::Point& a, const cv::Point& b) {
    return a.x < b.x;
}

bool SortPointsByYaxis(const cv::Point& a, const cv::Point& b) {
    return a.y < b.y;
}

int lineCompare(const void* a, const void* b) {
    return scancode::truncToInt(
        static_cast<double>(*static_cast<const float*>(a) - *static_cast<const float*>(b)));
}

Line chooseFinalLineLongest(std::vector<Line>& lines) {
    if (lines.empty()) return Line();
    std::sort(lines.begin(), lines.end(), SortLinesByLength);
    return lines.front();
}

cv::Point2f calculateInterPointOfLines(const Line& a, const Line& b) {
    using scancode::mul32;
    using scancode::sub32;
    const int32_t dax = sub32(a.startPoint.x, a.endPoint.x);
    const int32_t day = sub32(a.startPoint.y, a.endPoint.y);
    const int32_t dbx = sub32(b.startPoint.x, b.endPoint.x);
    const int32_t dby = sub32(b.startPoint.y, b.endPoint.y);
    const int32_t denominator = sub32(mul32(dby, dax), mul32(dbx, day));
    if (denominator == 0) return {-1.0f, -1.0f};

    const int32_t ca =
        sub32(mul32(a.startPoint.x, a.endPoint.y), mul32(a.endPoint.x, a.startPoint.y));
    const int32_t cb =
        sub32(mul32(b.startPoint.x, b.endPoint.y), mul32(b.endPoint.x, b.startPoint.y));
    // The numerators need 64 bits; the division is single precision.
    const int64_t nx = sub64(static_cast<int64_t>(dbx) * ca, static_cast<int64_t>(cb) * dax);
    const int64_t ny = sub64(static_cast<int64_t>(dby) * ca, static_cast<int64_t>(cb) * day);
    const float x = static_cast<float>(nx) / static_cast<float>(denominator);
    const float y = static_cast<float>(ny) / static_cast<float>(denominator);
    return {static_cast<float>(scancode::truncToInt(x)),
            static_cast<float>(scancode::truncToInt(y))};
}
