// Scalar references of the quantization kernels, their walkers and the entry
// points that pick a variant.
#include <cmath>
#include <cstdint>

#include "inference/quantize.h"

namespace {

// Truncation toward zero, saturating, with NaN giving 0.
inline int32_t TruncateSaturate(float u) {
    if (std::isnan(u)) return 0;
    if (u >= 2147483648.0f) return INT32_MAX;
    if (u < -2147483648.0f) return INT32_MIN;
    return static_cast<int32_t>(u);
}

// Saturation to int16 and then to 0..255, as two saturating narrowings.
inline uint8_t NarrowSaturate(int32_t v) {
    const int32_t s16 = v < INT16_MIN ? INT16_MIN : (v > INT16_MAX ? INT16_MAX : v);
    return static_cast<uint8_t>(s16 < 0 ? 0 : (s16 > 255 ? 255 : s16));
}

inline uint8_t RoundClamp(double scaled) {
    const double r = std::round(scaled);  // halves away from zero
    if (!(r > 0.0)) return 0;             // NaN too
    return r >= 255.0 ? 255 : static_cast<uint8_t>(r);
}

}  // namespace

void QuantizePixels_C(float* in, uint8_t* out, size_t n) {
    const size_t blocks = n / 16 * 16;
    for (size_t i = 0; i < blocks; ++i) {
        out[i] = NarrowSaturate(TruncateSaturate(in[i] + 0.5f));
    }
    for (size_t i = blocks; i < n; ++i) {
        const float x = in[i] * kInputScale;
        in[i] = x;
        out[i] = RoundClamp(static_cast<double>(x) * kInputScaleInverse);
    }
}

void QuantizeUnits_C(const float* in, uint8_t* out, size_t n) {
    const size_t blocks = n / 16 * 16;
    for (size_t i = 0; i < blocks; ++i) {
        out[i] = NarrowSaturate(TruncateSaturate(fmaf(in[i], kUnitScale, 0.5f)));
    }
    for (size_t i = blocks; i < n; ++i) {
        out[i] = RoundClamp(static_cast<double>(in[i]) * kInputScaleInverse);
    }
}

namespace scancode {

// Steps are whole blocks, so the reference's blocks start where the
// variant's end and the remainder falls where it would alone.
void RunQuantizePixels(const KernelVariant<QuantizePixelsFn>& kernel, float* in, uint8_t* out,
                       size_t n) {
    const size_t whole = WholeSteps(n, kernel.step);
    if (whole > 0) kernel.fn(in, out, whole);
    if (whole < n) QuantizePixels_C(in + whole, out + whole, n - whole);
}

void RunQuantizeUnits(const KernelVariant<QuantizeUnitsFn>& kernel, const float* in, uint8_t* out,
                      size_t n) {
    const size_t whole = WholeSteps(n, kernel.step);
    if (whole > 0) kernel.fn(in, out, whole);
    if (whole < n) QuantizeUnits_C(in + whole, out + whole, n - whole);
}

}  // namespace scancode

void QuantizePixels(float* in, uint8_t* out, size_t n) {
    static const auto& kernel = scancode::PickVariant(kQuantizePixelsVariants);
    scancode::RunQuantizePixels(kernel, in, out, n);
}

void QuantizeUnits(const float* in, uint8_t* out, size_t n) {
    static const auto& kernel = scancode::PickVariant(kQuantizeUnitsVariants);
    scancode::RunQuantizeUnits(kernel, in, out, n);
}
