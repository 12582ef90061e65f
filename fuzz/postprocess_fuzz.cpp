// PostProcess on arbitrary output maps (kOutputValues floats). The input
// describes a background for every cell (all rejected, all passing with few
// distinct scores, or values from the input) and then single values to
// overwrite, so the worst cases (every cell of every head kept, all scores
// equal, NaN, infinities, huge and denormal values) are a few bytes away.
// Besides not crashing, the boxes and the count must match the plain pairwise
// transcription of the algorithm whenever that stays affordable.
#include <cstdint>
#include <cstring>
#include <vector>

#include "detect/detection_rules.h"
#include "detect/postprocess_calculator.h"
#include "fuzz_support.h"
#include "inference/detector_layout.h"
#include "literal_postprocess.h"

namespace {

constexpr int kFloats = detector_layout::kOutputValues;
constexpr int kCells = kFloats / detector_layout::kValuesPerCell;

// The literal sort and suppression are quadratic; beyond this many kept cells
// only the library runs.
constexpr int kCompareUpTo = 400;

int KeptCells(const float* out) {
    int kept = 0;
    for (int i = 0; i < kCells; ++i) {
        if (static_cast<double>(out[6 * i + 4]) >= detection_rules::kMinScoreLogit) ++kept;
    }
    return kept;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in = scancode_fuzz::QuietInput(data, size);

    const int cols = in.ConsumeIntegralInRange(1, 4000);
    const int rows = in.ConsumeIntegralInRange(1, 4000);
    float* output = new float[kFloats];
    switch (in.ConsumeIntegralInRange(0, 3)) {
        case 0:  // nothing passes
            for (int i = 0; i < kFloats; ++i) output[i] = (i % 6 == 4) ? -5.0f : 0.0f;
            break;
        case 1: {  // everything passes with a handful of distinct scores
            const int distinct = in.ConsumeIntegralInRange(1, 8);
            const float size = in.ConsumeFloatingPointInRange(-3.0f, 6.0f);
            for (int c = 0; c < kCells; ++c) {
                float* v = output + 6 * c;
                v[0] = v[1] = v[2] = v[3] = size;
                v[4] = static_cast<float>(c % distinct);
                v[5] = 0.0f;
            }
            break;
        }
        case 2: {  // one value repeated everywhere
            const float f = scancode_fuzz::InterestingFloat(in);
            for (int i = 0; i < kFloats; ++i) output[i] = f;
            break;
        }
        default: {  // a pattern of the input's floats repeated
            std::vector<float> pattern;
            const int n = in.ConsumeIntegralInRange(1, 12);
            for (int i = 0; i < n; ++i) pattern.push_back(scancode_fuzz::InterestingFloat(in));
            for (int i = 0; i < kFloats; ++i) output[i] = pattern[i % n];
            break;
        }
    }
    while (in.remaining_bytes() > 0) {
        const int at = in.ConsumeIntegralInRange(0, kFloats - 1);
        output[at] = scancode_fuzz::InterestingFloat(in);
    }

    // Listed boxes always lie inside the frame, so the transcription's plain
    // int conversions stay defined whatever the values.
    const bool compare = KeptCells(output) <= kCompareUpTo;
    literal::Result want;
    if (compare) want = literal::PostProcess(cols, rows, output);

    CodeDetectPostprocesCalculator calc;
    std::vector<cv::Rect> boxes;
    int count = 0;
    const int ret = calc.PostProcess(cols, rows, output, boxes, count);  // frees output
    if (ret != 0 && ret != -1) __builtin_trap();
    if (ret != (boxes.empty() ? -1 : 0)) __builtin_trap();
    if (compare && (ret != want.ret || count != want.count || boxes != want.boxes)) {
        __builtin_trap();
    }
    return 0;
}
