#include "inference/model_type.h"

#include <cstring>

#include "inference/detector_layout.h"

const std::vector<std::string> gModelTypeNames = {"codeDetect", "resolution", "clarityEvaluation"};

namespace {

using detector_layout::kHeads;
using detector_layout::kInputChannels;
using detector_layout::kInputSide;
using detector_layout::kValuesPerCell;

struct ModelShapes {
    int inputNum;
    int outputNum;
    int input[4];
    int outputs[kMaxOutputs][4];
};

// One row per type up to PATCH_SCORE, shapes in N, C, H, W order.
constexpr ModelShapes kModelShapes[] = {
    {1,
     detector_layout::kHeadCount,
     {1, kInputChannels, kInputSide, kInputSide},
     {{1, kValuesPerCell, kHeads[0].Grid(), kHeads[0].Grid()},
      {1, kValuesPerCell, kHeads[1].Grid(), kHeads[1].Grid()},
      {1, kValuesPerCell, kHeads[2].Grid(), kHeads[2].Grid()},
      {1, kValuesPerCell, kHeads[3].Grid(), kHeads[3].Grid()},
      {1, kValuesPerCell, kHeads[4].Grid(), kHeads[4].Grid()}}},
    {1, 1, {1, 1, 192, 192}, {{1, 1, 1, 1}}},
    {1, 1, {1, 1, 192, 192}, {{1, 1, 384, 384}}},
    {1, 1, {1, 3, 96, 96}, {{1, 1, 1, 5}}},
};

}  // namespace

bool SetModelInputOutput(ModelType type, int* inputShapes, int* outputShapes, int& inputNum,
                         int& outputNum) {
    if (static_cast<uint32_t>(type) > PATCH_SCORE) {
        return false;
    }
    const ModelShapes& row = kModelShapes[type];
    inputNum = row.inputNum;
    outputNum = row.outputNum;
    if (inputNum > 0 && inputNum < 2) {
        memcpy(inputShapes, row.input, sizeof(int) * 4 * inputNum);
    }
    if (outputNum >= 1 && outputNum <= kMaxOutputs) {
        memcpy(outputShapes, row.outputs, sizeof(int) * 4 * outputNum);
    }
    return true;
}
