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

}  // namespace
