// Reference neural-network adapter for hosts.
//
// It exports the eight functions the library looks up in the platform's adapter
// and really runs the model on the CPU, through XNNPACK or OpenCV's dnn module
// (engine.h). The model file is a small header (input name, output names and
// their 8-bit quantization) followed by an ONNX graph taking the image as float
// NCHW in 0..1 and returning float NHWC maps; see model/README.md. The library
// hands over uint8 NHWC: the adapter splits the channels, or takes their luma
// when the model reads luma, and the engine scales the bytes as it reads them.
// The graph stays float and the adapter produces the 8-bit codes itself:
// q = clamp(round(y / scale) - zeroPoint, 0, 255), which the library turns back
// into (q + zeroPoint) * scale.
//
// A model whose header gives a crop step runs on the part of the letterboxed
// input that holds the picture and one step more, rounded up to that step (a
// 16:9 frame fills 360 of 640 rows: at a step of 64, 448 are run); its cells
// over the rest get code 0, the lowest score, which is what they say about
// black padding anyway.
//
// Every failure returns a null handle or a non-zero status and prints one line
// to stderr; nothing throws across this boundary.

#include <opencv2/core.hpp>
#include <opencv2/imgproc.hpp>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

#include "engine.h"
#include "model_header.h"
#include "picture_extent.h"

namespace {

// Wire layouts of the records the library hands over (little-endian, 64-bit).
constexpr size_t kTensorDimsOffset = 0;
constexpr size_t kTensorRankOffset = 20;
constexpr size_t kTensorNameOffset = 32;
constexpr size_t kTensorIndexOffset = 40;
constexpr size_t kModelNameOffset = 0;
constexpr size_t kModelBufferOffset = 8;
constexpr size_t kModelSizeOffset = 16;

// Large enough for any detector map, small enough that a corrupt record cannot
// make us allocate gigabytes.
constexpr int64_t kMaxTensorBytes = 64 << 20;
constexpr int kMaxInputChannels = 4;

template <typename T>
T ReadField(const void* record, size_t offset) {
    T value;
    std::memcpy(&value, static_cast<const unsigned char*>(record) + offset, sizeof(T));
    return value;
}

void Fail(const char* func, const std::string& why) {
    std::fprintf(stderr, "scanref_adapter: %s: %s\n", func, why.c_str());
}

struct Manager {
    std::unique_ptr<scanref::Engine> engine;
    bool loaded = false;
    std::string modelName;
    scanref::ModelHeader header;
    std::vector<cv::Mat> results;  // the engine's outputs, kept so a run allocates nothing
};

enum class Role { kInput, kOutput };

struct Tensor {
    Manager* manager = nullptr;
    Role role = Role::kInput;
    int output = -1;             // position in the header's output list
    int dims[4] = {0, 0, 0, 0};  // N, H, W, C
    std::vector<uint8_t> data;
    // Input only, allocated with the tensor so that a run allocates nothing:
    // the graph's input as uint8 NCHW, and headers for its planes when the
    // channels are split. The form is the loaded model's when the blob was sized.
    scanref::InputForm form = scanref::InputForm::kPlanes;
    std::vector<cv::Mat> planes;
    cv::Mat blob;
    // The picture's part of the blob, for models with a crop step.
    std::vector<uint8_t> crop;
};

// uint8 NHWC -> the graph's uint8 NCHW input, one image at a time, written
// straight into the blob's planes: the channels split, or their luma. The
// engine scales to float by 1/255 as it reads the blob, so the blob is a
// quarter of a float one.
void ToBlob(Tensor& in) {
    const int n = in.dims[0], h = in.dims[1], w = in.dims[2], c = in.dims[3];
    for (int i = 0; i < n; ++i) {
        const cv::Mat pixels(h, w, CV_8UC(c), in.data.data() + static_cast<size_t>(i) * h * w * c);
        if (in.form == scanref::InputForm::kLuma) {
            cv::Mat luma(h, w, CV_8U, in.blob.ptr<uint8_t>(i, 0));
            cv::cvtColor(pixels, luma, cv::COLOR_RGB2GRAY);  // same size and type: no reallocation
        } else {
            for (int k = 0; k < c; ++k)
                in.planes[k] = cv::Mat(h, w, CV_8U, in.blob.ptr<uint8_t>(i, k));
            cv::split(pixels, in.planes);
        }
    }
}

// The blob, or for a model with a crop step the picture's part of it: a view
// of the blob's first rows when they are all of it (one plane, whole rows, as
// for a luma input of a landscape frame), otherwise copied into the tensor's
// crop buffer (a view of that buffer is returned).
cv::Mat PictureInput(const Manager& m, Tensor& in) {
    const int step = static_cast<int>(m.header.cropStep);
    const int n = in.blob.size[0], c = in.blob.size[1], h = in.blob.size[2], w = in.blob.size[3];
    if (step == 0) return in.blob;
    const cv::Size e = scanref::PictureExtent(in.blob.ptr<uint8_t>(), n * c, h, w, step);
    if (e.width == w && e.height == h) return in.blob;
    const int dims[4] = {n, c, e.height, e.width};
    if (n * c == 1 && e.width == w) return cv::Mat(4, dims, CV_8U, in.blob.data);
    cv::Mat part(4, dims, CV_8U, in.crop.data());
    for (int i = 0; i < n; ++i) {
        for (int k = 0; k < c; ++k) {
            for (int r = 0; r < e.height; ++r)
                std::memcpy(part.ptr<uint8_t>(i, k, r), in.blob.ptr<uint8_t>(i, k, r), e.width);
        }
    }
    return part;
}

// Writes the codes of an N x h x w x C map `y` into an output tensor of N x H x
// W x C cells (h <= H, w <= W: the network ran on the picture's part); the cells
// it did not compute get code 0, the lowest score.
bool WriteOutput(const cv::Mat& y, const scanref::OutputInfo& output, Tensor& t) {
    if (y.type() != CV_32F || !y.isContinuous()) return false;
    if (y.total() == t.data.size()) {
        scanref::QuantizeOutput(y.ptr<float>(), y.total(), output, t.data.data());
        return true;
    }
    if (y.dims != 4 || y.size[0] != t.dims[0] || y.size[1] > t.dims[1] || y.size[2] > t.dims[2] ||
        y.size[3] != t.dims[3])
        return false;
    const size_t cell = t.dims[3], rowIn = y.size[2] * cell, rowOut = t.dims[2] * cell;
    std::fill(t.data.begin(), t.data.end(), 0);
    const float* src = y.ptr<float>();
    for (int i = 0; i < y.size[0]; ++i) {
        uint8_t* dst = t.data.data() + static_cast<size_t>(i) * t.dims[1] * rowOut;
        for (int r = 0; r < y.size[1]; ++r, src += rowIn)
            scanref::QuantizeOutput(src, rowIn, output, dst + r * rowOut);
    }
    return true;
}

// Runs one forward pass and writes the quantized outputs into the tensors.
// SCANREF_TIMING=1: one line a run on stderr with the time of each of its
// steps, the adapter's side of the frame path's stage table.
class StepClock {
  public:
    StepClock() : on_(Enabled()), last_(Clock::now()) {}
    void Lap(const char* step) {
        if (!on_) return;
        const auto now = Clock::now();
        line_ += std::string(line_.empty() ? "" : ", ") + step + " " +
                 std::to_string(std::chrono::duration<double, std::milli>(now - last_).count()) +
                 " ms";
        last_ = now;
    }
    ~StepClock() {
        if (on_) std::fprintf(stderr, "scanref_adapter: run: %s\n", line_.c_str());
    }

  private:
    using Clock = std::chrono::steady_clock;
    static bool Enabled() {
        static const bool on = [] {
            const char* v = std::getenv("SCANREF_TIMING");
            return v != nullptr && std::strcmp(v, "1") == 0;
        }();
        return on;
    }
    bool on_;
    Clock::time_point last_;
    std::string line_;
};

int Run(Manager& m, Tensor& in, Tensor** outs, int outCount) {
    StepClock clock;
    ToBlob(in);
    clock.Lap("input");
    const cv::Mat picture = PictureInput(m, in);
    clock.Lap("crop");
    std::string why;
    if (!m.engine->Run(picture, &m.results, &why)) {
        Fail("NNModelRun", why);
        return -1;
    }
    clock.Lap(m.engine->Name());
    const std::vector<cv::Mat>& results = m.results;

    for (int i = 0; i < outCount; ++i) {
        Tensor& t = *outs[i];
        const scanref::OutputInfo& output = m.header.outputs[t.output];
        const cv::Mat& y = results[t.output];
        if (!WriteOutput(y, output, t)) {
            Fail("NNModelRun", "output " + output.name + " has " + std::to_string(y.total()) +
                                   " values, its tensor " + std::to_string(t.data.size()));
            return -1;
        }
    }
    clock.Lap("output codes");
    return 0;
}

// What a tensor configuration record asks for, and what it is to the model.
struct TensorRequest {
    const char* name = nullptr;
    int32_t index = 0;
    int dims[4] = {0, 0, 0, 0};  // N, H, W, C
    int64_t bytes = 1;
    Role role = Role::kInput;
    int output = -1;
};

bool ReadTensorRecord(const void* config, TensorRequest* r, std::string* why) {
    const auto rank = ReadField<int32_t>(config, kTensorRankOffset);
    r->name = ReadField<const char*>(config, kTensorNameOffset);
    r->index = ReadField<int32_t>(config, kTensorIndexOffset);
    if (r->name == nullptr) {
        *why = "tensor without a name";
        return false;
    }
    if (rank != 4) {
        *why = std::string("tensor ") + r->name + " has rank " + std::to_string(rank) + ", not 4";
        return false;
    }
    for (int i = 0; i < 4; ++i) {
        r->dims[i] = ReadField<int32_t>(config, kTensorDimsOffset + 4 * i);
        if (r->dims[i] < 1 || (r->bytes *= r->dims[i]) > kMaxTensorBytes) {
            *why = std::string("bad dimensions for tensor ") + r->name;
            return false;
        }
    }
    return true;
}

// The model's input or one of its outputs, at the index the model gives it.
bool FindRole(const Manager& m, TensorRequest* r, std::string* why) {
    const int channels = r->dims[3];
    if (m.header.inputName == r->name) {
        r->role = Role::kInput;
        if (r->index != 0) {
            *why = "input tensor index " + std::to_string(r->index) + " (expected 0)";
        } else if (channels > kMaxInputChannels) {
            *why = "input tensor with " + std::to_string(channels) + " channels";
        } else if (m.header.inputForm == scanref::InputForm::kLuma && channels != 3) {
            *why = "the model reads luma, which needs an RGB input tensor, not " +
                   std::to_string(channels) + " channels";
        }
        return why->empty();
    }
    r->role = Role::kOutput;
    r->output = m.header.FindOutput(r->name);
    if (r->output < 0) {
        *why = std::string("unknown tensor ") + r->name;
    } else if (r->index != r->output) {
        *why = std::string("tensor ") + r->name + " has index " + std::to_string(r->index) +
               ", the model's output is " + std::to_string(r->output);
    }
    return why->empty();
}

// The tensor with its data, and for the input every buffer a run needs.
Tensor* MakeTensor(Manager& m, const TensorRequest& r, std::string* why) {
    std::unique_ptr<Tensor> t(new (std::nothrow) Tensor());
    if (t == nullptr) {
        *why = std::string("no memory for tensor ") + r.name;
        return nullptr;
    }
    try {
        t->data.assign(static_cast<size_t>(r.bytes), 0);
        if (r.role == Role::kInput) {
            t->form = m.header.inputForm;
            const bool luma = t->form == scanref::InputForm::kLuma;
            const int nchw[4] = {r.dims[0], luma ? 1 : r.dims[3], r.dims[1], r.dims[2]};
            t->blob.create(4, nchw, CV_8U);
            if (!luma) t->planes.resize(r.dims[3]);
            if (m.header.cropStep != 0) t->crop.resize(t->blob.total());
            std::string engineWhy;
            if (!m.engine->Reserve(nchw[0], nchw[2], nchw[3], &engineWhy))
                throw std::runtime_error(engineWhy);
        }
    } catch (const std::exception& e) {
        *why = std::string("cannot allocate tensor ") + r.name + ": " + e.what();
        return nullptr;
    }
    t->manager = &m;
    t->role = r.role;
    t->output = r.output;
    std::memcpy(t->dims, r.dims, sizeof(r.dims));
    return t.release();
}

}  // namespace

#define SCANREF_EXPORT extern "C" __attribute__((visibility("default")))

SCANREF_EXPORT void* NNModelManagerCreateWithConfig(const void* config) {
    if (config == nullptr) {
        Fail("NNModelManagerCreateWithConfig", "null configuration");
        return nullptr;
    }
    return new (std::nothrow) Manager();
}

SCANREF_EXPORT int NNModelLoadFromBuffer(void* manager, const void* descriptor, int count) {
    const char* func = "NNModelLoadFromBuffer";
    if (manager == nullptr || descriptor == nullptr) {
        Fail(func, "null manager or descriptor");
        return -1;
    }
    if (count != 1) {
        Fail(func, "expected one model descriptor, got " + std::to_string(count));
        return -1;
    }
    auto& m = *static_cast<Manager*>(manager);
    const auto* name = ReadField<const char*>(descriptor, kModelNameOffset);
    const auto* bytes = ReadField<const unsigned char*>(descriptor, kModelBufferOffset);
    const auto size = ReadField<int32_t>(descriptor, kModelSizeOffset);
    if (bytes == nullptr || size <= 0) {
        Fail(func, "empty model buffer (size " + std::to_string(size) + ")");
        return -1;
    }
    scanref::ModelHeader header;
    std::string why;
    size_t onnxOffset = 0;
    if (!scanref::ParseModelHeader(bytes, static_cast<size_t>(size), &header, &onnxOffset, &why)) {
        Fail(func, why);
        return -1;
    }
    scanref::EngineKind kind;
    if (!scanref::EngineFromEnvironment(&kind, &why)) {
        Fail(func, why);
        return -1;
    }
    try {
        m.engine = scanref::MakeEngine(kind, header, bytes + onnxOffset, &why);
    } catch (const std::exception& e) {
        why = e.what();
    }
    if (m.engine == nullptr) {
        Fail(func, why);
        return -1;
    }
    m.header = std::move(header);
    m.modelName = name != nullptr ? name : "";
    m.loaded = true;
    return 0;
}

SCANREF_EXPORT int NNModelUnload(void* manager) {
    if (manager == nullptr) {
        Fail("NNModelUnload", "null manager");
        return -1;
    }
    auto& m = *static_cast<Manager*>(manager);
    if (!m.loaded) {
        Fail("NNModelUnload", "no model loaded");
        return -1;
    }
    m.engine.reset();
    m.loaded = false;
    return 0;
}

SCANREF_EXPORT void NNModelManagerDestroy(void* manager) {
    delete static_cast<Manager*>(manager);
}

SCANREF_EXPORT void* NNTensorBufferCreateWithConfig(void* manager, const void* config) {
    const char* func = "NNTensorBufferCreateWithConfig";
    if (manager == nullptr || config == nullptr) {
        Fail(func, "null manager or configuration");
        return nullptr;
    }
    auto& m = *static_cast<Manager*>(manager);
    if (!m.loaded) {
        Fail(func, "no model loaded");
        return nullptr;
    }
    TensorRequest request;
    std::string why;
    Tensor* t = nullptr;
    if (!ReadTensorRecord(config, &request, &why) || !FindRole(m, &request, &why) ||
        (t = MakeTensor(m, request, &why)) == nullptr) {
        Fail(func, why);
        return nullptr;
    }
    return t;
}

SCANREF_EXPORT void* NNTensorBufferGetData(void* tensor) {
    if (tensor == nullptr) {
        Fail("NNTensorBufferGetData", "null tensor");
        return nullptr;
    }
    return static_cast<Tensor*>(tensor)->data.data();
}

SCANREF_EXPORT void NNTensorBufferDestroy(void* tensor) {
    delete static_cast<Tensor*>(tensor);
}

SCANREF_EXPORT int NNModelRun(void* manager, const char* modelName, void** inputs, int inputCount,
                              void** outputs, int outputCount, int /*timeoutMs*/) {
    const char* func = "NNModelRun";
    if (manager == nullptr || inputs == nullptr || outputs == nullptr) {
        Fail(func, "null manager or tensor list");
        return -1;
    }
    auto& m = *static_cast<Manager*>(manager);
    if (!m.loaded) {
        Fail(func, "no model loaded");
        return -1;
    }
    if (modelName == nullptr || m.modelName != modelName) {
        Fail(func, std::string("unknown model ") + (modelName ? modelName : "(null)"));
        return -1;
    }
    const int known = static_cast<int>(m.header.outputs.size());
    if (inputCount != 1 || outputCount < 1 || outputCount > known) {
        Fail(func, "expected 1 input and 1 to " + std::to_string(known) + " outputs, got " +
                       std::to_string(inputCount) + " and " + std::to_string(outputCount));
        return -1;
    }
    auto* in = static_cast<Tensor*>(inputs[0]);
    if (in == nullptr || in->manager != &m || in->role != Role::kInput) {
        Fail(func, "the input handle is not an input tensor of this model");
        return -1;
    }
    std::vector<Tensor*> outs(outputCount);
    for (int i = 0; i < outputCount; ++i) {
        outs[i] = static_cast<Tensor*>(outputs[i]);
        if (outs[i] == nullptr || outs[i]->manager != &m || outs[i]->role != Role::kOutput) {
            Fail(func,
                 "output handle " + std::to_string(i) + " is not an output tensor of this model");
            return -1;
        }
    }
    try {
        return Run(m, *in, outs.data(), outputCount);
    } catch (const std::exception& e) {
        Fail(func, e.what());
        return -1;
    }
}
