// The per-frame arithmetic of the inference runtime against plain copies of
// the same bytes: quantizing the detector's float input (kInputFloats), and
// dequantizing its output bytes (kOutputValues).
//
//   quantize_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "inference/detector_layout.h"
#include "inference/quantize.h"
#include "inference/tensor_convert.h"

namespace {

using detector_layout::kHeadCount;
using detector_layout::kHeads;
constexpr size_t kInputFloats = detector_layout::kInputFloats;
constexpr size_t kOutputFloats = detector_layout::kOutputValues;

std::vector<float> PixelInput() {
    std::vector<float> in(kInputFloats);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<float>((i * 7919) % 25600) / 100.0f;
    return in;
}

void BM_QuantizeInput(benchmark::State& state) {
    std::vector<float> in = PixelInput();
    std::vector<uint8_t> out(kInputFloats);
    for (auto _ : state) {
        QuantizePixels(in.data(), out.data(), kInputFloats);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kInputFloats * sizeof(float));
    state.SetLabel(scancode::PickVariant(kQuantizePixelsVariants).name);
}
BENCHMARK(BM_QuantizeInput);

void BM_QuantizeInputScalarReference(benchmark::State& state) {
    std::vector<float> in = PixelInput();
    std::vector<uint8_t> out(kInputFloats);
    for (auto _ : state) {
        QuantizePixels_C(in.data(), out.data(), kInputFloats);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kInputFloats * sizeof(float));
}
BENCHMARK(BM_QuantizeInputScalarReference);

// The same count of 0..1 floats through the unit kernel (the float-input
// models' path).
void BM_QuantizeUnitInput(benchmark::State& state) {
    std::vector<float> in = PixelInput();
    for (float& x : in) x /= 255.0f;
    std::vector<uint8_t> out(kInputFloats);
    for (auto _ : state) {
        QuantizeUnits(in.data(), out.data(), kInputFloats);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kInputFloats * sizeof(float));
    state.SetLabel(scancode::PickVariant(kQuantizeUnitsVariants).name);
}
BENCHMARK(BM_QuantizeUnitInput);

// The same 4,915,200 bytes of float input, copied.
void BM_MemcpyInput(benchmark::State& state) {
    std::vector<float> in = PixelInput();
    std::vector<float> out(kInputFloats);
    for (auto _ : state) {
        memcpy(out.data(), in.data(), kInputFloats * sizeof(float));
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kInputFloats * sizeof(float));
}
BENCHMARK(BM_MemcpyInput);

// Dequantizes the detector's five heads, filled with a spread of codes, with
// `dequantize`.
void DequantizeOutputs(benchmark::State& state, scancode::Uint8ToFP32Fn dequantize) {
    std::vector<std::vector<uint8_t>> heads;
    for (const detector_layout::Head& h : kHeads) {
        const int n = h.Values();
        std::vector<uint8_t> head(n);
        for (int k = 0; k < n; ++k) head[k] = static_cast<uint8_t>(k * 31);
        heads.push_back(head);
    }
    std::vector<float> out(kOutputFloats);
    for (auto _ : state) {
        for (int i = 0; i < kHeadCount; ++i) {
            dequantize(kHeads[i].Values(), heads[i].data(),
                       out.data() + detector_layout::OutputOffset(i), kHeads[i].zeroPoint,
                       kHeads[i].scale);
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kOutputFloats * sizeof(float));
}

void BM_DequantizeOutputs(benchmark::State& state) {
    DequantizeOutputs(state, Uint8ToFP32);
    state.SetLabel(scancode::PickVariant(kUint8ToFP32Variants).name);
}
BENCHMARK(BM_DequantizeOutputs);

// The double-precision reference on the same outputs.
void BM_DequantizeOutputsScalarReference(benchmark::State& state) {
    DequantizeOutputs(state, Uint8ToFP32_C);
}
BENCHMARK(BM_DequantizeOutputsScalarReference);

// The 204,600 bytes of float output, copied.
void BM_MemcpyOutputs(benchmark::State& state) {
    std::vector<float> in(kOutputFloats, 1.0f);
    std::vector<float> out(kOutputFloats);
    for (auto _ : state) {
        memcpy(out.data(), in.data(), kOutputFloats * sizeof(float));
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kOutputFloats * sizeof(float));
}
BENCHMARK(BM_MemcpyOutputs);

}  // namespace
