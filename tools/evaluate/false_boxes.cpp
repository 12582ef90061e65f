// Pictures without codes, scaled and cut into frames of several sizes and
// mirrored: every box kept there is a false box.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>

#include <opencv2/imgproc.hpp>

#include "evaluation.h"

namespace {

struct Variant {
    const char* name;
    cv::Size size;
    double zoom;  // 0: the whole picture fitted into the frame at 60 %, grey around
};

const Variant kVariants[] = {{"1280x720", {1280, 720}, 1.0},
                             {"1920x1080 x1.6", {1920, 1080}, 1.6},
                             {"720x1280", {720, 1280}, 1.0},
                             {"1280x960 fitted", {1280, 960}, 0.0}};

cv::Mat Fitted(const cv::Mat& picture, cv::Size size) {
    const double k =
        0.6 * std::min(double(size.width) / picture.cols, double(size.height) / picture.rows);
    cv::Mat scaled;
    cv::resize(picture, scaled, cv::Size(), k, k, k < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    cv::Mat frame(size, CV_8UC3, cv::Scalar(128, 128, 128));
    scaled.copyTo(frame(cv::Rect((size.width - scaled.cols) / 2, (size.height - scaled.rows) / 2,
                                 scaled.cols, scaled.rows)));
    return frame;
}

// One QR-free frame: a picture in one framing, maybe mirrored.
cv::Mat MakeFrame(const cv::Mat& picture, const Variant& var, bool mirror) {
    cv::Mat frame = var.zoom > 0 ? CoverFrame(picture, var.size, var.zoom, {0.3f, 0.6f}, mirror)
                                 : Fitted(picture, var.size);
    if (var.zoom == 0 && mirror) cv::flip(frame, frame, 1);
    return frame;
}

struct FalseTally {
    std::array<int, kDetectorCount> boxes{};
    std::map<std::string, int> byPicture;  // library boxes
    std::map<std::string, int> byVariant;
    int frames = 0;
    nlohmann::ordered_json listed = nlohmann::ordered_json::array();  // frames with a library box
    std::vector<SheetCase> worst, every;

    void Add(const std::string& name, const Variant& var, bool mirror, const cv::Mat& frame,
             const Detections& d);
};

void FalseTally::Add(const std::string& name, const Variant& var, bool mirror, const cv::Mat& frame,
                     const Detections& d) {
    ++frames;
    for (int q = 0; q < kDetectorCount; ++q) boxes[q] += int(d.boxes[q].size());
    const int n = int(d.library.kept.size());
    byPicture[name] += n;
    byVariant[var.name] += n;
    if (n == 0) return;
    const std::string framing = std::string(var.name) + (mirror ? " mirrored" : "");
    nlohmann::ordered_json rects = nlohmann::ordered_json::array();
    double largest = 0;
    for (const cv::Rect2f& b : d.library.kept) {
        rects.push_back(
            {std::lround(b.x), std::lround(b.y), std::lround(b.width), std::lround(b.height)});
        largest = std::max(largest, double(b.area()));
    }
    listed.push_back({{"picture", name}, {"framing", framing}, {"boxes", n}, {"xywh", rects}});
    // The frame with the most boxes first; among equals, the largest box.
    const double severity = n + largest / (double(frame.cols) * frame.rows);
    // Short enough to fit a tile: the picture's stem and "mir." for mirrored.
    const std::string label = std::filesystem::path(name).stem().string() + " " + var.name +
                              (mirror ? " mir." : "") + " x" + std::to_string(n);
    SheetCase c{Tile(frame, {}, d.library, label), label, severity};
    every.push_back(c);
    Keep(worst, std::move(c));
}

// Boxes per frame for each detector, the library's worst pictures and every
// frame where it kept a box.
nlohmann::ordered_json Report(const Options& o, const FalseTally& t) {
    nlohmann::ordered_json j;
    printf("\nFALSE BOXES: %d frames from %zu QR-free pictures (%s, each also mirrored)\n",
           t.frames, t.byPicture.size(),
           o.quick ? "1280x720 cover"
                   : "1280x720, 1920x1080 zoomed 1.6, 720x1280, 1280x960 fitted at 60 %");
    for (int q = 0; q < kDetectorCount; ++q) {
        const double per = t.frames ? double(t.boxes[q]) / t.frames : 0.0;
        printf("  %-10s %4d boxes, %.3f per frame\n", kDetectorNames[q], t.boxes[q], per);
        j[kDetectorNames[q]] = {{"boxes", t.boxes[q]}, {"per_frame", per}};
    }
    std::vector<std::pair<std::string, int>> worst(t.byPicture.begin(), t.byPicture.end());
    std::stable_sort(worst.begin(), worst.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    printf("  library's worst pictures:");
    for (size_t i = 0; i < worst.size() && i < 10 && worst[i].second > 0; ++i) {
        printf(" %s %d;", worst[i].first.c_str(), worst[i].second);
        j["worst_pictures"].push_back({{"picture", worst[i].first}, {"boxes", worst[i].second}});
    }
    printf("\n  library boxes by framing:");
    for (const auto& [name, n] : t.byVariant) printf(" %s %d;", name.c_str(), n);
    printf("\n  frames where the library kept a box (%zu; boxes x y w h in frame px):\n",
           t.listed.size());
    for (const auto& f : t.listed) {
        printf("    %-28s %-24s %d:", f["picture"].get<std::string>().c_str(),
               f["framing"].get<std::string>().c_str(), f["boxes"].get<int>());
        for (const auto& r : f["xywh"])
            printf(" %d %d %d %d;", r[0].get<int>(), r[1].get<int>(), r[2].get<int>(),
                   r[3].get<int>());
        printf("\n");
    }
    j["frames"] = t.frames;
    j["pictures"] = t.byPicture.size();
    j["library_by_framing"] = t.byVariant;
    j["library_frames_with_boxes"] = t.listed;
    return j;
}

}  // namespace

nlohmann::ordered_json RunFalseBoxes(const Options& o, Detectors& det,
                                     std::vector<SheetCase>& falses) {
    const int variants = o.quick ? 1 : int(std::size(kVariants));
    FalseTally tally;
    for (const std::string& path : o.negatives) {
        const cv::Mat picture = ReadPicture(path);
        if (picture.empty()) continue;
        const std::string name = std::filesystem::path(path).filename().string();
        tally.byPicture[name] += 0;
        for (int v = 0; v < variants; ++v)
            for (const bool mirror : {false, true}) {
                const cv::Mat frame = MakeFrame(picture, kVariants[v], mirror);
                tally.Add(name, kVariants[v], mirror, frame, det.Run(frame));
            }
    }
    falses = tally.worst;
    WriteContactSheet(o.outDir + "/false_boxes.png",
                      {{"every QR-free frame where the library kept a box: kept boxes green, "
                        "edge band red",
                        &tally.every}});
    return Report(o, tally);
}
