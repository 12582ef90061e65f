// Branches of rectification on synthetic crops, and its helpers.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "qr_decode.h"
#include "qr_render.h"
#include "warp/rectify.h"
#include "warp_scene.h"

namespace {

using scancode_test::Quad;
using scancode_test::SameMat;

cv::Mat Resized(const cv::Mat& img, int side) {
    cv::Mat out;
    cv::resize(img, out, cv::Size(side, side), 0, 0, cv::INTER_LINEAR);
    return out;
}

// Area of the largest outer contour after the rectifier's binarization and
// morphology, as a share of the crop; used to check a test's premise.
double LargestContourShare(const cv::Mat& crop) {
    cv::Mat grey, binary;
    cv::cvtColor(crop, grey, cv::COLOR_BGR2GRAY);
    const cv::Mat morph = binarizeImageByOTSU(grey, binary, 5, 3, 5, 1, true);
    std::vector<std::vector<cv::Point>> contours;
    cv::findContours(morph, contours, cv::RETR_EXTERNAL, cv::CHAIN_APPROX_NONE);
    double best = 0;
    for (const auto& c : contours) best = std::max(best, cv::contourArea(c));
    return best / crop.total();
}

// A valid record of the given size whose corners are those of `r`.
void ExpectRecord(const QRInformation& info, int size, const cv::Rect2f& r) {
    EXPECT_TRUE(info.isValid);
    EXPECT_EQ(info.qrSize, size);
    EXPECT_EQ(info.topLeft, r.tl());
    EXPECT_EQ(info.topRight, cv::Point2f(r.x + r.width, r.y));
    EXPECT_EQ(info.bottomRight, r.br());
    EXPECT_EQ(info.bottomLeft, cv::Point2f(r.x, r.y + r.height));
}

void ExpectWholeCropFallback(const cv::Mat& crop, const cv::Mat& picture,
                             const QRInformation& info) {
    const int side = std::max(crop.cols, crop.rows);
    // The far corners lie one pixel beyond the last column and row.
    ExpectRecord(info, side, cv::Rect2f(0, 0, crop.cols, crop.rows));
    EXPECT_TRUE(SameMat(picture, Resized(crop, side)));
}

TEST(DilateAndErode, ThreeDilationsThenOneErosion) {
    cv::Mat dot = cv::Mat::zeros(41, 41, CV_8UC1);
    dot.at<uint8_t>(20, 20) = 255;
    // 5 x 5 three times grows the dot to 13 x 13, one 5 x 5 erosion to 9 x 9.
    const cv::Mat morph = dilateAndErode(dot, 5, 3, 5, 1);
    EXPECT_EQ(cv::countNonZero(morph), 81);
    EXPECT_EQ(cv::boundingRect(morph), cv::Rect(16, 16, 9, 9));
    EXPECT_TRUE(dilateAndErode(cv::Mat(), 5, 3, 5, 1).empty());
}

TEST(WarpImage, SideFromRoundedCornersAndCornersOnN) {
    cv::Mat img(100, 150, CV_8UC3);
    for (int y = 0; y < img.rows; ++y)
        for (int x = 0; x < img.cols; ++x) img.at<cv::Vec3b>(y, x) = cv::Vec3b(x, y, (x + y) & 255);

    // Axis-aligned 100 x 50 rectangle: stretched to 100 x 100, twice in y.
    const cv::Mat out = warpImage(img, {{10, 20}, {110, 20}, {10, 70}, {110, 70}});
    ASSERT_EQ(out.size(), cv::Size(100, 100));
    EXPECT_EQ(out.at<cv::Vec3b>(0, 0), img.at<cv::Vec3b>(20, 10));
    EXPECT_EQ(out.at<cv::Vec3b>(50, 30), img.at<cv::Vec3b>(45, 40));
    EXPECT_EQ(out.at<cv::Vec3b>(98, 99), img.at<cv::Vec3b>(69, 109));

    // Ties round to even: 0.5 -> 0 and 101.5 -> 102 make N = 102 (101 with
    // halves rounded up).
    EXPECT_EQ(warpImage(img, {{0.5f, 0}, {101.5f, 0}, {0.5f, 50}, {101.5f, 50}}).cols, 102);

    // Corners beyond the image: the constant border is black.
    const cv::Mat outside = warpImage(img, {{-50, 0}, {50, 0}, {-50, 100}, {50, 100}});
    ASSERT_EQ(outside.size(), cv::Size(100, 100));
    EXPECT_EQ(outside.at<cv::Vec3b>(50, 10), cv::Vec3b(0, 0, 0));
    EXPECT_EQ(outside.at<cv::Vec3b>(50, 75), img.at<cv::Vec3b>(50, 25));
}

TEST(RectifyQrcodeImg, CodeFillingALightCropTakesTheDarkRegionBox) {
    const std::string text = "dark region box";
    const cv::Mat code = scancode_test::RenderQrCode(text, 4, 0);  // modules reach the edge
    cv::Mat crop(code.rows + 60, code.cols + 100, CV_8UC3, cv::Scalar::all(255));
    code.copyTo(crop(cv::Rect(30, 40, code.cols, code.rows)));
    ASSERT_GT(LargestContourShare(crop), 0.9);

    QRInformation info{};
    const cv::Mat picture = rectifyQrcodeImg(crop, info);
    // Dark pixels span [30, 30 + n - 1] x [40, 40 + n - 1]; each side is
    // widened by a quarter of its margin.
    const int n = code.cols, W = crop.cols, H = crop.rows;
    const int x0 = 30 - 30 / 4, y0 = 40 - 40 / 4;
    const int x1 = (30 + n - 1) + (W - (30 + n - 1)) / 4;
    const int y1 = (40 + n - 1) + (H - (40 + n - 1)) / 4;
    const int side = std::max(x1 - x0 + 1, y1 - y0 + 1);
    ExpectRecord(info, side, cv::Rect2f(x0, y0, x1 - x0, y1 - y0));
    EXPECT_TRUE(SameMat(picture, Resized(crop(cv::Rect(x0, y0, x1 - x0 + 1, y1 - y0 + 1)), side)));
    EXPECT_EQ(scancode_test::DecodeQr(picture), text);
}

TEST(RectifyQrcodeImg, NoDarkPixelTakesTheWholeCropAsDarkRegion) {
    const cv::Mat crop(160, 200, CV_8UC3, cv::Scalar(200, 180, 190));
    QRInformation info{};
    const cv::Mat picture = rectifyQrcodeImg(crop, info);
    ExpectRecord(info, 200, cv::Rect2f(0, 0, 199, 159));  // inclusive, unlike the fall-back
    EXPECT_TRUE(SameMat(picture, Resized(crop, 200)));
}

TEST(RectifyQrcodeImg, WholeCropFallbacks) {
    struct Case {
        const char* name;
        cv::Mat crop;
    };
    std::vector<Case> cases;

    cases.push_back({"no contour", cv::Mat(160, 200, CV_8UC3, cv::Scalar::all(0))});

    cv::Mat small(160, 200, CV_8UC3, cv::Scalar::all(30));
    small(cv::Rect(90, 70, 20, 20)).setTo(cv::Scalar::all(230));
    cases.push_back({"largest contour under 10 %", small});

    // A comb: its outline has far more points than 2.5 (W + H).
    cv::Mat comb(100, 200, CV_8UC3, cv::Scalar::all(20));
    comb(cv::Rect(10, 80, 180, 6)).setTo(cv::Scalar::all(235));
    for (int x = 12; x < 186; x += 18) comb(cv::Rect(x, 6, 2, 80)).setTo(cv::Scalar::all(235));
    cases.push_back({"ragged outline", comb});

    // A triangle has no bottom edge.
    cv::Mat triangle(200, 200, CV_8UC3, cv::Scalar::all(25));
    const std::vector<cv::Point> corners = {{30, 30}, {170, 30}, {30, 170}};
    cv::fillConvexPoly(triangle, corners, cv::Scalar::all(225));
    cases.push_back({"empty direction list", triangle});

    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        QRInformation info{};
        const cv::Mat picture = rectifyQrcodeImg(c.crop, info);
        ExpectWholeCropFallback(c.crop, picture, info);
    }
    // The premises: the comb and the triangle are neither too small nor
    // filling the crop, so only their outline sends them to the fall-back.
    for (const cv::Mat& m : {comb, triangle}) {
        EXPECT_GT(LargestContourShare(m), 0.1);
        EXPECT_LT(LargestContourShare(m), 0.9);
    }
}

TEST(RectifyQrcodeImg, NearlySquareOutlineIsResizedNotWarped) {
    // A white square turned by 20 degrees: its four sides are equal, so the
    // bounding-box view is only resized, rotated as it is.
    cv::Mat crop(300, 300, CV_8UC3, cv::Scalar::all(40));
    const Quad quad = scancode_test::ViewedSquare({150, 150}, 150, 20);
    const cv::Mat label(150, 150, CV_8UC3, cv::Scalar::all(230));
    scancode_test::PlacePicture(crop, label, quad);

    QRInformation info{};
    const cv::Mat picture = rectifyQrcodeImg(crop, info);
    const cv::Point2f found[4] = {info.topLeft, info.topRight, info.bottomRight, info.bottomLeft};
    for (int i = 0; i < 4; ++i) EXPECT_LT(cv::norm(found[i] - quad[i]), 10.0) << i;
    ASSERT_EQ(picture.cols, picture.rows);
    // A warp would give a side of about the longest edge (qrSize); the
    // bounding box of the turned square is a third larger.
    EXPECT_NEAR(info.qrSize, 158, 4);
    EXPECT_GT(picture.cols, info.qrSize + 40);
}

TEST(RectifyQrcodeImg, UnusableCropGivesAnEmptyPicture) {
    const cv::Mat crops[] = {cv::Mat(), cv::Mat(10, 10, CV_16UC3), cv::Mat(10, 10, CV_8UC2)};
    for (const cv::Mat& crop : crops) {
        QRInformation info{true, 7, {1, 1}, {}, {}, {}};
        EXPECT_TRUE(rectifyQrcodeImg(crop, info).empty());
        EXPECT_FALSE(info.isValid);
        EXPECT_EQ(info.qrSize, 0);
        EXPECT_EQ(info.topLeft, cv::Point2f(0, 0));
    }
}

}  // namespace
