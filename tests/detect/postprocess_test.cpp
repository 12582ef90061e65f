#include <gtest/gtest.h>

#include <climits>
#include <cmath>
#include <limits>
#include <random>
#include <regex>
#include <string>

#include "debug_switch.h"
#include "detect/detection_rules.h"
#include "detect/postprocess_calculator.h"
#include "literal_postprocess.h"
#include "log_capture.h"
#include "output_buffer.h"

using scancode_test::LogCapture;
using scancode_test::LogFor;
using scancode_test::OutputBuffer;
using scancode_test::ScopedDebugLog;

namespace {

struct Outcome {
    int ret;
    int count;
    std::vector<cv::Rect> boxes;
};

Outcome Decode(const OutputBuffer& buffer, int cols = 640, int rows = 640) {
    CodeDetectPostprocesCalculator calc;
    Outcome out{0, 0, {}};
    out.ret = calc.PostProcess(cols, rows, buffer.NewCopy(), out.boxes, out.count);
    return out;
}

std::vector<std::string> BoxLines(const LogCapture& logs) {
    std::vector<std::string> out;
    for (const auto& l : logs.lines())
        if (l.text.rfind("x = ", 0) == 0) out.push_back(l.text);
    return out;
}

// A 2 x 2 input box around the centre of cell (r, c) of head 0.
void SmallBox(OutputBuffer& b, int r, int c, float logit) {
    b.SetCell(0, r, c, 0, 0, 0, 0, logit);
}

TEST(PostProcess, ScoreThresholdDecidesWhetherACellBecomesACandidate) {
    constexpr float kThreshold = detection_rules::kMinScoreLogitF;
    const std::pair<float, bool> cases[] = {{kThreshold, true},
                                            {std::nextafter(kThreshold, -1.0f), false},
                                            {std::numeric_limits<float>::infinity(), true},
                                            {std::numeric_limits<float>::quiet_NaN(), false}};
    for (const auto& c : cases) {
        OutputBuffer buffer;
        SmallBox(buffer, 40, 40, c.first);
        const Outcome out = Decode(buffer);
        EXPECT_EQ(out.count, c.second ? 1 : 0) << c.first;
        EXPECT_EQ(out.ret, c.second ? 0 : -1) << c.first;
    }
}

// Separate small boxes: the best ones hug the frame edge (counted, never
// listed), weaker ones sit in the middle and would be listed if their
// positions were not beyond the first thousand.
TEST(PostProcess, OnlyTheFirstThousandPositionsBecomeBoxes) {
    const std::pair<int, int> cases[] = {{1000, 0}, {999, 1}, {960, 40}};  // edge cells, listed
    for (const auto& c : cases) {
        OutputBuffer buffer;
        int placed = 0;
        for (int r = 0; r < 80 && placed < c.first; ++r) {
            if (r == 10) r = 70;  // rows 0-9 and 70-79 lie in the band
            for (int col = 0; col < 80 && placed < c.first; ++col, ++placed)
                SmallBox(buffer, r, col, 4.0f - placed * 0.001f);
        }
        for (int col = 20; col < 60; ++col) SmallBox(buffer, 40, col, 0.5f);
        LogCapture logs;
        const Outcome out = Decode(buffer);
        EXPECT_EQ(out.count, std::min(1000, placed + 40));
        EXPECT_EQ(static_cast<int>(out.boxes.size()), c.second) << c.first;
        EXPECT_EQ(static_cast<int>(BoxLines(logs).size()), out.count);
    }
}

struct MappingCase {
    const char* name;
    int cols, rows;
    int head, r, c;
    float e0, e1, e2, e3;
    const char* line;
    bool listed;
    cv::Rect rect;
};

class FrameMapping : public ::testing::TestWithParam<MappingCase> {};

TEST_P(FrameMapping, ScalesClipsAndFiltersByTheEdgeBand) {
    const MappingCase& k = GetParam();
    OutputBuffer buffer;
    // Distances from the side that rounds the box outward, where no float
    // exponential hits them exactly.
    buffer.SetCell(k.head, k.r, k.c, LogFor(k.e0, true), LogFor(k.e1, true), LogFor(k.e2, false),
                   LogFor(k.e3, false), 1.0f);
    LogCapture logs;
    const Outcome out = Decode(buffer, k.cols, k.rows);
    EXPECT_EQ(out.count, 1);
    EXPECT_EQ(BoxLines(logs), std::vector<std::string>{k.line});
    // What a host reads back from the line: the box, and the band's verdict.
    detection_rules::LoggedBox b{};
    ASSERT_TRUE(detection_rules::ParseBoxLine(k.line, b));
    EXPECT_EQ(detection_rules::ClearOfEdgeBand(b.x, b.y, b.w, b.h, k.cols, k.rows), k.listed);
    int count = -1, counted = -1;
    EXPECT_FALSE(detection_rules::ParseCountLine(k.line, count));
    for (const std::string& line : logs.texts())
        if (detection_rules::ParseCountLine(line.c_str(), count)) counted = count;
    EXPECT_EQ(counted, k.listed ? 1 : 0);
    EXPECT_EQ(out.ret, k.listed ? 0 : -1);
    EXPECT_EQ(out.boxes, k.listed ? std::vector<cv::Rect>{k.rect} : std::vector<cv::Rect>{});
}

INSTANTIATE_TEST_SUITE_P(
    Frames, FrameMapping,
    ::testing::Values(
        // Input box (100, 50, 60, 60) in a 1920 x 1080 frame: ratio 1/3.
        MappingCase{"Landscape", 1920, 1080, 0, 8, 15, 24, 18, 36, 42,
                    "x = 300.000, y = 150.000, w = 180.000, h = 180.000", true,
                    cv::Rect(300, 150, 180, 180)},
        MappingCase{"LeftBandExact", 640, 640, 0, 40, 10, 4, 4, 4, 4,
                    "x = 80.000, y = 320.000, w = 8.000, h = 8.000", true, cv::Rect(80, 320, 8, 8)},
        MappingCase{"LeftBand79_9", 640, 640, 0, 40, 10, 4.1f, 4, 4, 4,
                    "x = 79.900, y = 320.000, w = 8.100, h = 8.000", false, cv::Rect()},
        MappingCase{"ClippedRight", 640, 640, 0, 40, 78, 4, 4, 32, 4,
                    "x = 624.000, y = 320.000, w = 16.000, h = 8.000", false, cv::Rect()},
        MappingCase{"ClampedAtZero", 640, 640, 0, 0, 40, 4, 16, 4, 4,
                    "x = 320.000, y = 0.000, w = 8.000, h = 20.000", false, cv::Rect()},
        // Portrait 1080 x 1920: ratio 1/3, the right 280 input columns are padding.
        MappingCase{"Portrait", 1080, 1920, 1, 20, 10, 16, 8, 16, 8,
                    "x = 456.000, y = 960.000, w = 96.000, h = 48.000", true,
                    cv::Rect(456, 960, 96, 48)}),
    [](const auto& info) { return std::string(info.param.name); });

// Whole-frame property: random heads, from sparse to every cell passing, with
// scores drawn from a handful of values, decode to exactly what the literal
// algorithm gives.
TEST(PostProcess, MatchesLiteralAlgorithmOnRandomFrames) {
    std::mt19937 rng(20240611);
    struct Mix {
        double passing;  // share of cells above threshold
        int levels;      // distinct score values (0: continuous)
        float logSize;   // mean log distance
    };
    const Mix mixes[] = {{0.005, 0, 2.5f}, {0.05, 3, 2.0f}, {0.3, 4, 1.0f}, {1.0, 2, 0.0f},
                         {1.0, 5, 1.5f},   {1.0, 1, -1.0f}, {1.0, 0, 0.5f}, {0.7, 8, 3.0f}};
    for (const Mix& mix : mixes) {
        OutputBuffer buffer;
        std::uniform_real_distribution<float> unit(0.0f, 1.0f);
        std::normal_distribution<float> logDist(mix.logSize, 0.6f);
        for (int h = 0; h < detector_layout::kHeadCount; ++h) {
            const int g = detector_layout::kHeads[h].Grid();
            for (int r = 0; r < g; ++r) {
                for (int c = 0; c < g; ++c) {
                    if (unit(rng) >= mix.passing) continue;
                    const float logit = mix.levels
                                            ? detection_rules::kMinScoreLogitF +
                                                  static_cast<float>(rng() % mix.levels) * 0.25f
                                            : unit(rng) * 4.0f - 0.8f;
                    buffer.SetCell(h, r, c, logDist(rng), logDist(rng), logDist(rng), logDist(rng),
                                   logit);
                }
            }
        }
        // The literal sort and suppression are quadratic (minutes under
        // emulation), and their result does not depend on the frame: one
        // decoding is checked against both frames.
        const literal::Survivors survivors = literal::Decode(buffer.data());
        for (const cv::Size frame : {cv::Size(1920, 1080), cv::Size(640, 640)}) {
            const literal::Result want = literal::MapToFrame(survivors, frame.width, frame.height);
            LogCapture logs;
            const Outcome got = Decode(buffer, frame.width, frame.height);
            ASSERT_EQ(got.ret, want.ret) << mix.passing << " " << mix.levels;
            ASSERT_EQ(got.count, want.count) << mix.passing << " " << mix.levels;
            ASSERT_EQ(got.boxes, want.boxes) << mix.passing << " " << mix.levels;
        }
    }
}

}  // namespace
