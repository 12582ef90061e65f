// A detector's ONNX graph read into plain values, for engines that build their
// own operators instead of reading ONNX themselves. Only what a small
// convolutional detector is made of is understood: convolutions (plain, grouped
// and depthwise) with their bias, ReLU, element-wise addition, max pooling and
// the final transposes to channels-last. Anything else makes the read fail with
// the node's name, and the adapter runs the graph on an engine that reads ONNX.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

namespace scanref {

struct OnnxNode {
    enum class Op { kConv, kRelu, kAdd, kMaxPool, kToChannelsLast };
    Op op = Op::kConv;
    std::vector<std::string> inputs;  // activations only; weights are below
    std::string output;
    // kConv and kMaxPool: kernel, stride and padding (top, left, bottom, right).
    int kernel[2] = {1, 1};
    int stride[2] = {1, 1};
    int pads[4] = {0, 0, 0, 0};
    // kConv: group count, channels, and the weights as ONNX stores them:
    // [outChannels][inChannels / groups][kernel h][kernel w], then one bias
    // value per output channel (zeros when the graph has none).
    int groups = 1;
    int inChannels = 0;
    int outChannels = 0;
    std::vector<float> weights;
    std::vector<float> bias;
};

struct OnnxGraph {
    std::string input;
    int inputChannels = 0;
    std::vector<OnnxNode> nodes;  // in an order where every input is made first
};

// Reads a `size`-byte ONNX model. On failure `why` says which node or value
// could not be used.
bool ReadOnnxGraph(const void* bytes, size_t size, OnnxGraph* graph, std::string* why);

}  // namespace scanref
