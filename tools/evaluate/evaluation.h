// What the evaluation's parts share: options, the detectors run on each
// frame, tallies, and the records each suite leaves for the report.
#pragma once

#include <array>
#include <cstdint>
#include <fstream>
#include <string>
#include <vector>

#include <nlohmann/json.hpp>
#include <opencv2/core.hpp>

#include "detect/detection_rules.h"
#include "library_run.h"
#include "peers.h"
#include "scene_render.h"
#include "size_bands.h"

struct Options {
    bool quick = false;
    std::string model;  // empty: the library's configured model
    std::string json;   // empty: no JSON file
    std::string outDir = "out/eval";
    std::string photos = "../shared/data/photos";
    std::string boxes;  // empty: no list of the library's boxes per frame
    std::vector<std::string> negatives;
};

// The library and its two peers, scored alike.
enum Detector { kLibrary, kZxing, kOpenCv, kDetectorCount };
inline constexpr std::array<const char*, kDetectorCount> kDetectorNames = {"library", "zxing-cpp",
                                                                           "opencv"};

struct Detections {
    LibraryFrame library;
    cv::Mat luma;  // the frame's luma as the library and the peers read it
    std::vector<PeerCode> zxing;
    std::array<std::vector<cv::Rect2f>, kDetectorCount> boxes;  // what each one reports
};

// The library's edge band in whole frame pixels, and the room scenes leave
// inside it for a box a little too large.
inline constexpr int kEdgeBand = static_cast<int>(detection_rules::kEdgeBand);
inline constexpr int kFitMargin = 8;

class Detectors {
  public:
    // Throws scancode::Error when the library cannot start with `model`
    // (empty: its configured model).
    explicit Detectors(const std::string& model) : mLibrary(model) {}
    // Runs the library on the frame's NV21 and the peers on its luma (the
    // same bytes the library reads). Peers are skipped when `peers` is false.
    Detections Run(const cv::Mat& bgr, bool peers = true);
    LibraryRunner& library() { return mLibrary; }
    // Writes the library's boxes of every frame from now on to `path`, a line a
    // frame ("x y w h" per box, boxes separated by ";"), so that two model files
    // can be compared frame by frame.
    bool ListBoxesTo(const std::string& path);

  private:
    LibraryRunner mLibrary;
    OpenCvPeer mOpenCv;
    std::ofstream mBoxList;
};

struct Rate {
    int hit = 0, total = 0;
    void Add(bool h) { hit += h, total += 1; }
    double Value() const { return total ? double(hit) / total : 0.0; }
};
nlohmann::ordered_json ToJson(const Rate& r);
std::string Percent(const Rate& r);  // "93.8 % (15/16)" or "-"
using Rates = std::array<Rate, kDetectorCount>;
nlohmann::ordered_json ToJson(const Rates& r);
// One table row: a label, the code count and each detector's recall.
void PrintRates(const std::string& label, const Rates& r, const std::string& extra = "");
void PrintRatesHeader(const std::string& first, const std::string& extra = "");

double Median(std::vector<double> v);

// Per code, one record: enough to tally it any way and to draw it again.
struct CodeRecord {
    double inputSize = 0;  // larger truth side in input pixels
    int band = 0;
    std::array<bool, kDetectorCount> found{};
    float iou = 0;        // library's matched box (found only)
    float sizeError = 0;  // library's matched box: larger side / truth larger side - 1
};

// One picture of the contact sheet: a crop of a frame with the boxes drawn.
struct SheetCase {
    cv::Mat tile;
    std::string label;
    double severity = 0;  // the worst first
};
inline constexpr size_t kSheetCases = 12;  // of each kind

// Whether a case of `severity` would be among the `kSheetCases` worst kept.
bool Worthy(const std::vector<SheetCase>& worst, double severity);
// Keeps `c` if it is among the worst.
void Keep(std::vector<SheetCase>& worst, SheetCase c);
// A crop of `bgr` around the truths and boxes: truth blue, boxes the
// library kept green, boxes in its edge band red.
cv::Mat Tile(const cv::Mat& bgr, const std::vector<cv::Rect2f>& truths, const LibraryFrame& library,
             const std::string& label);

struct DecodeTally {
    int oneCode = 0;        // one-code frames where the library kept exactly one box, on the code
    int straightened = 0;   // of those, handed back straightened
    int decoded = 0;        // of those, zxing-cpp reads the right content in the returned frame
    int decodedBefore = 0;  // of those, zxing-cpp reads it in the frame as it went in
};
nlohmann::ordered_json ToJson(const DecodeTally& d);

// Scores one frame's detections against its truths: per truth, found by each
// detector, and the library's IoU and size error where found.
std::vector<CodeRecord> Score(const Detections& d, const std::vector<cv::Rect2f>& truths,
                              double inputScale);
// Checks the straightened code of a one-code frame and counts it.
void CheckDecode(const Detections& d, const cv::Rect2f& truth, const std::string& bytes,
                 const std::string& text, DecodeTally& tally);

// A picture the evaluation was pointed at, as BGR, read as the scanner reads
// a user's picture; empty, with a warning naming it and why, when it cannot be
// read or decoded.
cv::Mat ReadPicture(const std::string& path);

// The evaluation's pictures: desks and natural pictures to render on.
struct Backgrounds {
    std::vector<std::string> deskNames, naturalNames;
    std::vector<cv::Mat> desks, natural;  // originals
};
Backgrounds LoadBackgrounds(bool quick);

// Each suite tallies into its own JSON object and prints its table.
nlohmann::ordered_json RunSweep(const Options& o, Detectors& det, const Backgrounds& bg,
                                DecodeTally& decode, std::vector<SheetCase>& misses);
nlohmann::ordered_json RunPhotos(const Options& o, Detectors& det, DecodeTally& decode);
nlohmann::ordered_json RunMulti(const Options& o, Detectors& det, const Backgrounds& bg);
nlohmann::ordered_json RunFalseBoxes(const Options& o, Detectors& det,
                                     std::vector<SheetCase>& falses);
nlohmann::ordered_json RunSpeed(const Options& o, Detectors& det, const Backgrounds& bg);

// A contact sheet's part: a title line, then its cases six to a row.
struct SheetSection {
    std::string title;
    const std::vector<SheetCase>* cases;
};
// Writes the sections one under another as one PNG.
void WriteContactSheet(const std::string& path, const std::vector<SheetSection>& sections);
