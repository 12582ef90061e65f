// scancode::Scanner as a host uses it, with the reference adapter and our
// model on the sample frames: what each kind of frame gives back, sessions
// across frame sizes, and the errors a host sees instead of a crash.
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <memory>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "scancode/scanner.h"

namespace {

cv::Mat Sample(const std::string& name) {
    return scancode::ReadPicture(std::string(SCANCODE_SAMPLES_DIR) + "/" + name);
}

std::vector<cv::Rect2f> Rects(const scancode::Result& r) {
    std::vector<cv::Rect2f> rects;
    for (const scancode::Box& b : r.boxes) rects.push_back(b.rect);
    return rects;
}

// What any good detector gives back on the samples, each of which holds at
// least one code: a kept box, results that agree with each other, and across
// the samples kept boxes that read, a zoom and a straightened frame. Exact boxes belong
// to one model and are the evaluation's business.
TEST(Scanner, WhatEachSampleGivesBack) {
    const char* files[] = {"headon_code_1080p.jpg", "steep_tilt_1080p.jpg", "tilted_label_720p.jpg",
                           "two_codes_720p.jpg"};
    scancode::ScannerOptions options;
    options.decode = true;
    scancode::Scanner scanner(options);
    int read = 0, zoomed = 0, straightened = 0;
    for (const char* file : files) {
        const scancode::Result r = scanner.Scan(Sample(file));
        EXPECT_NE(r.code, -1) << file;
        EXPECT_EQ(r.libraryCount, r.listedCount()) << file;
        EXPECT_GE(r.listedCount(), 1) << file;
        read += std::any_of(r.boxes.begin(), r.boxes.end(),
                            [](const scancode::Box& b) { return b.listed && !b.text.empty(); });
        for (const scancode::Box& b : r.boxes)
            EXPECT_TRUE(b.listed || b.text.empty()) << file << ": edge-band boxes are not read";
        EXPECT_TRUE(!r.zoom || r.code == 0) << file;
        EXPECT_TRUE(r.straightened.empty() || r.straightened.size() == r.width * r.height * 3 / 2u)
            << file;
        zoomed += r.zoom.has_value();
        straightened += !r.straightened.empty();
    }
    EXPECT_GT(read, 0);
    EXPECT_GT(zoomed, 0);
    EXPECT_GT(straightened, 0);
    EXPECT_EQ(scanner.sessions(), 2) << "1080p, then 720p";
}

// Grey and BGRA pictures are the BGR picture's frame: the same luma, so the
// same boxes; the chroma differs only for BGRA's dropped alpha (none).
TEST(Scanner, GreyAndBgraFindWhatBgrFinds) {
    const cv::Mat bgr = Sample("headon_code_1080p.jpg");
    cv::Mat grey, bgra;
    cv::cvtColor(bgr, grey, cv::COLOR_BGR2GRAY);
    cv::cvtColor(bgr, bgra, cv::COLOR_BGR2BGRA);
    scancode::Scanner scanner;
    const scancode::Result want = scanner.Scan(bgr);
    ASSERT_EQ(want.listedCount(), 1);
    EXPECT_EQ(Rects(scanner.Scan(bgra)), Rects(want));
    const scancode::Result fromGrey = scanner.Scan(grey);
    ASSERT_EQ(fromGrey.listedCount(), 1);
    EXPECT_GT((fromGrey.boxes[0].rect & want.boxes[0].rect).area(),
              0.9f * want.boxes[0].rect.area());
}

TEST(Scanner, FrameWithoutACode) {
    scancode::Scanner scanner;
    const scancode::Result r = scanner.Scan(cv::Mat(720, 1280, CV_8UC3, cv::Scalar(90, 120, 150)));
    EXPECT_EQ(r.code, -1);
    EXPECT_TRUE(r.boxes.empty());
    EXPECT_FALSE(r.zoom);
    EXPECT_TRUE(r.straightened.empty());
}

// A new size starts a new session; the session's first frame is marked as
// such, and a picture is cut to a size the library takes.
TEST(Scanner, FrameSizeChangesStartSessions) {
    const cv::Mat bgr = Sample("two_codes_720p.jpg");
    cv::Mat small;
    cv::resize(bgr, small, {645, 363});
    scancode::Scanner scanner;
    const std::vector<std::pair<const cv::Mat*, bool>> frames = {
        {&bgr, true}, {&bgr, false}, {&small, true}, {&bgr, true}};
    for (const auto& [frame, first] : frames) {
        const scancode::Result r = scanner.Scan(*frame);
        EXPECT_EQ(r.firstOfSession, first);
        EXPECT_EQ(r.width, frame->cols / 16 * 16);
        EXPECT_EQ(r.height, frame->rows / 2 * 2);
        EXPECT_NE(r.code, -1) << r.width << "x" << r.height;
    }
    EXPECT_EQ(scanner.sessions(), 3);
}

// Two Scanners share the library's one session: the same size works, another
// size is refused while both are open, and works once the other is gone.
TEST(Scanner, TwoScannersShareOneFrameSize) {
    const cv::Mat big = Sample("headon_code_1080p.jpg");
    const cv::Mat small = Sample("two_codes_720p.jpg");
    scancode::Scanner first;
    EXPECT_EQ(first.Scan(big).code, 0);
    {
        scancode::Scanner second;
        EXPECT_EQ(second.Scan(big).code, 0);
        EXPECT_THROW(second.Scan(small), scancode::Error);
        EXPECT_EQ(first.Scan(big).code, 0);
    }
    EXPECT_EQ(first.Scan(small).code, 0);
}

TEST(Scanner, BadInputIsAnError) {
    const auto message = [](const std::function<void()>& f) -> std::string {
        try {
            f();
        } catch (const scancode::Error& e) {
            return e.what();
        }
        return "(no error)";
    };
    const auto opened = [](const char* adapter, const char* model) {
        scancode::ScannerOptions o;
        o.adapterPath = adapter;
        o.modelPath = model;
        scancode::Scanner scanner(o);
    };
    const std::string notModel = std::string(SCANCODE_SAMPLES_DIR) + "/two_codes_720p.jpg";
    // Opened after the cases that start the library: the model is loaded by
    // the process's first session only.
    std::unique_ptr<scancode::Scanner> live;
    const auto scanner = [&]() -> scancode::Scanner& {
        if (!live) live = std::make_unique<scancode::Scanner>();
        return *live;
    };
    const std::vector<uint8_t> frame(64 * 32 * 3 / 2);
    const std::vector<std::pair<std::function<void()>, std::string>> cases = {
        {[&] { opened("", "/no/such/model.bin"); }, "model /no/such/model.bin: no such file"},
        {[&] { opened("/no/adapter.so", ""); }, "adapter /no/adapter.so: no such file"},
        {[&] { opened("", notModel.c_str()); }, "the library could not start"},
        {[&] { scanner().Scan(frame.data(), frame.size() - 1, 64, 32); },
         "has 3072 bytes, not 3071"},
        {[&] { scanner().Scan(frame.data(), frame.size(), 60, 32); }, "multiple of 16"},
        {[&] { scanner().Scan(frame.data(), frame.size(), 64, 31); }, "height must be even"},
        {[&] { scanner().Scan(nullptr, 0, 0, 0); }, "must be positive"},
        {[&] { scanner().Scan(cv::Mat(8, 8, CV_8UC3)); }, "picture too small (8x8"},
        {[&] { scanner().Scan(cv::Mat(64, 64, CV_32FC3)); }, "8-bit grey, BGR or BGRA"},
        {[&] { scanner().Scan(cv::Mat(64, 64, CV_8UC2)); }, "8-bit grey, BGR or BGRA"},
        {[&] {
             scancode::DecodePicture({'n', 'o'});
         },
         "not a picture that can be decoded"},
        {[&] { scancode::ReadPicture("/no/such.png"); }, "cannot read"},
        // A truncated DICOM file: a fuzzer found that OpenCV's DICOM reader
        // aborts the process on it.
        {[&] {
             std::vector<uint8_t> dicom(138, 0xff);
             std::fill_n(dicom.begin(), 128, 0xd4);
             std::copy_n("?\?/://", 6, dicom.begin());
             std::copy_n("DICM", 4, dicom.begin() + 128);
             scancode::DecodePicture(dicom);
         },
         "a DICOM file"},
    };
    for (const auto& [call, part] : cases) {
        const std::string got = message(call);
        EXPECT_NE(got.find(part), std::string::npos) << got << "\nwanted: " << part;
    }
    // The Scanner still works after all of that.
    EXPECT_EQ(scanner().Scan(Sample("headon_code_1080p.jpg")).code, 0);
}

}  // namespace
