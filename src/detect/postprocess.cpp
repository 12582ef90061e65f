// Decoding of the detector's five output heads into frame boxes.
//
// The detector hands over one buffer of detector_layout::kOutputValues
// floats: kHeadCount square grids of cells, kValuesPerCell floats per cell
// (log distances from the cell centre to the left, top, right and bottom
// edges in input pixels of the kInputSide square, a score logit, one unused
// value). Cells whose logit passes the threshold become candidates;
// candidates are sorted by score, boxes touching a better one are dropped, and
// the rest are mapped back to the frame, counted, and listed when they lie
// clear of the edge band along the frame's edges (detection_rules.h).
#include <algorithm>
#include <climits>
#include <cmath>
#include <numeric>
#include <set>
#include <vector>

#include "detect/detection_rules.h"
#include "detect/postprocess_calculator.h"
#include "inference/detector_layout.h"
#include "platform/log.h"

namespace {

using detector_layout::kValuesPerCell;

constexpr float kInputSide = static_cast<float>(detector_layout::kInputSide);

using detection_rules::kMinScoreLogitF;

// Only this many of the best positions become boxes.
constexpr int kMaxListedPositions = 1000;

// The debug line each head's candidate count is logged with.
constexpr const char* kCountFormats[detector_layout::kHeadCount] = {
    "validCount0 is %d", "validCount1 is %d", "validCount2 is %d", "validCount3 is %d",
    "validCount4 is %d"};

// Enough for an ordinary frame, so the candidate lists grow at most rarely.
constexpr size_t kTypicalCandidates = 64;

// Truncation toward zero that stays defined for values outside int.
int TruncateToInt(float v) {
    if (std::isnan(v)) return 0;
    if (v <= static_cast<float>(INT_MIN)) return INT_MIN;
    if (v >= static_cast<float>(INT_MAX)) return INT_MAX;
    return static_cast<int>(v);
}

}  // namespace

int CodeDetectPostprocesCalculator::process(float* head, int gridRows, int gridCols, int stride,
                                            std::vector<float>& boxes, std::vector<float>& scores,
                                            std::vector<int>& classIds) {
    if (gridRows < 1 || head == nullptr) return 0;
    const int half = stride / 2;
    int count = 0;
    for (int r = 0; r < gridRows; ++r) {
        // Rows are gridRows cells apart: every head is square.
        const float* row = head + static_cast<size_t>(r) * gridRows * kValuesPerCell;
        const float cy = static_cast<float>(half + r * stride);
        auto keep = [&](int c) {
            const float* cell = row + static_cast<size_t>(c) * kValuesPerCell;
            const float cx = static_cast<float>(half + c * stride);
            const float e0 = std::exp(cell[0]);
            const float e1 = std::exp(cell[1]);
            boxes.push_back(cx - e0);
            boxes.push_back(cy - e1);
            boxes.push_back(std::exp(cell[2]) + e0);
            boxes.push_back(std::exp(cell[3]) + e1);
            scores.push_back(cell[detector_layout::kScoreValue]);
            classIds.push_back(0);
            ++count;
        };
        // Nearly every cell is rejected: test eight at a time into a bit mask
        // and visit only the set bits, in column order.
        int c = 0;
        for (; c + 8 <= gridCols; c += 8) {
            const float* logit =
                row + static_cast<size_t>(c) * kValuesPerCell + detector_layout::kScoreValue;
            unsigned mask = 0;
            for (int j = 0; j < 8; ++j) {
                mask |= static_cast<unsigned>(logit[j * kValuesPerCell] >= kMinScoreLogitF) << j;
            }
            for (; mask != 0; mask &= mask - 1) keep(c + __builtin_ctz(mask));
        }
        for (; c < gridCols; ++c) {
            if (row[static_cast<size_t>(c) * kValuesPerCell + detector_layout::kScoreValue] >=
                kMinScoreLogitF)
                keep(c);
        }
    }
    return count;
}

namespace {

// The best kMaxListedPositions survivors of suppression, mapped back to the
// frame and cut at its right and bottom edges: each is counted and logged,
// and listed in `boxes` when it lies clear of the edge band.
void ListBoxes(int n, const std::vector<float>& candidates, const std::vector<int>& order,
               float ratio, int cols, int rows, std::vector<cv::Rect>& boxes, int& count) {
    const float scale = 1.0f / ratio;
    const float right = static_cast<float>(cols);
    const float bottom = static_cast<float>(rows);
    const int listed = std::min(n, kMaxListedPositions);
    for (int i = 0; i < listed; ++i) {
        const int m = order[i];
        if (m == -1) continue;
        const float* b = &candidates[4 * static_cast<size_t>(m)];
        const float x = std::max(b[0] * scale, 0.0f);
        const float y = std::max(b[1] * scale, 0.0f);
        float w = b[2] * scale;
        float h = b[3] * scale;
        if (x + w > right) w = right - x;
        if (y + h > bottom) h = bottom - y;
        LOGI(detection_rules::kBoxLineFormat, static_cast<double>(x), static_cast<double>(y),
             static_cast<double>(w), static_cast<double>(h));
        ++count;
        if (detection_rules::ClearOfEdgeBand(x, y, w, h, right, bottom)) {
            boxes.emplace_back(TruncateToInt(x), TruncateToInt(y), TruncateToInt(w),
                               TruncateToInt(h));
        }
    }
}

}  // namespace

int CodeDetectPostprocesCalculator::PostProcess(int cols, int rows, float* output,
                                                std::vector<cv::Rect>& boxes, int& count) {
    const timeval start = TimeMark();
    LOGD("code detect Image cols is %d, Image rows is %d", cols, rows);
    // The letterbox scale; the letterbox pads only at the bottom and right, so
    // mapping back needs no offset.
    const float ratio = std::min(kInputSide / cols, kInputSide / rows);
    LOGD("ratio is %lf", static_cast<double>(ratio));
    LOGD("addr of input0 is %p", static_cast<void*>(output));

    std::vector<float> candidates;  // left, top, width, height per candidate
    std::vector<float> scores;
    std::vector<int> classIds;
    candidates.reserve(4 * kTypicalCandidates);
    scores.reserve(kTypicalCandidates);
    classIds.reserve(kTypicalCandidates);
    int n = 0;
    for (int i = 0; i < detector_layout::kHeadCount; ++i) {
        const detector_layout::Head& h = detector_layout::kHeads[i];
        const int kept = process(output ? output + detector_layout::OutputOffset(i) : nullptr,
                                 h.Grid(), h.Grid(), h.stride, candidates, scores, classIds);
        LOGD(kCountFormats[i], kept);
        n += kept;
    }
    delete[] output;

    LOGD("validCount is: %d", n);
    if (n < 1) {
        LOGI("no object detect");
        return -1;
    }

    std::vector<int> order(n);
    std::iota(order.begin(), order.end(), 0);
    quickSortIndiceInverse(scores, 0, n - 1, order);

    const std::set<int> classSet(classIds.begin(), classIds.end());
    LOGD("size of class_set is %d", static_cast<int>(classSet.size()));
    if (gDebugLogOn) {
        for (int id : classSet) LOGD("class_set member is %d", id);
    }
    // The loop counter, not the set's members, is the class suppressed.
    for (int k = 0; k < static_cast<int>(classSet.size()); ++k) {
        nms(n, candidates, classIds, order, k, 0.0f);
    }

    ListBoxes(n, candidates, order, ratio, cols, rows, boxes, count);

    LOGD("code detect postprocess calculator successful");
    LOGI(detection_rules::kCountLineFormat, static_cast<int>(boxes.size()));
    LogSyncTime("object postProcess Time", start);
    return boxes.empty() ? -1 : 0;
}

int compare(const void* a, const void* b) {
    // The difference truncated toward zero: values less than one apart
    // compare equal.
    return TruncateToInt(*static_cast<const float*>(a) - *static_cast<const float*>(b));
}
