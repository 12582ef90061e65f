#include "match.h"

#include <gtest/gtest.h>

namespace {

using Rects = std::vector<cv::Rect2f>;

TEST(MatchTest, FoundFromHalfOverlapUp) {
    const Rects truth = {{0, 0, 100, 100}};
    // A box inside the truth, h px tall: IoU h / 100.
    for (auto [height, found] : {std::pair{50.5f, true}, {50.0f, true}, {49.5f, false}}) {
        const Rects box = {{0, 0, 100, height}};
        EXPECT_EQ(MatchBoxes(truth, box)[0] >= 0, found) << "height " << height;
    }
}

TEST(MatchTest, OneBoxNeverCountsForTwoCodes) {
    // Two overlapping codes, one box between them, IoU 0.82 with both.
    const Rects truths = {{0, 0, 100, 100}, {20, 0, 100, 100}};
    const Rects box = {{10, 0, 100, 100}};
    const std::vector<int> pair = MatchBoxes(truths, box);
    EXPECT_EQ(pair[0], 0);  // ties go to the earlier code
    EXPECT_EQ(pair[1], -1);
    EXPECT_EQ(CountUnmatched(pair, box.size()), 0);
}

TEST(MatchTest, PairsByBestIoUNotByOrder) {
    // Box 0 passes both codes but fits the second far better; box 1 passes
    // only the first. Taking codes in turn would give box 0 to the first
    // code and leave the second unfound.
    const Rects truths = {{0, 0, 100, 100}, {40, 0, 100, 100}};
    const Rects boxes = {{30, 0, 100, 100}, {-32, 0, 100, 100}};
    ASSERT_GT(IoU(truths[0], boxes[0]), IoU(truths[0], boxes[1]));
    ASSERT_GE(IoU(truths[0], boxes[1]), kFoundIoU);
    EXPECT_EQ(MatchBoxes(truths, boxes), (std::vector<int>{1, 0}));
}

TEST(MatchTest, UnpairedBoxesAreFalse) {
    const Rects truths = {{0, 0, 100, 100}};
    const Rects boxes = {{300, 300, 50, 50}, {2, 2, 98, 98}, {5, 0, 100, 100}};
    const std::vector<int> pair = MatchBoxes(truths, boxes);
    EXPECT_EQ(pair[0], 1);
    EXPECT_EQ(CountUnmatched(pair, boxes.size()), 2);
    EXPECT_EQ(MatchBoxes({}, boxes).size(), 0u);
    EXPECT_EQ(MatchBoxes(truths, {})[0], -1);
}

}  // namespace

// A code lost in company is "run together" when one box covers a quarter or
// more of it and of a neighbour; a box on one code only, or one that grazes
// the neighbour, is not.
TEST(MatchTest, RunTogetherNeedsAQuarterOfBothCodes) {
    const Rects truths = {{0, 0, 100, 100}, {110, 0, 100, 100}, {0, 300, 100, 100}};
    struct Case {
        const char* what;
        cv::Rect2f box;
        bool together;
    } cases[] = {
        {"over both", {0, 0, 210, 100}, true},
        {"a quarter of each", {75, 0, 60, 100}, true},
        {"just short of a quarter of the neighbour", {0, 0, 134, 100}, false},
        {"on the code alone", {5, 5, 90, 90}, false},
        {"on the neighbour alone", {110, 0, 100, 100}, false},
    };
    for (const Case& c : cases) EXPECT_EQ(RunTogether({c.box}, truths, 0), c.together) << c.what;
    EXPECT_FALSE(RunTogether({}, truths, 0));
}
