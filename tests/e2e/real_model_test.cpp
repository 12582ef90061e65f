// The sample frames shipped with the repository through the library as built
// for a host, run by the Scanner: the reference adapter running our trained detector. Each code
// the samples were rendered with must lie inside a box the library lists.
#include <gtest/gtest.h>

#include <opencv2/imgcodecs.hpp>

#include "scancode/scanner.h"

namespace scancode_test {
namespace {

struct Sample {
    const char* file;
    std::vector<cv::Point> codes;  // centres the generator placed codes at
};

class RealModel : public ::testing::TestWithParam<Sample> {};

TEST_P(RealModel, FindsEveryCodeOfTheSample) {
    const Sample& sample = GetParam();
    const cv::Mat bgr = cv::imread(std::string(SCANCODE_SAMPLES_DIR) + "/" + sample.file);
    ASSERT_FALSE(bgr.empty()) << sample.file;
    scancode::Scanner scanner;
    const scancode::Result result = scanner.Scan(bgr);

    EXPECT_NE(result.code, -1);
    for (const cv::Point& code : sample.codes) {
        const bool found = std::any_of(
            result.boxes.begin(), result.boxes.end(),
            [&](const scancode::Box& b) { return b.listed && b.rect.contains(cv::Point2f(code)); });
        EXPECT_TRUE(found) << sample.file << ": no box around " << code;
    }
}

INSTANTIATE_TEST_SUITE_P(Samples, RealModel,
                         ::testing::Values(Sample{"tilted_label_720p.jpg", {{640, 360}}},
                                           Sample{"headon_code_1080p.jpg", {{900, 520}}},
                                           Sample{"two_codes_720p.jpg", {{420, 330}, {880, 400}}},
                                           Sample{"steep_tilt_1080p.jpg", {{1000, 560}}},
                                           Sample{"foreshortened_label_720p.jpg", {{640, 370}}}),
                         [](const ::testing::TestParamInfo<Sample>& info) {
                             std::string name = info.param.file;
                             return name.substr(0, name.find('.'));
                         });

}  // namespace
}  // namespace scancode_test
