// XNNPACK: channels-last float operators made once per model from the ONNX
// graph's layers. A ReLU whose input feeds nothing else is folded into the
// layer before it as that layer's output clamp, and the final transposes to
// channels-last cost nothing, since every map already is. Operators are set up
// again only when the input's size changes (a new frame size, or another part
// of the letterboxed input holding the picture); the buffers are sized by
// Reserve for the largest input.
//
// It runs on the calling thread. A pool of two saved 15 % of a 640 x 512 pass
// on a quiet machine, but XNNPACK's pool spins while it waits: whenever other
// processes held the cores a pass took 10 to 200 times as long, and the
// spinning is charged as CPU time (README.md, "Inference engines").

#include <pthreadpool.h>
#include <xnnpack.h>

#include <algorithm>
#include <limits>

#include "engine.h"
#include "onnx_graph.h"

namespace scanref {
namespace {

using Op = OnnxNode::Op;

struct Map {
    explicit Map(int c) : channels(c) {}
    int channels = 0;
    int n = 0, h = 0, w = 0;  // as of the last setup
    std::vector<float> data;
};

// A planned step and what the engine makes for it.
struct Step : PlannedStep {
    explicit Step(const PlannedStep& p) : PlannedStep(p), op(p.node->op) {}
    Op op;
    xnn_operator_t x = nullptr;
};

struct PoolDeleter {
    void operator()(pthreadpool* pool) const { pthreadpool_destroy(pool); }
};

class XnnpackEngine : public Engine {
  public:
    ~XnnpackEngine() override {
        for (auto& s : steps_)
            if (s.x != nullptr) xnn_delete_operator(s.x);
    }
    const char* Name() const override { return "xnnpack"; }

    bool Build(const ModelHeader& header, OnnxGraph graph, int threads, std::string* why);
    bool Reserve(int n, int height, int width, std::string* why) override;
    bool Run(const cv::Mat& input, std::vector<cv::Mat>* outputs, std::string* why) override;

  private:
    bool Plan(const ModelHeader& header, std::string* why);
    void FoldPatches();
    bool Create(Step& s, std::string* why);
    bool Setup(int n, int h, int w, bool allocate, std::string* why);
    void ReadInput(const cv::Mat& input);

    OnnxGraph graph_;
    std::vector<Map> maps_;
    std::vector<Step> steps_;
    std::vector<int> outputs_;  // map of each of the header's outputs
    // The first layer as a 1 x 1 convolution over patches, when FoldPatches made it one.
    OnnxNode patchLayer_;
    int patch_[2] = {1, 1};
    std::unique_ptr<pthreadpool, PoolDeleter> pool_;
    int setN_ = 0, setH_ = 0, setW_ = 0;     // shape the operators are set up for
    int roomN_ = 0, roomH_ = 0, roomW_ = 0;  // largest shape the buffers hold
};

// Every value of the graph gets a map; ReLUs and transposes fold away.
bool XnnpackEngine::Plan(const ModelHeader& header, std::string* why) {
    std::vector<std::string> names;
    for (const auto& o : header.outputs) names.push_back(o.name);
    ChannelsLastPlan plan;
    if (!PlanChannelsLast(graph_, names, &plan, why)) return false;
    for (int c : plan.channels) maps_.emplace_back(c);
    for (const auto& p : plan.steps) steps_.emplace_back(p);
    outputs_ = plan.outputs;
    FoldPatches();
    return true;
}

// A layer reading the input whose windows tile it without overlap or padding
// (the detector's 4 x 4 stride-4 patch layer) reads each pixel once: the input
// conversion lays the pixels out patch by patch instead, and the layer becomes a
// 1 x 1 convolution over kh x kw x C channels, the shape XNNPACK runs fastest
// (a third of the time of the 4 x 4 one, which was 15 % of the pass).
void XnnpackEngine::FoldPatches() {
    std::vector<Step*> readers;
    for (auto& s : steps_)
        if (s.in[0] == 0 || s.in[1] == 0) readers.push_back(&s);
    if (readers.size() != 1 || std::count(outputs_.begin(), outputs_.end(), 0) != 0) return;
    Step& step = *readers[0];
    const OnnxNode& n = *step.node;
    if (step.op != Op::kConv || step.in[1] == 0 || n.groups != 1 || n.kernel[0] != n.stride[0] ||
        n.kernel[1] != n.stride[1] || n.kernel[0] * n.kernel[1] == 1 || n.pads[0] || n.pads[1] ||
        n.pads[2] || n.pads[3])
        return;
    const int c = n.inChannels, kh = n.kernel[0], kw = n.kernel[1];
    patchLayer_ = n;
    patchLayer_.kernel[0] = patchLayer_.kernel[1] = 1;
    patchLayer_.stride[0] = patchLayer_.stride[1] = 1;
    patchLayer_.inChannels = c * kh * kw;
    // [out][c][y][x] -> [out][(y * kw + x) * c + c], the order ReadInput writes.
    for (int o = 0; o < n.outChannels; ++o)
        for (int k = 0; k < c; ++k)
            for (int y = 0; y < kh; ++y)
                for (int x = 0; x < kw; ++x)
                    patchLayer_.weights[(static_cast<size_t>(o) * kh * kw + y * kw + x) * c + k] =
                        n.weights[((static_cast<size_t>(o) * c + k) * kh + y) * kw + x];
    step.node = &patchLayer_;
    patch_[0] = kh, patch_[1] = kw;
    maps_[0].channels = c * kh * kw;
}

bool XnnpackEngine::Create(Step& s, std::string* why) {
    const float lo = s.relu ? 0.0f : -std::numeric_limits<float>::infinity();
    const float hi = std::numeric_limits<float>::infinity();
    const OnnxNode& n = *s.node;
    const size_t channels = static_cast<size_t>(maps_[s.out].channels);
    xnn_status status = xnn_status_invalid_parameter;
    if (s.op == Op::kConv) {
        // ONNX keeps each output channel's weights input channel first; XNNPACK
        // wants them last: [out][in / groups][kh][kw] -> [out][kh][kw][in / groups].
        const size_t groupIn = n.inChannels / n.groups, window = n.kernel[0] * n.kernel[1];
        std::vector<float> kernel(n.weights.size());
        for (size_t o = 0; o < static_cast<size_t>(n.outChannels); ++o)
            for (size_t i = 0; i < groupIn; ++i)
                for (size_t k = 0; k < window; ++k)
                    kernel[(o * window + k) * groupIn + i] =
                        n.weights[(o * groupIn + i) * window + k];
        status = xnn_create_convolution2d_nhwc_f32(
            n.pads[0], n.pads[3], n.pads[2], n.pads[1], n.kernel[0], n.kernel[1], n.stride[0],
            n.stride[1], 1, 1, n.groups, groupIn, n.outChannels / n.groups, n.inChannels,
            n.outChannels, kernel.data(), n.bias.data(), lo, hi, 0, &s.x);
    } else if (s.op == Op::kAdd) {
        status = xnn_create_add_nd_f32(lo, hi, 0, &s.x);
    } else if (s.op == Op::kMaxPool) {
        status = xnn_create_max_pooling2d_nhwc_f32(
            n.pads[0], n.pads[3], n.pads[2], n.pads[1], n.kernel[0], n.kernel[1], n.stride[0],
            n.stride[1], 1, 1, channels, channels, channels, lo, hi, 0, &s.x);
    } else if (s.op == Op::kRelu) {
        status = xnn_create_clamp_nc_f32(channels, channels, channels, lo, hi, 0, &s.x);
    }
    if (status != xnn_status_success) {
        *why = "XNNPACK cannot make an operator for " + n.output + " (status " +
               std::to_string(status) + ")";
        return false;
    }
    return true;
}

bool XnnpackEngine::Build(const ModelHeader& header, OnnxGraph graph, int threads,
                          std::string* why) {
    graph_ = std::move(graph);
    if (!Plan(header, why)) return false;
    for (auto& s : steps_)
        if (!Create(s, why)) return false;
    // Without a pool (one thread) XNNPACK runs every operator on the caller's thread.
    if (threads > 1) {
        pool_.reset(pthreadpool_create(threads));
        if (pool_ == nullptr) {
            *why = "cannot start a thread pool";
            return false;
        }
    }
    return true;
}

// Room for a map, and the bytes past its end that XNNPACK's kernels may read.
size_t Floats(int n, int h, int w, int c) {
    return static_cast<size_t>(n) * h * w * c + XNN_EXTRA_BYTES / sizeof(float);
}

bool XnnpackEngine::Setup(int n, int h, int w, bool allocate, std::string* why) {
    maps_[0].n = n;
    maps_[0].h = SlideOutput(h, patch_[0], patch_[0], 0, 0);
    maps_[0].w = SlideOutput(w, patch_[1], patch_[1], 0, 0);
    if (allocate) maps_[0].data.resize(Floats(n, maps_[0].h, maps_[0].w, maps_[0].channels));
    for (auto& s : steps_) {
        Map& in = maps_[s.in[0]];
        Map& out = maps_[s.out];
        out.n = in.n;
        OutputSize(*s.node, in.h, in.w, &out.h, &out.w);
        if (in.h < 1 || in.w < 1 || out.h < 1 || out.w < 1) {
            *why = "an input of " + std::to_string(w) + " x " + std::to_string(h) +
                   " is too small for the graph";
            return false;
        }
        if (allocate) out.data.resize(Floats(out.n, out.h, out.w, out.channels));
        const float* src = in.data.data();
        float* dst = out.data.data();
        xnn_status status = xnn_status_invalid_parameter;
        if (s.op == Op::kConv) {
            status = xnn_setup_convolution2d_nhwc_f32(s.x, in.n, in.h, in.w, src, dst, pool_.get());
        } else if (s.op == Op::kMaxPool) {
            status = xnn_setup_max_pooling2d_nhwc_f32(s.x, in.n, in.h, in.w, src, dst, pool_.get());
        } else if (s.op == Op::kRelu) {
            status = xnn_setup_clamp_nc_f32(s.x, static_cast<size_t>(in.n) * in.h * in.w, src, dst,
                                            pool_.get());
        } else if (s.op == Op::kAdd) {
            const Map& other = maps_[s.in[1]];
            if (other.h != in.h || other.w != in.w) {
                *why = "an addition of maps of different sizes";
                return false;
            }
            const size_t shape[4] = {static_cast<size_t>(in.n), static_cast<size_t>(in.h),
                                     static_cast<size_t>(in.w), static_cast<size_t>(in.channels)};
            status = xnn_setup_add_nd_f32(s.x, 4, shape, 4, shape, src, other.data.data(), dst,
                                          pool_.get());
        }
        if (status != xnn_status_success) {
            *why = "XNNPACK cannot set up " + s.node->output + " (status " +
                   std::to_string(status) + ")";
            return false;
        }
    }
    setN_ = n, setH_ = h, setW_ = w;
    return true;
}

bool XnnpackEngine::Reserve(int n, int height, int width, std::string* why) {
    if (n <= roomN_ && height <= roomH_ && width <= roomW_) return true;
    if (!Setup(n, height, width, true, why)) return false;
    roomN_ = n, roomH_ = height, roomW_ = width;
    return true;
}

// uint8 N x C x h x w -> float N x h x w x C scaled by 1 / 255, into map 0, or
// with patches folded, float N x h / kh x w / kw x (kh x kw x C). The product
// with the float nearest 1 / 255 is what dnn's input layer computes too.
void XnnpackEngine::ReadInput(const cv::Mat& input) {
    const int n = input.size[0], c = input.size[1];
    const int kh = patch_[0], kw = patch_[1], oh = maps_[0].h, ow = maps_[0].w;
    const size_t pixel = static_cast<size_t>(maps_[0].channels);
    const float scale = static_cast<float>(1.0 / 255.0);
    float* dst = maps_[0].data.data();
    for (int i = 0; i < n; ++i) {
        for (int k = 0; k < c; ++k) {
            for (int oy = 0; oy < oh; ++oy) {
                float* row = dst + (static_cast<size_t>(i) * oh + oy) * ow * pixel + k;
                for (int y = 0; y < kh; ++y) {
                    const uchar* src = input.ptr<uchar>(i, k, oy * kh + y);
                    for (int ox = 0; ox < ow; ++ox)
                        for (int x = 0; x < kw; ++x)
                            row[ox * pixel + (y * kw + x) * c] = src[ox * kw + x] * scale;
                }
            }
        }
    }
}

bool XnnpackEngine::Run(const cv::Mat& input, std::vector<cv::Mat>* outputs, std::string* why) {
    const int channels = graph_.inputChannels;
    if (input.dims != 4 || input.type() != CV_8U || !input.isContinuous() ||
        input.size[1] != channels) {
        *why = "the input is not uint8 N x " + std::to_string(channels) + " x H x W";
        return false;
    }
    const int n = input.size[0], h = input.size[2], w = input.size[3];
    if (!Reserve(n, h, w, why)) return false;
    if ((n != setN_ || h != setH_ || w != setW_) && !Setup(n, h, w, false, why)) return false;
    ReadInput(input);
    for (const auto& s : steps_) {
        const xnn_status status = xnn_run_operator(s.x, pool_.get());
        if (status != xnn_status_success) {
            *why =
                "XNNPACK failed on " + s.node->output + " (status " + std::to_string(status) + ")";
            return false;
        }
    }
    outputs->resize(outputs_.size());
    for (size_t i = 0; i < outputs_.size(); ++i) {
        Map& m = maps_[outputs_[i]];
        const int dims[4] = {m.n, m.h, m.w, m.channels};
        (*outputs)[i] = cv::Mat(4, dims, CV_32F, m.data.data());
    }
    return true;
}

}  // namespace

std::unique_ptr<Engine> MakeXnnpackEngine(const ModelHeader& header, const unsigned char* onnx,
                                          int threads, std::string* why) {
    if (xnn_initialize(nullptr) != xnn_status_success) {
        *why = "XNNPACK does not run on this CPU";
        return nullptr;
    }
    OnnxGraph graph;
    if (!ReadOnnxGraph(onnx, header.onnxSize, &graph, why)) return nullptr;
    if (graph.input != header.inputName) {
        *why = "the graph's input is " + graph.input + ", the header names " + header.inputName;
        return nullptr;
    }
    auto engine = std::make_unique<XnnpackEngine>();
    if (!engine->Build(header, std::move(graph), threads, why)) return nullptr;
    return engine;
}

}  // namespace scanref
