// One code per frame with exact truth, swept over size, position within the
// detector's cells, tilt, surface and roughening, at four frame sizes.
#include <cmath>
#include <cstdio>
#include <fstream>
#include <map>

#include "match.h"
#include "sweep_frame.h"
#include "sweep_layout.h"

namespace {

constexpr double kSmallest = 16;  // input pixels

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

    void Add(const std::vector<cv::Rect2f>& truths, const Detections& d, const CodeRecord& r);
};

void Tally::Add(const std::vector<cv::Rect2f>& truths, const Detections& d, const CodeRecord& r) {
    for (int q = 0; q < kDetectorCount; ++q) rates[q].Add(r.found[q]);
    if (r.found[kLibrary]) {
        iou.push_back(r.iou);
        sizeError.push_back(r.sizeError);
    } else if (MatchBoxes(truths, d.library.survivors)[0] >= 0) {
        ++inEdgeBand;
    } else if (MatchBoxes(truths, d.library.survivors, 0.1f)[0] >= 0) {
        ++poorBox;
    } else {
        ++noBox;
    }
}

double StepSize(const SweepSetting& fs, int step, int steps) {
    return kSmallest * std::pow(fs.largest / kSmallest, double(step) / (steps - 1));
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
    Tally oldLargest;  // run 4's largest size, tallied apart from the rest
    std::map<std::string, double> largest, oldLargestSize;  // frame -> input px
    LowVersionTally lowVersions;

    void Add(const SweepSetting& fs, const SweepCase& c, const SweepFrame& frame,
             const Detections& d, const CodeRecord& r, std::vector<SheetCase>& misses);
};

void SweepTally::Add(const SweepSetting& fs, const SweepCase& c, const SweepFrame& frame,
                     const Detections& d, const CodeRecord& r, std::vector<SheetCase>& misses) {
    const std::vector<cv::Rect2f>& truths = frame.scene.truths;
    bands[r.band].Add(truths, d, r);
    const int tilt = kSweepTilts[c.tilt];
    for (int q = 0; q < kDetectorCount; ++q) {
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
    if (!found && Worthy(misses, r.inputSize)) {
        char label[96];
        snprintf(label, sizeof label, "%s %.0fpx tilt %d %s", FrameName(fs.size).c_str(),
                 r.inputSize, tilt, SurfaceName(frame.setup.surface));
        Keep(misses, {Tile(frame.scene.frame, truths, d.library, label), label, r.inputSize});
    }
    bySurface[SurfaceName(frame.setup.surface)].Add(found);
    byDegradation[frame.setup.degradation.name].Add(found);
    byFrame[FrameName(fs.size)].Add(found);
}

// Calls `each` with every case of one size step: offsets, tilts and
// surfaces (one surface per case in turn in quick runs).
template <typename Each>
void ForEachCase(const Options& o, int step, int offsets, double input, double clear, Each each) {
    for (int off = 0; off < offsets; ++off)
        for (int t = 0; t < int(std::size(kSweepTilts)); ++t)
            for (int su = 0; su < kSweepSurfaces; ++su) {
                if (o.quick && su != (step + off + t) % kSweepSurfaces) continue;
                each(SweepCase{step, off, t, su, offsets, input, clear});
            }
}

// Runs every case of one frame size through the detectors into `tally`,
// then run 4's largest size again on the very frames run 4 drew for it.
void RunFrameSize(const Options& o, Detectors& det, const SweepSetting& fs, int steps, int offsets,
                  SweepTally& tally, DecodeTally& decode, std::vector<SheetCase>& misses) {
    for (int k = 0; k < steps; ++k) {
        const double input = StepSize(fs, k, steps);
        tally.stepSize[{fs.index, k}] = input;
        ForEachCase(o, k, offsets, input, ClearOfBand(input / fs.scale), [&](const SweepCase& c) {
            const SweepFrame frame = MakeSweepFrame(fs, c);
            const Detections d = det.Run(frame.scene.frame);
            ++tally.frames;
            const CodeRecord r = Score(d, frame.scene.truths, fs.scale)[0];
            CheckDecode(d, frame.scene.truths[0], frame.text.bytes, frame.text.text, decode);
            tally.Add(fs, c, frame, d, r, misses);
        });
    }
    ForEachCase(o, steps - 1, offsets, fs.oldLargest, kFitMargin, [&](const SweepCase& c) {
        const SweepFrame frame = MakeSweepFrame(fs, c);
        const Detections d = det.Run(frame.scene.frame);
        tally.oldLargest.Add(frame.scene.truths, d, Score(d, frame.scene.truths, fs.scale)[0]);
    });
}

nlohmann::ordered_json OrNull(const std::vector<double>& v) {
    return v.empty() ? nlohmann::ordered_json() : nlohmann::ordered_json(Median(v));
}

// One row of the size table: recall, the library's box accuracy and its
// misses by cause, printed and as JSON.
nlohmann::ordered_json ReportRow(const std::string& label, const Tally& t) {
    char extra[96];
    snprintf(extra, sizeof extra, "%s | %d, %d, %d",
             t.iou.empty()
                 ? "-"
                 : cv::format("%.2f, %+5.1f %%", Median(t.iou), 100 * Median(t.sizeError)).c_str(),
             t.inEdgeBand, t.poorBox, t.noBox);
    PrintRates(label, t.rates, extra);
    nlohmann::ordered_json row;
    row["recall"] = ToJson(t.rates);
    row["library_misses"] = {
        {"box_in_edge_band", t.inEdgeBand}, {"poor_box", t.poorBox}, {"no_box", t.noBox}};
    row["library_median_iou"] = OrNull(t.iou);
    row["library_median_size_error"] = OrNull(t.sizeError);
    return row;
}

// Recall by size band, then run 4's largest size apart.
nlohmann::ordered_json ReportBands(const SweepTally& tally, nlohmann::ordered_json& j) {
    PrintRatesHeader("input size (px)",
                     "lib. median IoU, size err | misses: edge band, poor box, none");
    nlohmann::ordered_json rows;
    for (size_t b = 0; b < kSizeBands.size(); ++b) {
        nlohmann::ordered_json row = {
            {"band", kSizeBands[b].name},
            {"lo", kSizeBands[b].lo},
            {"hi", kSizeBands[b].hi >= 1e9 ? nlohmann::ordered_json()
                                           : nlohmann::ordered_json(kSizeBands[b].hi)}};
        row.update(ReportRow(kSizeBands[b].name, tally.bands[b]));
        rows.push_back(row);
    }
    nlohmann::ordered_json old = ReportRow("old largest", tally.oldLargest);
    printf("  largest size (input px), clear of the band by 5 %% of its side: ");
    for (const auto& [frame, px] : tally.largest) {
        printf(" %s %.0f;", frame.c_str(), px);
        j["largest_input_px"][frame] = px;
    }
    printf("\n  old largest (not in the bands above; 8 frame px clear, run 4's frames):");
    for (const auto& [frame, px] : tally.oldLargestSize) {
        printf(" %s %.0f;", frame.c_str(), px);
        old["input_px"][frame] = px;
    }
    printf("\n");
    j["old_largest"] = old;
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
        csv << FrameName(kSweepFrames[f]) << "," << input << "," << kSweepTilts[t] << ","
            << r[kLibrary].total << "," << r[kLibrary].hit << "," << r[kZxing].hit << ","
            << r[kOpenCv].hit << "\n";
        curve.push_back({{"frame", FrameName(kSweepFrames[f])},
                         {"input_px", input},
                         {"tilt", kSweepTilts[t]},
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
    j["bands"] = ReportBands(tally, j);
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
    j["large_low_version"] = ReportLowVersions(tally.lowVersions);
    return j;
}

}  // namespace

nlohmann::ordered_json RunSweep(const Options& o, Detectors& det, const Backgrounds& bg,
                                DecodeTally& decode, std::vector<SheetCase>& misses) {
    const int steps = o.quick ? 12 : 14;
    const int offsets = o.quick ? 6 : 8;
    SweepTally tally;
    for (int f = 0; f < int(std::size(kSweepFrames)); ++f) {
        const SweepSetting fs = SweepSettingFor(f, bg);
        tally.largest[FrameName(fs.size)] = fs.largest;
        tally.oldLargestSize[FrameName(fs.size)] = fs.oldLargest;
        RunFrameSize(o, det, fs, steps, offsets, tally, decode, misses);
        RunLowVersions(o, det, fs, tally.lowVersions);
        fprintf(stderr, "sweep: %s done, %d frames so far\n", FrameName(kSweepFrames[f]).c_str(),
                tally.frames);
    }
    return ReportSweep(o, steps, offsets, tally);
}
