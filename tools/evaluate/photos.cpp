// Real photos of printed codes, each placed whole in a preview-sized frame at
// its own aspect, at two scales. Truth is where zxing-cpp locates the code
// on the original photo, carried into the frame.
#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>

#include <opencv2/imgproc.hpp>

#include "evaluation.h"

namespace fs = std::filesystem;

namespace {

struct Photo {
    std::string name;  // folder/file
    cv::Mat bgr;
    std::string text;
    std::vector<cv::Rect2f> located;  // zxing-cpp's outlines on the photo
};

std::vector<Photo> LoadPhotos(const std::string& dir) {
    std::vector<fs::path> pngs;
    std::error_code error;
    for (fs::recursive_directory_iterator it(dir, error), end; !error && it != end;
         it.increment(error))
        if (it->path().extension() == ".png") pngs.push_back(it->path());
    std::sort(pngs.begin(), pngs.end());
    std::vector<Photo> photos;
    for (const fs::path& png : pngs) {
        Photo p;
        p.name = png.parent_path().filename().string() + "/" + png.filename().string();
        p.bgr = ReadPicture(png.string());
        if (p.bgr.empty()) continue;
        std::ifstream in(fs::path(png).replace_extension(".txt"), std::ios::binary);
        p.text.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
        cv::Mat grey;
        cv::cvtColor(p.bgr, grey, cv::COLOR_BGR2GRAY);
        for (const PeerCode& c : ReadWithZxing(grey)) p.located.push_back(c.box);
        photos.push_back(std::move(p));
    }
    return photos;
}

// A photo placed in a grey frame of `size`: scaled to fit the area inside
// the edge band (aspect kept) at `s` 0, or half that at 1; at a place drawn
// from the photo's index. Its truths carried into the frame.
struct Placed {
    cv::Mat frame;
    std::vector<cv::Rect2f> truths;
};

Placed Place(const Photo& p, size_t index, cv::Size size, int s) {
    const int fit = std::min(size.width, size.height) - 2 * (kEdgeBand + kFitMargin);
    const double k = double(s == 0 ? fit : fit / 2) / std::max(p.bgr.cols, p.bgr.rows);
    cv::Mat scaled;
    cv::resize(p.bgr, scaled, cv::Size(), k, k, k < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    cv::RNG rng(7919 * index + 31 * s + size.width);
    const int lo = kEdgeBand + kFitMargin;
    const int x = rng.uniform(lo, std::max(lo + 1, size.width - lo - scaled.cols + 1));
    const int y = rng.uniform(lo, std::max(lo + 1, size.height - lo - scaled.rows + 1));
    Placed out{cv::Mat(size, CV_8UC3, cv::Scalar(128, 128, 128)), {}};
    scaled.copyTo(out.frame(cv::Rect(x, y, scaled.cols, scaled.rows)));
    for (const cv::Rect2f& b : p.located)
        out.truths.emplace_back(float(x + b.x * k), float(y + b.y * k), float(b.width * k),
                                float(b.height * k));
    return out;
}

struct PhotoTally {
    std::map<std::string, Rates> byScale;
    std::array<Rates, kSizeBands.size()> byBand;
    std::vector<double> iou;
    std::map<std::string, int> missedBy;  // photo -> frames where the library missed it
    int frames = 0;
};

nlohmann::ordered_json Report(const std::vector<Photo>& photos,
                              const std::vector<std::string>& notLocated, const PhotoTally& t) {
    nlohmann::ordered_json j;
    printf(
        "  truth: zxing-cpp's outline on the original photo; %zu photos it does not locate are "
        "left out:",
        notLocated.size());
    for (const std::string& n : notLocated) printf(" %s", n.c_str());
    printf("\n");
    PrintRatesHeader("frame, scale");
    Rates all;
    for (const auto& [name, r] : t.byScale) {
        PrintRates(name, r);
        j["scales"][name] = ToJson(r);
        for (int q = 0; q < kDetectorCount; ++q) all[q].hit += r[q].hit, all[q].total += r[q].total;
    }
    char extra[48];
    snprintf(extra, sizeof extra, "library median IoU %.2f", Median(t.iou));
    PrintRates("all", all, extra);
    PrintRatesHeader("input size (px)");
    for (size_t b = 0; b < kSizeBands.size(); ++b) {
        if (t.byBand[b][kLibrary].total == 0) continue;
        PrintRates(kSizeBands[b].name, t.byBand[b]);
        j["bands"][kSizeBands[b].name] = ToJson(t.byBand[b]);
    }
    printf("  library missed:");
    for (const auto& [name, n] : t.missedBy) printf(" %s (x%d)", name.c_str(), n);
    printf("\n");
    j["photos"] = photos.size();
    j["frames"] = t.frames;
    j["not_located"] = notLocated;
    j["all"] = ToJson(all);
    j["library_median_iou"] = Median(t.iou);
    j["library_missed"] = t.missedBy;
    return j;
}

}  // namespace

nlohmann::ordered_json RunPhotos(const Options& o, Detectors& det, DecodeTally& decode) {
    const std::vector<Photo> photos = LoadPhotos(o.photos);
    printf("\nPHOTOS: %zu real photos from %s\n", photos.size(), o.photos.c_str());
    if (photos.empty()) {
        printf("  none found\n");
        return {};
    }
    std::vector<cv::Size> sizes = {{1280, 720}};
    if (!o.quick) sizes.push_back({1920, 1080});
    std::vector<std::string> notLocated;
    for (const Photo& p : photos)
        if (p.located.empty()) notLocated.push_back(p.name);
    PhotoTally t;
    for (const cv::Size size : sizes) {
        const double scale = InputScale(size.width, size.height);
        for (int s = 0; s < 2; ++s) {
            const std::string scaleName = std::to_string(size.width) + "x" +
                                          std::to_string(size.height) + (s == 0 ? " fit" : " half");
            for (size_t i = 0; i < photos.size(); ++i) {
                if (photos[i].located.empty()) continue;
                const Placed placed = Place(photos[i], i, size, s);
                const Detections d = det.Run(placed.frame);
                ++t.frames;
                for (const CodeRecord& r : Score(d, placed.truths, scale)) {
                    for (int q = 0; q < kDetectorCount; ++q) {
                        t.byScale[scaleName][q].Add(r.found[q]);
                        t.byBand[r.band][q].Add(r.found[q]);
                    }
                    if (r.found[kLibrary])
                        t.iou.push_back(r.iou);
                    else
                        ++t.missedBy[photos[i].name];
                }
                if (placed.truths.size() == 1)
                    CheckDecode(d, placed.truths[0], "", photos[i].text, decode);
            }
        }
    }
    return Report(photos, notLocated, t);
}
