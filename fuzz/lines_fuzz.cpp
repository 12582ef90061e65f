// Line classification, merging and intersection on random segments: any
// coordinates (including the int extremes the 32-bit products wrap on),
// degenerate zero-length segments, and image sizes from 0 up. Every line must
// land in exactly one direction list, and merging never adds lines.
#include <climits>
#include <cstdint>
#include <vector>

#include "fuzz_support.h"
#include "warp/line.h"

namespace {

int Coordinate(FuzzedDataProvider& in) {
    switch (in.ConsumeIntegralInRange(0, 3)) {
        case 0:
            return in.ConsumeIntegralInRange(-5, 5);
        case 1:
            return in.ConsumeIntegralInRange(-50, 400);
        case 2:
            return in.ConsumeBool() ? INT_MAX - in.ConsumeIntegralInRange(0, 2)
                                    : INT_MIN + in.ConsumeIntegralInRange(0, 2);
        default:
            return in.ConsumeIntegral<int>();
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in(data, size);
    const int rows = in.ConsumeIntegralInRange(0, 500);
    const int cols = in.ConsumeIntegralInRange(0, 500);
    const double cx = in.ConsumeFloatingPointInRange(-1e4, 1e4);
    const double cy = in.ConsumeFloatingPointInRange(-1e4, 1e4);
    std::vector<Line> lines;
    const int n = in.ConsumeIntegralInRange(0, 64);
    for (int i = 0; i < n && in.remaining_bytes() > 0; ++i) {
        const cv::Point a(Coordinate(in), Coordinate(in));
        const cv::Point b = in.ConsumeBool() ? a : cv::Point(Coordinate(in), Coordinate(in));
        lines.emplace_back(a, b);
    }

    std::vector<std::vector<Line>> groups;
    classifyLinesByDirection(lines, groups, cx, cy);
    if (groups.size() != 4) __builtin_trap();
    size_t sorted = 0;
    for (const auto& g : groups) sorted += g.size();
    if (sorted != lines.size()) __builtin_trap();

    for (auto& g : groups) {
        std::vector<Line> merged = mergeLines(g, rows, cols);
        if (merged.size() > g.size() || (merged.empty() != g.empty())) __builtin_trap();
        if (!merged.empty()) {
            std::vector<Line> copy = merged;
            chooseFinalLineLongest(copy);
        }
    }
    for (size_t i = 0; i + 1 < lines.size(); ++i) {
        calculateInterPointOfLines(lines[i], lines[i + 1]);
        isTwoLinesSimilar(lines[i], lines[i + 1], 5.0, 8.0, 4.0);
    }
    return 0;
}
