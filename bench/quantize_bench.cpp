// The per-frame arithmetic of the inference runtime against plain copies of
// the same bytes: quantizing the 640 x 640 x 3 float input, and dequantizing
// the detector's 51,150 output bytes.
//
//   quantize_bench --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <vector>

#include "inference/code_detect.h"
#include "inference/quantize.h"
#include "inference/tensor_convert.h"

namespace {

constexpr size_t kInputFloats = 640 * 640 * 3;  // 1,228,800
constexpr int kOutputElements[5] = {38400, 9600, 2400, 600, 150};

std::vector<float> PixelInput() {
    std::vector<float> in(kInputFloats);
    for (size_t i = 0; i < in.size(); ++i) in[i] = static_cast<float>((i * 7919) % 25600) / 100.0f;
    return in;
}

void BM_QuantizeInput(benchmark::State& state) {
    const std::vector<float> in = PixelInput();
    std::vector<uint8_t> out(kInputFloats);
    for (auto _ : state) {
        QuantizePixelBlocks(in.data(), out.data(), kInputFloats);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kInputFloats * sizeof(float));
    state.SetLabel(scancode::PickVariant(kQuantizePixelBlocksVariants).name);
}
BENCHMARK(BM_QuantizeInput);

void BM_QuantizeInputScalarReference(benchmark::State& state) {
    const std::vector<float> in = PixelInput();
    std::vector<uint8_t> out(kInputFloats);
    for (auto _ : state) {
        QuantizePixelBlocks_C(in.data(), out.data(), kInputFloats);
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
        QuantizeUnitBlocks(in.data(), out.data(), kInputFloats);
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kInputFloats * sizeof(float));
    state.SetLabel(scancode::PickVariant(kQuantizeUnitBlocksVariants).name);
}
BENCHMARK(BM_QuantizeUnitInput);

// The same 4,915,200 bytes of float input, copied.
void BM_MemcpyInput(benchmark::State& state) {
    const std::vector<float> in = PixelInput();
    std::vector<float> out(kInputFloats);
    for (auto _ : state) {
        memcpy(out.data(), in.data(), kInputFloats * sizeof(float));
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kInputFloats * sizeof(float));
}
BENCHMARK(BM_MemcpyInput);

void BM_DequantizeOutputs(benchmark::State& state) {
    std::vector<std::vector<uint8_t>> heads;
    for (int n : kOutputElements) {
        std::vector<uint8_t> head(n);
        for (int k = 0; k < n; ++k) head[k] = static_cast<uint8_t>(k * 31);
        heads.push_back(head);
    }
    std::vector<float> out(kCodeDetectOutputFloats);
    for (auto _ : state) {
        size_t offset = 0;
        for (int i = 0; i < 5; ++i) {
            Uint8ToFP32(kOutputElements[i], heads[i].data(), out.data() + offset,
                        kCodeDetectZeroPoints[i], kCodeDetectScales[i]);
            offset += kOutputElements[i];
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kCodeDetectOutputFloats * sizeof(float));
    state.SetLabel(scancode::PickVariant(kUint8ToFP32Variants).name);
}
BENCHMARK(BM_DequantizeOutputs);

// The double-precision reference on the same outputs.
void BM_DequantizeOutputsScalarReference(benchmark::State& state) {
    std::vector<std::vector<uint8_t>> heads;
    for (int n : kOutputElements) {
        std::vector<uint8_t> head(n);
        for (int k = 0; k < n; ++k) head[k] = static_cast<uint8_t>(k * 31);
        heads.push_back(head);
    }
    std::vector<float> out(kCodeDetectOutputFloats);
    for (auto _ : state) {
        size_t offset = 0;
        for (int i = 0; i < 5; ++i) {
            Uint8ToFP32_C(kOutputElements[i], heads[i].data(), out.data() + offset,
                          kCodeDetectZeroPoints[i], kCodeDetectScales[i]);
            offset += kOutputElements[i];
        }
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kCodeDetectOutputFloats * sizeof(float));
}
BENCHMARK(BM_DequantizeOutputsScalarReference);

// The 204,600 bytes of float output, copied.
void BM_MemcpyOutputs(benchmark::State& state) {
    std::vector<float> in(kCodeDetectOutputFloats, 1.0f);
    std::vector<float> out(kCodeDetectOutputFloats);
    for (auto _ : state) {
        memcpy(out.data(), in.data(), kCodeDetectOutputFloats * sizeof(float));
        benchmark::DoNotOptimize(out.data());
        benchmark::ClobberMemory();
    }
    state.SetBytesProcessed(state.iterations() * kCodeDetectOutputFloats * sizeof(float));
}
BENCHMARK(BM_MemcpyOutputs);

}  // namespace
