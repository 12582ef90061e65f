#include "match.h"

#include <algorithm>
#include <tuple>

float IoU(const cv::Rect2f& a, const cv::Rect2f& b) {
    const float inter = (a & b).area();
    const float uni = a.area() + b.area() - inter;
    return inter > 0 && uni > 0 ? inter / uni : 0.0f;
}

cv::Rect2f BoundingRect(const std::vector<cv::Point2f>& points) {
    if (points.empty()) return {};
    float x0 = points[0].x, y0 = points[0].y, x1 = x0, y1 = y0;
    for (const cv::Point2f& p : points) {
        x0 = std::min(x0, p.x), y0 = std::min(y0, p.y);
        x1 = std::max(x1, p.x), y1 = std::max(y1, p.y);
    }
    return {x0, y0, x1 - x0, y1 - y0};
}

std::vector<int> MatchBoxes(const std::vector<cv::Rect2f>& truths,
                            const std::vector<cv::Rect2f>& boxes, float minIoU) {
    std::vector<std::tuple<float, int, int>> pairs;  // IoU, truth, box
    for (size_t t = 0; t < truths.size(); ++t)
        for (size_t b = 0; b < boxes.size(); ++b) {
            const float iou = IoU(truths[t], boxes[b]);
            if (iou >= minIoU) pairs.emplace_back(iou, static_cast<int>(t), static_cast<int>(b));
        }
    // Ties go to the earlier truth and box, so the pairing is reproducible.
    std::sort(pairs.begin(), pairs.end(), [](const auto& a, const auto& b) {
        if (std::get<0>(a) != std::get<0>(b)) return std::get<0>(a) > std::get<0>(b);
        return std::tie(std::get<1>(a), std::get<2>(a)) < std::tie(std::get<1>(b), std::get<2>(b));
    });
    std::vector<int> truthToBox(truths.size(), -1);
    std::vector<bool> used(boxes.size(), false);
    for (const auto& [iou, t, b] : pairs) {
        if (truthToBox[t] >= 0 || used[b]) continue;
        truthToBox[t] = b;
        used[b] = true;
    }
    return truthToBox;
}

int CountUnmatched(const std::vector<int>& truthToBox, size_t boxCount) {
    const int matched = static_cast<int>(
        std::count_if(truthToBox.begin(), truthToBox.end(), [](int b) { return b >= 0; }));
    return static_cast<int>(boxCount) - matched;
}

namespace {

float Covered(const cv::Rect2f& box, const cv::Rect2f& truth) {
    return (box & truth).area() / std::max(truth.area(), 1e-6f);
}

}  // namespace

bool RunTogether(const std::vector<cv::Rect2f>& boxes, const std::vector<cv::Rect2f>& truths,
                 size_t t) {
    for (const cv::Rect2f& b : boxes) {
        if (Covered(b, truths[t]) < 0.25f) continue;
        for (size_t u = 0; u < truths.size(); ++u)
            if (u != t && Covered(b, truths[u]) >= 0.25f) return true;
    }
    return false;
}
