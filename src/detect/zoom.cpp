// Zoom suggestion: the strongest centred zoom at which every code is small
// enough and the codes' common box stays clear of every edge of the view.
#include <algorithm>
#include <cstdlib>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "detect/postprocess_calculator.h"
#include "platform/log.h"

namespace {

// Share of the frame's width and height the view keeps, weakest zoom first.
constexpr float kZoomLadder[] = {1.0f, 0.95f, 0.9f, 0.85f, 0.8f, 0.75f, 0.7f, 0.65f, 0.6f, 0.55f,
                                 0.5f, 0.45f, 0.4f, 0.35f, 0.3f, 0.25f, 0.2f, 0.15f, 0.1f, 0.05f};

}  // namespace

cv::Rect CommonBox(const std::vector<cv::Rect>& boxes) {
    std::vector<cv::Point> corners;
    corners.reserve(4 * boxes.size());
    for (const cv::Rect& b : boxes) {
        corners.emplace_back(b.x, b.y);
        corners.emplace_back(b.x + b.width, b.y);
        corners.emplace_back(b.x + b.width, b.y + b.height);
        corners.emplace_back(b.x, b.y + b.height);
    }
    return cv::boundingRect(corners);
}

int CodeDetectPostprocesCalculator::zoomCalculate(int cols, int rows, std::vector<cv::Rect>& boxes,
                                                  const QRRatioInfo& limits, ZoomInfoResult& result,
                                                  bool& noZoomNeeded) {
    const cv::Rect all = CommonBox(boxes);

    // Distances of the common box from the frame's edges.
    const float left = static_cast<float>(all.x);
    const float top = static_cast<float>(all.y);
    const float right = static_cast<float>(cols - all.x - all.width);
    const float bottom = static_cast<float>(rows - all.y - all.height);
    const float shortSide = static_cast<float>(std::min(cols, rows));

    bool accepted = false;
    float firstAccepted = 0.0f;
    float bestZoom = 0.0f;
    float bestDistances[4] = {0.0f, 0.0f, 0.0f, 0.0f};  // l, t, r, b
    for (const float z : kZoomLadder) {
        // What the centred view cuts away on each side.
        const float shift = 0.5f - 0.5f * z;
        const float dx = shift * static_cast<float>(cols);
        const float dy = shift * static_cast<float>(rows);
        const float l = left - dx;
        const float t = top - dy;
        const float r = right - dx;
        const float b = bottom - dy;
        // Once the codes stick out of the view, stronger zooms cannot help.
        if (l < 0 || t < 0 || r < 0 || b < 0) break;

        const float view = z * shortSide;
        const float minEdge = limits.minEdgeRatio;
        if (b / view < minEdge || r / view < minEdge || l / view < minEdge || t / view < minEdge) {
            continue;
        }
        const float perView = 1.0f / view;
        const bool small = std::all_of(boxes.begin(), boxes.end(), [&](const cv::Rect& box) {
            return !(static_cast<float>(std::max(box.width, box.height)) * perView >
                     limits.maxQRRatio);
        });
        if (!small) continue;

        if (!accepted) firstAccepted = z;
        accepted = true;
        bestZoom = z;
        bestDistances[0] = l;
        bestDistances[1] = t;
        bestDistances[2] = r;
        bestDistances[3] = b;
    }
    if (!accepted) return -1;

    if (firstAccepted == 1.0f) noZoomNeeded = true;
    LOGI("the bestZoom is %f", static_cast<double>(bestZoom));
    qsort(bestDistances, 4, sizeof(float), compare);
    result.bestZoom = bestZoom;
    result.maxEdgeRatio = bestDistances[3] / (bestZoom * shortSide);
    return 0;
}
