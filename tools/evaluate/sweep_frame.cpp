#include "sweep_frame.h"

#include <cmath>

#include "sweep_layout.h"

namespace {

const Surface kSurfaces[] = {Surface::kPlain, Surface::kPaperOnDesk, Surface::kNatural};
constexpr double kCell = 64;  // input pixels: the coarsest stride in use

// The code's centre on one axis: spread over the room left inside the band,
// at the case's phase of the coarsest cell.
double Centre(const SweepSetting& fs, const SweepCase& c, int axis, double extent, cv::RNG& rng) {
    const double cell = kCell / fs.scale;
    const double band = kEdgeBand + c.clear;
    const double frameSide = axis == 0 ? fs.size.width : fs.size.height;
    return PlaceOnCellGrid(band + extent / 2, frameSide - band - extent / 2, rng.uniform(0.0, 1.0),
                           cell, cell * CellPhase(c.offset, c.offsets, axis));
}

}  // namespace

std::string FrameName(cv::Size s) {
    return std::to_string(s.width) + "x" + std::to_string(s.height);
}

SweepSetting SweepSettingFor(int f, const Backgrounds& bg) {
    const cv::Size size = kSweepFrames[f];
    SweepSetting fs{f, size, InputScale(size.width, size.height), 0, 0, {}, {}};
    const cv::Size cover = size + size / 8;
    for (const cv::Mat& m : bg.desks) fs.desks.push_back(CoverFrame(m, cover));
    for (const cv::Mat& m : bg.natural) fs.natural.push_back(CoverFrame(m, cover));
    const double shorter = std::min(size.width, size.height);
    fs.largest = LargestClearSide(shorter, kEdgeBand) * fs.scale;
    fs.oldLargest = (shorter - 2.0 * (kEdgeBand + kFitMargin)) * fs.scale;
    return fs;
}

SweepFrame MakeSweepFrame(const SweepSetting& fs, const SweepCase& c) {
    const float side = float(c.input / fs.scale);
    const uint64_t seed = 1000003ull * (fs.index + 1) + 10007ull * c.step + 101ull * c.offset +
                          11ull * c.tilt + c.surface + c.salt;
    cv::RNG rng(seed);
    const double roll = rng.uniform(-15.0, 15.0);
    const double axis = rng.uniform(0.0, 180.0);
    const double distance = rng.uniform(2.5, 5.0);
    const Quad shape =
        FitQuad(ViewedSquare({0, 0}, 100, roll, kSweepTilts[c.tilt], axis, distance), {0, 0}, side);
    const cv::Rect2f box = TruthBox(shape);
    const double cx = Centre(fs, c, 0, box.width, rng);
    const double cy = Centre(fs, c, 1, box.height, rng);
    SweepFrame out;
    SceneSetup& setup = out.setup;
    setup.frameSize = fs.size;
    setup.surface = kSurfaces[c.surface];
    setup.seed = seed;
    setup.degradation =
        Degradations()[(c.step + c.offset + 2 * c.tilt + c.surface) % Degradations().size()];
    CodePlacement code;
    code.text = c.version > 0 ? TextOfVersion(seed, c.version) : SampleText(seed);
    code.corners = FitQuad(shape, cv::Point2f(float(cx), float(cy)), side);
    if (setup.surface == Surface::kPaperOnDesk && !fs.desks.empty()) {
        setup.background = &fs.desks[rng.uniform(0, int(fs.desks.size()))];
        for (float& m : code.marginModules) m = float(rng.uniform(2.0, 8.0));
    } else if (setup.surface == Surface::kNatural && !fs.natural.empty()) {
        setup.background = &fs.natural[rng.uniform(0, int(fs.natural.size()))];
    } else {
        for (float& m : code.marginModules) m = float(rng.uniform(0.0, 1.5));
    }
    out.text = code.text;
    setup.codes.push_back(code);
    out.scene = RenderScene(setup);
    return out;
}

CodeText TextOfVersion(uint64_t seed, int version) {
    // Lower-case letters stay one byte-mode segment, which holds 14, 26, 42
    // and 62 bytes at level M in versions 1 to 4.
    static const int kBytes[] = {0, 14, 26, 42, 62};
    cv::RNG rng(seed * 31 + 7);
    const int length = rng.uniform(kBytes[version - 1] + 1, kBytes[version] + 1);
    CodeText t;
    for (int i = 0; i < length; ++i) t.bytes += char('a' + rng.uniform(0, 26));
    t.text = t.bytes;
    return t;
}

int VersionOf(const std::string& bytes) {
    const cv::Mat modules = EncodeQr(bytes);
    return modules.empty() ? 0 : (modules.rows - 17) / 4;
}
