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

// The graph laid out for an engine whose maps are all channels-last: map 0 is
// the input and every step writes a map of its own. A ReLU whose input feeds
// nothing else folds into the convolution or addition before it (`relu`), and
// the final transposes cost nothing, since every map already is channels-last.
struct PlannedStep {
    const OnnxNode* node = nullptr;
    int in[2] = {-1, -1};
    int out = -1;
    bool relu = false;
};

struct ChannelsLastPlan {
    std::vector<int> channels;  // of each map
    std::vector<PlannedStep> steps;
    std::vector<int> outputs;  // the map of each output asked for, in that order
};

// Plans `graph` for the outputs named; fails when an output is not transposed
// to channels-last, a layer reads a transposed map, or channel counts disagree.
bool PlanChannelsLast(const OnnxGraph& graph, const std::vector<std::string>& outputs,
                      ChannelsLastPlan* plan, std::string* why);

// Output size of a window sliding over `size` pixels, as ONNX counts it.
int SlideOutput(int size, int kernel, int stride, int padBefore, int padAfter);

// The height and width of a node's output for an input of h x w.
void OutputSize(const OnnxNode& node, int h, int w, int* outH, int* outW);

}  // namespace scanref
