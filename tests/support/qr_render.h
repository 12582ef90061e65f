// Test pictures with real QR codes: libqrencode renders a code, a
// perspective transform places it into a frame, blur and noise roughen it.
#pragma once

#include <qrencode.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

namespace scancode_test {

// Corners of a placed picture: top-left, top-right, bottom-right,
// bottom-left, at the outer pixel edges (a picture of w x h pixels placed
// unchanged has corners (0, 0), (w, 0), (w, h), (0, h)).
using Quad = std::array<cv::Point2f, 4>;

// Renders `text` as an 8-bit BGR picture: black modules of moduleSize pixels
// on white, with `quietModules` white modules around the symbol.
inline cv::Mat RenderQrCode(const std::string& text, int moduleSize, int quietModules = 4,
                            QRecLevel level = QR_ECLEVEL_M) {
    std::unique_ptr<QRcode, void (*)(QRcode*)> code(
        QRcode_encodeString(text.c_str(), 0, level, QR_MODE_8, 1), QRcode_free);
    if (!code) throw std::runtime_error("libqrencode could not encode the text");
    const int modules = code->width + 2 * quietModules;
    cv::Mat symbol(modules, modules, CV_8UC1, cv::Scalar(255));
    for (int i = 0; i < code->width * code->width; ++i) {
        if (code->data[i] & 1)
            symbol.at<uint8_t>(i / code->width + quietModules, i % code->width + quietModules) = 0;
    }
    cv::Mat scaled;
    cv::resize(symbol, scaled, cv::Size(), moduleSize, moduleSize, cv::INTER_NEAREST);
    cv::Mat bgr;
    cv::cvtColor(scaled, bgr, cv::COLOR_GRAY2BGR);
    return bgr;
}

// A square of `side` pixels centred on `centre`, turned by `rollDeg` in its
// own plane, then tilted away from the camera by `yawDeg` about the vertical
// and `pitchDeg` about the horizontal axis, seen through a pinhole at a
// distance of `distanceInSides` sides.
inline Quad ViewedSquare(cv::Point2f centre, float side, double rollDeg, double yawDeg = 0,
                         double pitchDeg = 0, double distanceInSides = 2.5) {
    const double kRad = CV_PI / 180.0;
    const double cr = std::cos(rollDeg * kRad), sr = std::sin(rollDeg * kRad);
    const double cy = std::cos(yawDeg * kRad), sy = std::sin(yawDeg * kRad);
    const double cp = std::cos(pitchDeg * kRad), sp = std::sin(pitchDeg * kRad);
    const double f = distanceInSides * side;
    const double h = side / 2.0;
    const double local[4][2] = {{-h, -h}, {h, -h}, {h, h}, {-h, h}};
    Quad quad;
    for (int i = 0; i < 4; ++i) {
        // Roll in the plane, then yaw (about y) and pitch (about x).
        const double x = cr * local[i][0] - sr * local[i][1];
        const double y = sr * local[i][0] + cr * local[i][1];
        const double x1 = cy * x, z1 = -sy * x;  // the square lies in z = 0
        const double y2 = cp * y - sp * z1, z2 = sp * y + cp * z1;
        const double depth = f + z2;
        quad[i] = cv::Point2f(static_cast<float>(centre.x + f * x1 / depth),
                              static_cast<float>(centre.y + f * y2 / depth));
    }
    return quad;
}

// Smallest integer box holding the quadrilateral.
inline cv::Rect BoundingBox(const Quad& quad) {
    float x0 = quad[0].x, y0 = quad[0].y, x1 = x0, y1 = y0;
    for (const cv::Point2f& p : quad) {
        x0 = std::min(x0, p.x);
        y0 = std::min(y0, p.y);
        x1 = std::max(x1, p.x);
        y1 = std::max(y1, p.y);
    }
    const int left = static_cast<int>(std::floor(x0));
    const int top = static_cast<int>(std::floor(y0));
    return {left, top, static_cast<int>(std::ceil(x1)) - left,
            static_cast<int>(std::ceil(y1)) - top};
}

// A dark, slightly textured background: grey around `level` with coarse
// blotches, so that a white label stands out after Otsu but the background
// is not flat.
inline cv::Mat DarkBackground(cv::Size size, int level = 70, uint64_t seed = 1) {
    cv::Mat coarse(std::max(1, size.height / 40), std::max(1, size.width / 40), CV_8UC1);
    cv::RNG rng(seed);
    rng.fill(coarse, cv::RNG::UNIFORM, level - 25, level + 25);
    cv::Mat grey;
    cv::resize(coarse, grey, size, 0, 0, cv::INTER_CUBIC);
    cv::Mat bgr;
    cv::cvtColor(grey, bgr, cv::COLOR_GRAY2BGR);
    return bgr;
}

// Draws `picture` into `frame` so that its corners land on `quad`
// (antialiased edges, bilinear).
inline void PlacePicture(cv::Mat& frame, const cv::Mat& picture, const Quad& quad) {
    const float w = static_cast<float>(picture.cols), h = static_cast<float>(picture.rows);
    const cv::Point2f src[4] = {{0, 0}, {w, 0}, {w, h}, {0, h}};
    // Pixel centres sit half a pixel inside the corners on both sides.
    cv::Point2f srcCentres[4], dst[4];
    for (int i = 0; i < 4; ++i) {
        srcCentres[i] = src[i] - cv::Point2f(0.5f, 0.5f);
        dst[i] = quad[i] - cv::Point2f(0.5f, 0.5f);
    }
    const cv::Mat m = cv::getPerspectiveTransform(srcCentres, dst);
    cv::Mat warped, alpha;
    cv::warpPerspective(picture, warped, m, frame.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    cv::Mat ones(picture.size(), CV_32FC1, cv::Scalar(1.0f));
    cv::warpPerspective(ones, alpha, m, frame.size(), cv::INTER_LINEAR, cv::BORDER_CONSTANT);
    for (int y = 0; y < frame.rows; ++y) {
        cv::Vec3b* f = frame.ptr<cv::Vec3b>(y);
        const cv::Vec3b* p = warped.ptr<cv::Vec3b>(y);
        const float* a = alpha.ptr<float>(y);
        for (int x = 0; x < frame.cols; ++x) {
            if (a[x] <= 0.0f) continue;
            for (int c = 0; c < 3; ++c)
                f[x][c] = cv::saturate_cast<uint8_t>(a[x] * p[x][c] + (1.0f - a[x]) * f[x][c]);
        }
    }
}

// Gaussian blur of `blurSigma` pixels, then Gaussian noise of `noiseSigma`
// grey levels, reproducible through `seed`.
inline void AddBlurAndNoise(cv::Mat& img, double blurSigma, double noiseSigma, uint64_t seed = 7) {
    if (blurSigma > 0) cv::GaussianBlur(img, img, cv::Size(), blurSigma);
    if (noiseSigma > 0) {
        cv::Mat noise(img.size(), CV_16SC(img.channels()));
        cv::RNG rng(seed);
        rng.fill(noise, cv::RNG::NORMAL, 0, noiseSigma);
        cv::Mat sum;
        img.convertTo(sum, CV_16SC(img.channels()));
        sum += noise;
        sum.convertTo(img, img.type());
    }
}

// A frame of `size` on a dark background holding one code (a white label of
// `moduleSize`-pixel modules, quiet zone included) placed on `quad`,
// roughened by blur and noise.
struct SceneWithCode {
    cv::Mat frame;
    Quad corners;  // true outer corners of the label in frame pixels
    cv::Rect box;  // the label's bounding box, as a detector would report it
};

inline SceneWithCode MakeScene(cv::Size size, const Quad& quad, const std::string& text,
                               int moduleSize = 8, double blurSigma = 1.0, double noiseSigma = 4.0,
                               uint64_t seed = 1) {
    SceneWithCode scene;
    scene.frame = DarkBackground(size, 70, seed);
    PlacePicture(scene.frame, RenderQrCode(text, moduleSize), quad);
    AddBlurAndNoise(scene.frame, blurSigma, noiseSigma, seed);
    scene.corners = quad;
    scene.box = BoundingBox(quad) & cv::Rect(0, 0, size.width, size.height);
    return scene;
}

}  // namespace scancode_test
