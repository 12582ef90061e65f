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

}  // namespace

nlohmann::ordered_json RunSweep(const Options& o, Detectors& det, const Backgrounds& bg,
                                DecodeTally& decode, std::vector<SheetCase>& misses) {
    const int steps = o.quick ? 12 : 14;
    const int offsets = o.quick ? 6 : 8;
    const int frameCount = 4;

    std::array<Tally, kSizeBands.size()> bands;
    std::map<int, Rates> byTilt;
    std::map<std::string, Rate> bySurface, byDegradation, byFrame;
    nlohmann::ordered_json curve = nlohmann::ordered_json::array();
    std::map<std::tuple<int, int, int>, Rates> cells;  // frame, step, tilt
    std::map<std::tuple<int, int>, double> stepSize;   // frame, step -> input px
    int frames = 0;
    GoalTally goal;

    for (int f = 0; f < frameCount; ++f) {
        const cv::Size size = kFrames[f];
        const double scale = InputScale(size.width, size.height);
        // Backgrounds a little larger than the frame, so crops vary.
        std::vector<cv::Mat> desks, natural;
        for (const cv::Mat& m : bg.desks) desks.push_back(CoverFrame(m, size + size / 8));
        for (const cv::Mat& m : bg.natural) natural.push_back(CoverFrame(m, size + size / 8));
        const double largestFrame =
            std::min(size.width, size.height) - 2.0 * (kEdgeBand + kFitMargin);
        const double largest = largestFrame * scale;
        for (int k = 0; k < steps; ++k) {
            const double input = kSmallest * std::pow(largest / kSmallest, double(k) / (steps - 1));
            const float side = float(input / scale);
            stepSize[{f, k}] = input;
            for (int off = 0; off < offsets; ++off) {
                for (int t = 0; t < 4; ++t) {
                    for (int su = 0; su < 3; ++su) {
                        // Quick runs take one surface per case, in turn.
                        if (o.quick && su != (k + off + t) % 3) continue;
                        const uint64_t seed =
                            1000003ull * (f + 1) + 10007ull * k + 101ull * off + 11ull * t + su;
                        cv::RNG rng(seed);
                        const double roll = rng.uniform(-15.0, 15.0);
                        const double axis = rng.uniform(0.0, 180.0);
                        const double distance = rng.uniform(2.5, 5.0);
                        const Quad shape =
                            FitQuad(ViewedSquare({0, 0}, 100, roll, kTilts[t], axis, distance),
                                    {0, 0}, side);
                        const cv::Rect2f box = TruthBox(shape);
                        const double cell = kCell / scale;
                        const double band = kEdgeBand + kFitMargin;
                        const double cx = PlaceOnCellGrid(
                            band + box.width / 2, size.width - band - box.width / 2,
                            rng.uniform(0.0, 1.0), cell, cell * CellPhase(off, offsets, 0));
                        const double cy = PlaceOnCellGrid(
                            band + box.height / 2, size.height - band - box.height / 2,
                            rng.uniform(0.0, 1.0), cell, cell * CellPhase(off, offsets, 1));

                        SceneSetup setup;
                        setup.frameSize = size;
                        setup.surface = kSurfaces[su];
                        setup.seed = seed;
                        setup.degradation =
                            Degradations()[(k + off + 2 * t + su) % Degradations().size()];
                        CodePlacement code;
                        code.text = SampleText(seed);
                        code.corners = FitQuad(shape, cv::Point2f(float(cx), float(cy)), side);
                        if (setup.surface == Surface::kPaperOnDesk && !desks.empty()) {
                            setup.background = &desks[rng.uniform(0, int(desks.size()))];
                            for (float& m : code.marginModules) m = float(rng.uniform(2.0, 8.0));
                        } else if (setup.surface == Surface::kNatural && !natural.empty()) {
                            setup.background = &natural[rng.uniform(0, int(natural.size()))];
                        } else {
                            for (float& m : code.marginModules) m = float(rng.uniform(0.0, 1.5));
                        }
                        setup.codes.push_back(code);
                        const Scene scene = RenderScene(setup);
                        const Detections d = det.Run(scene.frame);
                        ++frames;
                        const CodeRecord r = Score(d, scene.truths, scale)[0];
                        CheckDecode(d, scene.truths[0], code.text.bytes, code.text.text, decode);

                        if (!r.found[kLibrary]) {
                            Tally& why = bands[r.band];
                            if (MatchBoxes(scene.truths, d.library.survivors)[0] >= 0)
                                ++why.inEdgeBand;
                            else if (MatchBoxes(scene.truths, d.library.survivors, 0.1f)[0] >= 0)
                                ++why.poorBox;
                            else
                                ++why.noBox;
                        }
                        for (int q = 0; q < kDetectorCount; ++q) {
                            bands[r.band].rates[q].Add(r.found[q]);
                            byTilt[kTilts[t]][q].Add(r.found[q]);
                            cells[{f, k, t}][q].Add(r.found[q]);
                        }
                        const bool found = r.found[kLibrary];
                        if (r.inputSize >= 40 && kTilts[t] <= 45) goal.upright40.Add(found);
                        if (r.inputSize >= 24 && r.inputSize < 40) goal.small24to40.Add(found);
                        if (r.inputSize >= 40 && kTilts[t] == 60) goal.steep40.Add(found);
                        if (found && r.inputSize >= 40) {
                            goal.iou40.push_back(r.iou);
                            goal.sizeError40.push_back(r.sizeError);
                        }
                        if (r.found[kLibrary]) {
                            bands[r.band].iou.push_back(r.iou);
                            bands[r.band].sizeError.push_back(r.sizeError);
                        } else if (Worthy(misses, r.inputSize)) {
                            char label[96];
                            snprintf(label, sizeof label, "%s %.0fpx tilt %d %s",
                                     FrameName(size).c_str(), r.inputSize, kTilts[t],
                                     SurfaceName(setup.surface));
                            Keep(misses, {Tile(scene.frame, scene.truths, d.library, label), label,
                                          r.inputSize});
                        }
                        bySurface[SurfaceName(setup.surface)].Add(r.found[kLibrary]);
                        byDegradation[setup.degradation.name].Add(r.found[kLibrary]);
                        byFrame[FrameName(size)].Add(r.found[kLibrary]);
                    }
                }
            }
        }
        fprintf(stderr, "sweep: %s done, %d frames so far\n", FrameName(size).c_str(), frames);
    }

    nlohmann::ordered_json j;
    printf(
        "\nSWEEP: one rendered code per frame, %d frames (%s; %d sizes from 16 input px up, %d "
        "cell offsets, tilts 0/30/45/60, %s)\n",
        frames, "1280x720, 1920x1080, 1280x960, 720x1280", steps, offsets,
        o.quick ? "one surface per case" : "three surfaces each");
    printf(
        "  found: IoU >= 0.5 with the truth box; library boxes must clear its %d px edge band, "
        "the peers have none\n",
        kEdgeBand);
    PrintRatesHeader("input size (px)",
                     "lib. median IoU, size err | misses: edge band, poor box, none");
    for (size_t b = 0; b < kSizeBands.size(); ++b) {
        const Tally& t = bands[b];
        char extra[96];
        snprintf(
            extra, sizeof extra, "%s | %d, %d, %d",
            t.iou.empty()
                ? "-"
                : cv::format("%.2f, %+5.1f %%", Median(t.iou), 100 * Median(t.sizeError)).c_str(),
            t.inEdgeBand, t.poorBox, t.noBox);
        PrintRates(kSizeBands[b].name, bands[b].rates, extra);
        nlohmann::ordered_json row = {
            {"band", kSizeBands[b].name},
            {"lo", kSizeBands[b].lo},
            {"hi", kSizeBands[b].hi >= 1e9 ? nlohmann::ordered_json()
                                           : nlohmann::ordered_json(kSizeBands[b].hi)}};
        row["recall"] = ToJson(bands[b].rates);
        row["library_misses"] = {{"box_in_edge_band", bands[b].inEdgeBand},
                                 {"poor_box", bands[b].poorBox},
                                 {"no_box", bands[b].noBox}};
        row["library_median_iou"] = bands[b].iou.empty()
                                        ? nlohmann::ordered_json()
                                        : nlohmann::ordered_json(Median(bands[b].iou));
        row["library_median_size_error"] = bands[b].sizeError.empty()
                                               ? nlohmann::ordered_json()
                                               : nlohmann::ordered_json(Median(bands[b].sizeError));
        j["bands"].push_back(row);
    }
    PrintRatesHeader("tilt (degrees)");
    for (const auto& [tilt, r] : byTilt) {
        PrintRates(std::to_string(tilt), r);
        j["tilts"].push_back({{"tilt", tilt}, {"recall", ToJson(r)}});
    }
    printf("  library recall by surface:");
    for (const auto& [name, r] : bySurface) {
        printf("  %s %s", name.c_str(), Percent(r).c_str());
        j["surfaces"][name] = ToJson(r);
    }
    printf("\n  library recall by roughening:");
    for (const auto& [name, r] : byDegradation) {
        printf("  %s %s", name.c_str(), Percent(r).c_str());
        j["roughening"][name] = ToJson(r);
    }
    printf("\n  library recall by frame size:");
    for (const auto& [name, r] : byFrame) {
        printf("  %s %s", name.c_str(), Percent(r).c_str());
        j["frame_sizes"][name] = ToJson(r);
    }
    printf("\n");

    // Recall against size, one line per tilt, for the plot.
    std::ofstream csv(o.outDir + "/recall_vs_size.csv");
    csv << "frame,input_px,tilt,codes,library,zxing,opencv\n";
    for (const auto& [key, r] : cells) {
        const auto [f, k, t] = key;
        csv << FrameName(kFrames[f]) << "," << stepSize[{f, k}] << "," << kTilts[t] << ","
            << r[kLibrary].total << "," << r[kLibrary].hit << "," << r[kZxing].hit << ","
            << r[kOpenCv].hit << "\n";
        curve.push_back({{"frame", FrameName(kFrames[f])},
                         {"input_px", stepSize[{f, k}]},
                         {"tilt", kTilts[t]},
                         {"recall", ToJson(r)}});
    }
    j["frames"] = frames;
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
