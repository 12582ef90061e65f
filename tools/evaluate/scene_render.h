// Frames holding QR codes at exactly known places. libqrencode encodes the
// text; OpenCV draws the symbol, its quiet zone and any paper around it
// through a perspective view into the frame, then roughens the frame. Written
// apart from the training data generator so that the evaluation does not
// share its blind spots.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include <opencv2/core.hpp>

// Corners of a symbol in frame pixels, at its outer edges (quiet zone
// excluded): top-left, top-right, bottom-right, bottom-left of the symbol as
// printed. Pixel (i, j) covers [i, i + 1) x [j, j + 1).
using Quad = std::array<cv::Point2f, 4>;

// What a code says: the bytes it holds and the text a reader should give
// back (UTF-8; differs from the bytes for Shift-JIS).
struct CodeText {
    std::string bytes;
    std::string text;
};

// A reproducible mix of texts: links, plain words, lines ending in CRLF and
// Shift-JIS kanji, of varied lengths (versions 1 to about 7).
CodeText SampleText(uint64_t index);

// The symbol's modules without quiet zone, one pixel each (0 dark, 255
// light); Shift-JIS kanji go in kanji mode. Empty when the text does not fit.
cv::Mat EncodeQr(const std::string& bytes);

// A square of `side` pixels centred on `centre`, turned by `rollDeg` in its
// plane, then tilted away by `tiltDeg` about the line through its centre at
// `tiltAxisDeg` from the vertical, seen through a pinhole at
// `distanceInSides` sides.
Quad ViewedSquare(cv::Point2f centre, float side, double rollDeg, double tiltDeg,
                  double tiltAxisDeg, double distanceInSides = 3.0);

// `quad` scaled and moved so that its bounding box is centred on `centre`
// with a larger side of `largerSide`.
Quad FitQuad(const Quad& quad, cv::Point2f centre, float largerSide);

// The truth box: bounding box of the symbol's four outer corners, as the
// detector's training targets are.
cv::Rect2f TruthBox(const Quad& corners);

enum class Surface {
    kPlain,        // a plain, lightly shaded surface; the code on a white label
    kPaperOnDesk,  // a sheet of paper, larger than the code, on a desk picture
    kNatural,      // a natural picture; the code on a label just its quiet zone wide
};
const char* SurfaceName(Surface surface);

struct Degradation {
    const char* name;
    double blurSigma;   // Gaussian blur, pixels
    double noiseSigma;  // Gaussian noise, grey levels
    int jpegQuality;    // 0: not compressed
};
// Clean first, then the levels rendering cycles through.
const std::vector<Degradation>& Degradations();

struct CodePlacement {
    CodeText text;
    Quad corners;
    int quietModules = 4;
    // Paper beyond the quiet zone, in modules: left, top, right, bottom.
    std::array<float, 4> marginModules{0, 0, 0, 0};
};

struct SceneSetup {
    cv::Size frameSize;
    Surface surface = Surface::kPlain;
    // For kPaperOnDesk and kNatural: a BGR picture at least frameSize, of
    // which a seeded crop is taken.
    const cv::Mat* background = nullptr;
    // Light sheets drawn under the codes (several codes printed on one page).
    std::vector<Quad> sheets;
    std::vector<CodePlacement> codes;
    Degradation degradation{"clean", 0, 0, 0};
    uint64_t seed = 1;
};

struct Scene {
    cv::Mat frame;                   // BGR, frameSize
    std::vector<cv::Rect2f> truths;  // one per code, in order
};

Scene RenderScene(const SceneSetup& setup);

// `picture` scaled to cover `size` times `zoom` (>= 1), cut at a place given
// by `anchor` (0..1 on each axis), optionally mirrored.
cv::Mat CoverFrame(const cv::Mat& picture, cv::Size size, double zoom = 1.0,
                   cv::Point2f anchor = {0.5f, 0.5f}, bool mirror = false);
