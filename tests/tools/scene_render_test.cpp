// The evaluation's truth: zxing-cpp, reading what the renderer drew, must
// find each code where the renderer says it is and read what it holds.
#include "scene_render.h"

#include <gtest/gtest.h>

#ifndef ZX_USE_UTF8
#define ZX_USE_UTF8
#endif
#include <ZXing/ReadBarcode.h>

#include <opencv2/imgproc.hpp>

namespace {

struct Case {
    cv::Size frame;
    float side;  // larger side of the truth box, frame px
    double roll, tilt, axis;
    Surface surface;
    uint64_t text;  // SampleText index: 1 has CRLF lines, 2 Shift-JIS
};

const Case kCases[] = {
    {{1280, 720}, 300, 10, 0, 0, Surface::kPaperOnDesk, 1},
    {{1920, 1080}, 200, -12, 30, 0, Surface::kNatural, 2},
    {{1920, 1080}, 400, 5, 45, 90, Surface::kPlain, 3},
    {{720, 1280}, 260, 0, 60, 30, Surface::kPaperOnDesk, 4},
    {{1280, 960}, 90, 20, 30, 135, Surface::kPlain, 7},
};

// Every QR code zxing-cpp reads in the frame's luma.
ZXing::Results ReadQrCodes(const cv::Mat& bgr) {
    cv::Mat luma;
    cv::cvtColor(bgr, luma, cv::COLOR_BGR2GRAY);
    const ZXing::ImageView view(luma.data, luma.cols, luma.rows, ZXing::ImageFormat::Lum);
    ZXing::DecodeHints hints;
    hints.setFormats(ZXing::BarcodeFormat::QRCode);
    return ZXing::ReadBarcodes(view, hints);
}

TEST(SceneRenderTest, ZxingFindsEachCodeAtItsTruthCorners) {
    cv::Mat desk(1400, 2200, CV_8UC3);
    cv::randu(desk, cv::Scalar::all(60), cv::Scalar::all(140));
    cv::GaussianBlur(desk, desk, cv::Size(), 6);
    for (const Case& c : kCases) {
        SCOPED_TRACE(testing::Message() << c.frame << " side " << c.side << " tilt " << c.tilt);
        SceneSetup setup;
        setup.frameSize = c.frame;
        setup.surface = c.surface;
        setup.background = &desk;
        CodePlacement code;
        code.text = SampleText(c.text);
        code.corners = FitQuad(ViewedSquare({0, 0}, 100, c.roll, c.tilt, c.axis),
                               {c.frame.width * 0.45f, c.frame.height * 0.55f}, c.side);
        if (c.surface == Surface::kPaperOnDesk) code.marginModules = {3, 5, 2, 6};
        setup.codes.push_back(code);
        const Scene scene = RenderScene(setup);
        ASSERT_EQ(scene.truths.size(), 1u);
        EXPECT_NEAR(std::max(scene.truths[0].width, scene.truths[0].height), c.side, 1e-3);

        const ZXing::Results results = ReadQrCodes(scene.frame);
        ASSERT_EQ(results.size(), 1u);
        const ZXing::ByteArray& bytes = results[0].bytes();
        EXPECT_EQ(std::string(bytes.begin(), bytes.end()), code.text.bytes);
        EXPECT_EQ(results[0].text(), code.text.text);
        // zxing-cpp's corners are the symbol's outer corners, in the
        // symbol's own order, as the renderer's truth is. It rounds them to
        // whole pixels, and the bottom-right one, which has no finder
        // pattern, it extrapolates: under perspective that one is a pixel
        // or so less exact.
        for (int i = 0; i < 4; ++i) {
            const cv::Point2f got(float(results[0].position()[i].x),
                                  float(results[0].position()[i].y));
            EXPECT_LT(cv::norm(got - code.corners[i]), i == 2 ? 3.5 : 2.0)
                << "corner " << i << " at " << got << ", truth " << code.corners[i];
        }
    }
}

// Several codes on one sheet, the sheet their only quiet zone, as the
// multi-code frames draw them: each is read where its truth says.
TEST(SceneRenderTest, CodesSideBySideAreEachAtTheirTruth) {
    SceneSetup setup;
    setup.frameSize = {1280, 720};
    const float side = 180, gap = 0.25f * side, x0 = 250, y0 = 250;
    setup.sheets.push_back({cv::Point2f(x0 - 50, y0 - 50),
                            cv::Point2f(x0 + 3 * side + 2 * gap + 50, y0 - 50),
                            cv::Point2f(x0 + 3 * side + 2 * gap + 50, y0 + side + 50),
                            cv::Point2f(x0 - 50, y0 + side + 50)});
    for (int i = 0; i < 3; ++i) {
        CodePlacement c;
        c.text = SampleText(10 + i);
        c.quietModules = 0;
        const float x = x0 + i * (side + gap);
        c.corners = {cv::Point2f(x, y0), cv::Point2f(x + side, y0),
                     cv::Point2f(x + side, y0 + side), cv::Point2f(x, y0 + side)};
        setup.codes.push_back(c);
    }
    const Scene scene = RenderScene(setup);
    ASSERT_EQ(scene.truths.size(), 3u);
    const ZXing::Results results = ReadQrCodes(scene.frame);
    ASSERT_EQ(results.size(), 3u);
    for (const ZXing::Result& r : results) {
        const ZXing::ByteArray& bytes = r.bytes();
        const std::string read(bytes.begin(), bytes.end());
        int code = -1;
        for (int i = 0; i < 3; ++i)
            if (setup.codes[i].text.bytes == read) code = i;
        ASSERT_GE(code, 0) << read;
        const cv::Point2f topLeft(float(r.position()[0].x), float(r.position()[0].y));
        EXPECT_LT(cv::norm(topLeft - scene.truths[code].tl()), 2.0) << "code " << code;
    }
}

TEST(SceneRenderTest, SameSeedSameFrame) {
    SceneSetup setup;
    setup.frameSize = {640, 480};
    setup.degradation = Degradations().back();  // blur, noise and JPEG
    setup.seed = 42;
    CodePlacement code;
    code.text = SampleText(5);
    code.corners = FitQuad(ViewedSquare({0, 0}, 100, 3, 30, 60), {320, 240}, 150);
    setup.codes.push_back(code);
    const cv::Mat a = RenderScene(setup).frame, b = RenderScene(setup).frame;
    EXPECT_EQ(cv::norm(a, b, cv::NORM_INF), 0.0);
}

}  // namespace
