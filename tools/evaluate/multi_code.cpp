// Several codes printed side by side on one sheet, with gaps from a tenth of
// a code width to a whole one: whether close codes are each found, and how
// many are lost because their box met a neighbour's.
#include <cmath>
#include <cstdio>
#include <map>

#include "evaluation.h"
#include "match.h"

namespace {

const double kSizes[] = {28, 44, 64, 96, 150};  // input pixels
const double kGaps[] = {0.1, 0.25, 0.5, 1.0};   // code widths
constexpr double kGoalSize = 40, kGoalGap = 0.25;

}  // namespace

nlohmann::ordered_json RunMulti(const Options& o, Detectors& det, const Backgrounds& bg) {
    std::vector<cv::Size> sizes = {{1280, 720}};
    if (!o.quick) sizes.push_back({1920, 1080});
    const int reps = o.quick ? 1 : 2;
    const Surface kSurfaces[] = {Surface::kPlain, Surface::kPaperOnDesk, Surface::kNatural};

    Rates all, goal;
    std::map<double, std::array<Rate, kSizeBands.size()>> byGap;  // library
    std::map<int, Rate> byCount;                                  // library
    int frames = 0, skipped = 0, missed = 0, lostToNeighbour = 0, merged = 0;
    for (const cv::Size size : sizes) {
        const double scale = InputScale(size.width, size.height);
        std::vector<cv::Mat> desks, natural;
        for (const cv::Mat& m : bg.desks) desks.push_back(CoverFrame(m, size + size / 8));
        for (const cv::Mat& m : bg.natural) natural.push_back(CoverFrame(m, size + size / 8));
        for (int rep = 0; rep < reps; ++rep)
            for (size_t si = 0; si < std::size(kSizes); ++si)
                for (size_t gi = 0; gi < std::size(kGaps); ++gi)
                    for (int n = 2; n <= 6; ++n) {
                        const float side = float(kSizes[si] / scale);
                        const float step = side * float(1 + kGaps[gi]);
                        const int rows = n <= 3 ? 1 : 2, cols = (n + rows - 1) / rows;
                        const float w = cols * step - step + side, h = rows * step - step + side;
                        const float lo = kEdgeBand + kFitMargin;
                        if (w > size.width - 2 * lo || h > size.height - 2 * lo) {
                            ++skipped;
                            continue;
                        }
                        const uint64_t seed = 7000003ull * (rep + 1) + 1009ull * si + 101ull * gi +
                                              7ull * n + size.width;
                        cv::RNG rng(seed);
                        const float x0 = float(rng.uniform(double(lo), size.width - lo - w + 1e-3));
                        const float y0 =
                            float(rng.uniform(double(lo), size.height - lo - h + 1e-3));
                        SceneSetup setup;
                        setup.frameSize = size;
                        setup.seed = seed;
                        setup.surface = kSurfaces[(si + gi + n + rep) % 3];
                        if (setup.surface == Surface::kPaperOnDesk && !desks.empty())
                            setup.background = &desks[rng.uniform(0, int(desks.size()))];
                        if (setup.surface == Surface::kNatural && !natural.empty())
                            setup.background = &natural[rng.uniform(0, int(natural.size()))];
                        setup.degradation =
                            Degradations()[(si + gi + n) % 2];  // clean or light blur
                        const float m = 0.3f * side;  // the sheet's margin around the codes
                        setup.sheets.push_back(
                            {cv::Point2f(x0 - m, y0 - m), cv::Point2f(x0 + w + m, y0 - m),
                             cv::Point2f(x0 + w + m, y0 + h + m), cv::Point2f(x0 - m, y0 + h + m)});
                        for (int i = 0; i < n; ++i) {
                            const float x = x0 + (i % cols) * step, y = y0 + (i / cols) * step;
                            CodePlacement c;
                            c.text = SampleText(seed * 8 + i);
                            c.quietModules = 0;  // the sheet is the quiet zone
                            c.corners = {cv::Point2f(x, y), cv::Point2f(x + side, y),
                                         cv::Point2f(x + side, y + side), cv::Point2f(x, y + side)};
                            setup.codes.push_back(c);
                        }
                        const Scene scene = RenderScene(setup);
                        const Detections d = det.Run(scene.frame);
                        ++frames;
                        const std::vector<CodeRecord> records = Score(d, scene.truths, scale);
                        for (size_t t = 0; t < records.size(); ++t) {
                            const CodeRecord& r = records[t];
                            const bool inGoal = r.inputSize >= kGoalSize && kGaps[gi] >= kGoalGap;
                            for (int q = 0; q < kDetectorCount; ++q) {
                                all[q].Add(r.found[q]);
                                if (inGoal) goal[q].Add(r.found[q]);
                            }
                            byGap[kGaps[gi]][r.band].Add(r.found[kLibrary]);
                            byCount[n].Add(r.found[kLibrary]);
                            if (r.found[kLibrary]) continue;
                            // Lost to its neighbours: found when drawn alone on
                            // the same background, sheet and place.
                            ++missed;
                            SceneSetup alone = setup;
                            alone.codes = {setup.codes[t]};
                            const Scene single = RenderScene(alone);
                            const Detections ds = det.Run(single.frame, false);
                            if (MatchBoxes(single.truths, ds.boxes[kLibrary])[0] >= 0) {
                                ++lostToNeighbour;
                                merged += RunTogether(d.library.survivors, scene.truths, t);
                            }
                        }
                    }
    }

    nlohmann::ordered_json j;
    printf(
        "\nMULTI-CODE: %d frames of 2 to 6 codes side by side on one sheet (%s), gaps 0.1 to 1 "
        "code width, sizes 28 to 150 input px\n",
        frames, o.quick ? "1280x720" : "1280x720, 1920x1080");
    PrintRatesHeader("codes");
    PrintRates("all", all);
    PrintRates(">=40px, gap>=0.25", goal);
    printf("  library recall by gap (rows) and input size band (columns):\n  %-8s", "gap");
    for (const SizeBand& b : kSizeBands) printf(" %-17s", b.name);
    printf("\n");
    for (const auto& [gap, bands] : byGap) {
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
    for (const auto& [n, r] : byCount) {
        printf("  %d: %s", n, Percent(r).c_str());
        j["library_by_count"][std::to_string(n)] = ToJson(r);
    }
    printf(
        "\n  library misses: %d; lost to a neighbour (found when alone): %d, of which run "
        "together with one (a box over a quarter of both): %d\n",
        missed, lostToNeighbour, merged);
    j["frames"] = frames;
    j["layouts_too_large"] = skipped;
    j["all"] = ToJson(all);
    j["goal_cell"] = ToJson(goal);
    j["library_missed"] = missed;
    j["library_lost_to_neighbour"] = lostToNeighbour;
    j["library_merged_with_neighbour"] = merged;
    return j;
}
