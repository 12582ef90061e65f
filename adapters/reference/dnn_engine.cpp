// OpenCV's dnn module: reads any ONNX graph, so it runs every model the
// adapter accepts. OpenCV computes quantize/dequantize nodes wrongly, so graphs
// stay float and the adapter makes the 8-bit codes itself.

#include <opencv2/dnn.hpp>

#include <exception>

#include "engine.h"

namespace scanref {
namespace {

class DnnEngine : public Engine {
  public:
    DnnEngine(cv::dnn::Net net, const ModelHeader& header)
        : net_(std::move(net)), input_(header.inputName) {
        for (const auto& o : header.outputs) names_.emplace_back(o.name);
    }
    const char* Name() const override { return "dnn"; }
    bool Reserve(int, int, int, std::string*) override { return true; }

    bool Run(const cv::Mat& input, std::vector<cv::Mat>* outputs, std::string* why) override {
        try {
            // dnn's input layer scales the bytes as it reads them, which costs a
            // fraction of what the same cast costs as a graph layer.
            net_.setInput(input, input_, 1.0 / 255.0);
            net_.forward(*outputs, names_);
        } catch (const std::exception& e) {
            *why = e.what();
            return false;
        }
        if (outputs->size() != names_.size()) {
            *why = "the network returned " + std::to_string(outputs->size()) + " outputs";
            return false;
        }
        return true;
    }

  private:
    cv::dnn::Net net_;
    std::string input_;
    std::vector<cv::String> names_;
};

}  // namespace

std::unique_ptr<Engine> MakeDnnEngine(const ModelHeader& header, const unsigned char* onnx,
                                      int threads, std::string* why) {
    try {
        // dnn keeps its own copy: the library frees the model buffer once loaded.
        std::vector<uchar> bytes(onnx, onnx + header.onnxSize);
        cv::dnn::Net net = cv::dnn::readNetFromONNX(bytes);
        if (net.empty()) {
            *why = "the ONNX graph holds no layers";
            return nullptr;
        }
        for (const auto& o : header.outputs) {
            if (net.getLayerId(o.name) < 0) {
                *why = "the graph has no output named " + o.name;
                return nullptr;
            }
        }
        net.setPreferableBackend(cv::dnn::DNN_BACKEND_OPENCV);
        net.setPreferableTarget(cv::dnn::DNN_TARGET_CPU);
        cv::setNumThreads(threads);
        return std::make_unique<DnnEngine>(std::move(net), header);
    } catch (const std::exception& e) {
        *why = std::string("cannot read the ONNX graph: ") + e.what();
        return nullptr;
    }
}

}  // namespace scanref
