#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "detect/postprocess_calculator.h"
#include "log_capture.h"

using scancode_test::LogCapture;

namespace {

constexpr QRRatioInfo kLimits{0.1f, 0.35f, 0.16f};

struct ZoomCase {
    const char* name;
    int cols, rows;
    std::vector<cv::Rect> boxes;
    int ret;
    float bestZoom;
    float maxEdgeRatio;
};

class ZoomLadder : public ::testing::TestWithParam<ZoomCase> {};

TEST_P(ZoomLadder, StrongestAcceptedFraction) {
    const ZoomCase& k = GetParam();
    std::vector<cv::Rect> boxes = k.boxes;
    const ZoomInfoResult untouched{-7.0f, -9.0f};
    ZoomInfoResult result = untouched;
    bool noZoomNeeded = false;
    LogCapture logs;
    EXPECT_EQ(CodeDetectPostprocesCalculator().zoomCalculate(k.cols, k.rows, boxes, kLimits, result,
                                                             noZoomNeeded),
              k.ret);
    if (k.ret != 0) {
        EXPECT_EQ(result.bestZoom, untouched.bestZoom);
        EXPECT_EQ(result.maxEdgeRatio, untouched.maxEdgeRatio);
        EXPECT_FALSE(noZoomNeeded);
        EXPECT_TRUE(logs.lines().empty());
        return;
    }
    EXPECT_EQ(result.bestZoom, k.bestZoom);
    EXPECT_NEAR(result.maxEdgeRatio, k.maxEdgeRatio, 1e-4);
    EXPECT_TRUE(noZoomNeeded);
    char line[64];
    snprintf(line, sizeof line, "the bestZoom is %f", static_cast<double>(k.bestZoom));
    EXPECT_EQ(logs.lines(), (std::vector<scancode_test::LogLine>{{4, line}}));
}

INSTANTIATE_TEST_SUITE_P(
    Frames, ZoomLadder,
    ::testing::Values(
        // Accepted from 1.0 to 0.3; the size test fails at 0.25-0.15, the edge
        // test at 0.1, and 0.05 stops the ladder. The largest distance at 0.3 is
        // the left one, 910 - 672.
        ZoomCase{"CentredCode", 1920, 1080, {{910, 490, 100, 100}}, 0, 0.3f, 238.0f / 324.0f},
        // Too large up to 0.75, too close to an edge from 0.7, sticking out at 0.45.
        ZoomCase{"LargeCode", 1920, 1080, {{700, 300, 500, 500}}, -1, 0, 0},
        // Too close to the top from 1.0 to 0.85, sticking out at 0.8.
        ZoomCase{"NearTop", 1920, 1080, {{900, 100, 100, 100}}, -1, 0, 0},
        // The common box of two distant codes is what limits the zoom: at 0.8
        // the left distance is 108 / 864 < 0.16.
        ZoomCase{"TwoFarApart",
                 1920,
                 1080,
                 {{300, 300, 100, 100}, {1500, 600, 100, 100}},
                 0,
                 0.85f,
                 298.0f / 918.0f},
        // Codes touching the frame edge stop the ladder at once.
        ZoomCase{"AtEdge", 1920, 1080, {{0, 400, 100, 100}}, -1, 0, 0},
        ZoomCase{"Portrait", 1080, 1920, {{490, 910, 100, 100}}, 0, 0.3f, 238.0f / 324.0f},
        ZoomCase{"NoBoxes", 1920, 1080, {}, -1, 0, 0}),
    [](const auto& info) { return std::string(info.param.name); });

TEST(ZoomCalculate, FlagIsNeverCleared) {
    std::vector<cv::Rect> boxes{{700, 300, 500, 500}};
    ZoomInfoResult result{1.0f, 0.0f};
    bool noZoomNeeded = true;
    EXPECT_EQ(CodeDetectPostprocesCalculator().zoomCalculate(1920, 1080, boxes, kLimits, result,
                                                             noZoomNeeded),
              -1);
    EXPECT_TRUE(noZoomNeeded);
}

}  // namespace
