// oneDNN: one primitive per layer of the ONNX graph, on channels-last maps. As
// in the XNNPACK engine, a ReLU whose input feeds nothing else is folded into
// the convolution or addition before it (here as a post-op), and the final
// transposes to channels-last cost nothing. Each convolution's weights are
// reordered once into the layout its primitive asks for; primitives are made
// again only when the input's size changes, and then the weights only if the
// new primitive wants another layout. Buffers are sized by Reserve for the
// largest input, the scratchpad included (user mode), so that a run allocates
// nothing on this side.
//
// Threads: Debian's libdnnl is built on OpenMP, where oneDNN takes its thread
// count from omp_get_max_threads() both when a primitive is made (its work
// split) and when it runs. Each engine therefore sets its own count around
// every call into oneDNN and puts the caller's back after, so that engines with
// 1 and 2 threads can share the process. The primitive cache keys on the
// thread count, so the two do not reuse each other's primitives.
//
// The 8-bit engine quantizes every map with one scale, from the values it took
// in float runs over calibration inputs (kKept below); ReLU outputs are u8, other
// maps s8, and the header's outputs come out as float. Weights are s8 with one
// scale per output channel. It reads the uint8 input as it is, with scale 1/255.

#include "onednn_engine.h"

#include <omp.h>
#include <oneapi/dnnl/dnnl.hpp>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <map>
#include <set>
#include <stdexcept>
#include <unordered_map>

#include "onnx_graph.h"

namespace scanref {
namespace {

using Op = OnnxNode::Op;
using dt = dnnl::memory::data_type;
using tag = dnnl::memory::format_tag;

struct FreeDeleter {
    void operator()(void* p) const { std::free(p); }
};

// 64-byte aligned bytes that only grow.
struct Buffer {
    std::unique_ptr<void, FreeDeleter> data;
    size_t size = 0;
    void Grow(size_t bytes) {
        if (bytes <= size) return;
        size = (bytes + 63) / 64 * 64;
        data.reset(std::aligned_alloc(64, size));
    }
};

struct Map {
    explicit Map(int c) : channels(c) {}
    int channels = 0;
    int n = 0, h = 0, w = 0;  // as of the last setup
    dt type = dt::f32;
    float scale = 1.0f;  // 8-bit maps: value = code * scale
    Buffer buffer;
    dnnl::memory memory;
};

// A planned step and what the engine makes for it.
struct Step : PlannedStep {
    explicit Step(const PlannedStep& p) : PlannedStep(p), op(p.node->op) {}
    Op op;
    dnnl::memory plainWeights, weights, bias;  // kConv
    std::vector<float> outputScales;           // kConv, 8-bit
    dnnl::primitive primitive;
    std::unordered_map<int, dnnl::memory> args;
};

// OpenMP's thread count for the current thread, set for one engine's calls.
class ThreadCount {
  public:
    explicit ThreadCount(int threads) : before_(omp_get_max_threads()) {
        omp_set_num_threads(threads);
    }
    ~ThreadCount() { omp_set_num_threads(before_); }

  private:
    int before_;
};

// The share of a map's calibration values its 8-bit codes cover; the rest
// saturate. A few values lie far beyond the others (the first layer's largest is
// 20 times its root mean square), and a scale that covers them all leaves the
// rest too few codes. Over the sample frames and photos, 0.9999 left the
// smallest largest code difference from dnn (65; 1: 67, 0.99999: 69, 0.999: 68,
// 0.9995: 82); the share of codes that differ hardly moves (66 to 74 %).
constexpr double kKept = 0.9999;

class OnednnEngine : public Engine {
  public:
    explicit OnednnEngine(bool int8) : int8_(int8) {}
    const char* Name() const override { return int8_ ? "onednn-int8" : "onednn"; }

    // `largest`: for the 8-bit engine, each map's magnitude from the float
    // engine's calibration runs (Observe).
    bool Build(const ModelHeader& header, OnnxGraph graph, int threads,
               const std::vector<float>& largest, std::string* why);
    bool Reserve(int n, int height, int width, std::string* why) override;
    bool Run(const cv::Mat& input, std::vector<cv::Mat>* outputs, std::string* why) override;

    // Raises each map's entry in `largest` to the magnitude that kKept of its
    // values in the last run stay within.
    void Observe(std::vector<float>* largest) const;

  private:
    bool Plan(const ModelHeader& header, std::string* why);
    void Quantize(const std::vector<float>& largest);
    void Setup(int n, int h, int w, bool allocate);
    void ReadInput(const cv::Mat& input);

    bool int8_;
    int threads_ = 1;
    dnnl::engine cpu_{dnnl::engine::kind::cpu, 0};
    dnnl::stream stream_{cpu_};
    OnnxGraph graph_;
    std::vector<Map> maps_;
    std::vector<Step> steps_;
    std::vector<int> outputs_;  // map of each of the header's outputs
    Buffer scratch_;
    int setN_ = 0, setH_ = 0, setW_ = 0;
    int roomN_ = 0, roomH_ = 0, roomW_ = 0;
};

// Every value of the graph gets a map; ReLUs and transposes fold away.
bool OnednnEngine::Plan(const ModelHeader& header, std::string* why) {
    std::vector<std::string> names;
    for (const auto& o : header.outputs) names.push_back(o.name);
    ChannelsLastPlan plan;
    if (!PlanChannelsLast(graph_, names, &plan, why)) return false;
    maps_.clear();
    for (int c : plan.channels) maps_.emplace_back(c);
    for (const auto& p : plan.steps) steps_.emplace_back(p);
    outputs_ = plan.outputs;
    return true;
}

// Types and scales of the 8-bit engine's maps, and its weights in s8.
void OnednnEngine::Quantize(const std::vector<float>& largest) {
    maps_[0].type = dt::u8;
    maps_[0].scale = 1.0f / 255.0f;
    const std::set<int> outputs(outputs_.begin(), outputs_.end());
    for (const auto& s : steps_) {
        Map& out = maps_[s.out];
        const Map& in = maps_[s.in[0]];
        const float top = std::max(largest[s.out], 1e-6f);
        if (outputs.count(s.out)) {
            out.type = dt::f32, out.scale = 1.0f;
        } else if (s.op == Op::kMaxPool || s.op == Op::kRelu) {
            // Both keep their input's codes; a ReLU of s8 codes stays s8.
            out.type = in.type, out.scale = in.scale;
        } else if (s.relu) {
            out.type = dt::u8, out.scale = top / 255.0f;
        } else {
            out.type = dt::s8, out.scale = top / 127.0f;
        }
    }
    for (auto& s : steps_) {
        if (s.op != Op::kConv) continue;
        const OnnxNode& n = *s.node;
        const size_t per = n.weights.size() / n.outChannels;
        const float inScale = maps_[s.in[0]].scale, outScale = maps_[s.out].scale;
        std::vector<int8_t> codes(n.weights.size());
        std::vector<float> bias(n.outChannels);
        s.outputScales.resize(n.outChannels);
        for (int o = 0; o < n.outChannels; ++o) {
            const float* w = n.weights.data() + o * per;
            float top = 0.0f;
            for (size_t i = 0; i < per; ++i) top = std::max(top, std::fabs(w[i]));
            const float ws = top > 0.0f ? top / 127.0f : 1.0f;
            for (size_t i = 0; i < per; ++i)
                codes[o * per + i] = static_cast<int8_t>(std::lrint(w[i] / ws));
            // oneDNN adds the bias to the integer sums, before the output scale.
            bias[o] = n.bias[o] / (inScale * ws);
            s.outputScales[o] = inScale * ws / outScale;
        }
        std::memcpy(s.plainWeights.get_data_handle(), codes.data(), codes.size());
        std::memcpy(s.bias.get_data_handle(), bias.data(), bias.size() * sizeof(float));
    }
}

dnnl::memory::dims WeightDims(const OnnxNode& n) {
    if (n.groups == 1) return {n.outChannels, n.inChannels, n.kernel[0], n.kernel[1]};
    return {n.groups, n.outChannels / n.groups, n.inChannels / n.groups, n.kernel[0], n.kernel[1]};
}

bool OnednnEngine::Build(const ModelHeader& header, OnnxGraph graph, int threads,
                         const std::vector<float>& largest, std::string* why) {
    graph_ = std::move(graph);
    threads_ = threads;
    if (!Plan(header, why)) return false;
    for (auto& s : steps_) {
        if (s.op != Op::kConv) continue;
        const OnnxNode& n = *s.node;
        s.plainWeights = dnnl::memory(
            {WeightDims(n), int8_ ? dt::s8 : dt::f32, n.groups == 1 ? tag::oihw : tag::goihw},
            cpu_);
        s.bias = dnnl::memory({{n.outChannels}, dt::f32, tag::x}, cpu_);
        if (!int8_) {
            std::memcpy(s.plainWeights.get_data_handle(), n.weights.data(),
                        n.weights.size() * sizeof(float));
            std::memcpy(s.bias.get_data_handle(), n.bias.data(), n.bias.size() * sizeof(float));
        }
    }
    if (int8_) {
        for (const auto& o : outputs_) {
            for (const auto& s : steps_) {
                if (s.in[0] == o || s.in[1] == o) {
                    *why = "an output feeds another layer";
                    return false;
                }
            }
        }
        Quantize(largest);
    }
    return true;
}

void OnednnEngine::Setup(int n, int h, int w, bool allocate) {
    const ThreadCount threads(threads_);
    maps_[0].n = n, maps_[0].h = h, maps_[0].w = w;
    for (auto& s : steps_) {
        const Map& in = maps_[s.in[0]];
        Map& out = maps_[s.out];
        out.n = in.n;
        OutputSize(*s.node, in.h, in.w, &out.h, &out.w);
        if (out.h < 1 || out.w < 1)
            throw std::runtime_error("an input of " + std::to_string(w) + " x " +
                                     std::to_string(h) + " is too small for the graph");
    }
    for (size_t i = 0; i < maps_.size(); ++i) {
        Map& m = maps_[i];
        // The 8-bit engine reads the caller's N x C x h x w bytes in place.
        const bool input = i == 0 && int8_;
        const dnnl::memory::desc desc({m.n, m.channels, m.h, m.w}, m.type,
                                      input && m.channels > 1 ? tag::nchw : tag::nhwc);
        if (allocate && !input) m.buffer.Grow(desc.get_size());
        m.memory = dnnl::memory(desc, cpu_, input ? nullptr : m.buffer.data.get());
    }

    // Primitives first, then the scratchpad they need together.
    std::vector<dnnl::memory::desc> scratchpads;
    size_t scratch = 0;
    for (auto& s : steps_) {
        const OnnxNode& node = *s.node;
        const auto& src = maps_[s.in[0]].memory.get_desc();
        const auto& dst = maps_[s.out].memory.get_desc();
        dnnl::primitive_attr a;
        a.set_scratchpad_mode(dnnl::scratchpad_mode::user);
        if (s.relu) {
            dnnl::post_ops ops;
            ops.append_eltwise(1.0f, dnnl::algorithm::eltwise_relu, 0.0f, 0.0f);
            a.set_post_ops(ops);
        }
        const dnnl::memory::dims strides = {node.stride[0], node.stride[1]},
                                 kernel = {node.kernel[0], node.kernel[1]},
                                 padL = {node.pads[0], node.pads[1]},
                                 padR = {node.pads[2], node.pads[3]};
        if (s.op == Op::kConv) {
            if (int8_) a.set_output_scales(1 << 1, s.outputScales);
            const dnnl::memory::desc weights(WeightDims(node), int8_ ? dt::s8 : dt::f32, tag::any);
            const dnnl::convolution_forward::desc d(
                dnnl::prop_kind::forward_inference, dnnl::algorithm::convolution_direct, src,
                weights, s.bias.get_desc(), dst, strides, padL, padR);
            const dnnl::convolution_forward::primitive_desc pd(d, a, cpu_);
            if (!s.weights || pd.weights_desc() != s.weights.get_desc()) {
                s.weights = dnnl::memory(pd.weights_desc(), cpu_);
                dnnl::reorder(s.plainWeights, s.weights)
                    .execute(stream_, s.plainWeights, s.weights);
                stream_.wait();
            }
            s.primitive = dnnl::convolution_forward(pd);
            scratchpads.push_back(pd.scratchpad_desc());
        } else if (s.op == Op::kMaxPool) {
            const dnnl::pooling_forward::desc d(dnnl::prop_kind::forward_inference,
                                                dnnl::algorithm::pooling_max, src, dst, strides,
                                                kernel, padL, padR);
            const dnnl::pooling_forward::primitive_desc pd(d, a, cpu_);
            s.primitive = dnnl::pooling_forward(pd);
            scratchpads.push_back(pd.scratchpad_desc());
        } else if (s.op == Op::kAdd) {
            if (int8_) {
                const float outScale = maps_[s.out].scale;
                a.set_scales(DNNL_ARG_SRC_0, 0, {maps_[s.in[0]].scale / outScale});
                a.set_scales(DNNL_ARG_SRC_1, 0, {maps_[s.in[1]].scale / outScale});
            }
            const dnnl::binary::desc d(dnnl::algorithm::binary_add, src,
                                       maps_[s.in[1]].memory.get_desc(), dst);
            const dnnl::binary::primitive_desc pd(d, a, cpu_);
            s.primitive = dnnl::binary(pd);
            scratchpads.push_back(pd.scratchpad_desc());
        } else {
            const dnnl::eltwise_forward::desc d(dnnl::prop_kind::forward_inference,
                                                dnnl::algorithm::eltwise_relu, src, 0.0f, 0.0f);
            const dnnl::eltwise_forward::primitive_desc pd(d, a, cpu_);
            s.primitive = dnnl::eltwise_forward(pd);
            scratchpads.push_back(pd.scratchpad_desc());
        }
        scratch = std::max(scratch, scratchpads.back().get_size());
    }
    scratch_.Grow(scratch);

    for (size_t i = 0; i < steps_.size(); ++i) {
        Step& s = steps_[i];
        s.args = {{DNNL_ARG_DST, maps_[s.out].memory},
                  {DNNL_ARG_SCRATCHPAD, dnnl::memory(scratchpads[i], cpu_, scratch_.data.get())}};
        if (s.op == Op::kAdd) {
            s.args[DNNL_ARG_SRC_0] = maps_[s.in[0]].memory;
            s.args[DNNL_ARG_SRC_1] = maps_[s.in[1]].memory;
        } else {
            s.args[DNNL_ARG_SRC] = maps_[s.in[0]].memory;
        }
        if (s.op == Op::kConv) {
            s.args[DNNL_ARG_WEIGHTS] = s.weights;
            s.args[DNNL_ARG_BIAS] = s.bias;
        }
    }
    setN_ = n, setH_ = h, setW_ = w;
}

bool OnednnEngine::Reserve(int n, int height, int width, std::string* why) {
    if (n <= roomN_ && height <= roomH_ && width <= roomW_) return true;
    try {
        Setup(n, height, width, true);
    } catch (const std::exception& e) {
        *why = std::string("oneDNN: ") + e.what();
        return false;
    }
    roomN_ = n, roomH_ = height, roomW_ = width;
    return true;
}

// uint8 N x C x h x w -> float N x h x w x C scaled by 1 / 255, into map 0.
void OnednnEngine::ReadInput(const cv::Mat& input) {
    const int n = input.size[0], c = input.size[1], h = input.size[2], w = input.size[3];
    float* dst = static_cast<float*>(maps_[0].buffer.data.get());
    if (c == 1) {
        // The same conversion dnn's input layer makes, so both engines see the same floats.
        cv::Mat(n * h, w, CV_8U, const_cast<uchar*>(input.ptr<uchar>()))
            .convertTo(cv::Mat(n * h, w, CV_32F, dst), CV_32F, 1.0 / 255.0);
        return;
    }
    const float scale = static_cast<float>(1.0 / 255.0);
    for (int i = 0; i < n; ++i)
        for (int k = 0; k < c; ++k) {
            const uchar* src = input.ptr<uchar>(i, k);
            float* out = dst + static_cast<size_t>(i) * h * w * c + k;
            for (int p = 0; p < h * w; ++p) out[static_cast<size_t>(p) * c] = src[p] * scale;
        }
}

bool OnednnEngine::Run(const cv::Mat& input, std::vector<cv::Mat>* outputs, std::string* why) {
    if (input.dims != 4 || input.type() != CV_8U || !input.isContinuous() ||
        input.size[1] != maps_[0].channels) {
        *why = "the input is not uint8 N x " + std::to_string(maps_[0].channels) + " x H x W";
        return false;
    }
    const int n = input.size[0], h = input.size[2], w = input.size[3];
    if (!Reserve(n, h, w, why)) return false;
    try {
        if (n != setN_ || h != setH_ || w != setW_) Setup(n, h, w, false);
        if (int8_)
            maps_[0].memory.set_data_handle(const_cast<uchar*>(input.ptr<uchar>()));
        else
            ReadInput(input);
        const ThreadCount threads(threads_);
        for (auto& s : steps_) s.primitive.execute(stream_, s.args);
        stream_.wait();
    } catch (const std::exception& e) {
        *why = std::string("oneDNN: ") + e.what();
        return false;
    }
    outputs->resize(outputs_.size());
    for (size_t i = 0; i < outputs_.size(); ++i) {
        Map& m = maps_[outputs_[i]];
        const int dims[4] = {m.n, m.h, m.w, m.channels};
        (*outputs)[i] = cv::Mat(4, dims, CV_32F, m.buffer.data.get());
    }
    return true;
}

void OnednnEngine::Observe(std::vector<float>* largest) const {
    largest->resize(maps_.size(), 0.0f);
    std::vector<float> v;
    for (size_t i = 0; i < maps_.size(); ++i) {
        const Map& m = maps_[i];
        const float* data = static_cast<const float*>(m.buffer.data.get());
        v.resize(static_cast<size_t>(m.n) * m.h * m.w * m.channels);
        for (size_t k = 0; k < v.size(); ++k) v[k] = std::fabs(data[k]);
        const size_t at = std::min(v.size() - 1, static_cast<size_t>(kKept * v.size()));
        std::nth_element(v.begin(), v.begin() + at, v.end());
        (*largest)[i] = std::max((*largest)[i], v[at]);
    }
}

std::unique_ptr<OnednnEngine> Make(const ModelHeader& header, const unsigned char* onnx,
                                   int threads, bool int8, const std::vector<float>& largest,
                                   std::string* why) {
    OnnxGraph graph;
    if (!ReadOnnxGraph(onnx, header.onnxSize, &graph, why)) return nullptr;
    if (graph.input != header.inputName) {
        *why = "the graph's input is " + graph.input + ", the header names " + header.inputName;
        return nullptr;
    }
    auto engine = std::make_unique<OnednnEngine>(int8);
    try {
        if (!engine->Build(header, std::move(graph), threads, largest, why)) return nullptr;
    } catch (const std::exception& e) {
        *why = std::string("oneDNN: ") + e.what();
        return nullptr;
    }
    return engine;
}

}  // namespace

std::unique_ptr<Engine> MakeOnednnEngine(const ModelHeader& header, const unsigned char* onnx,
                                         int threads, std::string* why) {
    return Make(header, onnx, threads, false, {}, why);
}

std::unique_ptr<Engine> MakeOnednnInt8Engine(const ModelHeader& header, const unsigned char* onnx,
                                             int threads, const std::vector<cv::Mat>& calibration,
                                             std::string* why) {
    if (calibration.empty()) {
        *why = "no calibration inputs";
        return nullptr;
    }
    auto f32 = Make(header, onnx, threads, false, {}, why);
    if (f32 == nullptr) return nullptr;
    std::vector<float> largest;
    std::vector<cv::Mat> out;
    for (const auto& input : calibration) {
        if (!f32->Run(input, &out, why)) return nullptr;
        f32->Observe(&largest);
    }
    return Make(header, onnx, threads, true, largest, why);
}

}  // namespace scanref
