// The detection network's layout, written once: its input, its five output
// heads in order, and how each head's 8-bit codes are read back. The library,
// the reference adapter, the tests, the benchmarks and the tools read it from
// here; training and export read the same facts from model/layout.py, and a
// test holds the two and the committed model file together.
#pragma once

namespace detector_layout {

// The letterboxed input: kInputSide x kInputSide pixels of kInputChannels.
constexpr int kInputSide = 640;
constexpr int kInputChannels = 3;
constexpr int kInputFloats = kInputSide * kInputSide * kInputChannels;
constexpr const char* kInputName = "inputs";

// Per cell: log distances from the cell centre to the left, top, right and
// bottom box edges in input pixels, a score logit, one unused value.
constexpr int kValuesPerCell = 6;
constexpr int kScoreValue = 4;

struct Head {
    const char* name;  // the output's name in the model file
    int stride;        // input pixels per cell
    int zeroPoint;     // an output code q reads back as (q + zeroPoint) * scale
    float scale;

    constexpr int Grid() const { return kInputSide / stride; }  // cells per side
    constexpr int Values() const { return Grid() * Grid() * kValuesPerCell; }
};

constexpr int kHeadCount = 5;
constexpr Head kHeads[kHeadCount] = {
    {"outputs", 8, -189, 0.06613318622112274f}, {"_306", 16, -221, 0.15657134354114532f},
    {"_328", 32, -178, 0.07030908763408661f},   {"_350", 64, -168, 0.07131850719451904f},
    {"_372", 128, -255, 0.0829123929142952f},
};

// First value of head `head` in the one buffer that holds all heads in order;
// OutputOffset(kHeadCount) is the buffer's length.
constexpr int OutputOffset(int head) {
    int offset = 0;
    for (int i = 0; i < head; ++i) offset += kHeads[i].Values();
    return offset;
}
constexpr int kOutputValues = OutputOffset(kHeadCount);
static_assert(kOutputValues == 51150, "the output buffer's length is part of the interface");

}  // namespace detector_layout
