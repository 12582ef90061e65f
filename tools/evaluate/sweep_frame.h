// The sweep's frames: one code per frame at a chosen size, phase of the
// detector's coarsest cell, tilt and surface, drawn from seeds given by the
// case so that every run renders the same frames. The main sweep, its old
// largest size and the slice of large low-version codes all come from here.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "evaluation.h"

inline const cv::Size kSweepFrames[] = {{1280, 720}, {1920, 1080}, {1280, 960}, {720, 1280}};
inline constexpr int kSweepTilts[] = {0, 30, 45, 60};
inline constexpr int kSweepSurfaces = 3;

std::string FrameName(cv::Size s);

// One frame size: its backgrounds, cut a little larger than the frame so
// that crops vary, and the sizes its codes reach.
struct SweepSetting {
    int index;
    cv::Size size;
    double scale;    // input px per frame px
    double largest;  // input px: the largest code clear of the band by ClearOfBand
    // input px: the largest code of run 4 and before, 8 frame px clear of
    // the band, run apart so that its figure stays comparable
    double oldLargest;
    std::vector<cv::Mat> desks, natural;
};
SweepSetting SweepSettingFor(int f, const Backgrounds& bg);

// One case. Step, offset, tilt and surface seed it; the sweep's own cases
// have salt 0, so a frame of a given step is the same whatever else runs.
struct SweepCase {
    int step, offset, tilt, surface;
    int offsets;
    double input;  // the truth box's larger side, input px
    double clear;  // frame px the truth box keeps from the edge band, at least
    uint64_t salt = 0;
    int version = 0;  // 0: SampleText's mix; 1 to 4: a text of that version
};

struct SweepFrame {
    SceneSetup setup;
    CodeText text;
    Scene scene;
};
SweepFrame MakeSweepFrame(const SweepSetting& fs, const SweepCase& c);

// A text of lower-case letters filling QR version `version` (1 to 4) at level M.
CodeText TextOfVersion(uint64_t seed, int version);
// The version of the symbol `bytes` encode to, 0 when they do not fit.
int VersionOf(const std::string& bytes);

// The large low-version slice: versions 1 to 4 from 150 input px to the
// largest size, every frame size, all tilts.
struct LowVersionTally {
    Rates all;
    std::map<int, Rate> byVersion, byTilt, byBand;  // library
    int frames = 0;
};
void RunLowVersions(const Options& o, Detectors& det, const SweepSetting& fs,
                    LowVersionTally& tally);
nlohmann::ordered_json ReportLowVersions(const LowVersionTally& tally);
