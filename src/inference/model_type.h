// The kinds of model the runtime knows, their display names and the fixed
// tensor shapes of each.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

enum ModelType : int32_t {
    CODE_DETECT = 0,
    RESOLUTION = 1,
    CLARITY_EVALUATION = 2,
    PATCH_SCORE = 3,
    MODEL_TYPE_MAX = 4,  // what a network carries before its type is set
};

// Display names used in log lines, indexed by ModelType 0 to 2 (unchecked).
extern const std::vector<std::string> gModelTypeNames;

// Most inputs and outputs any model type has.
constexpr int kMaxInputs = 1;
constexpr int kMaxOutputs = 5;

// Fills the input and output counts and shapes (N, C, H, W each) of `type`.
// `inputShapes` needs room for 4 integers, `outputShapes` for 20. Types past
// PATCH_SCORE are rejected with false and nothing touched.
bool SetModelInputOutput(ModelType type, int* inputShapes, int* outputShapes, int& inputNum,
                         int& outputNum);
