// The inference engines the reference adapter can run a model on. Each is made
// when the model is loaded; Reserve, called when the input tensor is made,
// sizes every buffer a run needs, so that a run allocates nothing.
//
// XNNPACK is the default where it was found at build time and the graph is
// made only of the layers it is given here (onnx_graph.h): on two cores it
// runs the detector two to three times as fast as OpenCV's dnn, which reads
// any ONNX graph and stays as the engine for the rest (README.md has the
// side-by-side figures). SCANREF_ENGINE=dnn or =xnnpack in the environment picks
// one for tests and benchmarks; loading fails when the one named cannot run the
// model.
#pragma once

#include <opencv2/core.hpp>

#include <memory>
#include <string>
#include <vector>

#include "model_header.h"

namespace scanref {

class Engine {
  public:
    virtual ~Engine() = default;
    virtual const char* Name() const = 0;
    // Makes room for inputs of up to n x c x height x width.
    virtual bool Reserve(int n, int height, int width, std::string* why) = 0;
    // Runs the graph on `input`, uint8 N x C x h x w read as value / 255. On
    // success `outputs` holds the header's outputs in its order as float
    // N x h' x w' x C maps, valid until the next run.
    virtual bool Run(const cv::Mat& input, std::vector<cv::Mat>* outputs, std::string* why) = 0;
};

enum class EngineKind { kAny, kDnn, kXnnpack };

// SCANREF_ENGINE's choice; kAny when unset or empty, false for an unknown name.
bool EngineFromEnvironment(EngineKind* kind, std::string* why);

// The engine for a model whose header is `header` and whose ONNX bytes follow.
// With kAny: XNNPACK when it can run the graph, else OpenCV's dnn.
std::unique_ptr<Engine> MakeEngine(EngineKind kind, const ModelHeader& header,
                                   const unsigned char* onnx, std::string* why);

// The two engines by name, on a given number of threads, for the benchmark;
// null with `why` when one cannot run the model (or XNNPACK was not built in).
std::unique_ptr<Engine> MakeDnnEngine(const ModelHeader& header, const unsigned char* onnx,
                                      int threads, std::string* why);
std::unique_ptr<Engine> MakeXnnpackEngine(const ModelHeader& header, const unsigned char* onnx,
                                          int threads, std::string* why);

}  // namespace scanref
