#include "onnx_graph.h"

#include <onnx/onnx_pb.h>

#include <cstdint>
#include <cstring>
#include <map>
#include <set>

namespace scanref {
namespace {

struct Constant {
    std::vector<int64_t> dims;
    std::vector<float> values;
};
using Weights = std::map<std::string, Constant>;

bool ReadFloats(const onnx::TensorProto& t, Constant* c) {
    if (t.data_type() != onnx::TensorProto::FLOAT) return false;
    size_t count = 1;
    for (const auto d : t.dims()) {
        if (d < 0 || d > (int64_t{1} << 24) || count > (size_t{1} << 26)) return false;
        count *= static_cast<size_t>(d);
        c->dims.push_back(d);
    }
    std::vector<float>* values = &c->values;
    if (t.has_raw_data()) {
        if (t.raw_data().size() != count * sizeof(float)) return false;
        values->resize(count);
        std::memcpy(values->data(), t.raw_data().data(), t.raw_data().size());
        return true;
    }
    if (static_cast<size_t>(t.float_data_size()) != count) return false;
    values->assign(t.float_data().begin(), t.float_data().end());
    return true;
}

// The node's integer list attribute `name`, which must have `want` entries;
// `fallback` fills it when the attribute is absent.
bool Ints(const onnx::NodeProto& n, const char* name, size_t want, int fallback, int* out) {
    for (size_t i = 0; i < want; ++i) out[i] = fallback;
    for (const auto& a : n.attribute()) {
        if (a.name() != name) continue;
        if (static_cast<size_t>(a.ints_size()) != want) return false;
        for (size_t i = 0; i < want; ++i) {
            const int64_t v = a.ints(static_cast<int>(i));
            if (v < 0 || v > 1024) return false;
            out[i] = static_cast<int>(v);
        }
    }
    return true;
}

// Only explicit padding, no dilation, and no attribute we do not read.
bool PlainWindow(const onnx::NodeProto& n, const std::set<std::string>& known) {
    for (const auto& a : n.attribute()) {
        if (a.name() == "auto_pad" && a.s() != "NOTSET") return false;
        if (a.name() == "ceil_mode" && a.i() != 0) return false;
        if (a.name() == "dilations") {
            for (const auto d : a.ints())
                if (d != 1) return false;
        } else if (!known.count(a.name()) && a.name() != "auto_pad") {
            return false;
        }
    }
    return true;
}

bool Window(const onnx::NodeProto& n, OnnxNode* node) {
    // ONNX lists pads as (top, left, bottom, right) for two spatial axes.
    return Ints(n, "kernel_shape", 2, 0, node->kernel) && Ints(n, "strides", 2, 1, node->stride) &&
           Ints(n, "pads", 4, 0, node->pads) && node->kernel[0] > 0 && node->kernel[1] > 0 &&
           node->stride[0] > 0 && node->stride[1] > 0;
}

bool ReadConv(const onnx::NodeProto& n, const Weights& weights, OnnxNode* node) {
    static const std::set<std::string> known = {"kernel_shape", "strides", "pads", "group",
                                                "dilations"};
    if (!PlainWindow(n, known) || !Window(n, node) || n.input_size() < 2 || n.input_size() > 3)
        return false;
    for (const auto& a : n.attribute())
        if (a.name() == "group") node->groups = static_cast<int>(a.i());
    const auto w = weights.find(n.input(1));
    if (w == weights.end() || node->groups < 1) return false;
    const auto& dims = w->second.dims;  // out, in / groups, kernel h, kernel w
    if (dims.size() != 4 || dims[2] != node->kernel[0] || dims[3] != node->kernel[1] ||
        dims[0] % node->groups != 0)
        return false;
    node->inputs = {n.input(0)};
    node->weights = w->second.values;
    node->outChannels = static_cast<int>(dims[0]);
    node->inChannels = static_cast<int>(dims[1]) * node->groups;
    node->bias.assign(node->outChannels, 0.0f);
    if (n.input_size() == 3) {
        const auto b = weights.find(n.input(2));
        if (b == weights.end() || b->second.values.size() != node->bias.size()) return false;
        node->bias = b->second.values;
    }
    return true;
}

bool ReadNode(const onnx::NodeProto& n, const Weights& weights, OnnxNode* node) {
    if (n.output_size() != 1) return false;
    node->output = n.output(0);
    const std::string& op = n.op_type();
    if (op == "Conv") {
        node->op = OnnxNode::Op::kConv;
        return ReadConv(n, weights, node);
    }
    if (op == "Relu" || op == "Transpose") {
        if (n.input_size() != 1) return false;
        node->inputs = {n.input(0)};
        if (op == "Relu") {
            node->op = OnnxNode::Op::kRelu;
            return n.attribute_size() == 0;
        }
        node->op = OnnxNode::Op::kToChannelsLast;
        int perm[4];
        return Ints(n, "perm", 4, -1, perm) && perm[0] == 0 && perm[1] == 2 && perm[2] == 3 &&
               perm[3] == 1;
    }
    if (op == "Add") {
        node->op = OnnxNode::Op::kAdd;
        node->inputs.assign(n.input().begin(), n.input().end());
        return node->inputs.size() == 2 && !weights.count(n.input(0)) && !weights.count(n.input(1));
    }
    if (op == "MaxPool") {
        node->op = OnnxNode::Op::kMaxPool;
        node->inputs = {n.input(0)};
        static const std::set<std::string> known = {"kernel_shape", "strides",   "pads",
                                                    "dilations",    "ceil_mode", "storage_order"};
        return n.input_size() == 1 && PlainWindow(n, known) && Window(n, node);
    }
    return false;
}

}  // namespace

bool ReadOnnxGraph(const void* bytes, size_t size, OnnxGraph* graph, std::string* why) {
    onnx::ModelProto model;
    if (size > static_cast<size_t>(INT32_MAX) ||
        !model.ParseFromArray(bytes, static_cast<int>(size))) {
        *why = "not an ONNX model";
        return false;
    }
    const auto& g = model.graph();
    Weights weights;
    for (const auto& t : g.initializer()) {
        if (!ReadFloats(t, &weights[t.name()])) {
            *why = "initializer " + t.name() + " is not a float tensor";
            return false;
        }
    }
    OnnxGraph out;
    for (const auto& in : g.input()) {
        if (weights.count(in.name())) continue;  // older exporters list weights as inputs
        const auto& shape = in.type().tensor_type().shape();
        if (!out.input.empty() || shape.dim_size() != 4 || !shape.dim(1).has_dim_value()) {
            *why = "the graph must have one 4-dimensional input with a known channel count";
            return false;
        }
        out.input = in.name();
        out.inputChannels = static_cast<int>(shape.dim(1).dim_value());
    }
    std::set<std::string> made = {out.input};
    for (const auto& n : g.node()) {
        OnnxNode node;
        if (!ReadNode(n, weights, &node)) {
            *why = "node " + n.name() + " (" + n.op_type() + ") is not one this engine runs";
            return false;
        }
        for (const auto& i : node.inputs) {
            if (!made.count(i)) {
                *why = "node " + n.name() + " reads " + i + " before it is made";
                return false;
            }
        }
        made.insert(node.output);
        out.nodes.push_back(std::move(node));
    }
    if (out.input.empty() || out.inputChannels < 1) {
        *why = "the graph has no input";
        return false;
    }
    *graph = std::move(out);
    return true;
}

namespace {

// A step for a layer that writes a map of its own, checked against its inputs.
bool AddStep(const OnnxNode& node, std::map<std::string, int>& mapOf, ChannelsLastPlan* plan,
             std::string* why) {
    PlannedStep s;
    s.node = &node;
    s.in[0] = mapOf.at(node.inputs[0]);
    int channels = plan->channels[s.in[0]];
    if (node.op == OnnxNode::Op::kConv) {
        if (node.inChannels != channels) {
            *why = "a convolution expects " + std::to_string(node.inChannels) +
                   " channels, its input has " + std::to_string(channels);
            return false;
        }
        channels = node.outChannels;
    } else if (node.op == OnnxNode::Op::kAdd) {
        s.in[1] = mapOf.at(node.inputs[1]);
        if (plan->channels[s.in[1]] != channels) {
            *why = "an addition of maps with different channel counts";
            return false;
        }
    }
    s.relu = node.op == OnnxNode::Op::kRelu;
    s.out = static_cast<int>(plan->channels.size());
    plan->channels.push_back(channels);
    mapOf[node.output] = s.out;
    plan->steps.push_back(s);
    return true;
}

}  // namespace

bool PlanChannelsLast(const OnnxGraph& graph, const std::vector<std::string>& outputs,
                      ChannelsLastPlan* plan, std::string* why) {
    using Op = OnnxNode::Op;
    ChannelsLastPlan p;
    p.channels = {graph.inputChannels};
    std::map<std::string, int> mapOf = {{graph.input, 0}}, uses;
    for (const auto& node : graph.nodes)
        for (const auto& i : node.inputs) ++uses[i];
    for (const auto& o : outputs) ++uses[o];
    std::set<std::string> channelsLast;
    std::map<int, int> stepMaking;  // map -> the step that writes it
    for (const auto& node : graph.nodes) {
        for (const auto& i : node.inputs) {
            if (channelsLast.count(i)) {
                *why = "a layer reads " + i + " after its transpose to channels-last";
                return false;
            }
        }
        const int in = mapOf.at(node.inputs[0]);
        if (node.op == Op::kToChannelsLast) {
            mapOf[node.output] = in;
            channelsLast.insert(node.output);
            continue;
        }
        if (node.op == Op::kRelu && uses[node.inputs[0]] == 1 && stepMaking.count(in)) {
            PlannedStep& before = p.steps[stepMaking[in]];
            if ((before.node->op == Op::kConv || before.node->op == Op::kAdd) && !before.relu) {
                before.relu = true;
                mapOf[node.output] = in;
                continue;
            }
        }
        if (!AddStep(node, mapOf, &p, why)) return false;
        stepMaking[p.steps.back().out] = static_cast<int>(p.steps.size()) - 1;
    }
    for (const auto& o : outputs) {
        if (!channelsLast.count(o)) {
            *why = "output " + o + " is not transposed to channels-last";
            return false;
        }
        p.outputs.push_back(mapOf.at(o));
    }
    *plan = std::move(p);
    return true;
}

int SlideOutput(int size, int kernel, int stride, int padBefore, int padAfter) {
    const int span = size + padBefore + padAfter - kernel;
    return span < 0 ? 0 : span / stride + 1;
}

void OutputSize(const OnnxNode& node, int h, int w, int* outH, int* outW) {
    *outH = h, *outW = w;
    if (node.op == OnnxNode::Op::kConv || node.op == OnnxNode::Op::kMaxPool) {
        *outH = SlideOutput(h, node.kernel[0], node.stride[0], node.pads[0], node.pads[2]);
        *outW = SlideOutput(w, node.kernel[1], node.stride[1], node.pads[1], node.pads[3]);
    }
}

}  // namespace scanref
