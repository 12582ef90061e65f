// Pictures in, NV21 frames out, and back. Every OpenCV call here may meet a
// user's file or array, so its exceptions become Errors with a reason.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fstream>

#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>

#include "scancode/scanner.h"

namespace scancode {

namespace {

std::string SizeText(int width, int height) {
    return std::to_string(width) + "x" + std::to_string(height);
}

// The decoder's refusal in words. OpenCV refuses a picture whose header
// claims more pixels than it allows with an assertion on that limit.
std::string DecodeFailure(const cv::Exception& e) {
    if (e.err.find("CV_IO_MAX_IMAGE") != std::string::npos) {
        return "picture too large to decode (its header claims more pixels than the decoder "
               "allows: " +
               e.err + ")";
    }
    return "picture could not be decoded (" + e.err + ")";
}

// A DICOM file: "DICM" after a 128-byte preamble. OpenCV hands such bytes to
// its DICOM library, which aborts the process (a failed assert, not an
// exception) on a truncated file, so they never reach it: no camera picture
// is one.
bool IsDicom(const std::vector<uint8_t>& bytes) {
    static const char kMagic[] = {'D', 'I', 'C', 'M'};
    return bytes.size() >= 128 + sizeof kMagic &&
           std::equal(std::begin(kMagic), std::end(kMagic), bytes.begin() + 128);
}

}  // namespace

std::string CheckFrameSize(int width, int height) {
    if (width <= 0 || height <= 0) return "frame size must be positive";
    if (width % kWidthStep != 0) {
        return "frame width must be a multiple of " + std::to_string(kWidthStep);
    }
    if (height % 2 != 0) return "frame height must be even";
    return {};
}

std::vector<uint8_t> ToNv21(const cv::Mat& picture, cv::Size& size) {
    static const int kCodes[] = {-1, cv::COLOR_GRAY2BGR, -1, -1, cv::COLOR_BGRA2BGR};
    const int channels = picture.channels();
    if (picture.depth() != CV_8U || picture.dims != 2 ||
        (channels != 1 && channels != 3 && channels != 4)) {
        throw Error("a picture must be 8-bit grey, BGR or BGRA, not type " +
                    cv::typeToString(picture.type()) + " of " + std::to_string(picture.dims) +
                    " dimensions");
    }
    const int width = picture.cols / kWidthStep * kWidthStep;
    const int height = picture.rows / 2 * 2;
    if (width < kWidthStep || height < 2) {
        throw Error("picture too small (" + SizeText(picture.cols, picture.rows) + "; at least " +
                    SizeText(kWidthStep, 2) + ")");
    }
    const cv::Mat cut = picture(cv::Rect(0, 0, width, height));
    cv::Mat bgr = cut;
    if (channels != 3) cv::cvtColor(cut, bgr, kCodes[channels]);
    cv::Mat i420;
    cv::cvtColor(bgr, i420, cv::COLOR_BGR2YUV_I420);
    const size_t luma = static_cast<size_t>(width) * height;
    std::vector<uint8_t> nv21(luma * 3 / 2);
    const uint8_t* y = i420.ptr<uint8_t>();
    const uint8_t* u = y + luma;
    const uint8_t* v = u + luma / 4;
    std::copy(y, y + luma, nv21.begin());
    for (size_t i = 0; i < luma / 4; ++i) {
        nv21[luma + 2 * i] = v[i];
        nv21[luma + 2 * i + 1] = u[i];
    }
    size = {width, height};
    return nv21;
}

cv::Mat Nv21ToBgr(const uint8_t* nv21, int width, int height) {
    cv::Mat bgr;
    cv::cvtColor(cv::Mat(height * 3 / 2, width, CV_8UC1, const_cast<uint8_t*>(nv21)), bgr,
                 cv::COLOR_YUV2BGR_NV21);
    return bgr;
}

cv::Mat DecodePicture(const std::vector<uint8_t>& bytes) {
    if (bytes.empty()) throw Error("empty file");
    if (IsDicom(bytes)) throw Error("a DICOM file, which is not read here");
    cv::Mat bgr;
    try {
        bgr = cv::imdecode(bytes, cv::IMREAD_COLOR);
    } catch (const cv::Exception& e) {
        throw Error(DecodeFailure(e));
    }
    if (bgr.empty()) throw Error("not a picture that can be decoded");
    return bgr;
}

cv::Mat ReadPicture(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) throw Error("cannot read (" + std::string(strerror(errno)) + ")");
    std::vector<uint8_t> bytes((std::istreambuf_iterator<char>(in)),
                               std::istreambuf_iterator<char>());
    if (in.bad()) throw Error("cannot read (" + std::string(strerror(errno)) + ")");
    return DecodePicture(bytes);
}

}  // namespace scancode
