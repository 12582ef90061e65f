// How well the library finds codes with the real adapter and model: recall
// on the real photos, false boxes on pictures without codes, how often the
// straightened code it hands back decodes, and Process time side by side with
// a full zxing-cpp read of the same frames.
//
//   evaluate_detection PHOTO_DIR... [--negatives PICTURE...]
//
// Each photo is scaled to 480 x 480 at the centre of a 1280 x 720 frame (and
// to 720 x 720 in a 1920 x 1080 frame for the timing). A box counts as found
// when its IoU with the outline zxing-cpp locates on the same frame is at
// least 0.5; photos zxing-cpp cannot locate are listed and left out.
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "frame_report.h"
#include "frame_source.h"
#include "host_shim.h"
#include "qr_decode.h"
#include "scancode.h"

#ifndef ZX_USE_UTF8
#define ZX_USE_UTF8
#endif
#include <ZXing/ReadBarcode.h>

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

namespace {

struct Photo {
    std::string path;
    std::string text;
};

struct LogLines {
    std::vector<std::string> lines;
};

void Collect(int, const char*, const char* text, void* user) {
    static_cast<LogLines*>(user)->lines.emplace_back(text);
}

std::string Trimmed(std::string s) {
    while (!s.empty() && std::isspace(static_cast<unsigned char>(s.back()))) s.pop_back();
    return s;
}

std::vector<Photo> LoadPhotos(const std::vector<std::string>& dirs) {
    std::vector<Photo> photos;
    for (const std::string& dir : dirs) {
        std::vector<fs::path> pngs;
        std::error_code error;
        for (fs::directory_iterator it(dir, error), end; !error && it != end; it.increment(error))
            if (it->path().extension() == ".png") pngs.push_back(it->path());
        if (error) fprintf(stderr, "skipping %s: %s\n", dir.c_str(), error.message().c_str());
        std::sort(pngs.begin(), pngs.end());
        for (const fs::path& png : pngs) {
            std::ifstream in(fs::path(png).replace_extension(".txt"));
            std::string text((std::istreambuf_iterator<char>(in)),
                             std::istreambuf_iterator<char>());
            photos.push_back({png.string(), Trimmed(text)});
        }
    }
    return photos;
}

// `picture` scaled to side x side at the centre of a grey frame.
cv::Mat Embed(const cv::Mat& picture, cv::Size frameSize, int side) {
    cv::Mat frame(frameSize, CV_8UC3, cv::Scalar(128, 128, 128));
    cv::Mat scaled;
    cv::resize(picture, scaled, cv::Size(side, side), 0, 0, cv::INTER_AREA);
    scaled.copyTo(
        frame(cv::Rect((frameSize.width - side) / 2, (frameSize.height - side) / 2, side, side)));
    return frame;
}

// `picture` scaled to cover the frame, centre crop.
cv::Mat Cover(const cv::Mat& picture, cv::Size frameSize) {
    const double s =
        std::max(double(frameSize.width) / picture.cols, double(frameSize.height) / picture.rows);
    cv::Mat scaled;
    cv::resize(picture, scaled, cv::Size(), s, s, cv::INTER_AREA);
    const cv::Rect crop((scaled.cols - frameSize.width) / 2, (scaled.rows - frameSize.height) / 2,
                        frameSize.width, frameSize.height);
    return scaled(crop).clone();
}

ZXing::Results ReadAll(const Frame& frame) {
    const ZXing::ImageView luma(frame.nv21.data(), frame.width, frame.height,
                                ZXing::ImageFormat::Lum);
    ZXing::DecodeHints hints;
    hints.setFormats(ZXing::BarcodeFormat::QRCode);
    return ZXing::ReadBarcodes(luma, hints);
}

cv::Rect2f Outline(const ZXing::Result& r) {
    float x0 = 1e9f, y0 = 1e9f, x1 = -1e9f, y1 = -1e9f;
    for (int i = 0; i < 4; ++i) {
        const auto p = r.position()[i];
        x0 = std::min<float>(x0, p.x), y0 = std::min<float>(y0, p.y);
        x1 = std::max<float>(x1, p.x), y1 = std::max<float>(y1, p.y);
    }
    return {x0, y0, x1 - x0, y1 - y0};
}

float IoU(const cv::Rect2f& a, const cv::Rect2f& b) {
    const float inter = (a & b).area();
    return inter > 0 ? inter / (a.area() + b.area() - inter) : 0.0f;
}

struct Run {
    FrameResult result;
    std::vector<uint8_t> returned;
};

Run RunFrame(void* handle, const Frame& frame, LogLines& log) {
    Run run;
    run.result.width = frame.width;
    run.result.height = frame.height;
    run.returned.resize(frame.nv21.size());
    ZoomInfoResult zoom{-1.0f, -1.0f};
    WarpPicInfo pic{run.returned.data(), false};
    log.lines.clear();
    const auto t0 = Clock::now();
    run.result.rc = Process(handle, frame.nv21.data(), frame.width, frame.height, frame.width,
                            frame.height, &zoom, &pic);
    run.result.ms = std::chrono::duration<double, std::milli>(Clock::now() - t0).count();
    run.result.sentWarp = pic.sendWarpPic;
    ReadBoxes(log.lines, run.result);
    return run;
}

double Median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

// Median Process and zxing-cpp times over `frames` of one size.
void TimeSize(const std::vector<cv::Mat>& pictures, cv::Size size, int side, LogLines& log) {
    std::vector<Frame> frames(pictures.size());
    for (size_t i = 0; i < pictures.size(); ++i)
        ToNV21Frame(Embed(pictures[i], size, side), frames[i]);
    void* handle = nullptr;
    Init(&handle);
    std::vector<double> ours, theirs;
    for (int rep = 0; rep < 3; ++rep) {
        for (const Frame& f : frames) {
            ours.push_back(RunFrame(handle, f, log).result.ms);
            const auto t0 = Clock::now();
            volatile size_t n = ReadAll(f).size();
            (void)n;
            theirs.push_back(std::chrono::duration<double, std::milli>(Clock::now() - t0).count());
        }
    }
    DeInit(handle);
    const double a = Median(ours), b = Median(theirs);
    printf("  %dx%d: Process %.2f ms, zxing-cpp read %.2f ms, ratio %.2f\n", size.width,
           size.height, a, b, a / b);
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> dirs, negatives;
    bool neg = false;
    for (int i = 1; i < argc; ++i) {
        const std::string a = argv[i];
        if (a == "--negatives")
            neg = true;
        else
            (neg ? negatives : dirs).push_back(a);
    }
    if (dirs.empty()) {
        fprintf(stderr, "usage: evaluate_detection PHOTO_DIR... [--negatives PICTURE...]\n");
        return 2;
    }
    LogLines log;
    ScanHostSetLogSink(&Collect, &log);
    const cv::Size size(1280, 720);
    void* handle = nullptr;
    if (Init(&handle) != 0) {
        fprintf(stderr, "Init failed: adapter or model missing\n");
        return 1;
    }

    const std::vector<Photo> photos = LoadPhotos(dirs);
    if (photos.empty()) {
        fprintf(stderr, "no photos (*.png) in the given folders\n");
        DeInit(handle);
        return 2;
    }
    std::vector<cv::Mat> pictures;
    std::vector<std::string> notLocated, missed;
    int located = 0, found = 0, oneCode = 0, warped = 0, decodable = 0;
    for (const Photo& photo : photos) {
        const cv::Mat picture = cv::imread(photo.path, cv::IMREAD_COLOR);
        pictures.push_back(picture);
        Frame frame;
        ToNV21Frame(Embed(picture, size, 480), frame);
        const Run run = RunFrame(handle, frame, log);
        std::vector<cv::Rect2f> listed;
        for (const DetectedBox& b : run.result.boxes)
            if (b.listed) listed.push_back(b.rect);

        const ZXing::Results truth = ReadAll(frame);
        if (truth.empty()) {
            notLocated.push_back(fs::path(photo.path).parent_path().filename().string() + "/" +
                                 fs::path(photo.path).filename().string());
        } else {
            ++located;
            const cv::Rect2f outline = Outline(truth.front());
            const bool hit = std::any_of(listed.begin(), listed.end(), [&](const cv::Rect2f& b) {
                return IoU(b, outline) >= 0.5f;
            });
            found += hit;
            if (!hit) missed.push_back(photo.path);
        }
        if (listed.size() == 1) {
            ++oneCode;
            if (run.result.sentWarp) {
                ++warped;
                const cv::Mat back = FromNV21(run.returned.data(), frame.width, frame.height);
                const cv::Rect2f& b = listed.front();
                const float half = 0.75f * std::max(b.width, b.height);
                const cv::Point2f c(b.x + b.width / 2, b.y + b.height / 2);
                const cv::Rect around =
                    cv::Rect(cv::Point(c.x - half, c.y - half), cv::Point(c.x + half, c.y + half)) &
                    cv::Rect(0, 0, frame.width, frame.height);
                decodable += scancode_test::DecodeQr(back(around)) == photo.text;
            }
        }
    }

    int falseBoxes = 0, negativeFrames = 0;
    std::vector<std::string> falsePictures;
    for (const std::string& path : negatives) {
        const cv::Mat picture = cv::imread(path, cv::IMREAD_COLOR);
        if (picture.empty()) continue;
        for (int flip = 0; flip < 2; ++flip) {  // the picture and its mirror image
            cv::Mat p = Cover(picture, size);
            if (flip) cv::flip(p, p, 1);
            Frame frame;
            ToNV21Frame(p, frame);
            const Run run = RunFrame(handle, frame, log);
            const int n = std::count_if(run.result.boxes.begin(), run.result.boxes.end(),
                                        [](const DetectedBox& b) { return b.listed; });
            if (n > 0)
                falsePictures.push_back(fs::path(path).filename().string() +
                                        (flip ? " (mirrored)" : "") + " x" + std::to_string(n));
            falseBoxes += n;
            ++negativeFrames;
        }
    }
    DeInit(handle);

    printf("photos: %zu, located by zxing-cpp: %d\n", photos.size(), located);
    printf("  not located by zxing-cpp (left out):");
    for (const std::string& n : notLocated) printf(" %s", n.c_str());
    printf("\nrecall (IoU >= 0.5): %d / %d = %.1f %%\n", found, located,
           located ? 100.0 * found / located : 0.0);
    for (const std::string& m : missed) printf("  missed: %s\n", m.c_str());
    printf("false boxes on QR-free frames: %d on %d = %.3f per frame\n", falseBoxes, negativeFrames,
           negativeFrames ? double(falseBoxes) / negativeFrames : 0.0);
    for (const std::string& f : falsePictures) printf("  boxes on: %s\n", f.c_str());
    printf(
        "one-code frames: %d, straightened and sent: %d, decodable by zxing-cpp: %d (%.1f %% of "
        "one-code frames)\n",
        oneCode, warped, decodable, oneCode ? 100.0 * decodable / oneCode : 0.0);
    printf("time per frame, median (Process includes inference):\n");
    TimeSize(pictures, size, 480, log);
    TimeSize(pictures, cv::Size(1920, 1080), 720, log);
    ScanHostSetLogSink(nullptr, nullptr);
    return 0;
}
