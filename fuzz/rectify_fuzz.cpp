// rectifyQrcodeImg on crops of every size from 1 x 1 up: uniform, noise,
// stripes, and a dark quadrilateral of random corners on a light ground (the
// shape the line path is made for). Every path must return a picture and
// valid corners; nothing may read outside the crop.
#include <cstdint>
#include <vector>

#include <opencv2/imgproc.hpp>

#include "fuzz_support.h"
#include "warp/rectify.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    FuzzedDataProvider in = scancode_fuzz::QuietInput(data, size);

    const int w = in.ConsumeIntegralInRange(1, 300);
    const int h = in.ConsumeIntegralInRange(1, 300);
    cv::Mat crop(h, w, CV_8UC3);
    switch (in.ConsumeIntegralInRange(0, 4)) {
        case 0:
            crop.setTo(cv::Scalar::all(in.ConsumeIntegral<uint8_t>()));
            break;
        case 1: {  // noise from the input, repeated
            std::vector<uint8_t> bytes = in.ConsumeBytes<uint8_t>(4096);
            if (bytes.empty()) bytes.push_back(0);
            uint8_t* p = crop.ptr<uint8_t>();
            for (size_t i = 0; i < crop.total() * 3; ++i) p[i] = bytes[i % bytes.size()];
            break;
        }
        case 2: {  // stripes
            const int period = in.ConsumeIntegralInRange(1, 64);
            const bool vertical = in.ConsumeBool();
            for (int r = 0; r < h; ++r) {
                for (int c = 0; c < w; ++c) {
                    const int k = (vertical ? c : r) / period;
                    crop.at<cv::Vec3b>(r, c) = cv::Vec3b::all(k % 2 ? 20 : 235);
                }
            }
            break;
        }
        case 3: {  // checker board
            const int cell = in.ConsumeIntegralInRange(1, 32);
            for (int r = 0; r < h; ++r) {
                for (int c = 0; c < w; ++c) {
                    crop.at<cv::Vec3b>(r, c) =
                        cv::Vec3b::all(((r / cell + c / cell) % 2) ? 0 : 255);
                }
            }
            break;
        }
        default: {  // dark quadrilaterals on a light ground
            crop.setTo(cv::Scalar::all(230));
            const int shapes = in.ConsumeIntegralInRange(1, 3);
            for (int s = 0; s < shapes; ++s) {
                std::vector<cv::Point> quad;
                for (int k = 0; k < 4; ++k) {
                    quad.emplace_back(in.ConsumeIntegralInRange(-w / 4, w + w / 4),
                                      in.ConsumeIntegralInRange(-h / 4, h + h / 4));
                }
                cv::fillConvexPoly(crop, quad, cv::Scalar::all(in.ConsumeIntegralInRange(0, 60)));
            }
            break;
        }
    }

    QRInformation info{};
    const cv::Mat picture = rectifyQrcodeImg(crop, info);
    if (!info.isValid || picture.type() != crop.type()) __builtin_trap();
    // A picture is square whenever it is not empty (a warp of degenerate
    // corners may legitimately come out 0 x 0).
    if (!picture.empty() && picture.rows != picture.cols) __builtin_trap();
    return 0;
}
