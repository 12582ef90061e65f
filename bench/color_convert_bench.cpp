// NV21 decode and encode at preview and full-sensor sizes, side by side with
// the closest conversions of OpenCV and libyuv. OpenCV runs single-threaded
// like our kernels. Compare within one run: Ours / theirs for each size.
#include <benchmark/benchmark.h>
#include <libyuv/convert.h>
#include <libyuv/convert_argb.h>

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <random>
#include <vector>

#include "entry/color_convert.h"
#include "entry/color_convert_row.h"

namespace {

std::vector<uint8_t> RandomBytes(size_t n) {
    std::mt19937 rng(7);
    std::vector<uint8_t> v(n);
    for (auto& b : v) b = static_cast<uint8_t>(rng());
    return v;
}

void Sizes(benchmark::internal::Benchmark* b) {
    b->Args({1920, 1080})->Args({4000, 3000})->Unit(benchmark::kMicrosecond);
}

// Decode: NV21 -> 3-channel 8-bit.

struct DecodeBuffers {
    int w, h;
    std::vector<uint8_t> nv21, out;
    explicit DecodeBuffers(const benchmark::State& s)
        : w(static_cast<int>(s.range(0))),
          h(static_cast<int>(s.range(1))),
          nv21(RandomBytes(static_cast<size_t>(w) * h * 3 / 2)),
          out(static_cast<size_t>(w) * h * 3) {}
    void Count(benchmark::State& s) const {
        s.SetItemsProcessed(static_cast<int64_t>(s.iterations()) * w * h);
    }
};

void BM_Decode_Ours(benchmark::State& s) {
    DecodeBuffers b(s);
    for (auto _ : s) {
        benchmark::DoNotOptimize(NV21toRGB_NEON(b.nv21.data(), b.out.data(), b.w, b.h));
        benchmark::ClobberMemory();
    }
    b.Count(s);
}

void BM_Decode_OursReference(benchmark::State& s) {
    DecodeBuffers b(s);
    for (auto _ : s) {
        benchmark::DoNotOptimize(scancode::NV21ToRGBFrame(scancode::kNV21ToRGBRowVariants[0],
                                                          b.nv21.data(), b.out.data(), b.w, b.h));
        benchmark::ClobberMemory();
    }
    b.Count(s);
}

void BM_Decode_OpenCV(benchmark::State& s) {
    cv::setNumThreads(1);
    DecodeBuffers b(s);
    cv::Mat src(b.h * 3 / 2, b.w, CV_8UC1, b.nv21.data());
    cv::Mat dst(b.h, b.w, CV_8UC3, b.out.data());
    for (auto _ : s) {
        cv::cvtColor(src, dst, cv::COLOR_YUV2RGB_NV21);
        benchmark::ClobberMemory();
    }
    b.Count(s);
}

void BM_Decode_Libyuv(benchmark::State& s) {
    DecodeBuffers b(s);
    const uint8_t* vu = b.nv21.data() + static_cast<size_t>(b.w) * b.h;
    for (auto _ : s) {
        libyuv::NV21ToRGB24(b.nv21.data(), b.w, vu, b.w, b.out.data(), b.w * 3, b.w, b.h);
        benchmark::ClobberMemory();
    }
    b.Count(s);
}

// Encode: 3-channel 8-bit (B, G, R) -> 4:2:0. Neither peer writes NV21
// from 3-channel input; both write planar I420, the closest they have.

struct EncodeBuffers {
    int w, h;
    std::vector<uint8_t> bgr, out;
    explicit EncodeBuffers(const benchmark::State& s)
        : w(static_cast<int>(s.range(0))),
          h(static_cast<int>(s.range(1))),
          bgr(RandomBytes(static_cast<size_t>(w) * h * 3)),
          out(static_cast<size_t>(w) * h * 3 / 2) {}
    void Count(benchmark::State& s) const {
        s.SetItemsProcessed(static_cast<int64_t>(s.iterations()) * w * h);
    }
};

void BM_Encode_Ours(benchmark::State& s) {
    EncodeBuffers b(s);
    cv::Mat src(b.h, b.w, CV_8UC3, b.bgr.data());
    for (auto _ : s) {
        BGRtoNV21_NEON(b.out.data(), src, b.w, b.h);
        benchmark::ClobberMemory();
    }
    b.Count(s);
}

void BM_Encode_OursReference(benchmark::State& s) {
    EncodeBuffers b(s);
    for (auto _ : s) {
        scancode::BGRToNV21Frame(scancode::kBGRToNV21RowVariants[0], b.out.data(), b.bgr.data(),
                                 b.w, b.h);
        benchmark::ClobberMemory();
    }
    b.Count(s);
}

void BM_Encode_OursScalarExport(benchmark::State& s) {
    EncodeBuffers b(s);
    cv::Mat src(b.h, b.w, CV_8UC3, b.bgr.data());
    for (auto _ : s) {
        BGRtoNV21(b.out.data(), src, b.w, b.h);
        benchmark::ClobberMemory();
    }
    b.Count(s);
}

void BM_Encode_OpenCV(benchmark::State& s) {
    cv::setNumThreads(1);
    EncodeBuffers b(s);
    cv::Mat src(b.h, b.w, CV_8UC3, b.bgr.data());
    cv::Mat dst(b.h * 3 / 2, b.w, CV_8UC1, b.out.data());
    for (auto _ : s) {
        cv::cvtColor(src, dst, cv::COLOR_BGR2YUV_I420);
        benchmark::ClobberMemory();
    }
    b.Count(s);
}

void BM_Encode_Libyuv(benchmark::State& s) {
    EncodeBuffers b(s);
    uint8_t* y = b.out.data();
    uint8_t* u = y + static_cast<size_t>(b.w) * b.h;
    uint8_t* v = u + static_cast<size_t>(b.w / 2) * (b.h / 2);
    for (auto _ : s) {
        // libyuv's RGB24 is B, G, R in memory, like our frame image.
        libyuv::RGB24ToI420(b.bgr.data(), b.w * 3, y, b.w, u, b.w / 2, v, b.w / 2, b.w, b.h);
        benchmark::ClobberMemory();
    }
    b.Count(s);
}

BENCHMARK(BM_Decode_Ours)->Apply(Sizes);
BENCHMARK(BM_Decode_OursReference)->Apply(Sizes);
BENCHMARK(BM_Decode_OpenCV)->Apply(Sizes);
BENCHMARK(BM_Decode_Libyuv)->Apply(Sizes);
BENCHMARK(BM_Encode_Ours)->Apply(Sizes);
BENCHMARK(BM_Encode_OursReference)->Apply(Sizes);
BENCHMARK(BM_Encode_OursScalarExport)->Apply(Sizes);
BENCHMARK(BM_Encode_OpenCV)->Apply(Sizes);
BENCHMARK(BM_Encode_Libyuv)->Apply(Sizes);

}  // namespace
