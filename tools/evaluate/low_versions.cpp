// Large codes of few modules: versions 1 to 4 from 150 input px up to the
// sweep's largest size. Their modules are far coarser than most codes of
// that size, so the slice shows whether the detector has learnt size from
// the symbol's outline or from its module count.
#include <cmath>
#include <cstdio>

#include "sweep_frame.h"
#include "sweep_layout.h"

namespace {

constexpr double kLeast = 150;    // input pixels
constexpr uint64_t kSalt = 7777;  // the slice's own seeds, apart from the sweep's

}  // namespace

void RunLowVersions(const Options& o, Detectors& det, const SweepSetting& fs,
                    LowVersionTally& tally) {
    const int sizes = o.quick ? 2 : 4;
    const int offsets = o.quick ? 1 : 2;
    for (int k = 0; k < sizes; ++k) {
        const double input = kLeast * std::pow(fs.largest / kLeast, double(k) / (sizes - 1));
        for (int version = 1; version <= 4; ++version) {
            for (int off = 0; off < offsets; ++off) {
                for (int t = 0; t < int(std::size(kSweepTilts)); ++t) {
                    const int surface = (k + version + off + t) % kSweepSurfaces;
                    SweepCase c{k, off, t, surface, offsets, input, ClearOfBand(input / fs.scale)};
                    c.salt = kSalt * version, c.version = version;
                    const SweepFrame frame = MakeSweepFrame(fs, c);
                    const Detections d = det.Run(frame.scene.frame);
                    ++tally.frames;
                    const CodeRecord r = Score(d, frame.scene.truths, fs.scale)[0];
                    for (int q = 0; q < kDetectorCount; ++q) tally.all[q].Add(r.found[q]);
                    const bool found = r.found[kLibrary];
                    tally.byVersion[VersionOf(frame.text.bytes)].Add(found);
                    tally.byTilt[kSweepTilts[t]].Add(found);
                    tally.byBand[r.band].Add(found);
                }
            }
        }
    }
}

nlohmann::ordered_json ReportLowVersions(const LowVersionTally& tally) {
    printf(
        "\n  large low-version codes: versions 1-4, 150 input px to the largest size, %d frames\n",
        tally.frames);
    PrintRatesHeader("slice");
    PrintRates("v1-4, >=150 px", tally.all);
    nlohmann::ordered_json j = {{"frames", tally.frames}, {"recall", ToJson(tally.all)}};
    printf("  library recall by version:");
    for (const auto& [v, r] : tally.byVersion) {
        printf("  %d %s", v, Percent(r).c_str());
        j["library_by_version"][std::to_string(v)] = ToJson(r);
    }
    printf("\n  library recall by tilt:");
    for (const auto& [t, r] : tally.byTilt) {
        printf("  %d %s", t, Percent(r).c_str());
        j["library_by_tilt"][std::to_string(t)] = ToJson(r);
    }
    printf("\n  library recall by size band:");
    for (const auto& [b, r] : tally.byBand) {
        printf("  %s %s", kSizeBands[b].name, Percent(r).c_str());
        j["library_by_band"][kSizeBands[b].name] = ToJson(r);
    }
    printf("\n");
    return j;
}
