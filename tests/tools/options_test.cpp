// The tool's command line and the names of what it writes.
#include <gtest/gtest.h>

#include <set>

#include "options.h"
#include "output_names.h"

namespace {

struct ParseCase {
    std::vector<std::string> args;
    Command command;
    const char* errorPart;  // in the message of a bad usage
};

TEST(Options, CommandsAndBadUsage) {
    const std::vector<ParseCase> cases = {
        {{"--help"}, Command::kHelp, ""},
        {{"-h", "--bogus"}, Command::kHelp, ""},
        {{"--version"}, Command::kVersion, ""},
        {{"a.jpg"}, Command::kRun, ""},
        {{}, Command::kBadUsage, "no input"},
        {{"--bogus", "a.jpg"}, Command::kBadUsage, "unknown option --bogus"},
        {{"a.jpg", "--out"}, Command::kBadUsage, "--out needs a value"},
        {{"--size", "640x480", "a.nv21"}, Command::kRun, ""},
        {{"--size", "640", "a.nv21"}, Command::kBadUsage, "WxH"},
        {{"--size", "640x480x2", "a.nv21"}, Command::kBadUsage, "WxH"},
        {{"--size", "0x480", "a.nv21"}, Command::kBadUsage, "positive"},
        {{"--size", "650x480", "a.nv21"}, Command::kBadUsage, "multiple of 16"},
        {{"--size", "640x481", "a.nv21"}, Command::kBadUsage, "even"},
        {{"--", "-odd-name.jpg"}, Command::kRun, ""},
    };
    for (const ParseCase& c : cases) {
        Options options;
        std::string error;
        std::string line;
        for (const std::string& a : c.args) line += a + " ";
        EXPECT_EQ(ParseOptions(c.args, options, error), c.command) << line;
        EXPECT_NE(error.find(c.errorPart), std::string::npos) << line << ": " << error;
    }
}

TEST(Options, ValuesAndInputsInOrder) {
    Options o;
    std::string error;
    ASSERT_EQ(ParseOptions({"--json", "a", "--out", "dir", "--decode", "--size", "1280x720", "b",
                            "--verbose", "--", "--c"},
                           o, error),
              Command::kRun);
    EXPECT_TRUE(o.json && o.decode && o.verbose);
    EXPECT_EQ(o.outDir, "dir");
    EXPECT_EQ(o.rawSize, cv::Size(1280, 720));
    EXPECT_EQ(o.inputs, (std::vector<std::string>{"a", "b", "--c"}));
}

TEST(OutputNames, NeverRepeat) {
    OutputNames names;
    const std::vector<std::string> frames = {
        "x/code.jpg",       "y/code.jpg", "code.jpg",  "clip.mp4#0", "clip.mp4#1",
        "other/clip.mp4#0", "code.jpg-2", "a b#c.jpg", "/",          "",
    };
    std::set<std::string> seen;
    for (const std::string& frame : frames) {
        const std::string name = names.For(frame);
        EXPECT_TRUE(seen.insert(name).second) << frame << " got " << name << " again";
        EXPECT_EQ(name.find_first_of("/# "), std::string::npos) << name;
        EXPECT_FALSE(name.empty()) << frame;
    }
    EXPECT_EQ(names.For("z/fresh.png"), "fresh.png");
}

}  // namespace
