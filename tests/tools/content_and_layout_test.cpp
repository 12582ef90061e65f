// How the evaluation compares decoded content, where its sweep puts codes
// and how large they grow, and the size bands it reports in.
#include <gtest/gtest.h>

#include <cmath>
#include <set>

#include "content_match.h"
#include "size_bands.h"
#include "sweep_layout.h"

namespace {

TEST(ContentMatchTest, LineEndsAndEncodingsCompareAsTheSameContent) {
    const std::string sjis = "\x93\xfa\x96\x7b";          // nihon, Shift-JIS bytes
    const std::string utf8 = "\xe6\x97\xa5\xe6\x9c\xac";  // the same, UTF-8
    struct Case {
        const char* what;
        std::string readBytes, readText, truthBytes, truthText;
        bool same;
    } cases[] = {
        {"identical bytes", "a\r\nb", "a\r\nb", "a\r\nb", "a\r\nb", true},
        {"CRLF code, LF truth file", "a\r\nb", "a\r\nb", "", "a\nb\n", true},
        {"lone CR", "a\rb", "a\rb", "", "a\nb", true},
        {"trailing whitespace", "abc", "abc", "", "abc \t\n", true},
        {"Shift-JIS by bytes", sjis, utf8, sjis, utf8, true},
        {"Shift-JIS by text", sjis, utf8, "", utf8, true},
        {"inner whitespace counts", "a b", "a b", "", "ab", false},
        {"different text", "abd", "abd", "abc", "abc", false},
        {"empty read", "", "", "", "", false},
    };
    for (const Case& c : cases)
        EXPECT_EQ(SameContent(c.readBytes, c.readText, c.truthBytes, c.truthText), c.same)
            << c.what;
}

// Over the offsets, each axis meets every phase of the cell once, so every
// stride (a divisor of the cell) sees every one of its phases.
TEST(SweepLayoutTest, OffsetsCoverEveryPhaseOnBothAxes) {
    for (int offsets : {6, 8}) {
        for (int axis : {0, 1}) {
            std::set<int> seen;
            for (int off = 0; off < offsets; ++off)
                seen.insert(int(std::lround(CellPhase(off, offsets, axis) * offsets)));
            EXPECT_EQ(seen.size(), size_t(offsets)) << offsets << " offsets, axis " << axis;
        }
        int together = 0;  // x and y at the same phase
        for (int off = 0; off < offsets; ++off)
            together += CellPhase(off, offsets, 0) == CellPhase(off, offsets, 1);
        EXPECT_LE(together, 1);
    }
}

TEST(SweepLayoutTest, PlacedInRangeAtTheAskedPhase) {
    const double cell = 128;
    for (double coarse : {0.0, 0.3, 0.99, 1.0})
        for (double phase : {0.0, 16.0, 112.0}) {
            const double v = PlaceOnCellGrid(200, 1000, coarse, cell, phase);
            EXPECT_GE(v, 200);
            EXPECT_LE(v, 1000);
            EXPECT_NEAR(std::fmod(v, cell), phase, 1e-9) << coarse << " " << phase;
        }
    // Narrower than a cell: still inside.
    for (double phase : {0.0, 50.0, 120.0}) {
        const double v = PlaceOnCellGrid(300, 340, 0.5, cell, phase);
        EXPECT_GE(v, 300);
        EXPECT_LE(v, 340);
    }
}

// The largest code fills the room inside the band exactly, keeping at
// least 8 px and 5 % of its side clear: the 5 % governs in the sweep's
// frames, the 8 px in a small one.
TEST(SweepLayoutTest, LargestSideKeepsItsClearanceAndNoMore) {
    const double band = 80;
    for (double shorter : {240.0, 300.0, 720.0, 960.0, 1080.0}) {
        const double side = LargestClearSide(shorter, band);
        const double clear = ClearOfBand(side);
        EXPECT_GE(clear, 8);
        EXPECT_GE(clear, 0.05 * side - 1e-9);
        EXPECT_NEAR(side + 2 * (band + clear), shorter, 1e-6) << shorter;
    }
    EXPECT_NEAR(ClearOfBand(LargestClearSide(720, band)), 0.05 * LargestClearSide(720, band), 1e-9);
    EXPECT_EQ(ClearOfBand(LargestClearSide(300, band)), 8);
    EXPECT_EQ(LargestClearSide(150, band), 0);  // no room inside the band at all
}

}  // namespace

// The bands every figure is reported in: contiguous from 0 up, each size in
// exactly one, the edges where the detector's heads hand over.
TEST(SizeBandsTest, ContiguousAndEdgesBelongAbove) {
    EXPECT_EQ(kSizeBands.front().lo, 0);
    for (size_t b = 1; b < kSizeBands.size(); ++b) {
        EXPECT_EQ(kSizeBands[b].lo, kSizeBands[b - 1].hi);
        EXPECT_EQ(SizeBandOf(kSizeBands[b].lo), int(b));
        EXPECT_EQ(SizeBandOf(std::nextafter(kSizeBands[b].lo, 0.0)), int(b) - 1);
    }
    EXPECT_EQ(SizeBandOf(1e6), int(kSizeBands.size()) - 1);
    EXPECT_DOUBLE_EQ(InputScale(1280, 720), 0.5);
    EXPECT_DOUBLE_EQ(InputScale(720, 1280), 0.5);
    EXPECT_DOUBLE_EQ(InputScale(1920, 1080), 1.0 / 3);
}
