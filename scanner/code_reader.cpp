#include "code_reader.h"

#ifndef ZX_USE_UTF8
#define ZX_USE_UTF8
#endif
#include <ZXing/ReadBarcode.h>

#include <algorithm>

namespace scancode {

namespace {

// Boxes hug the code; the reader needs some of the quiet zone around it, and
// a straightened code is pasted back a little larger than its box.
constexpr float kMargin = 0.25f;

std::string ReadRegion(const uint8_t* luma, int width, int height, const cv::Rect2f& box) {
    const cv::Rect grown(
        cv::Point(cvFloor(box.x - kMargin * box.width), cvFloor(box.y - kMargin * box.height)),
        cv::Point(cvCeil(box.br().x + kMargin * box.width),
                  cvCeil(box.br().y + kMargin * box.height)));
    const cv::Rect region = grown & cv::Rect(0, 0, width, height);
    if (region.empty()) return {};
    const ZXing::ImageView view(luma + static_cast<size_t>(region.y) * width + region.x,
                                region.width, region.height, ZXing::ImageFormat::Lum, width);
    ZXing::DecodeHints hints;
    hints.setFormats(ZXing::BarcodeFormat::QRCode);
    hints.setTryHarder(true);
    hints.setTryRotate(true);
    const ZXing::Result result = ZXing::ReadBarcode(view, hints);
    return result.isValid() ? result.text() : std::string();
}

}  // namespace

std::vector<std::string> ReadCodes(const uint8_t* nv21, const uint8_t* returnedNv21, int width,
                                   int height, const std::vector<Box>& boxes) {
    std::vector<std::string> texts;
    for (const Box& box : boxes) {
        std::string text;
        if (returnedNv21 != nullptr) text = ReadRegion(returnedNv21, width, height, box.rect);
        if (text.empty()) text = ReadRegion(nv21, width, height, box.rect);
        texts.push_back(std::move(text));
    }
    return texts;
}

}  // namespace scancode
