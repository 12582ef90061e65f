// What the tool prints: JSON that parses whatever the input's name, and the
// timing summary's percentiles.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "frame_report.h"
#include "timing.h"

namespace {

scancode::Result DecodedResult() {
    scancode::Result r;
    r.width = 1280;
    r.height = 720;
    r.code = -2;
    r.boxes.push_back({{100.5f, 200.25f, 50, 60}, true, "text \"quoted\"\n"});
    r.boxes.push_back({{0, 0, 10, 10}, false, ""});
    r.decoded = true;
    return r;
}

TEST(Json, ParsesForEveryName) {
    const std::vector<std::pair<std::string, std::string>> names = {
        {"plain.jpg", "plain.jpg"},
        {"quote\"back\\slash.jpg", "quote\"back\\slash.jpg"},
        {std::string("ctl\x01\t\n\x7f.jpg"), std::string("ctl\x01\t\n\x7f.jpg")},
        {"caf\xc3\xa9.jpg", "caf\xc3\xa9.jpg"},
        {"bad\xff\xfe.jpg", "bad\xef\xbf\xbd\xef\xbf\xbd.jpg"},  // U+FFFD each
        {"cut\xc3.jpg", "cut\xef\xbf\xbd.jpg"},
    };
    for (const auto& [name, parsedName] : names) {
        const std::string line = ToJson(name, DecodedResult());
        EXPECT_EQ(line.find('\n'), std::string::npos) << line;
        nlohmann::json j;
        ASSERT_NO_THROW(j = nlohmann::json::parse(line)) << line;
        EXPECT_EQ(j["frame"], parsedName);
        EXPECT_EQ(j["rc"], -2);
        EXPECT_TRUE(j["zoom"].is_null());
        ASSERT_EQ(j["boxes"].size(), 2u);
        EXPECT_EQ(j["boxes"][0]["text"], "text \"quoted\"\n");
        EXPECT_DOUBLE_EQ(j["boxes"][0]["y"].get<double>(), 200.25);
        EXPECT_TRUE(j["boxes"][1]["text"].is_null());
        EXPECT_FALSE(j["boxes"][1]["listed"].get<bool>());
    }
}

TEST(Json, TextOnlyWhenDecoding) {
    scancode::Result r = DecodedResult();
    r.decoded = false;
    r.zoom = scancode::Zoom{0.65f, 0.808f};
    const nlohmann::json j = nlohmann::json::parse(ToJson("a.jpg", r));
    EXPECT_FALSE(j["boxes"][0].contains("text"));
    EXPECT_DOUBLE_EQ(j["zoom"]["bestZoom"].get<double>(), 0.65);
}

TEST(Timing, NearestRankPercentiles) {
    struct Case {
        std::vector<double> values;
        double p, expected;
    };
    const std::vector<Case> cases = {
        {{}, 50, 0},
        {{7}, 90, 7},
        {{3, 1, 2}, 50, 2},
        {{4, 1, 3, 2}, 50, 2},
        {{10, 1, 2, 3, 4, 5, 6, 7, 8, 9}, 90, 9},
        {{10, 1, 2, 3, 4, 5, 6, 7, 8, 9, 100}, 90, 10},
        {{5, 1}, 100, 5},
        {{5, 1}, 0, 1},
    };
    for (const Case& c : cases) EXPECT_EQ(Percentile(c.values, c.p), c.expected) << c.p;
}

TEST(Timing, WarmUpKeptApart) {
    Timing timing;
    EXPECT_EQ(timing.Summary(), "");
    timing.Add(100, true);
    for (double ms : {3.0, 1.0, 2.0}) timing.Add(ms, false);
    EXPECT_EQ(timing.Summary(),
              "warm-up 100.0 ms; 3 frame(s) after it: median 2.0 ms, 90th percentile 3.0 ms");
}

}  // namespace
