// Pictures without codes, scaled and cut into frames of several sizes and
// mirrored: every box kept there is a false box.
#include <algorithm>
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

}  // namespace

nlohmann::ordered_json RunFalseBoxes(const Options& o, Detectors& det,
                                     std::vector<SheetCase>& falses) {
    const int variants = o.quick ? 1 : int(std::size(kVariants));
    std::array<int, kDetectorCount> boxes{};
    std::map<std::string, int> byPicture;  // library boxes
    std::map<std::string, int> byVariant;
    int frames = 0;
    for (const std::string& path : o.negatives) {
        const cv::Mat picture = ReadPicture(path);
        if (picture.empty()) continue;
        const std::string name = std::filesystem::path(path).filename().string();
        byPicture[name] += 0;
        for (int v = 0; v < variants; ++v) {
            for (int mirror = 0; mirror < 2; ++mirror) {
                const Variant& var = kVariants[v];
                cv::Mat frame = var.zoom > 0
                                    ? CoverFrame(picture, var.size, var.zoom, {0.3f, 0.6f}, mirror)
                                    : Fitted(picture, var.size);
                if (var.zoom == 0 && mirror) cv::flip(frame, frame, 1);
                const Detections d = det.Run(frame);
                ++frames;
                for (int q = 0; q < kDetectorCount; ++q) boxes[q] += int(d.boxes[q].size());
                const int n = int(d.library.kept.size());
                byPicture[name] += n;
                byVariant[var.name] += n;
                // The frame with the most boxes first; among equals, the largest box.
                double largest = 0;
                for (const cv::Rect2f& b : d.library.kept)
                    largest = std::max(largest, double(b.area()));
                const double severity = n + largest / (double(frame.cols) * frame.rows);
                if (n > 0 && Worthy(falses, severity)) {
                    const std::string label =
                        name + (mirror ? " mirrored " : " ") + var.name + " x" + std::to_string(n);
                    Keep(falses, {Tile(frame, {}, d.library, label), label, severity});
                }
            }
        }
    }
    nlohmann::ordered_json j;
    printf("\nFALSE BOXES: %d frames from %zu QR-free pictures (%s, each also mirrored)\n", frames,
           byPicture.size(),
           o.quick ? "1280x720 cover"
                   : "1280x720, 1920x1080 zoomed 1.6, 720x1280, 1280x960 fitted at 60 %");
    for (int q = 0; q < kDetectorCount; ++q) {
        const double per = frames ? double(boxes[q]) / frames : 0.0;
        printf("  %-10s %4d boxes, %.3f per frame\n", kDetectorNames[q], boxes[q], per);
        j[kDetectorNames[q]] = {{"boxes", boxes[q]}, {"per_frame", per}};
    }
    std::vector<std::pair<std::string, int>> worst(byPicture.begin(), byPicture.end());
    std::stable_sort(worst.begin(), worst.end(),
                     [](const auto& a, const auto& b) { return a.second > b.second; });
    printf("  library's worst pictures:");
    for (size_t i = 0; i < worst.size() && i < 10 && worst[i].second > 0; ++i) {
        printf(" %s %d;", worst[i].first.c_str(), worst[i].second);
        j["worst_pictures"].push_back({{"picture", worst[i].first}, {"boxes", worst[i].second}});
    }
    printf("\n  library boxes by framing:");
    for (const auto& [name, n] : byVariant) printf(" %s %d;", name.c_str(), n);
    printf("\n");
    j["frames"] = frames;
    j["pictures"] = byPicture.size();
    j["library_by_framing"] = byVariant;
    return j;
}
