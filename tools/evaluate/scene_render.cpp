#include "scene_render.h"

#include <qrencode.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

namespace {

bool HasShiftJis(const std::string& bytes) {
    return std::any_of(bytes.begin(), bytes.end(),
                       [](char c) { return static_cast<unsigned char>(c) >= 0x80; });
}

// Continuous-coordinate homography (pixel edges at integers) to the form
// warpPerspective samples with (pixel centres at integers).
cv::Mat ToPixelCentres(const cv::Mat& h) {
    const cv::Mat in = (cv::Mat_<double>(3, 3) << 1, 0, 0.5, 0, 1, 0.5, 0, 0, 1);
    const cv::Mat out = (cv::Mat_<double>(3, 3) << 1, 0, -0.5, 0, 1, -0.5, 0, 0, 1);
    return out * h * in;
}

cv::Point2f Apply(const cv::Mat& h, cv::Point2f p) {
    const double x = h.at<double>(0, 0) * p.x + h.at<double>(0, 1) * p.y + h.at<double>(0, 2);
    const double y = h.at<double>(1, 0) * p.x + h.at<double>(1, 1) * p.y + h.at<double>(1, 2);
    const double w = h.at<double>(2, 0) * p.x + h.at<double>(2, 1) * p.y + h.at<double>(2, 2);
    return {static_cast<float>(x / w), static_cast<float>(y / w)};
}

cv::Mat PlainSurface(cv::Size size, cv::RNG& rng) {
    // A light or mid-tone colour with a gentle left-to-right shading, as a
    // lit table top or wall would be.
    const cv::Vec3f base(rng.uniform(110.f, 235.f), rng.uniform(110.f, 235.f),
                         rng.uniform(110.f, 235.f));
    const float slope = rng.uniform(-0.15f, 0.15f);
    cv::Mat row(1, size.width, CV_8UC3);
    for (int x = 0; x < size.width; ++x) {
        const float f = 1.0f + slope * (2.0f * x / size.width - 1.0f);
        row.at<cv::Vec3b>(0, x) = cv::Vec3b(cv::saturate_cast<uint8_t>(base[0] * f),
                                            cv::saturate_cast<uint8_t>(base[1] * f),
                                            cv::saturate_cast<uint8_t>(base[2] * f));
    }
    cv::Mat frame;
    cv::repeat(row, size.height, 1, frame);
    return frame;
}

cv::Mat Background(const SceneSetup& setup, cv::RNG& rng) {
    if (setup.surface == Surface::kPlain || setup.background == nullptr ||
        setup.background->cols < setup.frameSize.width ||
        setup.background->rows < setup.frameSize.height)
        return PlainSurface(setup.frameSize, rng);
    const int x = rng.uniform(0, setup.background->cols - setup.frameSize.width + 1);
    const int y = rng.uniform(0, setup.background->rows - setup.frameSize.height + 1);
    return (*setup.background)(cv::Rect(cv::Point(x, y), setup.frameSize)).clone();
}

// Paper white and ink, slightly varied.
cv::Scalar PaperColour(cv::RNG& rng) {
    const double w = rng.uniform(215.0, 250.0);
    return {w - rng.uniform(0.0, 12.0), w - rng.uniform(0.0, 6.0), w};
}

void FillSheet(cv::Mat& frame, const Quad& quad, const cv::Scalar& colour) {
    constexpr int kShift = 4;  // sub-pixel corners
    std::vector<cv::Point> pts;
    for (const cv::Point2f& p : quad)
        pts.emplace_back(cvRound((p.x - 0.5f) * (1 << kShift)),
                         cvRound((p.y - 0.5f) * (1 << kShift)));
    cv::fillConvexPoly(frame, pts, colour, cv::LINE_AA, kShift);
}

// A code's label in module units: the symbol's n x n modules with the quiet
// zone and paper margin around them.
struct Label {
    cv::Mat modules;
    int n = 0;
    float left = 0, top = 0, right = 0, bottom = 0;
};

// The frame pixels the label covers, a little grown, and the longest edge of
// the drawn symbol.
cv::Rect LabelRoi(const Label& l, const cv::Mat& toFrame, const CodePlacement& c,
                  const cv::Size frame, float* longestEdge) {
    const float n = float(l.n);
    const cv::Point2f corners[4] = {{-l.left, -l.top},
                                    {n + l.right, -l.top},
                                    {n + l.right, n + l.bottom},
                                    {-l.left, n + l.bottom}};
    float x0 = 1e9f, y0 = 1e9f, x1 = -1e9f, y1 = -1e9f;
    *longestEdge = 0;
    for (int i = 0; i < 4; ++i) {
        const cv::Point2f p = Apply(toFrame, corners[i]);
        x0 = std::min(x0, p.x), y0 = std::min(y0, p.y);
        x1 = std::max(x1, p.x), y1 = std::max(y1, p.y);
        *longestEdge =
            std::max(*longestEdge, float(cv::norm(c.corners[i] - c.corners[(i + 1) % 4])));
    }
    return cv::Rect(cv::Point(int(std::floor(x0)) - 2, int(std::floor(y0)) - 2),
                    cv::Point(int(std::ceil(x1)) + 2, int(std::ceil(y1)) + 2)) &
           cv::Rect(0, 0, frame.width, frame.height);
}

// The label drawn flat, `s` pixels a module.
cv::Mat FlatLabel(const Label& l, int s, const cv::Scalar& paper, const cv::Scalar& ink) {
    const int cols = int(std::round((l.left + l.n + l.right) * s));
    const int rows = int(std::round((l.top + l.n + l.bottom) * s));
    cv::Mat src(rows, cols, CV_8UC3, paper);
    cv::Mat grown;
    cv::resize(l.modules, grown, cv::Size(l.n * s, l.n * s), 0, 0, cv::INTER_NEAREST);
    cv::Mat symbolArea =
        src(cv::Rect(int(std::round(l.left * s)), int(std::round(l.top * s)), l.n * s, l.n * s));
    symbolArea.setTo(ink, grown == 0);
    return src;
}

// frame = warped + (1 - alpha) * frame: outside the label both were sampled
// against zero, so `warped` is already weighted by coverage.
void Composite(cv::Mat target, const cv::Mat& warped, const cv::Mat& alpha) {
    for (int y = 0; y < target.rows; ++y) {
        cv::Vec3b* f = target.ptr<cv::Vec3b>(y);
        const cv::Vec3b* w = warped.ptr<cv::Vec3b>(y);
        const uint8_t* a = alpha.ptr<uint8_t>(y);
        for (int x = 0; x < target.cols; ++x) {
            if (a[x] == 0) continue;
            const int keep = 255 - a[x];
            for (int k = 0; k < 3; ++k)
                f[x][k] = cv::saturate_cast<uint8_t>(w[x][k] + (f[x][k] * keep + 127) / 255);
        }
    }
}

// Draws one code: its label (quiet zone plus paper margin) and modules,
// through the homography that puts the symbol's corners on `c.corners`. Drawn
// at twice the frame's resolution inside the label's bounding box and
// averaged down, so edges are antialiased the way a lens would blur them.
void DrawCode(cv::Mat& frame, const CodePlacement& c, const cv::Scalar& paper,
              const cv::Scalar& ink) {
    Label l;
    l.modules = EncodeQr(c.text.bytes);
    if (l.modules.empty()) return;
    l.n = l.modules.cols;
    const float q = static_cast<float>(c.quietModules);
    l.left = q + c.marginModules[0], l.top = q + c.marginModules[1];
    l.right = q + c.marginModules[2], l.bottom = q + c.marginModules[3];
    const int n = l.n;

    // Symbol (module units) to frame.
    const cv::Point2f sym[4] = {{0, 0}, {float(n), 0}, {float(n), float(n)}, {0, float(n)}};
    const cv::Point2f dst[4] = {c.corners[0], c.corners[1], c.corners[2], c.corners[3]};
    const cv::Mat toFrame = cv::getPerspectiveTransform(sym, dst);
    float longestEdge = 0;
    const cv::Rect roi = LabelRoi(l, toFrame, c, frame.size(), &longestEdge);
    if (roi.empty()) return;

    constexpr int kSuper = 2;
    // Source resolution at least that of the drawn symbol's nearest edge.
    const int s = std::clamp(int(std::ceil(kSuper * longestEdge / n)) + 1, 2, 48);
    const cv::Mat src = FlatLabel(l, s, paper, ink);

    // Source pixels (continuous) -> module units -> frame -> patch.
    const cv::Mat srcToModules =
        (cv::Mat_<double>(3, 3) << 1.0 / s, 0, -l.left, 0, 1.0 / s, -l.top, 0, 0, 1);
    const cv::Mat frameToPatch =
        (cv::Mat_<double>(3, 3) << kSuper, 0, -kSuper * roi.x, 0, kSuper, -kSuper * roi.y, 0, 0, 1);
    const cv::Mat h = ToPixelCentres(frameToPatch * toFrame * srcToModules);
    const cv::Size patchSize(roi.width * kSuper, roi.height * kSuper);
    cv::Mat warped, alpha;
    cv::warpPerspective(src, warped, h, patchSize, cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    cv::warpPerspective(cv::Mat(src.size(), CV_8UC1, cv::Scalar(255)), alpha, h, patchSize,
                        cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    cv::resize(warped, warped, roi.size(), 0, 0, cv::INTER_AREA);
    cv::resize(alpha, alpha, roi.size(), 0, 0, cv::INTER_AREA);
    Composite(frame(roi), warped, alpha);
}

void Degrade(cv::Mat& frame, const Degradation& d, uint64_t seed) {
    if (d.blurSigma > 0) cv::GaussianBlur(frame, frame, cv::Size(), d.blurSigma);
    if (d.noiseSigma > 0) {
        cv::Mat noise(frame.size(), CV_16SC3);
        cv::RNG rng(seed ^ 0x9e3779b97f4a7c15ull);
        rng.fill(noise, cv::RNG::NORMAL, 0, d.noiseSigma);
        cv::Mat sum;
        frame.convertTo(sum, CV_16SC3);
        sum += noise;
        sum.convertTo(frame, CV_8UC3);
    }
    if (d.jpegQuality > 0) {
        std::vector<uint8_t> jpeg;
        cv::imencode(".jpg", frame, jpeg, {cv::IMWRITE_JPEG_QUALITY, d.jpegQuality});
        frame = cv::imdecode(jpeg, cv::IMREAD_COLOR);
    }
}

}  // namespace

CodeText SampleText(uint64_t index) {
    cv::RNG rng(index * 7919 + 17);
    static const char* const kWords[] = {"scan",  "label", "parcel", "ticket", "menu",  "order",
                                         "shelf", "crate", "door",   "gate",   "price", "seat"};
    static const char kAlnum[] = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789";
    auto token = [&](int len) {
        std::string s;
        for (int i = 0; i < len; ++i) s += kAlnum[rng.uniform(0, int(sizeof kAlnum) - 1)];
        return s;
    };
    CodeText t;
    switch (index % 6) {
        case 0:
        case 3:
            t.bytes = "https://example.org/" + token(rng.uniform(4, 40));
            break;
        case 1:  // lines ending in CRLF, as phone and Windows tools write them
            for (int i = 0, lines = rng.uniform(2, 5); i < lines; ++i)
                t.bytes += std::string(kWords[rng.uniform(0, 12)]) + " " +
                           token(rng.uniform(2, 9)) + "\r\n";
            t.bytes.pop_back(), t.bytes.pop_back();
            break;
        case 2: {  // Shift-JIS: nihongo, kensa (inspection), then ASCII
            t.bytes = "\x93\xfa\x96\x7b\x8c\xea\x8c\x9f\x8d\xb8 " + token(rng.uniform(1, 12));
            t.text = "\xe6\x97\xa5\xe6\x9c\xac\xe8\xaa\x9e\xe6\xa4\x9c\xe6\x9f\xbb " +
                     t.bytes.substr(11);
            return t;
        }
        case 4:
            t.bytes = token(rng.uniform(1, 20));
            break;
        default:
            for (int i = 0, words = rng.uniform(3, 12); i < words; ++i)
                t.bytes += std::string(i ? " " : "") + kWords[rng.uniform(0, 12)];
            break;
    }
    t.text = t.bytes;
    return t;
}

cv::Mat EncodeQr(const std::string& bytes) {
    const QRencodeMode hint = HasShiftJis(bytes) ? QR_MODE_KANJI : QR_MODE_8;
    std::unique_ptr<QRcode, void (*)(QRcode*)> code(
        QRcode_encodeString(bytes.c_str(), 0, QR_ECLEVEL_M, hint, 1), QRcode_free);
    if (!code) return {};
    cv::Mat modules(code->width, code->width, CV_8UC1, cv::Scalar(255));
    for (int i = 0; i < code->width * code->width; ++i)
        if (code->data[i] & 1) modules.at<uint8_t>(i / code->width, i % code->width) = 0;
    return modules;
}

Quad ViewedSquare(cv::Point2f centre, float side, double rollDeg, double tiltDeg,
                  double tiltAxisDeg, double distanceInSides) {
    const double rad = CV_PI / 180.0;
    const double a = tiltAxisDeg * rad;
    // Rotation by tiltDeg about the in-plane unit axis u = (sin a, cos a, 0)
    // (a = 0: the vertical axis, the code turns left or right), by Rodrigues'
    // formula R = cos t I + (1 - cos t) u u^T + sin t [u]x.
    const double ux = std::sin(a), uy = std::cos(a);
    const double ct = std::cos(tiltDeg * rad), st = std::sin(tiltDeg * rad);
    const cv::Matx33d r(ct + (1 - ct) * ux * ux, (1 - ct) * ux * uy, st * uy, (1 - ct) * ux * uy,
                        ct + (1 - ct) * uy * uy, -st * ux, -st * uy, st * ux, ct);
    const double cr = std::cos(rollDeg * rad), sr = std::sin(rollDeg * rad);
    const double f = distanceInSides * side, h = side / 2.0;
    const double local[4][2] = {{-h, -h}, {h, -h}, {h, h}, {-h, h}};
    Quad quad;
    for (int i = 0; i < 4; ++i) {
        const cv::Vec3d p(cr * local[i][0] - sr * local[i][1], sr * local[i][0] + cr * local[i][1],
                          0);
        const cv::Vec3d q = r * p;
        const double depth = f + q[2];
        quad[i] = {static_cast<float>(centre.x + f * q[0] / depth),
                   static_cast<float>(centre.y + f * q[1] / depth)};
    }
    return quad;
}

Quad FitQuad(const Quad& quad, cv::Point2f centre, float largerSide) {
    const cv::Rect2f box = TruthBox(quad);
    const float k = largerSide / std::max(box.width, box.height);
    const cv::Point2f mid(box.x + box.width / 2, box.y + box.height / 2);
    Quad out;
    for (int i = 0; i < 4; ++i) out[i] = centre + (quad[i] - mid) * k;
    return out;
}

cv::Rect2f TruthBox(const Quad& c) {
    float x0 = c[0].x, y0 = c[0].y, x1 = x0, y1 = y0;
    for (const cv::Point2f& p : c) {
        x0 = std::min(x0, p.x), y0 = std::min(y0, p.y);
        x1 = std::max(x1, p.x), y1 = std::max(y1, p.y);
    }
    return {x0, y0, x1 - x0, y1 - y0};
}

const char* SurfaceName(Surface surface) {
    switch (surface) {
        case Surface::kPlain:
            return "plain";
        case Surface::kPaperOnDesk:
            return "paper on desk";
        case Surface::kNatural:
            return "natural";
    }
    return "?";
}

const std::vector<Degradation>& Degradations() {
    static const std::vector<Degradation> kLevels = {
        {"clean", 0, 0, 0},   {"blur 1.2", 1.2, 0, 0}, {"blur 2.4", 2.4, 0, 0},
        {"noise 8", 0, 8, 0}, {"jpeg 30", 0, 0, 30},   {"blur 1.2 + noise 5 + jpeg 50", 1.2, 5, 50},
    };
    return kLevels;
}

Scene RenderScene(const SceneSetup& setup) {
    cv::RNG rng(setup.seed);
    Scene scene;
    scene.frame = Background(setup, rng);
    const cv::Scalar paper = PaperColour(rng);
    const cv::Scalar ink = cv::Scalar::all(rng.uniform(10.0, 60.0));
    for (const Quad& sheet : setup.sheets) FillSheet(scene.frame, sheet, paper);
    for (const CodePlacement& c : setup.codes) {
        DrawCode(scene.frame, c, paper, ink);
        scene.truths.push_back(TruthBox(c.corners));
    }
    Degrade(scene.frame, setup.degradation, setup.seed);
    return scene;
}

cv::Mat CoverFrame(const cv::Mat& picture, cv::Size size, double zoom, cv::Point2f anchor,
                   bool mirror) {
    const double s =
        std::max(double(size.width) / picture.cols, double(size.height) / picture.rows) *
        std::max(zoom, 1.0);
    cv::Mat scaled;
    cv::resize(picture, scaled, cv::Size(), s, s, s < 1 ? cv::INTER_AREA : cv::INTER_LINEAR);
    const int w = std::min(size.width, scaled.cols), h = std::min(size.height, scaled.rows);
    const int x = int(std::round((scaled.cols - w) * std::clamp(anchor.x, 0.f, 1.f)));
    const int y = int(std::round((scaled.rows - h) * std::clamp(anchor.y, 0.f, 1.f)));
    cv::Mat out;
    cv::resize(scaled(cv::Rect(x, y, w, h)), out, size);  // a no-op unless rounding lost a pixel
    if (mirror) cv::flip(out, out, 1);
    return out;
}
