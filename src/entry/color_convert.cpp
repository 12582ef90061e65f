#include "entry/color_convert.h"

#include "entry/color_convert_row.h"

namespace scancode {

const uint8_t* NV21ToRGBFrame(NV21ToRGBRowFn row, const uint8_t* src, uint8_t* dst, int width,
                              int height) {
    if (height < 1 || width < 8 || src == nullptr || dst == nullptr) return src;
    const int groups = width / 8;
    const uint8_t* y = src;
    const uint8_t* vu = src + static_cast<size_t>(width) * height;
    for (int r = 0; r < height; ++r) {
        // Two luma rows share one chroma row. Only the chroma pointer is
        // per-row; luma and output run on from group to group, which is why a
        // width that is not a multiple of 8 shifts every following row.
        if (r != 0 && r % 2 == 0) vu += width;
        row(y, vu, dst, groups);
        y += groups * 8;
        dst += groups * 24;
    }
    return y;
}

void BGRToNV21Frame(BGRToNV21RowFn row, uint8_t* dst, const uint8_t* src, int width, int height) {
    const int groups = width / 16;
    if (height < 1 || groups < 1 || src == nullptr || dst == nullptr) return;
    uint8_t* vu = dst + static_cast<size_t>(width) * height;
    for (int r = 0; r < height; ++r) {
        const bool chromaRow = r % 2 == 0;
        row(src, dst, chromaRow ? vu : nullptr, groups);
        src += groups * 48;
        dst += groups * 16;
        if (chromaRow) vu += groups * 16;
    }
}

}  // namespace scancode

const uint8_t* NV21toRGB_NEON(const uint8_t* src, uint8_t* dst, int width, int height) {
    static const scancode::NV21ToRGBRowFn row =
        scancode::PickVariant(scancode::kNV21ToRGBRowVariants).fn;
    return scancode::NV21ToRGBFrame(row, src, dst, width, height);
}

void BGRtoNV21_NEON(uint8_t* dst, cv::Mat src, int width, int height) {
    static const scancode::BGRToNV21RowFn row =
        scancode::PickVariant(scancode::kBGRToNV21RowVariants).fn;
    scancode::BGRToNV21Frame(row, dst, src.data, width, height);
}

void BGRtoNV21(uint8_t* dst, cv::Mat src, int width, int height) {
    if (height < 1 || width < 1 || dst == nullptr || src.data == nullptr) return;
    static const scancode::RGBToNV21FrameFn encode =
        scancode::PickVariant(scancode::kRGBToNV21FrameVariants).fn;
    encode(dst, src.data, width, height);
}
