#include "inference/model_type.h"

#include <gtest/gtest.h>

#include <vector>

namespace {

struct ShapeCase {
    ModelType type;
    int inputNum;
    int outputNum;
    std::vector<int> input;
    std::vector<int> outputs;
};

class SetModelInputOutputTest : public ::testing::TestWithParam<ShapeCase> {};

TEST_P(SetModelInputOutputTest, AssignsTheTableRow) {
    const ShapeCase& c = GetParam();
    int input[4];
    int outputs[20];
    std::fill(std::begin(input), std::end(input), -7);
    std::fill(std::begin(outputs), std::end(outputs), -7);
    int inputNum = -1;
    int outputNum = -1;
    ASSERT_TRUE(SetModelInputOutput(c.type, input, outputs, inputNum, outputNum));
    EXPECT_EQ(inputNum, c.inputNum);
    EXPECT_EQ(outputNum, c.outputNum);
    EXPECT_EQ(std::vector<int>(input, input + 4), c.input);
    EXPECT_EQ(std::vector<int>(outputs, outputs + 4 * c.outputNum), c.outputs);
    // Nothing is written past the type's own outputs.
    for (int i = 4 * c.outputNum; i < 20; ++i) EXPECT_EQ(outputs[i], -7) << i;
}

INSTANTIATE_TEST_SUITE_P(
    Types, SetModelInputOutputTest,
    ::testing::Values(ShapeCase{CODE_DETECT, 1, 5, {1, 3, 640, 640}, {1,  6,  80, 80, 1,  6, 40,
                                                                      40, 1,  6,  20, 20, 1, 6,
                                                                      10, 10, 1,  6,  5,  5}},
                      ShapeCase{RESOLUTION, 1, 1, {1, 1, 192, 192}, {1, 1, 1, 1}},
                      ShapeCase{CLARITY_EVALUATION, 1, 1, {1, 1, 192, 192}, {1, 1, 384, 384}},
                      ShapeCase{PATCH_SCORE, 1, 1, {1, 3, 96, 96}, {1, 1, 1, 5}}));

TEST(SetModelInputOutput, RejectsTypesPastPatchScoreAndTouchesNothing) {
    for (int raw : {4, 5, 1000, -1}) {
        int input[4] = {9, 9, 9, 9};
        int outputs[20];
        std::fill(std::begin(outputs), std::end(outputs), 9);
        int inputNum = 42;
        int outputNum = 43;
        EXPECT_FALSE(
            SetModelInputOutput(static_cast<ModelType>(raw), input, outputs, inputNum, outputNum))
            << raw;
        EXPECT_EQ(inputNum, 42);
        EXPECT_EQ(outputNum, 43);
        for (int v : input) EXPECT_EQ(v, 9);
        for (int v : outputs) EXPECT_EQ(v, 9);
    }
}

TEST(ModelTypeNames, ThreeDisplayNamesInEnumerationOrder) {
    EXPECT_EQ(gModelTypeNames,
              (std::vector<std::string>{"codeDetect", "resolution", "clarityEvaluation"}));
    EXPECT_EQ(sizeof(ModelType), 4u);
}

}  // namespace
