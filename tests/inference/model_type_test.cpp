#include "inference/model_type.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

TEST(SetModelInputOutput, AssignsTheTableRowAndNothingElse) {
    const struct {
        int type;  // past PATCH_SCORE: rejected, nothing written
        int outputNum;
        std::vector<int> input;
        std::vector<int> outputs;
    } cases[] = {
        {CODE_DETECT, 5, {1, 3, 640, 640}, {1,  6,  80, 80, 1,  6,  40, 40, 1, 6,
                                            20, 20, 1,  6,  10, 10, 1,  6,  5, 5}},
        {RESOLUTION, 1, {1, 1, 192, 192}, {1, 1, 1, 1}},
        {CLARITY_EVALUATION, 1, {1, 1, 192, 192}, {1, 1, 384, 384}},
        {PATCH_SCORE, 1, {1, 3, 96, 96}, {1, 1, 1, 5}},
        {4, 43, {-7, -7, -7, -7}, {}},
        {-1, 43, {-7, -7, -7, -7}, {}},
    };
    for (const auto& c : cases) {
        int input[4] = {-7, -7, -7, -7};
        int outputs[20];
        std::fill(std::begin(outputs), std::end(outputs), -7);
        int inputNum = 42;
        int outputNum = 43;
        EXPECT_EQ(SetModelInputOutput(static_cast<ModelType>(c.type), input, outputs, inputNum,
                                      outputNum),
                  !c.outputs.empty())
            << c.type;
        EXPECT_EQ(inputNum, c.outputs.empty() ? 42 : 1) << c.type;
        EXPECT_EQ(outputNum, c.outputNum) << c.type;
        EXPECT_EQ(std::vector<int>(input, input + 4), c.input) << c.type;
        EXPECT_EQ(std::vector<int>(outputs, outputs + c.outputs.size()), c.outputs) << c.type;
        for (size_t i = c.outputs.size(); i < 20; ++i) EXPECT_EQ(outputs[i], -7) << c.type;
    }
}

}  // namespace
