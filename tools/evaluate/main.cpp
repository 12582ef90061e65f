// Where the detector finds codes and where it fails, with the library run as
// a user runs it (Init, Process, DeInit, the reference adapter and a model
// file), side by side with zxing-cpp and OpenCV on the same frames.
//
//   evaluate [--quick] [--model FILE] [--json FILE] [--out DIR] [--photos DIR]
//            [--negatives PICTURE...]
//
// Parts: a sweep of rendered codes with exact truth, the real photos, frames
// of several close codes, false boxes on QR-free pictures, decoding of the
// straightened code the library hands back, and speed. Every frame is drawn
// from fixed seeds, so the figures are the same run to run (times aside).
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "evaluation.h"

namespace {

void Usage() {
    fprintf(stderr,
            "usage: evaluate [--quick] [--model FILE] [--json FILE] [--out DIR] [--photos DIR]\n"
            "                [--boxes FILE] [--negatives PICTURE...]\n"
            "  --boxes FILE  the library's boxes of every frame, a line a frame\n");
}

void PrintDecode(const char* what, const DecodeTally& d) {
    printf(
        "  %-8s one-code frames %d, straightened %d, of those read right by zxing-cpp %d "
        "(before straightening %d)\n",
        what, d.oneCode, d.straightened, d.decoded, d.decodedBefore);
}

// False on a bad command line.
bool ParseArgs(int argc, char** argv, Options& o) {
    bool negatives = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        const bool hasValue = i + 1 < argc;
        std::string* value = a == "--model"    ? &o.model
                             : a == "--json"   ? &o.json
                             : a == "--boxes"  ? &o.boxes
                             : a == "--out"    ? &o.outDir
                             : a == "--photos" ? &o.photos
                                               : nullptr;
        if (a == "--quick") {
            o.quick = true, negatives = false;
        } else if (value != nullptr && hasValue) {
            *value = argv[++i], negatives = false;
        } else if (a == "--negatives") {
            negatives = true;
        } else if (negatives && a.rfind("--", 0) != 0) {
            o.negatives.push_back(a);
        } else {
            return false;
        }
    }
    return true;
}

// What the figures were taken with.
nlohmann::ordered_json Setup(const Options& o, const Backgrounds& bg) {
    nlohmann::ordered_json j;
    j["mode"] = o.quick ? "quick" : "full";
    j["model"] = o.model.empty() ? "configured default" : o.model;
    for (const SizeBand& b : kSizeBands)
        j["size_bands"].push_back(
            {{"name", b.name},
             {"lo", b.lo},
             {"hi", b.hi >= 1e9 ? nlohmann::ordered_json() : nlohmann::ordered_json(b.hi)}});
    j["found_rule"] =
        "IoU >= 0.5 with the truth box; one box per code, best IoU first; library "
        "boxes must clear its " +
        std::to_string(kEdgeBand) + " px edge band, the peers have none";
    j["backgrounds"] = {{"desks", bg.deskNames}, {"natural", bg.naturalNames}};
    return j;
}

// The detector's goals in one place, for the training log and the READMEs.
// A part that had nothing to run (no photos, no pictures) scores 0.
nlohmann::ordered_json Goals(const nlohmann::ordered_json& j) {
    const auto at = [](const nlohmann::ordered_json& parent, const char* key) {
        static const nlohmann::ordered_json kNone;
        return parent.is_object() && parent.contains(key) ? parent[key] : kNone;
    };
    const auto number = [](const nlohmann::ordered_json& v) {
        return v.is_number() ? v.get<double>() : 0.0;
    };
    const auto recall = [&](const nlohmann::ordered_json& rate) {
        return number(at(rate, "recall"));
    };
    const char* library = kDetectorNames[kLibrary];
    const auto& cells = at(at(j, "sweep"), "goal_cells");
    return {{"sweep_recall_40up_tilt45", recall(at(cells, "recall_40up_tilt45"))},
            {"sweep_recall_24_40", recall(at(cells, "recall_24_40"))},
            {"sweep_recall_40up_tilt60", recall(at(cells, "recall_40up_tilt60"))},
            {"multi_recall_40up_gap25", recall(at(at(at(j, "multi_code"), "goal_cell"), library))},
            {"photos_recall", recall(at(at(at(j, "photos"), "all"), library))},
            {"box_median_iou_40up", number(at(cells, "median_iou_40up"))},
            {"box_median_size_error_40up", number(at(cells, "median_size_error_40up"))},
            {"false_boxes_per_natural_frame",
             number(at(at(at(j, "false_boxes"), library), "per_frame"))},
            {"process_vs_zxing_720p", number(at(at(at(j, "speed"), "1280x720"), "ratio"))},
            {"process_vs_zxing_1080p", number(at(at(at(j, "speed"), "1920x1080"), "ratio"))}};
}

// Runs every part; the figures as JSON.
nlohmann::ordered_json Evaluate(const Options& o, Detectors& det) {
    const Backgrounds bg = LoadBackgrounds(o.quick);
    DecodeTally sweepDecode, photoDecode;
    std::vector<SheetCase> misses, falses;
    nlohmann::ordered_json j = Setup(o, bg);
    j["sweep"] = RunSweep(o, det, bg, sweepDecode, misses);
    j["photos"] = RunPhotos(o, det, photoDecode);
    j["multi_code"] = RunMulti(o, det, bg);
    j["false_boxes"] = RunFalseBoxes(o, det, falses);
    printf(
        "\nDECODING the straightened code the library hands back (zxing-cpp; same bytes, or same "
        "text with CRLF as LF and trailing whitespace dropped)\n");
    PrintDecode("sweep", sweepDecode);
    PrintDecode("photos", photoDecode);
    j["decoding"] = {{"sweep", ToJson(sweepDecode)}, {"photos", ToJson(photoDecode)}};
    j["speed"] = RunSpeed(o, det, bg);
    j["goals"] = Goals(j);
    printf("\nGOALS (library):");
    for (const auto& [name, value] : j["goals"].items())
        printf(" %s %.3f;", name.c_str(), value.get<double>());
    printf("\n");
    const int mismatches = det.library().countMismatches();
    j["count_line_mismatches"] = mismatches;
    printf(
        "\nframes where the library's count of kept boxes disagreed with the boxes read as clear "
        "of the edge band: %d\n",
        mismatches);
    WriteContactSheet(
        o.outDir + "/worst_cases.png",
        {{"worst misses (largest codes not found): truth blue, kept boxes green, "
          "edge band red",
          &misses},
         {"worst false boxes (most per frame): kept boxes green, edge band red", &falses}});
    return j;
}

}  // namespace

int main(int argc, char** argv) {
    Options o;
    if (!ParseArgs(argc, argv, o)) {
        Usage();
        return 2;
    }
    if (!o.model.empty() && !std::filesystem::is_regular_file(o.model)) {
        fprintf(stderr, "no model file %s\n", o.model.c_str());
        return 2;
    }
    std::error_code ec;
    std::filesystem::create_directories(o.outDir, ec);
    if (ec) {
        fprintf(stderr, "cannot create %s (%s)\n", o.outDir.c_str(), ec.message().c_str());
        return 2;
    }
    const auto start = std::chrono::steady_clock::now();
    try {
        Detectors det(o.model.empty() ? "" : std::filesystem::absolute(o.model).string());
        if (!o.boxes.empty() && !det.ListBoxesTo(o.boxes)) {
            fprintf(stderr, "cannot write %s\n", o.boxes.c_str());
            return 2;
        }
        nlohmann::ordered_json j = Evaluate(o, det);
        const double seconds =
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
        j["seconds"] = seconds;
        printf("\nwrote %s/recall_vs_size.csv, %s/worst_cases.png, %s/false_boxes.png; %.0f s\n",
               o.outDir.c_str(), o.outDir.c_str(), o.outDir.c_str(), seconds);
        if (!o.json.empty()) {
            std::ofstream(o.json) << j.dump(2) << "\n";
            printf("wrote %s\n", o.json.c_str());
        }
    } catch (const scancode::Error& e) {
        fprintf(stderr, "evaluate: %s\n", e.what());
        return 1;
    }
    return 0;
}
