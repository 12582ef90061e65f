#include "inference/model_type.h"

#include <cstring>

const std::vector<std::string> gModelTypeNames = {"codeDetect", "resolution", "clarityEvaluation"};

namespace {

struct ModelShapes {
    int inputNum;
    int outputNum;
    int input[4];
    int outputs[kMaxOutputs][4];
};

// One row per type up to PATCH_SCORE, shapes in N, C, H, W order.
constexpr ModelShapes kModelShapes[] = {
    {1,
     5,
     {1, 3, 640, 640},
     {{1, 6, 80, 80}, {1, 6, 40, 40}, {1, 6, 20, 20}, {1, 6, 10, 10}, {1, 6, 5, 5}}},
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
