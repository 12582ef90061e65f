#include "entry/color_convert.h"

#include "entry/color_convert_row.h"

namespace scancode {

void RunNV21ToRGBRow(const KernelVariant<NV21ToRGBRowFn>& row, const uint8_t* y, const uint8_t* vu,
                     uint8_t* dst, int groups) {
    const int whole = WholeSteps(groups, row.step);
    if (whole > 0) row.fn(y, vu, dst, whole);
    if (whole < groups)
        NV21ToRGBRow_C(y + 8 * whole, vu + 8 * whole, dst + 24 * whole, groups - whole);
}

void RunBGRToNV21Row(const KernelVariant<BGRToNV21RowFn>& row, const uint8_t* bgr, uint8_t* y,
                     uint8_t* vu, int groups) {
    const int whole = WholeSteps(groups, row.step);
    if (whole > 0) row.fn(bgr, y, vu, whole);
    if (whole < groups) {
        BGRToNV21Row_C(bgr + 48 * whole, y + 16 * whole, vu != nullptr ? vu + 16 * whole : nullptr,
                       groups - whole);
    }
}

const uint8_t* NV21ToRGBFrame(const KernelVariant<NV21ToRGBRowFn>& row, const uint8_t* src,
                              uint8_t* dst, int width, int height) {
    if (height < 1 || width < 8 || src == nullptr || dst == nullptr) return src;
    const int groups = width / 8;
    const uint8_t* y = src;
    const uint8_t* vu = src + static_cast<size_t>(width) * height;
    for (int r = 0; r < height; ++r) {
        // Two luma rows share one chroma row. Only the chroma pointer is
        // per-row; luma and output run on from group to group, which is why a
        // width that is not a multiple of 8 shifts every following row.
        if (r != 0 && r % 2 == 0) vu += width;
        RunNV21ToRGBRow(row, y, vu, dst, groups);
        y += groups * 8;
        dst += groups * 24;
    }
    return y;
}

void BGRToNV21Frame(const KernelVariant<BGRToNV21RowFn>& row, uint8_t* dst, const uint8_t* src,
                    int width, int height) {
    const int groups = width / 16;
    if (height < 1 || groups < 1 || src == nullptr || dst == nullptr) return;
    uint8_t* vu = dst + static_cast<size_t>(width) * height;
    for (int r = 0; r < height; ++r) {
        const bool chromaRow = r % 2 == 0;
        RunBGRToNV21Row(row, src, dst, chromaRow ? vu : nullptr, groups);
        src += groups * 48;
        dst += groups * 16;
        if (chromaRow) vu += groups * 16;
    }
}

}  // namespace scancode

const uint8_t* NV21toRGB_NEON(const uint8_t* src, uint8_t* dst, int width, int height) {
    static const auto& row = scancode::PickVariant(scancode::kNV21ToRGBRowVariants);
    return scancode::NV21ToRGBFrame(row, src, dst, width, height);
}

void BGRtoNV21_NEON(uint8_t* dst, cv::Mat src, int width, int height) {
    static const auto& row = scancode::PickVariant(scancode::kBGRToNV21RowVariants);
    scancode::BGRToNV21Frame(row, dst, src.data, width, height);
}

void BGRtoNV21(uint8_t* dst, cv::Mat src, int width, int height) {
    if (height < 1 || width < 1 || dst == nullptr || src.data == nullptr) return;
    static const scancode::RGBToNV21FrameFn encode =
        scancode::PickVariant(scancode::kRGBToNV21FrameVariants).fn;
    encode(dst, src.data, width, height);
}
