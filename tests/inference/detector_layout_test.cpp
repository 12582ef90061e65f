// The detector's layout and score threshold are written twice, once for the
// library (C++) and once for training and export (model/layout.py); the
// committed model file carries a third copy of the layout in its header. All
// must agree, or a retrained model would be read back with the wrong
// quantization or head order, or calibrated against another threshold.
#include "inference/detector_layout.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "detect/detection_rules.h"
#include "model_header.h"

namespace {

using detector_layout::kHeadCount;
using detector_layout::kHeads;

// What `python3 -m model.layout` prints, run from the source tree.
nlohmann::json PythonLayout() {
    const std::string command =
        std::string("cd '") + SCANCODE_SOURCE_DIR + "' && python3 -m model.layout";
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) return nullptr;
    std::string text;
    char chunk[4096];
    for (size_t n; (n = fread(chunk, 1, sizeof chunk, pipe)) > 0;) text.append(chunk, n);
    if (pclose(pipe) != 0) return nullptr;
    return nlohmann::json::parse(text, nullptr, false);
}

TEST(DetectorLayout, PythonModuleMatchesTheLibrarysTable) {
    const nlohmann::json layout = PythonLayout();
    ASSERT_TRUE(layout.is_object()) << "python3 -m model.layout gave no JSON object";
    EXPECT_EQ(layout.at("input_side"), detector_layout::kInputSide);
    EXPECT_EQ(layout.at("input_name"), detector_layout::kInputName);
    EXPECT_EQ(layout.at("values_per_cell"), detector_layout::kValuesPerCell);
    EXPECT_EQ(layout.at("output_values"), detector_layout::kOutputValues);
    EXPECT_EQ(layout.at("score_threshold_logit").get<double>(), detection_rules::kMinScoreLogit);
    const nlohmann::json& heads = layout.at("heads");
    ASSERT_EQ(heads.size(), static_cast<size_t>(kHeadCount));
    for (int i = 0; i < kHeadCount; ++i) {
        SCOPED_TRACE("head " + std::to_string(i));
        EXPECT_EQ(heads[i].at("name"), kHeads[i].name);
        EXPECT_EQ(heads[i].at("stride"), kHeads[i].stride);
        EXPECT_EQ(heads[i].at("zero_point"), kHeads[i].zeroPoint);
        // The library holds the scale in single precision; Python's double
        // must round to exactly that float.
        EXPECT_EQ(static_cast<float>(heads[i].at("scale").get<double>()), kHeads[i].scale);
    }
}

TEST(DetectorLayout, CommittedModelHeaderMatchesTheLibrarysTable) {
    const std::string path = std::string(SCANCODE_SOURCE_DIR) + "/model/codeDetect_quantized.bin";
    std::ifstream file(path, std::ios::binary);
    ASSERT_TRUE(file) << path;
    const std::vector<unsigned char> bytes((std::istreambuf_iterator<char>(file)),
                                           std::istreambuf_iterator<char>());
    scanref::ModelHeader header;
    size_t onnxOffset = 0;
    std::string why;
    ASSERT_TRUE(scanref::ParseModelHeader(bytes.data(), bytes.size(), &header, &onnxOffset, &why))
        << why;
    EXPECT_EQ(header.inputName, detector_layout::kInputName);
    ASSERT_EQ(header.outputs.size(), static_cast<size_t>(kHeadCount));
    for (int i = 0; i < kHeadCount; ++i) {
        SCOPED_TRACE("head " + std::to_string(i));
        EXPECT_EQ(header.outputs[i].name, kHeads[i].name);
        EXPECT_EQ(header.outputs[i].zeroPoint, kHeads[i].zeroPoint);
        EXPECT_EQ(header.outputs[i].scale, kHeads[i].scale);
    }
    // The picture's part of the input is run in steps of a head's stride, so that
    // head's map and every finer one cover whole cells (a coarser head is one that
    // never fires: its skipped cells get the lowest code, which it gives anyway).
    if (header.cropStep != 0) {
        EXPECT_TRUE(std::any_of(std::begin(kHeads), std::end(kHeads), [&](const auto& h) {
            return static_cast<uint32_t>(h.stride) == header.cropStep;
        })) << header.cropStep;
    }
}

}  // namespace
