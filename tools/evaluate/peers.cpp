#include "peers.h"

#ifndef ZX_USE_UTF8
#define ZX_USE_UTF8
#endif
#include <ZXing/ReadBarcode.h>

#include <cctype>

#include "match.h"

std::vector<PeerCode> ReadWithZxing(const cv::Mat& luma) {
    CV_Assert(luma.type() == CV_8UC1);
    const ZXing::ImageView view(luma.data, luma.cols, luma.rows, ZXing::ImageFormat::Lum,
                                static_cast<int>(luma.step));
    ZXing::DecodeHints hints;
    hints.setFormats(ZXing::BarcodeFormat::QRCode);
    std::vector<PeerCode> codes;
    for (const ZXing::Result& r : ZXing::ReadBarcodes(view, hints)) {
        if (!r.isValid()) continue;
        std::vector<cv::Point2f> corners;
        for (int i = 0; i < 4; ++i)
            corners.emplace_back(float(r.position()[i].x), float(r.position()[i].y));
        const ZXing::ByteArray& bytes = r.bytes();
        codes.push_back({BoundingRect(corners), std::string(bytes.begin(), bytes.end()), r.text()});
    }
    return codes;
}

std::vector<PeerCode> OpenCvPeer::Detect(const cv::Mat& luma) {
    std::vector<cv::Point2f> points;
    std::vector<PeerCode> codes;
    if (!mDetector.detectMulti(luma, points)) return codes;
    for (size_t i = 0; i + 3 < points.size(); i += 4)
        codes.push_back({BoundingRect({points.begin() + i, points.begin() + i + 4}), {}, {}});
    return codes;
}

std::string NormalisedText(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size(); ++i) {
        if (text[i] == '\r') {
            out += '\n';
            if (i + 1 < text.size() && text[i + 1] == '\n') ++i;
        } else {
            out += text[i];
        }
    }
    while (!out.empty() && std::isspace(static_cast<unsigned char>(out.back()))) out.pop_back();
    return out;
}

bool SameContent(const PeerCode& read, const std::string& bytes, const std::string& text) {
    if (read.bytes.empty() && read.text.empty()) return false;
    if (!bytes.empty() && read.bytes == bytes) return true;
    return NormalisedText(read.text) == NormalisedText(text) ||
           NormalisedText(read.bytes) == NormalisedText(text);
}
