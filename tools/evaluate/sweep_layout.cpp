#include "sweep_layout.h"

#include <algorithm>
#include <cmath>

double CellPhase(int offset, int offsets, int axis) {
    const int step = axis == 0 ? offset : (5 * offset + 1) % offsets;
    return double(step) / offsets;
}

double PlaceOnCellGrid(double lo, double hi, double coarse, double cell, double phase) {
    if (hi - lo < cell) return lo + std::fmod(phase, std::max(hi - lo, 1e-6));
    double v = std::floor((lo + coarse * (hi - lo)) / cell) * cell + phase;
    while (v > hi) v -= cell;
    while (v < lo) v += cell;
    return v;
}

namespace {

constexpr double kLeastClear = 8;     // frame px
constexpr double kClearShare = 0.05;  // of the side

}  // namespace

double ClearOfBand(double side) {
    return std::max(kLeastClear, kClearShare * side);
}

double LargestClearSide(double frameSide, double band) {
    const double room = frameSide - 2 * band;
    return std::max(0.0, std::min(room - 2 * kLeastClear, room / (1 + 2 * kClearShare)));
}
