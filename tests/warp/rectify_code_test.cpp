// Rectification of real QR codes: rendered, placed in perspective on a dark
// background, blurred and noised; the corners found must lie near the true
// ones and the straightened picture must decode.
#include <gtest/gtest.h>

#include <algorithm>
#include <string>

#include "qr_decode.h"
#include "qr_render.h"
#include "warp/rectify.h"
#include "warp_scene.h"

namespace {

using scancode_test::Quad;

enum class Cut { kNone, kCrop, kLabel };

struct Scene {
    const char* name;
    cv::Point2f centre;
    float side;
    double roll, yaw, pitch;
    double blur, noise;
    // kCrop: the crop is cut at the frame edge; kLabel: the label itself
    // runs past it (its corners there are not compared, the picture must
    // still decode).
    Cut cut = Cut::kNone;
};

class RectifyRealCode : public ::testing::TestWithParam<Scene> {};

TEST_P(RectifyRealCode, FindsCornersAndStraightensToADecodableSquare) {
    const Scene& s = GetParam();
    const std::string text = std::string("scancode ") + s.name;
    const cv::Size frameSize(640, 480);
    const Quad quad = scancode_test::ViewedSquare(s.centre, s.side, s.roll, s.yaw, s.pitch);
    const scancode_test::SceneWithCode scene =
        scancode_test::MakeScene(frameSize, quad, text, 8, s.blur, s.noise);
    const cv::Rect cropRect = scancode_test::CropAround(scene.box, frameSize);
    const cv::Mat crop = scene.frame(cropRect);
    const cv::Rect2f inFrame(0, 0, static_cast<float>(frameSize.width),
                             static_cast<float>(frameSize.height));
    const bool labelInside = std::all_of(quad.begin(), quad.end(),
                                         [&](const cv::Point2f& p) { return inFrame.contains(p); });
    ASSERT_EQ(labelInside, s.cut != Cut::kLabel) << "premise";
    ASSERT_EQ(cropRect.width < scene.box.width * 3 / 2, s.cut != Cut::kNone) << "premise";

    QRInformation info{};
    const cv::Mat picture = rectifyQrcodeImg(crop, info);

    EXPECT_TRUE(info.isValid);
    ASSERT_FALSE(picture.empty());
    EXPECT_EQ(picture.cols, picture.rows);
    const cv::Point2f origin(static_cast<float>(cropRect.x), static_cast<float>(cropRect.y));
    const cv::Point2f found[4] = {info.topLeft + origin, info.topRight + origin,
                                  info.bottomRight + origin, info.bottomLeft + origin};
    // The outline is grown by the morphology by about 4 px, more at corners
    // turned against the square kernel.
    for (int i = 0; i < 4; ++i) {
        if (!inFrame.contains(quad[i])) continue;
        EXPECT_LT(cv::norm(found[i] - quad[i]), 10.0)
            << "corner " << i << " found " << found[i] << " true " << quad[i];
    }
    EXPECT_EQ(scancode_test::DecodeQr(picture), text);
}

// Codes of about 280 px in a 640 x 480 frame.
const Scene kScenes[] = {
    {"straight", {320, 240}, 280, 0, 0, 0, 1.0, 4.0},
    {"tilted", {320, 240}, 280, 0, 35, 0, 1.0, 4.0},
    {"tilted both ways", {320, 240}, 280, 5, 30, 20, 1.2, 6.0},
    {"rotated", {320, 240}, 260, 25, 0, 0, 1.0, 4.0},
    {"rotated and tilted", {320, 240}, 260, 20, 30, 10, 1.0, 4.0},
    {"blurred and noisy", {320, 240}, 280, -10, -30, 0, 2.0, 10.0},
    // The crop is cut at the right frame edge; the label is whole.
    {"crop cut at the edge", {480, 240}, 260, 0, 30, 0, 1.0, 4.0, Cut::kCrop},
    // The label's quiet zone runs past the right frame edge.
    {"label cut by the frame", {555, 240}, 240, 0, -25, 0, 1.0, 4.0, Cut::kLabel},
};

INSTANTIATE_TEST_SUITE_P(Scenes, RectifyRealCode, ::testing::ValuesIn(kScenes),
                         scancode_test::SceneName<Scene>);

}  // namespace
