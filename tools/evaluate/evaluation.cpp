#include "evaluation.h"

#include <algorithm>
#include <cstdio>

#include "frame_source.h"
#include "match.h"
#include "scancode/scanner.h"

Detections Detectors::Run(const cv::Mat& bgr, bool peers) {
    Frame frame;
    ToNV21Frame(bgr, frame);
    Detections d;
    mLibrary.Run(frame.nv21, frame.width, frame.height, d.library);
    d.boxes[kLibrary] = d.library.kept;
    if (mBoxList.is_open()) {
        for (const cv::Rect2f& b : d.library.survivors)
            mBoxList << b.x << " " << b.y << " " << b.width << " " << b.height << ";";
        mBoxList << "\n";
    }
    d.luma = cv::Mat(frame.height, frame.width, CV_8UC1, frame.nv21.data()).clone();
    if (!peers) return d;
    const cv::Mat& luma = d.luma;
    d.zxing = ReadWithZxing(luma);
    for (const PeerCode& c : d.zxing) d.boxes[kZxing].push_back(c.box);
    for (const PeerCode& c : mOpenCv.Detect(luma)) d.boxes[kOpenCv].push_back(c.box);
    return d;
}

bool Detectors::ListBoxesTo(const std::string& path) {
    mBoxList.open(path);
    return mBoxList.is_open();
}

nlohmann::ordered_json ToJson(const Rate& r) {
    return {{"found", r.hit},
            {"codes", r.total},
            {"recall", r.total ? nlohmann::ordered_json(r.Value()) : nlohmann::ordered_json()}};
}

std::string Percent(const Rate& r) {
    if (r.total == 0) return "-";
    char buf[48];
    snprintf(buf, sizeof buf, "%.1f %% (%d/%d)", 100.0 * r.Value(), r.hit, r.total);
    return buf;
}

nlohmann::ordered_json ToJson(const Rates& r) {
    nlohmann::ordered_json j;
    for (int k = 0; k < kDetectorCount; ++k) j[kDetectorNames[k]] = ToJson(r[k]);
    return j;
}

void PrintRatesHeader(const std::string& first, const std::string& extra) {
    printf("  %-16s %6s  %-22s %-22s %-22s %s\n", first.c_str(), "codes", kDetectorNames[0],
           kDetectorNames[1], kDetectorNames[2], extra.c_str());
}

void PrintRates(const std::string& label, const Rates& r, const std::string& extra) {
    printf("  %-16s %6d  %-22s %-22s %-22s %s\n", label.c_str(), r[kLibrary].total,
           Percent(r[kLibrary]).c_str(), Percent(r[kZxing]).c_str(), Percent(r[kOpenCv]).c_str(),
           extra.c_str());
}

double Median(std::vector<double> v) {
    if (v.empty()) return 0;
    std::sort(v.begin(), v.end());
    const size_t n = v.size();
    return n % 2 ? v[n / 2] : 0.5 * (v[n / 2 - 1] + v[n / 2]);
}

nlohmann::ordered_json ToJson(const DecodeTally& d) {
    return {{"one_code_frames", d.oneCode},
            {"straightened", d.straightened},
            {"straightened_decoded", d.decoded},
            {"straightened_decoded_before", d.decodedBefore}};
}

std::vector<CodeRecord> Score(const Detections& d, const std::vector<cv::Rect2f>& truths,
                              double inputScale) {
    std::vector<CodeRecord> records(truths.size());
    for (int k = 0; k < kDetectorCount; ++k) {
        const std::vector<int> pair = MatchBoxes(truths, d.boxes[k]);
        for (size_t t = 0; t < truths.size(); ++t) {
            records[t].found[k] = pair[t] >= 0;
            if (k != kLibrary || pair[t] < 0) continue;
            const cv::Rect2f& b = d.boxes[k][pair[t]];
            records[t].iou = IoU(b, truths[t]);
            records[t].sizeError =
                std::max(b.width, b.height) / std::max(truths[t].width, truths[t].height) - 1.0f;
        }
    }
    for (size_t t = 0; t < truths.size(); ++t) {
        records[t].inputSize = std::max(truths[t].width, truths[t].height) * inputScale;
        records[t].band = SizeBandOf(records[t].inputSize);
    }
    return records;
}

namespace {

bool ReadsAround(const cv::Mat& luma, const cv::Rect2f& box, const std::string& bytes,
                 const std::string& text) {
    const float half = 0.75f * std::max(box.width, box.height);
    const cv::Point2f c(box.x + box.width / 2, box.y + box.height / 2);
    const cv::Rect around = cv::Rect(cv::Point(int(c.x - half), int(c.y - half)),
                                     cv::Point(int(c.x + half), int(c.y + half))) &
                            cv::Rect(0, 0, luma.cols, luma.rows);
    if (around.empty()) return false;
    const cv::Mat crop = luma(around).clone();
    for (const PeerCode& code : ReadWithZxing(crop))
        if (SameContent(code, bytes, text)) return true;
    return false;
}

}  // namespace

void CheckDecode(const Detections& d, const cv::Rect2f& truth, const std::string& bytes,
                 const std::string& text, DecodeTally& tally) {
    const LibraryFrame& lib = d.library;
    if (lib.kept.size() != 1 || IoU(lib.kept[0], truth) < kFoundIoU) return;
    ++tally.oneCode;
    if (!lib.sentWarp) return;
    ++tally.straightened;
    const cv::Mat returned(d.luma.rows, d.luma.cols, CV_8UC1,
                           const_cast<uint8_t*>(lib.returned.data()));
    tally.decoded += ReadsAround(returned, lib.kept[0], bytes, text);
    tally.decodedBefore += ReadsAround(d.luma, lib.kept[0], bytes, text);
}

cv::Mat ReadPicture(const std::string& path) {
    try {
        return scancode::ReadPicture(path);
    } catch (const scancode::Error& e) {
        fprintf(stderr, "warning: %s left out: %s\n", path.c_str(), e.what());
        return {};
    }
}

Backgrounds LoadBackgrounds(bool quick) {
    // Only the evaluation's own pictures: GNOME's wallpapers and
    // scikit-image's samples. The training backgrounds (MATE, UKUI, Plasma
    // wallpapers) never appear here.
    const std::string gnome = "/usr/share/backgrounds/gnome/";
    const std::string sk = "/usr/lib/python3/dist-packages/skimage/data/";
    const std::vector<std::string> desks = {gnome + "wood-l.webp", gnome + "wood-d.webp"};
    std::vector<std::string> natural = {sk + "astronaut.png",       sk + "coffee.png",
                                        sk + "chelsea.png",         sk + "rocket.jpg",
                                        sk + "motorcycle_left.png", sk + "hubble_deep_field.jpg",
                                        sk + "grass.png",           gnome + "adwaita-l.webp",
                                        gnome + "licorice-l.webp",  gnome + "symbolic-d.webp"};
    if (quick) natural.resize(5);
    Backgrounds bg;
    for (const std::string& p : desks) {
        cv::Mat m = ReadPicture(p);
        if (!m.empty()) bg.desks.push_back(m), bg.deskNames.push_back(p);
    }
    for (const std::string& p : natural) {
        cv::Mat m = ReadPicture(p);
        if (!m.empty()) bg.natural.push_back(m), bg.naturalNames.push_back(p);
    }
    if (bg.desks.empty() || bg.natural.empty())
        fprintf(stderr, "warning: evaluation backgrounds missing (scripts/setup.sh eval)\n");
    return bg;
}
