// Line extraction, classification, merging and the geometry helpers.
#include <gtest/gtest.h>

#include <cstdlib>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "warp/line.h"
#include "warp/rectify.h"

// Found by argument-dependent lookup, so next to Line in the global namespace.
static bool operator==(const Line& a, const Line& b) {
    return a.startPoint == b.startPoint && a.endPoint == b.endPoint;
}

static std::ostream& operator<<(std::ostream& os, const Line& l) {
    return os << l.startPoint << "->" << l.endPoint;
}

namespace {

bool IsOriented(const Line& l) {
    const int dx = l.endPoint.x - l.startPoint.x;
    const int dy = l.endPoint.y - l.startPoint.y;
    return std::abs(dx) > std::abs(dy) ? dx >= 0 : dy >= 0;
}

TEST(ExtractLineFromHough, ShortSegmentsOrABadMaskGiveNothing) {
    cv::Mat mask = cv::Mat::zeros(100, 100, CV_8UC1);
    cv::line(mask, {10, 10}, {16, 10}, 255);
    cv::line(mask, {40, 40}, {40, 46}, 255);
    cv::line(mask, {70, 70}, {75, 75}, 255);
    EXPECT_TRUE(extractLineFromHough(mask).empty());
    EXPECT_TRUE(extractLineFromHough(cv::Mat()).empty());
    cv::Mat colour = cv::Mat::zeros(100, 100, CV_8UC3);
    cv::rectangle(colour, {10, 10}, {90, 90}, cv::Scalar::all(255));
    EXPECT_TRUE(extractLineFromHough(colour).empty());
}

TEST(ExtractLineFromHough, OutlineGivesOrientedSegmentsLongestFirst) {
    cv::Mat mask = cv::Mat::zeros(200, 300, CV_8UC1);
    cv::rectangle(mask, {50, 40}, {250, 140}, 255);
    cv::line(mask, {20, 190}, {60, 150}, 255);  // 45 degrees, drawn upward
    const std::vector<Line> lines = extractLineFromHough(mask);
    ASSERT_GE(lines.size(), 5u);
    bool sawTop = false, sawLeft = false, sawDiagonal = false;
    for (size_t i = 0; i < lines.size(); ++i) {
        EXPECT_TRUE(IsOriented(lines[i])) << lines[i];
        EXPECT_GE(scancode::lineLength(lines[i > 0 ? i - 1 : 0]), scancode::lineLength(lines[i]));
        const Line& l = lines[i];
        sawTop |= l.startPoint.y == 40 && l.endPoint.y == 40 && l.endPoint.x - l.startPoint.x > 150;
        sawLeft |= l.startPoint.x == 50 && l.endPoint.x == 50 && l.endPoint.y - l.startPoint.y > 80;
        sawDiagonal |= l.startPoint.x > l.endPoint.x && l.startPoint.y < l.endPoint.y;
    }
    EXPECT_TRUE(sawTop);
    EXPECT_TRUE(sawLeft);
    EXPECT_TRUE(sawDiagonal) << "the 45 degree segment runs top to bottom";
}

TEST(ClassifyLinesByDirection, SortsBySideOfCentreAndOrients) {
    enum { kTop, kBottom, kLeft, kRight };
    struct Case {
        const char* name;
        Line line;
        double cx, cy;
        int side;
        Line oriented;
    };
    const Case cases[] = {
        {"top reversed", {{150, 20}, {50, 20}}, 100, 100, kTop, {{50, 20}, {150, 20}}},
        {"bottom", {{150, 180}, {50, 181}}, 100, 100, kBottom, {{50, 181}, {150, 180}}},
        {"left", {{20, 50}, {20, 150}}, 100, 100, kLeft, {{20, 50}, {20, 150}}},
        {"right reversed", {{180, 150}, {181, 50}}, 100, 100, kRight, {{181, 50}, {180, 150}}},
        {"45 degrees", {{120, 40}, {180, 100}}, 100, 100, kRight, {{120, 40}, {180, 100}}},
        // The centre is truncated: 99.9 -> 99 puts x = 100 on the right.
        {"centre truncated", {{100, 0}, {100, 10}}, 99.9, 50, kRight, {{100, 0}, {100, 10}}},
        // A line through the centre: the product test is not strict for
        // horizontal lines, strict for vertical ones.
        {"horizontal, centre", {{0, 100}, {10, 100}}, 100, 100, kBottom, {{0, 100}, {10, 100}}},
        {"vertical, centre", {{100, 0}, {100, 10}}, 100, 100, kLeft, {{100, 0}, {100, 10}}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        std::vector<Line> lines = {c.line};
        std::vector<std::vector<Line>> groups;
        classifyLinesByDirection(lines, groups, c.cx, c.cy);
        ASSERT_EQ(groups.size(), 4u);
        for (int side = 0; side < 4; ++side)
            EXPECT_EQ(groups[side].size(), side == c.side ? 1u : 0u) << "side " << side;
        EXPECT_EQ(groups[c.side].at(0), c.oriented);
        EXPECT_EQ(lines[0], c.oriented) << "the caller's line is reoriented too";
    }
}

TEST(IsTwoLinesSimilar, AngleDistanceAndEndTests) {
    struct Case {
        const char* name;
        Line a, b;
        bool similar;
    };
    // angle 5 degrees, distance 10, end 20
    const Case cases[] = {
        {"collinear, ends far apart", {{0, 0}, {100, 0}}, {{150, 0}, {250, 0}}, false},
        {"parallel 30 px apart", {{0, 0}, {100, 0}}, {{0, 30}, {100, 30}}, false},
        {"4.6 degrees apart", {{0, 0}, {100, 0}}, {{100, 0}, {200, 8}}, true},
        {"6.3 degrees apart", {{0, 0}, {100, 0}}, {{100, 0}, {200, 11}}, false},
        // 358.9 and 1.1 degrees: no wrap at 360, so not merged.
        {"either side of 0 degrees", {{0, 2}, {100, 0}}, {{100, 0}, {200, 2}}, false},
        // a's mid point is far from b's line, b's is close to a's: enough.
        {"one mid point close", {{-200, 0}, {200, 0}}, {{190, 0}, {225, 3}}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(isTwoLinesSimilar(c.a, c.b, 5.0, 10.0, 20.0), c.similar);
        EXPECT_EQ(isTwoLinesSimilar(c.b, c.a, 5.0, 10.0, 20.0), c.similar);
    }
}

TEST(MergeLines, ClustersAroundEachSeedNotAroundTheCluster) {
    // A ~ B and C ~ B but A !~ C: B joins both clusters. Projected ends are
    // truncated, and the 1e-6 in the projection leaves them just short of
    // whole numbers: B's ends land on 122 along A but on 62 and 123 along C.
    std::vector<Line> lines = {{{10, 10}, {60, 10}}, {{125, 10}, {190, 10}}, {{62, 10}, {123, 10}}};
    const std::vector<Line> merged = mergeLines(lines, 100, 200);
    ASSERT_EQ(merged.size(), 2u);
    EXPECT_EQ(merged[0], Line({10, 10}, {122, 10}));
    EXPECT_EQ(merged[1], Line({62, 10}, {190, 10}));
}

TEST(MergeSimilarLines, SpansProjectionsInsideTheImage) {
    struct Case {
        const char* name;
        std::vector<Line> cluster;
        Line merged;
    };
    const Case cases[] = {
        {"single line", {{{3, 4}, {50, 6}}}, {{3, 4}, {50, 6}}},
        {"projected, truncated",
         {{{10, 10}, {100, 10}}, {{90, 12}, {115, 13}}},
         {{10, 10}, {114, 10}}},
        {"end outside: dropped",
         {{{10, 10}, {100, 10}}, {{90, 12}, {150, 12}}},
         {{10, 10}, {100, 10}}},
        {"start outside: dropped",
         {{{10, 10}, {100, 10}}, {{-20, 12}, {50, 12}}},
         {{10, 10}, {100, 10}}},
        {"vertical sorts by y",
         {{{10, 10}, {10, 100}}, {{12, 105}, {11, 140}}},
         {{10, 10}, {10, 139}}},
    };
    for (Case c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(mergeSimilarLines(c.cluster, 150, 120), c.merged);
    }
}

TEST(CalculateInterPointOfLines, TruncatedSinglePrecisionIntersection) {
    struct Case {
        const char* name;
        Line a, b;
        cv::Point2f point;
    };
    const Case cases[] = {
        {"perpendicular", {{0, 5}, {10, 5}}, {{3, 0}, {3, 10}}, {3, 5}},
        {"parallel", {{0, 0}, {10, 0}}, {{0, 5}, {10, 5}}, {-1, -1}},
        {"2.5 truncates to 2", {{0, 0}, {10, 10}}, {{0, 5}, {5, 0}}, {2, 2}},
        {"-2.5 truncates toward zero", {{0, 0}, {10, 10}}, {{0, -5}, {-5, 0}}, {-2, -2}},
        // The numerators overflow 32 bits.
        {"64-bit numerators", {{0, 30000}, {30000, 0}}, {{0, 0}, {30000, 30000}}, {15000, 15000}},
        // 16777217 is not a float: the division is single precision.
        {"single-precision division",
         {{0, 0}, {1, 0}},
         {{16777217, 0}, {16777217, 1}},
         {16777216, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(calculateInterPointOfLines(c.a, c.b), c.point);
    }
}

TEST(LineGeometry, AnglesAndDistances) {
    EXPECT_DOUBLE_EQ(calculateLineAngle({{0, 0}, {-10, 0}}), 180.0);
    EXPECT_DOUBLE_EQ(calculateLineAngle({{0, 0}, {0, -10}}), 270.0) << "no negative angles";
    EXPECT_NEAR(calculatePoint2LineDistance({20, 3}, {{0, 0}, {10, 0}}), 3.0, 1e-9)
        << "distance from the infinite line, not the segment";
    EXPECT_NEAR(calculatePoint2LineDistance({0, 0}, {{3, 4}, {3, 4}}), 5.0, 1e-9)
        << "a zero-length line measures from its point";
    // qsort comparator: differences under one compare equal.
    const float pairs[][2] = {{1.9f, 1.0f}, {3.0f, 1.0f}, {1.0f, 3.5f}, {1.0f, 1.5f}};
    const int expected[] = {0, 2, -2, 0};
    for (int i = 0; i < 4; ++i)
        EXPECT_EQ(lineCompare(&pairs[i][0], &pairs[i][1]), expected[i]) << i;
}

TEST(QuadEdges, ZeroOrSkewedSidesTakeTheWarp) {
    struct Case {
        const char* name;
        cv::Point2f tl, tr, br, bl;
        bool warp;
    };
    const Case cases[] = {
        {"sides 1.2 apart", {0, 0}, {120, 0}, {120, 100}, {0, 100}, true},
        {"zero shortest side", {0, 0}, {100, 0}, {100, 100}, {0, 0}, true},
        {"all corners equal", {-1, -1}, {-1, -1}, {-1, -1}, {-1, -1}, false},
        {"sides 1.13 apart", {0, 0}, {113, 0}, {113, 100}, {0, 100}, false},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const scancode::QuadEdges e = scancode::measureQuadEdges(c.tl, c.tr, c.br, c.bl);
        EXPECT_EQ(scancode::needsPerspectiveWarp(e), c.warp);
    }
}

}  // namespace
