// One code per frame with exact truth, swept over size, position within the
// detector's cells, tilt, surface and roughening, at four frame sizes.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>

#include "evaluation.h"
#include "match.h"
#include "sweep_layout.h"

namespace {

const cv::Size kFrames[] = {{1280, 720}, {1920, 1080}, {1280, 960}, {720, 1280}};
const int kTilts[] = {0, 30, 45, 60};
const Surface kSurfaces[] = {Surface::kPlain, Surface::kPaperOnDesk, Surface::kNatural};
constexpr double kSmallest = 16;  // input pixels
constexpr double kCell = 64;      // input pixels: the coarsest stride in use

// The library's figures the detector is held to: recall of codes of 40 input px
// and more up to 45 degrees of tilt, of 24-40 px codes, of 40 px and more at 60
// degrees, and the box accuracy of found codes of 40 px and more.
struct GoalTally {
    Rate upright40, small24to40, steep40;
    std::vector<double> iou40, sizeError40;
};

struct Tally {
    Rates rates;
    // Why the library missed: its box was in the edge band, it had a box
    // on the code that fits badly (0.1 <= IoU < 0.5), or none there at all.
    int inEdgeBand = 0, poorBox = 0, noBox = 0;
    std::vector<double> iou, sizeError;
};

std::string FrameName(cv::Size s) {
    return std::to_string(s.width) + "x" + std::to_string(s.height);
}

// One frame size of the sweep: its backgrounds, cut a little larger than the
// frame so that crops vary, and the sizes of its codes.
struct FrameSetting {
    int index;
    cv::Size size;
    double scale;    // input px per frame px
    double largest;  // input px: the largest code that fits inside the band
    std::vector<cv::Mat> desks, natural;
};

FrameSetting SettingFor(int f, const Backgrounds& bg) {
    FrameSetting fs{f, kFrames[f], InputScale(kFrames[f].width, kFrames[f].height), 0, {}, {}};
    const cv::Size cover = fs.size + fs.size / 8;
    for (const cv::Mat& m : bg.desks) fs.desks.push_back(CoverFrame(m, cover));
    for (const cv::Mat& m : bg.natural) fs.natural.push_back(CoverFrame(m, cover));
    fs.largest =
        (std::min(fs.size.width, fs.size.height) - 2.0 * (kEdgeBand + kFitMargin)) * fs.scale;
    return fs;
}

// One case: size step, cell offset, tilt and surface of a frame size.
struct SweepCase {
    int step, offset, tilt, surface;
    int steps, offsets;
};

struct SweepFrame {
    SceneSetup setup;
    CodeText text;
    Scene scene;
};

// Draws the case's code (seeded by the case) and renders its frame.
SweepFrame MakeFrame(const FrameSetting& fs, const SweepCase& c) {
    const cv::Size size = fs.size;
    const double input =
        kSmallest * std::pow(fs.largest / kSmallest, double(c.step) / (c.steps - 1));
    const float side = float(input / fs.scale);
    const uint64_t seed = 1000003ull * (fs.index + 1) + 10007ull * c.step + 101ull * c.offset +
                          11ull * c.tilt + c.surface;
    cv::RNG rng(seed);
    const double roll = rng.uniform(-15.0, 15.0);
    const double axis = rng.uniform(0.0, 180.0);
    const double distance = rng.uniform(2.5, 5.0);
    const Quad shape =
        FitQuad(ViewedSquare({0, 0}, 100, roll, kTilts[c.tilt], axis, distance), {0, 0}, side);
    const cv::Rect2f box = TruthBox(shape);
    const double cell = kCell / fs.scale;
    const double band = kEdgeBand + kFitMargin;
    const double cx =
        PlaceOnCellGrid(band + box.width / 2, size.width - band - box.width / 2,
                        rng.uniform(0.0, 1.0), cell, cell * CellPhase(c.offset, c.offsets, 0));
    const double cy =
        PlaceOnCellGrid(band + box.height / 2, size.height - band - box.height / 2,
                        rng.uniform(0.0, 1.0), cell, cell * CellPhase(c.offset, c.offsets, 1));
    SweepFrame out;
    SceneSetup& setup = out.setup;
    setup.frameSize = size;
    setup.surface = kSurfaces[c.surface];
    setup.seed = seed;
    setup.degradation =
        Degradations()[(c.step + c.offset + 2 * c.tilt + c.surface) % Degradations().size()];
    CodePlacement code;
    code.text = SampleText(seed);
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

// Every tally of the sweep.
struct SweepTally {
    std::array<Tally, kSizeBands.size()> bands;
    std::map<int, Rates> byTilt;
    std::map<std::string, Rate> bySurface, byDegradation, byFrame;
    std::map<std::tuple<int, int, int>, Rates> cells;  // frame, step, tilt
    std::map<std::tuple<int, int>, double> stepSize;   // frame, step -> input px
    int frames = 0;
    GoalTally goal;

    void Add(const FrameSetting& fs, const SweepCase& c, const SweepFrame& frame,
             const Detections& d, const CodeRecord& r, std::vector<SheetCase>& misses);
};

void SweepTally::Add(const FrameSetting& fs, const SweepCase& c, const SweepFrame& frame,
                     const Detections& d, const CodeRecord& r, std::vector<SheetCase>& misses) {
    const std::vector<cv::Rect2f>& truths = frame.scene.truths;
    if (!r.found[kLibrary]) {
        Tally& why = bands[r.band];
        if (MatchBoxes(truths, d.library.survivors)[0] >= 0)
            ++why.inEdgeBand;
        else if (MatchBoxes(truths, d.library.survivors, 0.1f)[0] >= 0)
            ++why.poorBox;
        else
            ++why.noBox;
    }
    const int tilt = kTilts[c.tilt];
    for (int q = 0; q < kDetectorCount; ++q) {
        bands[r.band].rates[q].Add(r.found[q]);
        byTilt[tilt][q].Add(r.found[q]);
        cells[{fs.index, c.step, c.tilt}][q].Add(r.found[q]);
    }
    const bool found = r.found[kLibrary];
    if (r.inputSize >= 40 && tilt <= 45) goal.upright40.Add(found);
    if (r.inputSize >= 24 && r.inputSize < 40) goal.small24to40.Add(found);
    if (r.inputSize >= 40 && tilt == 60) goal.steep40.Add(found);
    if (found && r.inputSize >= 40) {
        goal.iou40.push_back(r.iou);
        goal.sizeError40.push_back(r.sizeError);
    }
    if (found) {
        bands[r.band].iou.push_back(r.iou);
        bands[r.band].sizeError.push_back(r.sizeError);
    } else if (Worthy(misses, r.inputSize)) {
        char label[96];
        snprintf(label, sizeof label, "%s %.0fpx tilt %d %s", FrameName(fs.size).c_str(),
                 r.inputSize, tilt, SurfaceName(frame.setup.surface));
        Keep(misses, {Tile(frame.scene.frame, truths, d.library, label), label, r.inputSize});
    }
    bySurface[SurfaceName(frame.setup.surface)].Add(found);
    byDegradation[frame.setup.degradation.name].Add(found);
    byFrame[FrameName(fs.size)].Add(found);
}

// Runs every case of one frame size through the detectors into `tally`.
void RunFrameSize(const Options& o, Detectors& det, const FrameSetting& fs, int steps, int offsets,
                  SweepTally& tally, DecodeTally& decode, std::vector<SheetCase>& misses) {
    for (int k = 0; k < steps; ++k) {
        tally.stepSize[{fs.index, k}] =
            kSmallest * std::pow(fs.largest / kSmallest, double(k) / (steps - 1));
        for (int off = 0; off < offsets; ++off) {
            for (int t = 0; t < 4; ++t) {
                for (int su = 0; su < 3; ++su) {
                    // Quick runs take one surface per case, in turn.
                    if (o.quick && su != (k + off + t) % 3) continue;
                    const SweepCase c{k, off, t, su, steps, offsets};
                    const SweepFrame frame = MakeFrame(fs, c);
                    const Detections d = det.Run(frame.scene.frame);
                    ++tally.frames;
                    const CodeRecord r = Score(d, frame.scene.truths, fs.scale)[0];
                    CheckDecode(d, frame.scene.truths[0], frame.text.bytes, frame.text.text,
                                decode);
                    tally.Add(fs, c, frame, d, r, misses);
                }
            }
        }
    }
}

nlohmann::ordered_json OrNull(const std::vector<double>& v) {
    return v.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(Median(v));
}

// Recall by size band, with the library's box accuracy and its misses by cause.
nlohmann::ordered_json ReportBands(const SweepTally& tally) {
    PrintRatesHeader("input size (px)",
                     "lib. median IoU, size err | misses: edge band, poor box, none");
    nlohmann::ordered_json rows;
    for (size_t b = 0; b < kSizeBands.size(); ++b) {
        const Tally& t = tally.bands[b];
        char extra[96];
        snprintf(
            extra, sizeof extra, "%s | %d, %d, %d",
            t.iou.empty()
                ? "-"
                : cv::format("%.2f, %+5.1f %%", Median(t.iou), 100 * Median(t.sizeError)).c_str(),
            t.inEdgeBand, t.poorBox, t.noBox);
        PrintRates(kSizeBands[b].name, t.rates, extra);
        nlohmann::ordered_json row = {
            {"band", kSizeBands[b].name},
            {"lo", kSizeBands[b].lo},
            {"hi", kSizeBands[b].hi >= 1e9 ? nlohmann::ordered_json()
                                           : nlohmann::ordered_json(kSizeBands[b].hi)}};
        row["recall"] = ToJson(t.rates);
        row["library_misses"] = {
            {"box_in_edge_band", t.inEdgeBand}, {"poor_box", t.poorBox}, {"no_box", t.noBox}};
        row["library_median_iou"] = OrNull(t.iou);
        row["library_median_size_error"] = OrNull(t.sizeError);
        rows.push_back(row);
    }
    return rows;
}

// The library's recall by surface, roughening and frame size, into `j`.
void ReportBreakdowns(const SweepTally& tally, nlohmann::ordered_json& j) {
    PrintRatesHeader("tilt (degrees)");
    for (const auto& [tilt, r] : tally.byTilt) {
        PrintRates(std::to_string(tilt), r);
        j["tilts"].push_back({{"tilt", tilt}, {"recall", ToJson(r)}});
    }
    const std::pair<const char*, const std::map<std::string, Rate>*> breakdowns[] = {
        {"surface", &tally.bySurface},
        {"roughening", &tally.byDegradation},
        {"frame size", &tally.byFrame}};
    const char* const keys[] = {"surfaces", "roughening", "frame_sizes"};
    for (size_t i = 0; i < std::size(breakdowns); ++i) {
        printf("%slibrary recall by %s:", i == 0 ? "  " : "\n  ", breakdowns[i].first);
        for (const auto& [name, r] : *breakdowns[i].second) {
            printf("  %s %s", name.c_str(), Percent(r).c_str());
            j[keys[i]][name] = ToJson(r);
        }
    }
    printf("\n");
}

// Recall against size, one line per tilt, for the plot: a CSV file and JSON.
nlohmann::ordered_json ReportCurve(const Options& o, const SweepTally& tally) {
    nlohmann::ordered_json curve = nlohmann::ordered_json::array();
    std::ofstream csv(o.outDir + "/recall_vs_size.csv");
    csv << "frame,input_px,tilt,codes,library,zxing,opencv\n";
    for (const auto& [key, r] : tally.cells) {
        const auto [f, k, t] = key;
        const double input = tally.stepSize.at({f, k});
        csv << FrameName(kFrames[f]) << "," << input << "," << kTilts[t] << "," << r[kLibrary].total
            << "," << r[kLibrary].hit << "," << r[kZxing].hit << "," << r[kOpenCv].hit << "\n";
        curve.push_back({{"frame", FrameName(kFrames[f])},
                         {"input_px", input},
                         {"tilt", kTilts[t]},
                         {"recall", ToJson(r)}});
    }
    return curve;
}

// Prints the sweep's tables and gives its figures as JSON.
nlohmann::ordered_json ReportSweep(const Options& o, int steps, int offsets,
                                   const SweepTally& tally) {
    printf(
        "\nSWEEP: one rendered code per frame, %d frames (%s; %d sizes from 16 input px up, %d "
        "cell offsets, tilts 0/30/45/60, %s)\n",
        tally.frames, "1280x720, 1920x1080, 1280x960, 720x1280", steps, offsets,
        o.quick ? "one surface per case" : "three surfaces each");
    printf(
        "  found: IoU >= 0.5 with the truth box; library boxes must clear its %d px edge band, "
        "the peers have none\n",
        kEdgeBand);
    nlohmann::ordered_json j;
    j["bands"] = ReportBands(tally);
    ReportBreakdowns(tally, j);
    const nlohmann::ordered_json curve = ReportCurve(o, tally);
    const GoalTally& goal = tally.goal;
    j["frames"] = tally.frames;
    j["goal_cells"] = {{"recall_40up_tilt45", ToJson(goal.upright40)},
                       {"recall_24_40", ToJson(goal.small24to40)},
                       {"recall_40up_tilt60", ToJson(goal.steep40)},
                       {"median_iou_40up", Median(goal.iou40)},
                       {"median_size_error_40up", Median(goal.sizeError40)}};
    printf(
        "  library, codes >= 40 px: tilt <= 45 %s, tilt 60 %s; 24-40 px %s; box median IoU %.3f, "
        "size error %+.1f %%\n",
        Percent(goal.upright40).c_str(), Percent(goal.steep40).c_str(),
        Percent(goal.small24to40).c_str(), Median(goal.iou40), 100 * Median(goal.sizeError40));
    j["recall_vs_size"] = curve;
    return j;
}

}  // namespace

nlohmann::ordered_json RunSweep(const Options& o, Detectors& det, const Backgrounds& bg,
                                DecodeTally& decode, std::vector<SheetCase>& misses) {
    const int steps = o.quick ? 12 : 14;
    const int offsets = o.quick ? 6 : 8;
    SweepTally tally;
    for (int f = 0; f < int(std::size(kFrames)); ++f) {
        RunFrameSize(o, det, SettingFor(f, bg), steps, offsets, tally, decode, misses);
        fprintf(stderr, "sweep: %s done, %d frames so far\n", FrameName(kFrames[f]).c_str(),
                tally.frames);
    }
    return ReportSweep(o, steps, offsets, tally);
}
