#include "peers.h"

#ifndef ZX_USE_UTF8
#define ZX_USE_UTF8
#endif
#include <ZXing/ReadBarcode.h>

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

bool SameContent(const PeerCode& read, const std::string& bytes, const std::string& text) {
    return SameContent(read.bytes, read.text, bytes, text);
}
