// oneDNN engines, for inference_bench only: the adapter does not use them. They
// are built from the same ONNX graph reading as the XNNPACK engine and keep its
// contract (engine.h).
#pragma once

#include <opencv2/core.hpp>

#include <memory>
#include <string>
#include <vector>

#include "engine.h"

namespace scanref {

// Float, channels-last.
std::unique_ptr<Engine> MakeOnednnEngine(const ModelHeader& header, const unsigned char* onnx,
                                         int threads, std::string* why);

// 8-bit activations and weights. Each map's scale comes from the values it
// takes when the float engine runs `calibration` (uint8 N x C x h x w inputs).
std::unique_ptr<Engine> MakeOnednnInt8Engine(const ModelHeader& header, const unsigned char* onnx,
                                             int threads, const std::vector<cv::Mat>& calibration,
                                             std::string* why);

}  // namespace scanref
