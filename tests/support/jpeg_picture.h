// Reads a JPEG file into a BGR picture with libjpeg, decoded exactly as
// OpenCV's image reader decodes it (the library's defaults: accurate integer
// transform, smooth chroma upsampling), for programs that cannot count on
// OpenCV's image codecs being there, such as the aarch64 build.
#pragma once

#include <csetjmp>
#include <cstdio>
#include <string>

#include <jpeglib.h>
#include <opencv2/core.hpp>

namespace scancode_test {

namespace jpeg_detail {
struct ErrorManager {
    jpeg_error_mgr base;
    jmp_buf jump;
};
[[noreturn]] inline void Fail(j_common_ptr info) {
    longjmp(reinterpret_cast<ErrorManager*>(info->err)->jump, 1);
}
}  // namespace jpeg_detail

// Decodes the JPEG stream in `file` into `bgr`; false on a decoding error.
// `bgr` is the caller's, so nothing local here but libjpeg's own records
// changes between setjmp and a longjmp back.
inline bool DecodeJpeg(FILE* file, cv::Mat* bgr) {
    jpeg_decompress_struct info;
    jpeg_detail::ErrorManager errors;
    info.err = jpeg_std_error(&errors.base);
    errors.base.error_exit = jpeg_detail::Fail;
    if (setjmp(errors.jump) != 0) {
        jpeg_destroy_decompress(&info);
        return false;
    }
    jpeg_create_decompress(&info);
    jpeg_stdio_src(&info, file);
    jpeg_read_header(&info, TRUE);
    info.out_color_space = JCS_EXT_BGR;
    jpeg_start_decompress(&info);
    bgr->create(static_cast<int>(info.output_height), static_cast<int>(info.output_width), CV_8UC3);
    while (info.output_scanline < info.output_height) {
        JSAMPROW row = bgr->ptr<uint8_t>(static_cast<int>(info.output_scanline));
        jpeg_read_scanlines(&info, &row, 1);
    }
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return true;
}

// An empty picture when the file cannot be read or decoded.
inline cv::Mat ReadJpeg(const std::string& path) {
    FILE* file = fopen(path.c_str(), "rb");
    if (file == nullptr) return cv::Mat();
    cv::Mat bgr;
    const bool decoded = DecodeJpeg(file, &bgr);
    fclose(file);
    return decoded ? bgr : cv::Mat();
}

}  // namespace scancode_test
