// The built tool run as a user runs it, with the real library, adapter and
// model: exit codes, what goes to stdout and stderr, and the files --out
// writes, on good and bad inputs of every kind.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include <nlohmann/json.hpp>
#include <opencv2/imgcodecs.hpp>
#include <opencv2/imgproc.hpp>
#include <opencv2/videoio.hpp>

#include "frame_source.h"

extern char** environ;

namespace {

namespace fs = std::filesystem;

const std::string kSample = std::string(SCANCODE_SAMPLES_DIR) + "/headon_code_1080p.jpg";

struct ToolRun {
    int exit = -1;
    std::string out, err;
};

std::string Slurp(const fs::path& path) {
    std::ostringstream s;
    s << std::ifstream(path, std::ios::binary).rdbuf();
    return s.str();
}

class Cli : public ::testing::Test {
  protected:
    void SetUp() override {
        dir_ = fs::path(::testing::TempDir()) /
               ("cli_" + std::to_string(getpid()) + "_" +
                ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(dir_);
        fs::create_directories(dir_);
    }
    void TearDown() override { fs::remove_all(dir_); }

    // Runs the tool with stdout and stderr in files (not a terminal), through
    // `launcher` (a program and its arguments) when one is given.
    ToolRun Tool(const std::vector<std::string>& args,
                 const std::vector<std::string>& launcher = {}) {
        std::vector<std::string> argvStrings = launcher;
        argvStrings.push_back(SCANCODE_TOOL);
        argvStrings.insert(argvStrings.end(), args.begin(), args.end());
        std::vector<char*> argv;
        for (std::string& a : argvStrings) argv.push_back(a.data());
        argv.push_back(nullptr);
        const std::string out = (dir_ / "stdout").string(), err = (dir_ / "stderr").string();
        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_addopen(&actions, 0, "/dev/null", O_RDONLY, 0);
        posix_spawn_file_actions_addopen(&actions, 1, out.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0600);
        posix_spawn_file_actions_addopen(&actions, 2, err.c_str(), O_WRONLY | O_CREAT | O_TRUNC,
                                         0600);
        pid_t pid = 0;
        ToolRun run;
        if (posix_spawn(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
            int status = 0;
            waitpid(pid, &status, 0);
            run.exit = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
        }
        posix_spawn_file_actions_destroy(&actions);
        run.out = Slurp(out);
        run.err = Slurp(err);
        return run;
    }
    std::string Write(const std::string& name, const std::string& bytes) {
        const fs::path path = dir_ / name;
        fs::create_directories(path.parent_path());
        std::ofstream(path, std::ios::binary) << bytes;
        return path.string();
    }
    // The sample, cut to `size`, as a picture at `name`.
    std::string Picture(const std::string& name, cv::Size size = {640, 368}) {
        cv::Mat picture;
        cv::resize(cv::imread(kSample), picture, size);
        const fs::path path = dir_ / name;
        fs::create_directories(path.parent_path());
        EXPECT_TRUE(cv::imwrite(path.string(), picture));
        return path.string();
    }
    fs::path dir_;
};

bool Has(const std::string& text, const std::string& part) {
    return text.find(part) != std::string::npos;
}

// The program `name` in one of the PATH folders, or "" when there is none.
std::string FindOnPath(const std::string& name) {
    const char* path = getenv("PATH");
    std::istringstream dirs(path != nullptr ? path : "");
    for (std::string dir; std::getline(dirs, dir, ':');) {
        const fs::path candidate = fs::path(dir.empty() ? "." : dir) / name;
        if (access(candidate.c_str(), X_OK) == 0) return candidate.string();
    }
    return "";
}

// A PNG whose header claims `side` x `side` grey pixels, with one small
// data chunk: decoders read the size before the data.
std::string ClaimedPng(uint32_t side) {
    const auto crc = [](const std::string& bytes) {
        uint32_t c = 0xFFFFFFFFu;
        for (unsigned char b : bytes) {
            c ^= b;
            for (int k = 0; k < 8; ++k) c = (c >> 1) ^ (0xEDB88320u & (0u - (c & 1u)));
        }
        return ~c;
    };
    const auto be32 = [](uint32_t v) {
        return std::string{char(v >> 24), char(v >> 16), char(v >> 8), char(v)};
    };
    const auto chunk = [&](const std::string& type, const std::string& data) {
        return be32(uint32_t(data.size())) + type + data + be32(crc(type + data));
    };
    const std::string header = be32(side) + be32(side) + std::string{8, 0, 0, 0, 0};
    return std::string("\x89PNG\r\n\x1a\n", 8) + chunk("IHDR", header) +
           chunk("IDAT", std::string("\x78\x01\x01\x00\x00\xff\xff\x00\x00\x00\x01", 11)) +
           chunk("IEND", "");
}

size_t Lines(const std::string& text) {
    return std::count(text.begin(), text.end(), '\n');
}

TEST_F(Cli, UsageAndBadCommandLines) {
    const std::string file = Write("file", "x");
    struct Case {
        std::vector<std::string> args;
        int exit;
        const char* out;  // part of stdout, "" for any
        const char* err;  // part of stderr
    };
    const std::vector<Case> cases = {
        {{"--help"}, 0, "usage: scancode", ""},
        {{"--version"}, 0, "scancode " SCANCODE_VERSION " (built ", ""},
        {{}, 2, "", "usage: scancode"},
        {{"--bogus", kSample}, 2, "", "unknown option --bogus"},
        {{"--out", file, kSample}, 2, "", "exists and is not a folder"},
        {{"--out", file + "/sub", kSample}, 2, "", "cannot create"},
    };
    for (const Case& c : cases) {
        const ToolRun run = Tool(c.args);
        const std::string what = c.args.empty() ? "(no arguments)" : c.args[0];
        EXPECT_EQ(run.exit, c.exit) << what << "\n" << run.err;
        EXPECT_TRUE(Has(run.out, c.out)) << what << ": " << run.out;
        EXPECT_TRUE(Has(run.err, c.err)) << what << ": " << run.err;
        if (c.exit == 2) {
            EXPECT_TRUE(Has(run.err, "usage: scancode") || Has(run.err, "--out")) << run.err;
            EXPECT_EQ(run.out, "") << what;
        }
    }
}

// Each input that cannot be read is named with its reason; the others are
// still run, and the exit status says something failed.
TEST_F(Cli, UnreadableInputsAreNamedAndTheRestRun) {
    const std::string good = Picture("good.jpg");
    const std::string folder = (dir_ / "folder").string();
    Picture("folder/fine.png");
    const std::string emptyInFolder = Write("folder/empty.jpg", "");
    const std::string garbageInFolder = Write("folder/garbage.png", "not a picture at all");
    const std::string huge = Write("huge.png", ClaimedPng(60000));
    fs::create_symlink(dir_ / "gone.jpg", dir_ / "folder/dangling.jpg");
    Write("folder/notes.txt", "ignored: not a picture's name");
    const std::string missing = (dir_ / "missing.jpg").string();
    const std::string empty = Write("empty.mp4", "");
    const std::string garbage = Write("garbage.mp4", std::string(4096, 'x'));
    const std::string raw = Write("frames.nv21", std::string(640 * 368 * 3 / 2 + 5, '\x80'));
    const std::string noSize = Write("nosize.yuv", std::string(64, '\x80'));
    const std::string emptyFolder = (dir_ / "nothing").string();
    fs::create_directories(emptyFolder);

    const ToolRun rawRun = Tool({"--size", "640x368", raw, good});
    EXPECT_EQ(rawRun.exit, 1);
    EXPECT_TRUE(Has(rawRun.err, raw + ": 353285 bytes, not a whole number of 640x368 NV21 frames "
                                      "of 353280 bytes"))
        << rawRun.err;
    EXPECT_EQ(Lines(rawRun.out), 1u) << rawRun.out;

    const ToolRun run =
        Tool({missing, folder, empty, good, garbage, noSize, emptyFolder, huge, good});
    EXPECT_EQ(run.exit, 1);
    for (const std::string& named :
         {missing + ": no such file", emptyInFolder + ": empty file",
          garbageInFolder + ": not a picture that can be decoded",
          (dir_ / "folder/dangling.jpg").string() + ": cannot read", empty + ": empty file",
          garbage + ": not a picture, raw NV21", noSize + ": raw NV21 needs --size",
          emptyFolder + ": no pictures", huge + ": picture too large to decode"}) {
        EXPECT_TRUE(Has(run.err, named)) << "missing \"" << named << "\" in\n" << run.err;
    }
    EXPECT_TRUE(Has(run.err, "9 input(s) could not be read")) << run.err;
    // fine.png and good.jpg twice.
    EXPECT_EQ(Lines(run.out), 3u) << run.out;
    EXPECT_TRUE(Has(run.out, "fine.png: rc ")) << run.out;
}

// A library that cannot start ends the run at once, naming the model.
TEST_F(Cli, LibraryThatCannotStart) {
    const std::string notModel = Write("model.bin", "not a model");
    setenv("SCANCODE_MODEL_PATH", notModel.c_str(), 1);
    const ToolRun run = Tool({Picture("good.jpg")});
    unsetenv("SCANCODE_MODEL_PATH");
    EXPECT_EQ(run.exit, 1);
    EXPECT_TRUE(Has(run.err, "scancode: the library could not start")) << run.err;
    EXPECT_EQ(run.out, "");
}

// A video's frames are each run, and a normal run says nothing beyond the
// summary: no messages from the video readers or the library.
TEST_F(Cli, VideoFramesAndAQuietRun) {
    const std::string video = (dir_ / "clip.avi").string();
    {
        cv::Mat picture;
        cv::resize(cv::imread(kSample), picture, {640, 368});
        cv::VideoWriter writer(video, cv::VideoWriter::fourcc('M', 'J', 'P', 'G'), 10,
                               picture.size());
        ASSERT_TRUE(writer.isOpened());
        for (int i = 0; i < 3; ++i) writer.write(picture);
    }
    const ToolRun run = Tool({video, Picture("code.jpg", {1280, 720})});
    EXPECT_EQ(run.exit, 0) << run.err;
    EXPECT_EQ(Lines(run.out), 4u) << run.out;
    for (int i = 0; i < 3; ++i) EXPECT_TRUE(Has(run.out, video + "#" + std::to_string(i) + ": rc"));
    // Only the summary line: nothing from OpenCV, GStreamer, FFmpeg or the
    // library's loader.
    EXPECT_EQ(Lines(run.err), 1u) << run.err;
    for (const char* part : {"4 frame(s)", "warm-up", "median"})
        EXPECT_TRUE(Has(run.err, part)) << run.err;
}

TEST_F(Cli, JsonAndTheSameAnswersOnACpuWithoutAvx) {
    Frame frame;
    ASSERT_TRUE(ToNV21Frame(cv::imread(kSample), frame));
    const std::string raw =
        Write("weird \"name\"\\.nv21", std::string(frame.nv21.begin(), frame.nv21.end()));
    const std::string size = std::to_string(frame.width) + "x" + std::to_string(frame.height);
    auto runIn = [&](const std::string& out, const std::vector<std::string>& launcher) {
        return Tool({"--json", "--decode", "--out", (dir_ / out).string(), "--size", size, raw,
                     SCANCODE_SAMPLES_DIR},
                    launcher);
    };
    // Every frame's line but its timing.
    auto frames = [](const std::string& out) {
        std::vector<nlohmann::json> lines;
        std::istringstream in(out);
        for (std::string line; std::getline(in, line);) {
            nlohmann::json j = nlohmann::json::parse(line, nullptr, false);
            EXPECT_FALSE(j.is_discarded()) << line;
            if (j.is_object()) j.erase("ms");
            lines.push_back(j);
        }
        return lines;
    };
    const ToolRun native = runIn("native", {});
    ASSERT_EQ(native.exit, 0) << native.err;
    EXPECT_EQ(native.err, "") << "--json prints no summary or progress";
    const std::vector<nlohmann::json> want = frames(native.out);
    ASSERT_EQ(want.size(), 6u) << native.out;
    EXPECT_EQ(want[0]["frame"], raw + "#0");
    ASSERT_EQ(want[0]["rc"], 0) << want[0];
    ASSERT_FALSE(want[0]["boxes"].empty()) << want[0];
    EXPECT_TRUE(want[0]["boxes"][0]["text"].is_string()) << want[0];
    int warped = 0, sameSample = 0;
    for (const nlohmann::json& j : want) {
        warped += j["sentWarp"] == true;
        if (Has(j["frame"].get<std::string>(), "/headon_code_1080p.jpg")) {
            ++sameSample;
            EXPECT_EQ(j["boxes"][0]["text"], want[0]["boxes"][0]["text"]) << j;
        }
    }
    EXPECT_EQ(sameSample, 1) << native.out;
    EXPECT_GT(warped, 0) << "no straightened frame: the encoder went unused";
    std::vector<std::string> names;
    for (const auto& entry : fs::directory_iterator(dir_ / "native")) {
        names.push_back(entry.path().filename().string());
    }
    EXPECT_EQ(names.size(), 6u + warped);

#if !defined(__x86_64__)
    GTEST_SKIP() << "the run on an older CPU is x86-64 only";
#elif defined(SCANCODE_TESTS_SANITIZED)
    GTEST_SKIP() << "sanitizer runtimes do not run under qemu";
#else
    const std::string qemu = FindOnPath("qemu-x86_64");
    if (qemu.empty()) GTEST_SKIP() << "qemu-x86_64 not installed (scripts/setup.sh test)";
    // Nehalem: SSE4.2, no AVX, AVX2 or FMA.
    const ToolRun old = runIn("old", {qemu, "-cpu", "Nehalem"});
    ASSERT_EQ(old.exit, 0) << old.err;
    EXPECT_EQ(frames(old.out), want);
    // The pictures written, byte for byte.
    for (const std::string& name : names) {
        EXPECT_TRUE(Slurp(dir_ / "native" / name) == Slurp(dir_ / "old" / name)) << name;
    }
#endif
}

}  // namespace
