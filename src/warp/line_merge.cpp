// Clustering of segments that lie on one edge and merging each cluster into
// a single line.
#include <algorithm>
#include <cmath>
#include <cstdlib>

#include "warp/line.h"

namespace {

constexpr double kMergeAngleDegrees = 5.0;
// Mid points further than this share of the box's short side from the other
// line belong to a different edge.
constexpr double kMergeDistanceShare = 0.08;
// End points must come closer than this share of the shorter line's length.
constexpr double kMergeEndShare = 0.5;

cv::Point midPoint(const Line& l) {
    return {static_cast<int>((static_cast<int64_t>(l.startPoint.x) + l.endPoint.x) / 2),
            static_cast<int>((static_cast<int64_t>(l.startPoint.y) + l.endPoint.y) / 2)};
}

// Foot of the perpendicular from p onto the infinite line through l, cut to
// whole pixels.
cv::Point projectOntoLine(const cv::Point& p, const Line& l) {
    const cv::Point2d foot = scancode::projectPointOntoLine(p, l);
    return {scancode::truncToInt(foot.x), scancode::truncToInt(foot.y)};
}

}  // namespace

bool isTwoLinesSimilar(const Line& a, const Line& b, const double& angleThreshold,
                       const double& distanceThreshold, const double& endThreshold) {
    // No wrap-around at 360: segments either side of 0 degrees stay apart.
    if (std::fabs(calculateLineAngle(a) - calculateLineAngle(b)) >= angleThreshold) return false;

    if (calculatePoint2LineDistance(midPoint(a), b) >= distanceThreshold &&
        calculatePoint2LineDistance(midPoint(b), a) >= distanceThreshold)
        return false;

    return calculatePoint2PointDistance(a.startPoint, b.startPoint) < endThreshold ||
           calculatePoint2PointDistance(a.startPoint, b.endPoint) < endThreshold ||
           calculatePoint2PointDistance(a.endPoint, b.startPoint) < endThreshold ||
           calculatePoint2PointDistance(a.endPoint, b.endPoint) < endThreshold;
}

Line mergeSimilarLines(std::vector<Line>& cluster, int rows, int cols) {
    if (cluster.empty()) return Line();
    const Line& ref = cluster.front();
    if (cluster.size() == 1) return ref;

    std::vector<cv::Point> points;
    points.reserve(2 * cluster.size());
    points.push_back(ref.startPoint);
    points.push_back(ref.endPoint);
    for (size_t i = 1; i < cluster.size(); ++i) {
        // Either both projected ends are inside the image or the line adds
        // nothing.
        const cv::Point start = projectOntoLine(cluster[i].startPoint, ref);
        if (!isPointInsideImage(start, rows, cols)) continue;
        const cv::Point end = projectOntoLine(cluster[i].endPoint, ref);
        if (!isPointInsideImage(end, rows, cols)) continue;
        points.push_back(start);
        points.push_back(end);
    }

    const int64_t dx = static_cast<int64_t>(ref.endPoint.x) - ref.startPoint.x;
    const int64_t dy = static_cast<int64_t>(ref.endPoint.y) - ref.startPoint.y;
    if (std::llabs(dx) <= std::llabs(dy))
        std::sort(points.begin(), points.end(), SortPointsByYaxis);
    else
        std::sort(points.begin(), points.end(), SortPointsByXaxis);
    return Line(points.front(), points.back());
}

std::vector<Line> mergeLines(std::vector<Line>& lines, int rows, int cols) {
    std::vector<Line> merged;
    if (lines.empty()) return merged;
    if (lines.size() == 1) {
        merged.push_back(lines.front());
        return merged;
    }

    const double distanceThreshold = kMergeDistanceShare * std::min(rows, cols);
    std::vector<bool> used(lines.size(), false);
    std::vector<Line> cluster;
    for (size_t i = 0; i < lines.size(); ++i) {
        if (used[i]) continue;
        used[i] = true;
        cluster.clear();
        cluster.push_back(lines[i]);
        const double seedLength = scancode::lineLength(lines[i]);
        // Every later line is compared with the seed, not with the cluster,
        // and may join although an earlier seed already took it.
        for (size_t j = i + 1; j < lines.size(); ++j) {
            const double endThreshold =
                kMergeEndShare * std::min(seedLength, scancode::lineLength(lines[j]));
            if (isTwoLinesSimilar(lines[i], lines[j], kMergeAngleDegrees, distanceThreshold,
                                  endThreshold)) {
                cluster.push_back(lines[j]);
                used[j] = true;
            }
        }
        merged.push_back(mergeSimilarLines(cluster, rows, cols));
    }
    return merged;
}
