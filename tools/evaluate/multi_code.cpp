// Several codes printed side by side on one sheet, with gaps from a tenth of
// a code width to a whole one, and tight grids (2 x 2 and 3 x 2) with gaps
// of a twentieth to a quarter width, as on a sheet of labels: whether close
// codes are each found, and how many are lost because their box met a
// neighbour's.
#include <cmath>
#include <cstdio>
#include <map>

#include "evaluation.h"
#include "match.h"

namespace {

const double kSizes[] = {28, 44, 64, 96, 150};  // input pixels
const double kGaps[] = {0.1, 0.25, 0.5, 1.0};   // code widths
constexpr double kGoalSize = 40, kGoalGap = 0.25;
const Surface kSurfaces[] = {Surface::kPlain, Surface::kPaperOnDesk, Surface::kNatural};
const double kGridSizes[] = {40, 56, 80, 120};            // input pixels
const double kGridGaps[] = {0.05, 0.1, 0.15, 0.2, 0.25};  // code widths
constexpr uint64_t kGridSalt = 3000017;  // the grids' own seeds, apart from the rows'

// One frame size: its backgrounds, cut a little larger than the frame.
struct FrameSetting {
    cv::Size size;
    double scale;  // input px per frame px
    std::vector<cv::Mat> desks, natural;
};

FrameSetting SettingFor(cv::Size size, const Backgrounds& bg) {
    FrameSetting fs{size, InputScale(size.width, size.height), {}, {}};
    for (const cv::Mat& m : bg.desks) fs.desks.push_back(CoverFrame(m, size + size / 8));
    for (const cv::Mat& m : bg.natural) fs.natural.push_back(CoverFrame(m, size + size / 8));
    return fs;
}

// One layout: `n` codes of `size` input px, `cols` to a row, `gap` code
// widths apart, in repetition `rep`; si and gi (the size's and gap's places
// in their lists) and salt seed it.
struct Layout {
    int rep;
    size_t si, gi;
    int n;
    double size, gap;
    int cols;
    uint64_t salt = 0;
};

// The scene of a layout, seeded by it; false when the layout does not fit
// inside the edge band.
bool MakeSetup(const FrameSetting& fs, const Layout& l, SceneSetup& setup) {
    const cv::Size size = fs.size;
    const float side = float(l.size / fs.scale);
    const float step = side * float(1 + l.gap);
    const int cols = l.cols, rows = (l.n + cols - 1) / cols;
    const float w = cols * step - step + side, h = rows * step - step + side;
    const float lo = kEdgeBand + kFitMargin;
    if (w > size.width - 2 * lo || h > size.height - 2 * lo) return false;
    const uint64_t seed = 7000003ull * (l.rep + 1) + 1009ull * l.si + 101ull * l.gi + 7ull * l.n +
                          size.width + l.salt;
    cv::RNG rng(seed);
    const float x0 = float(rng.uniform(double(lo), size.width - lo - w + 1e-3));
    const float y0 = float(rng.uniform(double(lo), size.height - lo - h + 1e-3));
    setup.frameSize = size;
    setup.seed = seed;
    setup.surface = kSurfaces[(l.si + l.gi + l.n + l.rep) % 3];
    if (setup.surface == Surface::kPaperOnDesk && !fs.desks.empty())
        setup.background = &fs.desks[rng.uniform(0, int(fs.desks.size()))];
    if (setup.surface == Surface::kNatural && !fs.natural.empty())
        setup.background = &fs.natural[rng.uniform(0, int(fs.natural.size()))];
    setup.degradation = Degradations()[(l.si + l.gi + l.n) % 2];  // clean or light blur
    const float m = 0.3f * side;  // the sheet's margin around the codes
    setup.sheets.push_back({cv::Point2f(x0 - m, y0 - m), cv::Point2f(x0 + w + m, y0 - m),
                            cv::Point2f(x0 + w + m, y0 + h + m), cv::Point2f(x0 - m, y0 + h + m)});
    for (int i = 0; i < l.n; ++i) {
        const float x = x0 + (i % cols) * step, y = y0 + (i / cols) * step;
        CodePlacement c;
        c.text = SampleText(seed * 8 + i);
        c.quietModules = 0;  // the sheet is the quiet zone
        c.corners = {cv::Point2f(x, y), cv::Point2f(x + side, y), cv::Point2f(x + side, y + side),
                     cv::Point2f(x, y + side)};
        setup.codes.push_back(c);
    }
    return true;
}

struct MultiTally {
    Rates all, goal;
    std::map<double, std::array<Rate, kSizeBands.size()>> byGap;  // library
    std::map<int, Rate> byCount;                                  // library
    std::map<double, Rates> gapRates;
    std::map<double, int> lostByGap, mergedByGap;  // library
    int frames = 0, skipped = 0, missed = 0, lostToNeighbour = 0, merged = 0;
};

// Runs one layout's frame and tallies its codes; a code the library missed
// is drawn alone on the same frame to tell whether a neighbour cost it.
void RunLayout(Detectors& det, const FrameSetting& fs, const Layout& l, MultiTally& tally) {
    SceneSetup setup;
    if (!MakeSetup(fs, l, setup)) {
        ++tally.skipped;
        return;
    }
    const Scene scene = RenderScene(setup);
    const Detections d = det.Run(scene.frame);
    ++tally.frames;
    const std::vector<CodeRecord> records = Score(d, scene.truths, fs.scale);
    for (size_t t = 0; t < records.size(); ++t) {
        const CodeRecord& r = records[t];
        const bool inGoal = r.inputSize >= kGoalSize && l.gap >= kGoalGap;
        for (int q = 0; q < kDetectorCount; ++q) {
            tally.all[q].Add(r.found[q]);
            if (inGoal) tally.goal[q].Add(r.found[q]);
        }
        tally.byGap[l.gap][r.band].Add(r.found[kLibrary]);
        for (int q = 0; q < kDetectorCount; ++q) tally.gapRates[l.gap][q].Add(r.found[q]);
        tally.byCount[l.n].Add(r.found[kLibrary]);
        if (r.found[kLibrary]) continue;
        ++tally.missed;
        SceneSetup alone = setup;
        alone.codes = {setup.codes[t]};
        const Scene single = RenderScene(alone);
        const Detections ds = det.Run(single.frame, false);
        if (MatchBoxes(single.truths, ds.boxes[kLibrary])[0] >= 0) {
            const bool together = RunTogether(d.library.survivors, scene.truths, t);
            ++tally.lostToNeighbour, ++tally.lostByGap[l.gap];
            tally.merged += together, tally.mergedByGap[l.gap] += together;
        }
    }
}

nlohmann::ordered_json Report(const Options& o, const MultiTally& tally) {
    nlohmann::ordered_json j;
    printf(
        "\nMULTI-CODE: %d frames of 2 to 6 codes side by side on one sheet (%s), gaps 0.1 to 1 "
        "code width, sizes 28 to 150 input px\n",
        tally.frames, o.quick ? "1280x720" : "1280x720, 1920x1080");
    PrintRatesHeader("codes");
    PrintRates("all", tally.all);
    PrintRates(">=40px, gap>=0.25", tally.goal);
    printf("  library recall by gap (rows) and input size band (columns):\n  %-8s", "gap");
    for (const SizeBand& b : kSizeBands) printf(" %-17s", b.name);
    printf("\n");
    for (const auto& [gap, bands] : tally.byGap) {
        printf("  %-8.2f", gap);
        nlohmann::ordered_json row = {{"gap", gap}};
        for (size_t b = 0; b < kSizeBands.size(); ++b) {
            printf(" %-17s", Percent(bands[b]).c_str());
            if (bands[b].total) row["bands"][kSizeBands[b].name] = ToJson(bands[b]);
        }
        printf("\n");
        j["library_by_gap"].push_back(row);
    }
    printf("  library recall by codes per frame:");
    for (const auto& [n, r] : tally.byCount) {
        printf("  %d: %s", n, Percent(r).c_str());
        j["library_by_count"][std::to_string(n)] = ToJson(r);
    }
    printf(
        "\n  library misses: %d; lost to a neighbour (found when alone): %d, of which run "
        "together with one (a box over a quarter of both): %d\n",
        tally.missed, tally.lostToNeighbour, tally.merged);
    j["frames"] = tally.frames;
    j["layouts_too_large"] = tally.skipped;
    j["all"] = ToJson(tally.all);
    j["goal_cell"] = ToJson(tally.goal);
    j["library_missed"] = tally.missed;
    j["library_lost_to_neighbour"] = tally.lostToNeighbour;
    j["library_merged_with_neighbour"] = tally.merged;
    return j;
}

// The tight grids, by gap: recall of each detector and the library's
// codes lost to a neighbour.
nlohmann::ordered_json ReportGrids(const Options& o, const MultiTally& tally) {
    printf(
        "\n  tight grids: %d frames of 2 x 2 and 3 x 2 codes (%s), gaps 0.05 to 0.25 code width, "
        "sizes 40 to 120 input px (%d layouts too large for the frame left out)\n",
        tally.frames, o.quick ? "1280x720, every other size" : "1280x720, 1920x1080",
        tally.skipped);
    PrintRatesHeader("gap (widths)", "library lost to a neighbour, run together");
    nlohmann::ordered_json j;
    for (const auto& [gap, rates] : tally.gapRates) {
        const int lost = tally.lostByGap.count(gap) ? tally.lostByGap.at(gap) : 0;
        const int merged = tally.mergedByGap.count(gap) ? tally.mergedByGap.at(gap) : 0;
        PrintRates(cv::format("%.2f", gap), rates, cv::format("%d, %d", lost, merged));
        nlohmann::ordered_json row = {{"gap", gap}, {"recall", ToJson(rates)}};
        row["library_lost_to_neighbour"] = lost;
        row["library_merged_with_neighbour"] = merged;
        j["by_gap"].push_back(row);
    }
    PrintRates("all", tally.all);
    j["frames"] = tally.frames;
    j["layouts_too_large"] = tally.skipped;
    j["all"] = ToJson(tally.all);
    return j;
}

}  // namespace

nlohmann::ordered_json RunMulti(const Options& o, Detectors& det, const Backgrounds& bg) {
    std::vector<cv::Size> sizes = {{1280, 720}};
    if (!o.quick) sizes.push_back({1920, 1080});
    const int reps = o.quick ? 1 : 2;
    MultiTally rows, grids;
    for (const cv::Size size : sizes) {
        const FrameSetting fs = SettingFor(size, bg);
        for (int rep = 0; rep < reps; ++rep) {
            for (size_t si = 0; si < std::size(kSizes); ++si)
                for (size_t gi = 0; gi < std::size(kGaps); ++gi)
                    for (int n = 2; n <= 6; ++n)
                        RunLayout(det, fs,
                                  {rep, si, gi, n, kSizes[si], kGaps[gi], n <= 3 ? n : (n + 1) / 2},
                                  rows);
            // Quick runs take every other grid size, in turn over the gaps.
            for (size_t si = 0; si < std::size(kGridSizes); ++si)
                for (size_t gi = 0; gi < std::size(kGridGaps); ++gi)
                    for (const int cols : {2, 3}) {
                        if (o.quick && (si + gi) % 2) continue;
                        RunLayout(
                            det, fs,
                            {rep, si, gi, 2 * cols, kGridSizes[si], kGridGaps[gi], cols, kGridSalt},
                            grids);
                    }
        }
    }
    nlohmann::ordered_json j = Report(o, rows);
    j["grids"] = ReportGrids(o, grids);
    return j;
}
