// Plain C row kernels: the definition every SIMD path must match byte for byte.
#include "entry/color_convert_row.h"

namespace scancode {

void NV21ToRGBRow_C(const uint8_t* y, const uint8_t* vu, uint8_t* dst, int groups) {
    for (int i = 0; i < groups * 4; ++i) {
        DecodePixel(y[0], vu[0], vu[1], dst);
        DecodePixel(y[1], vu[0], vu[1], dst + 3);
        y += 2;
        vu += 2;
        dst += 6;
    }
}

void BGRToNV21Row_C(const uint8_t* bgr, uint8_t* y, uint8_t* vu, int groups) {
    for (int i = 0; i < groups * 16; ++i, bgr += 3) {
        const int blue = bgr[0], green = bgr[1], red = bgr[2];
        y[i] = Clamp255(EncodeLuma(red, green, blue));
        if (vu != nullptr && i % 2 == 0) {
            vu[i] = Clamp255(EncodeV(red, green, blue));
            vu[i + 1] = Clamp255(EncodeU(red, green, blue));
        }
    }
}

void RGBToNV21Frame_C(uint8_t* dst, const uint8_t* rgb, int width, int height) {
    RGBToNV21FrameBody(dst, rgb, width, height);
}

}  // namespace scancode
