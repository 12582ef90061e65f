#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>
#include <limits>
#include <numeric>
#include <random>
#include <string>

#include "detect/detection_rules.h"
#include "detect/postprocess_calculator.h"
#include "literal_postprocess.h"

namespace {

struct Distribution {
    const char* name;
    std::function<float(std::mt19937&, int i, int n)> value;
};

const float kInf = std::numeric_limits<float>::infinity();

// Score patterns that stress the partition: few distinct values (as from a
// dequantized network), runs, presorted and adversarial orders.
const Distribution kDistributions[] = {
    {"TwoLevels", [](std::mt19937& g, int, int) { return g() % 2 ? 1.5f : -0.5f; }},
    {"FiveLevels", [](std::mt19937& g, int,
                      int) { return detection_rules::kMinScoreLogitF + 0.25f * (g() % 5); }},
    {"Quantized", [](std::mt19937& g, int, int) { return (int(g() % 256) - 27) / 32.0f; }},
    {"AllEqual", [](std::mt19937&, int, int) { return 0.25f; }},
    {"Continuous",
     [](std::mt19937& g, int, int) { return std::uniform_real_distribution<float>(-0.8f, 6)(g); }},
    {"Ascending", [](std::mt19937&, int i, int) { return i * 0.01f; }},
    {"Descending", [](std::mt19937&, int i, int) { return -i * 0.01f; }},
    {"AscendingPairs", [](std::mt19937&, int i, int) { return static_cast<float>(i / 2); }},
    {"OrganPipe", [](std::mt19937&, int i, int n) { return float(std::min(i, n - i)); }},
    {"Sawtooth", [](std::mt19937&, int i, int) { return static_cast<float>(i % 7); }},
    {"MostlyEqualFewHigh",
     [](std::mt19937& g, int, int) { return g() % 50 ? 0.0f : 1.0f + g() % 3; }},
    {"ZerosAndInfinities",
     [](std::mt19937& g, int, int) {
         const float v[] = {0.0f, -0.0f, kInf, -kInf, 1.0f};
         return v[g() % 5];
     }},
};

const int kSizes[] = {1, 2, 3, 7, 64, 65, 66, 130, 1000, 8525};

void ExpectSameSort(std::vector<float> scores, int left, int right, const std::string& what) {
    std::vector<int> order(scores.size());
    std::iota(order.begin(), order.end(), 0);
    std::vector<float> wantScores = scores;
    std::vector<int> wantOrder = order;
    const int want = literal::QuickSort(wantScores, left, right, wantOrder);

    CodeDetectPostprocesCalculator calc;
    const int got = calc.quickSortIndiceInverse(scores, left, right, order);
    EXPECT_EQ(got, want) << what;
    ASSERT_EQ(order, wantOrder) << what;
    // Bit for bit, so that -0 and +0 land where the literal sort puts them.
    EXPECT_EQ(std::memcmp(scores.data(), wantScores.data(), scores.size() * sizeof(float)), 0)
        << what;
}

TEST(QuickSortIndiceInverse, SamePermutationAsLiteralPartitionSort) {
    std::mt19937 rng(7);
    for (const Distribution& d : kDistributions) {
        for (int n : kSizes) {
            std::vector<float> scores(n);
            for (int i = 0; i < n; ++i) scores[i] = d.value(rng, i, n);
            ExpectSameSort(scores, 0, n - 1, std::string(d.name) + " n=" + std::to_string(n));
            if (n > 10)  // a subrange leaves the rest alone
                ExpectSameSort(scores, n / 5, n - n / 7 - 1, d.name + std::string(" sub"));
        }
    }
}

}  // namespace
