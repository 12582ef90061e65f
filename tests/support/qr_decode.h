// Reads a QR code from a test picture with zxing-cpp.
#pragma once

#ifndef ZX_USE_UTF8
#define ZX_USE_UTF8
#endif
#include <ZXing/ReadBarcode.h>

#include <string>

#include <opencv2/core.hpp>

namespace scancode_test {

// The text of the QR code in an 8-bit grey or BGR picture; empty when none
// is found.
inline std::string DecodeQr(const cv::Mat& picture) {
    if (picture.empty() || picture.depth() != CV_8U) return {};
    const cv::Mat img = picture.isContinuous() ? picture : picture.clone();
    const ZXing::ImageFormat format =
        img.channels() == 1 ? ZXing::ImageFormat::Lum : ZXing::ImageFormat::BGR;
    if (img.channels() != 1 && img.channels() != 3) return {};
    const ZXing::ImageView view(img.data, img.cols, img.rows, format, static_cast<int>(img.step));
    ZXing::DecodeHints hints;
    hints.setFormats(ZXing::BarcodeFormat::QRCode);
    hints.setTryHarder(true);
    hints.setTryRotate(true);
    const ZXing::Result result = ZXing::ReadBarcode(view, hints);
    if (!result.isValid()) return {};
    const ZXing::ByteArray& bytes = result.bytes();
    return std::string(bytes.begin(), bytes.end());
}

}  // namespace scancode_test
