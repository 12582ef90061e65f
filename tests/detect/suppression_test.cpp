#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <numeric>
#include <random>
#include <string>

#include "detect/postprocess_calculator.h"
#include "literal_postprocess.h"

namespace {

const float kInf = std::numeric_limits<float>::infinity();
const float kNaN = std::numeric_limits<float>::quiet_NaN();

TEST(CalculateOverlap, InclusivePixelRatio) {
    const struct {
        const char* name;
        float a[4];  // xmin, ymin, xmax, ymax
        float b[4];
        float want;
    } cases[] = {
        {"contained", {0, 0, 9, 9}, {2, 2, 6, 6}, 25.0f / 100.0f},
        // A shared edge is one pixel column of overlap: 11 / (121 + 121 - 11).
        {"shared edge", {0, 0, 10, 10}, {10, 0, 20, 10}, 11.0f / 231.0f},
        {"half pixel gap", {0, 0, 10, 10}, {10.5f, 0, 20, 10}, 5.5f / 231.0f},
        {"one pixel gap", {0, 0, 10, 10}, {11, 0, 21, 10}, 0.0f},
        {"diagonal corner", {0, 0, 10, 10}, {10, 10, 20, 20}, 1.0f / 241.0f},
        {"NaN corner", {0, 0, kNaN, 10}, {0, 0, 10, 10}, 0.0f},
        {"infinite box", {-kInf, 0, 10, 10}, {0, 0, 10, 10}, 0.0f},
    };
    CodeDetectPostprocesCalculator calc;
    for (const auto& k : cases) {
        EXPECT_FLOAT_EQ(
            calc.CalculateOverlap(k.a[0], k.a[1], k.a[2], k.a[3], k.b[0], k.b[1], k.b[2], k.b[3]),
            k.want)
            << k.name;
    }
}

struct Scene {
    std::vector<float> boxes;
    std::vector<int> classIds;
    std::vector<int> order;
};

// Candidates in the detector's input square, sizes around exp(logSize), some
// piled on hot spots, a few degenerate ones.
Scene RandomScene(std::mt19937& rng, int n, float logSize, bool oddBoxes) {
    Scene s;
    std::uniform_real_distribution<float> pos(-20.0f, 660.0f);
    std::normal_distribution<float> size(logSize, 0.7f);
    std::uniform_real_distribution<float> jitter(-3.0f, 3.0f);
    for (int i = 0; i < n; ++i) {
        float x = pos(rng), y = pos(rng);
        if (rng() % 3 == 0) {  // hot spot
            x = 200.0f + jitter(rng) * (1 + rng() % 4);
            y = 300.0f + jitter(rng) * (1 + rng() % 4);
        }
        float w = std::exp(size(rng)), h = std::exp(size(rng));
        if (oddBoxes && rng() % 40 == 0) {
            const float odd[] = {kInf, -kInf, kNaN, 3e30f, -5.0f, 1e7f};
            (rng() % 2 ? w : x) = odd[rng() % 6];
        }
        s.boxes.insert(s.boxes.end(), {x, y, w, h});
        s.classIds.push_back(rng() % 4 == 0 ? 1 : 0);
    }
    s.order.resize(n);
    std::iota(s.order.begin(), s.order.end(), 0);
    std::shuffle(s.order.begin(), s.order.end(), rng);
    for (int& o : s.order)
        if (rng() % 10 == 0) o = -1;
    return s;
}

TEST(Nms, SameSurvivorsAsPairwiseLoop) {
    std::mt19937 rng(5);
    const float thresholds[] = {0.0f, 0.0f, 0.3f, -1.0f, kNaN};
    for (int rep = 0; rep < 60; ++rep) {
        const int n = rep < 10 ? 1 + rep * 7 : 50 + static_cast<int>(rng() % 3000);
        const float logSize = -1.5f + (rep % 7) * 0.8f;
        Scene s = RandomScene(rng, n, logSize, rep % 3 == 0);
        const float threshold = thresholds[rep % 5];
        const int classId = rep % 4 == 3 ? 1 : 0;
        const int count = rep % 6 == 5 ? n - n / 3 : n;

        std::vector<int> want = s.order;
        literal::Nms(count, s.boxes, s.classIds, want, classId, threshold);
        CodeDetectPostprocesCalculator calc;
        EXPECT_EQ(calc.nms(count, s.boxes, s.classIds, s.order, classId, threshold), 0);
        ASSERT_EQ(s.order, want) << "rep " << rep << " n " << n << " threshold " << threshold;
    }
}

}  // namespace
