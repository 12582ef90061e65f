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

}  // namespace
