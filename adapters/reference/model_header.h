// The model file the reference adapter reads: a fixed little-endian header, then
// an ONNX graph. The header names the graph's input and outputs and gives each
// output the 8-bit quantization the library dequantizes it with. The graph takes
// the image as float NCHW scaled to 0..1; the adapter converts the library's
// uint8 NHWC tensor to that, as the input form says: its channels as planes, or
// its luma alone. A detector whose cells outside the picture never fire may say
// so with a crop step: the adapter then runs it on the picture's part of the
// letterboxed input only.
//
//   offset  size          content
//   0       4             magic "SCQM"
//   4       uint32        version, 4
//   8       uint32        output count n (1 to 8)
//   12      uint32        ONNX byte count
//   16      char[16]      input name, NUL-padded
//   32      uint32        input form: 0 planes, 1 luma (of an RGB tensor)
//   36      uint32        crop step: 0, or a power of two up to 1024 (see ModelHeader)
//   40      n x 24        per output: char[16] name, float32 scale, int32 zero point
//   40+24n  ONNX bytes
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace scanref {

constexpr char kModelMagic[4] = {'S', 'C', 'Q', 'M'};
constexpr uint32_t kModelVersion = 4;
constexpr size_t kNameBytes = 16;
constexpr size_t kFixedHeaderBytes = 40;
constexpr uint32_t kMaxCropStep = 1024;
constexpr size_t kOutputEntryBytes = kNameBytes + 8;
constexpr uint32_t kMaxOutputs = 8;

struct OutputInfo {
    std::string name;
    float scale = 1.0f;
    int32_t zeroPoint = 0;  // added to the code before scaling: y = (q + zeroPoint) * scale
};

// What the graph's input is made of, from the library's uint8 H x W x C tensor.
enum class InputForm : uint32_t {
    kPlanes = 0,  // the tensor's channels, each a plane
    kLuma = 1,    // one plane: OpenCV's 8-bit RGB-to-grey conversion of a 3-channel tensor
};

struct ModelHeader {
    std::string inputName;
    InputForm inputForm = InputForm::kPlanes;
    // 0: the graph always reads the whole input. Otherwise the graph is fully
    // convolutional and its cells over black letterbox padding never fire: the
    // adapter may run it on the rows and columns that hold the picture, rounded
    // up to a multiple of this step (the coarsest output's stride, so that every
    // output grid stays aligned), and give every other cell code 0.
    uint32_t cropStep = 0;
    std::vector<OutputInfo> outputs;
    size_t onnxSize = 0;

    // Position of the output called `name`, or -1.
    int FindOutput(const std::string& name) const;
};

// Parses and checks the header of a `size`-byte model file; on success the ONNX
// graph starts at *onnxOffset. On failure `why` says what is wrong.
bool ParseModelHeader(const unsigned char* data, size_t size, ModelHeader* header,
                      size_t* onnxOffset, std::string* why);

// The 8-bit code of each float: clamp(round(y / scale) - zeroPoint, 0, 255),
// rounding halves to even as the training's simulated quantization does.
void QuantizeOutput(const float* values, size_t count, const OutputInfo& output, uint8_t* codes);

}  // namespace scanref
