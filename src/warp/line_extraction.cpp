// Hough segments of a contour outline and their sorting into the four sides.
#include <algorithm>
#include <cstdlib>
#include <utility>

#include <opencv2/imgproc.hpp>

#include "warp/line.h"

namespace {

// Hough parameters tuned for a one-pixel outline: 2 px and 2 degree bins,
// segments of at least 10 px with gaps of up to 3 px bridged.
constexpr double kHoughRho = 2.0;
constexpr double kHoughTheta = 0.03490658503988659;  // 2 degrees
constexpr int kHoughThreshold = 20;
constexpr double kHoughMinLineLength = 10.0;
constexpr double kHoughMaxLineGap = 3.0;

}  // namespace

std::vector<Line> extractLineFromHough(const cv::Mat& mask) {
    std::vector<Line> lines;
    if (mask.channels() > 1 || mask.empty()) return lines;

    std::vector<cv::Vec4i> segments;
    cv::HoughLinesP(mask, segments, kHoughRho, kHoughTheta, kHoughThreshold, kHoughMinLineLength,
                    kHoughMaxLineGap);
    lines.reserve(segments.size());
    for (const cv::Vec4i& s : segments) {
        cv::Point start(s[0], s[1]);
        cv::Point end(s[2], s[3]);
        const int dx = end.x - start.x;
        const int dy = end.y - start.y;
        // Horizontal-ish runs left to right, vertical-ish (45 degrees
        // included) top to bottom.
        if (std::abs(dx) > std::abs(dy) ? dx < 0 : dy < 0) std::swap(start, end);
        lines.emplace_back(start, end);
    }
    if (lines.size() >= 2) std::sort(lines.begin(), lines.end(), SortLinesByLength);
    return lines;
}

void classifyLinesByDirection(std::vector<Line>& lines, std::vector<std::vector<Line>>& groups,
                              double cx, double cy) {
    enum { kTop, kBottom, kLeft, kRight };
    const size_t first = groups.size();
    groups.resize(first + 4);
    const cv::Point centre(scancode::truncToInt(cx), scancode::truncToInt(cy));

    for (Line& l : lines) {
        const int64_t dx = static_cast<int64_t>(l.endPoint.x) - l.startPoint.x;
        const int64_t dy = static_cast<int64_t>(l.endPoint.y) - l.startPoint.y;
        int side;
        if (std::llabs(dy) >= std::llabs(dx)) {
            if (dy < 0) std::swap(l.startPoint, l.endPoint);
            side = isPointCounterClockofLine(centre, l) ? kRight : kLeft;
        } else {
            if (dx < 0) std::swap(l.startPoint, l.endPoint);
            side = isPointCounterClockofLine(centre, l) ? kTop : kBottom;
        }
        groups[first + side].push_back(l);
    }
}
