// What makes a detector cell a box and a box a result, written once: the
// score threshold, the edge band, and the info lines each frame's boxes are
// logged with, together with their parser. The library decides and logs with
// these; the host-side Scanner (scanner/) reads the lines back with the
// parser; the tools, the evaluation, the fuzz targets and the tests read the
// same numbers from here.
#pragma once

#include <cstdio>

namespace detection_rules {

// A cell becomes a candidate when its score logit is at least the logit of a
// probability of 0.3. Comparing against the logit spares the sigmoid, and
// rejected cells cost no exponential at all.
constexpr double kMinScore = 0.3;
constexpr double kMinScoreLogit = -0.8473;
// The smallest float not below it: for every float f, f >= this (in float)
// decides exactly what (double)f >= kMinScoreLogit decides, NaN included, and
// the float form lets eight cells be tested without a branch.
constexpr float kMinScoreLogitF = -0.8473f;
static_assert(static_cast<double>(kMinScoreLogitF) >= kMinScoreLogit, "not below");
// Floats in [0.5, 1) are 2^-24 apart, so this is the next float down.
static_assert(static_cast<double>(kMinScoreLogitF) - 0x1p-24 < kMinScoreLogit, "smallest");

// Boxes closer than this many frame pixels to a frame edge are counted but
// not listed: a code there is likely cut off, so neither the zoom nor the
// straightening uses it.
constexpr float kEdgeBand = 80.0f;

// Whether a box (frame pixels) of a cols x rows frame is clear of the band.
constexpr bool ClearOfEdgeBand(float x, float y, float w, float h, float cols, float rows) {
    return x >= kEdgeBand && y >= kEdgeBand && x + w <= cols - kEdgeBand &&
           y + h <= rows - kEdgeBand;
}

// The info line logged for every box that survives suppression, listed or
// not, in frame pixels; then the count line, with the number listed.
constexpr const char* kBoxLineFormat = "x = %.03f, y = %.03f, w = %.03f, h = %.03f";
constexpr const char* kCountLineFormat = "the num of qrcode is %d";

struct LoggedBox {
    float x, y, w, h;
};

// Reads a box line back; false for any other line.
inline bool ParseBoxLine(const char* line, LoggedBox& box) {
    char end = 0;
    return sscanf(line, "x = %f, y = %f, w = %f, h = %f%c", &box.x, &box.y, &box.w, &box.h, &end) ==
           4;
}

// Reads a count line back; false for any other line.
inline bool ParseCountLine(const char* line, int& count) {
    char end = 0;
    return sscanf(line, "the num of qrcode is %d%c", &count, &end) == 1;
}

}  // namespace detection_rules
