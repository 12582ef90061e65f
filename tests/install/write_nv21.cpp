// Writes a picture as the raw NV21 frame the tool would feed the library and
// prints its size as "WIDTH HEIGHT":  write_nv21 PICTURE OUT.nv21
#include <cstdio>
#include <fstream>

#include <opencv2/imgcodecs.hpp>

#include "frame_source.h"

int main(int argc, char** argv) {
    if (argc != 3) return 2;
    Frame frame;
    if (!ToNV21Frame(cv::imread(argv[1], cv::IMREAD_COLOR), frame)) return 1;
    std::ofstream(argv[2], std::ios::binary)
        .write(reinterpret_cast<const char*>(frame.nv21.data()), frame.nv21.size());
    printf("%d %d\n", frame.width, frame.height);
    return 0;
}
