// Straightforward transcription of box decoding, score sorting and
// suppression: recursive partition sort, pairwise suppression loop, no index
// structures. Slow (quadratic at worst) but obviously the intended algorithm;
// the library's fast paths are checked against it result for result.
#pragma once

#include <algorithm>
#include <cmath>
#include <numeric>
#include <set>
#include <vector>

#include <opencv2/core.hpp>

#include "detect/detection_rules.h"
#include "detect/postprocess_calculator.h"

namespace literal {

inline int QuickSort(std::vector<float>& scores, int left, int right, std::vector<int>& order) {
    if (left >= right) return left;
    const float key = scores[left];
    const int keyIndex = order[left];
    int low = left;
    int high = right;
    while (low < high) {
        while (low < high && scores[high] <= key) high -= 1;
        scores[low] = scores[high];
        order[low] = order[high];
        while (low < high && scores[low] >= key) low += 1;
        scores[high] = scores[low];
        order[high] = order[low];
    }
    scores[low] = key;
    order[low] = keyIndex;
    QuickSort(scores, left, low - 1, order);
    QuickSort(scores, low + 1, right, order);
    return low;
}

// Overlaps are asked of the library's CalculateOverlap, which has its own
// table of cases; this loop is about which pairs get compared.
inline void Nms(int count, const std::vector<float>& boxes, const std::vector<int>& classIds,
                std::vector<int>& order, int classId, float threshold) {
    CodeDetectPostprocesCalculator calc;
    for (int i = 0; i < count; ++i) {
        const int n = order[i];
        if (n == -1 || classIds[i] != classId) continue;
        for (int j = i + 1; j < count; ++j) {
            const int m = order[j];
            if (m == -1 || classIds[i] != classId) continue;
            const float* a = &boxes[4 * n];
            const float* b = &boxes[4 * m];
            const float overlap = calc.CalculateOverlap(a[0], a[1], a[0] + a[2], a[1] + a[3], b[0],
                                                        b[1], b[0] + b[2], b[1] + b[3]);
            if (overlap > threshold) order[j] = -1;
        }
    }
}

// Candidates of one output buffer after sorting and suppression: what
// PostProcess computes before it maps boxes to a frame. Independent of the
// frame size, so one decoding serves several frames.
struct Survivors {
    std::vector<float> boxes;
    std::vector<int> order;
};

inline Survivors Decode(const float* output) {
    static const int kGrid[] = {80, 40, 20, 10, 5};
    static const int kStride[] = {8, 16, 32, 64, 128};
    static const int kOffset[] = {0, 38400, 48000, 50400, 51000};
    Survivors res;
    std::vector<float> scores;
    std::vector<int> classIds;
    for (int h = 0; h < 5; ++h) {
        const float* head = output + kOffset[h];
        const int g = kGrid[h];
        for (int r = 0; r < g; ++r) {
            for (int c = 0; c < g; ++c) {
                const float* v = head + (r * g + c) * 6;
                if (static_cast<double>(v[4]) < detection_rules::kMinScoreLogit || std::isnan(v[4]))
                    continue;
                const float cx = static_cast<float>(kStride[h] / 2 + c * kStride[h]);
                const float cy = static_cast<float>(kStride[h] / 2 + r * kStride[h]);
                const float e0 = std::exp(v[0]);
                const float e1 = std::exp(v[1]);
                res.boxes.insert(res.boxes.end(),
                                 {cx - e0, cy - e1, std::exp(v[2]) + e0, std::exp(v[3]) + e1});
                scores.push_back(v[4]);
                classIds.push_back(0);
            }
        }
    }
    const int n = static_cast<int>(scores.size());
    if (n < 1) return res;
    res.order.resize(n);
    std::iota(res.order.begin(), res.order.end(), 0);
    QuickSort(scores, 0, n - 1, res.order);
    const std::set<int> classSet(classIds.begin(), classIds.end());
    for (int k = 0; k < static_cast<int>(classSet.size()); ++k) {
        Nms(n, res.boxes, classIds, res.order, k, 0.0f);
    }
    return res;
}

struct Result {
    int ret = -1;
    int count = 0;
    std::vector<cv::Rect> boxes;
};

// The survivors mapped to a frame of cols x rows, counted and listed.
inline Result MapToFrame(const Survivors& s, int cols, int rows) {
    Result res;
    const int n = static_cast<int>(s.order.size());
    const float ratio = std::min(640.0f / cols, 640.0f / rows);
    for (int i = 0; i < n; ++i) {
        if (i > 999 || s.order[i] == -1) continue;
        const float* b = &s.boxes[4 * s.order[i]];
        const float x = std::max(b[0] * (1.0f / ratio), 0.0f);
        const float y = std::max(b[1] * (1.0f / ratio), 0.0f);
        float w = b[2] * (1.0f / ratio);
        float h = b[3] * (1.0f / ratio);
        if (x + w > cols) w = cols - x;
        if (y + h > rows) h = rows - y;
        ++res.count;
        const float band = detection_rules::kEdgeBand;
        if (x >= band && y >= band && x + w <= cols - band && y + h <= rows - band) {
            res.boxes.emplace_back(static_cast<int>(x), static_cast<int>(y), static_cast<int>(w),
                                   static_cast<int>(h));
        }
    }
    res.ret = res.boxes.empty() ? -1 : 0;
    return res;
}

// Everything PostProcess computes, without logging and without taking the
// buffer.
inline Result PostProcess(int cols, int rows, const float* output) {
    return MapToFrame(Decode(output), cols, rows);
}

}  // namespace literal
