// Everything the library hands back for the committed sample frames, compared
// line by line with tests/e2e/frame_digest.txt: return codes, the zoom record,
// sendWarpPic, a hash of the returned NV21 bytes and of the network input the
// adapter was given, and every log line (debug lines included). Detections
// come from the scripted adapter, so the digest does not move when the model
// is retrained; it moves only when the library's own behaviour does.
//
// A change that is meant to alter results rewrites the file with
//   SCANCODE_UPDATE_DIGEST=1 ./frame_digest_test
// and the diff of the digest shows what changed, frame by frame.
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>

#include "e2e_support.h"
#include "jpeg_picture.h"
#include "log_capture.h"
#include "scancode.h"

namespace scancode_test {
namespace {

// The library reads its debug switch once, when it is loaded; the digest is
// taken with it on so that the debug lines are covered too.
const char* const kDebugProperties[][2] = {{"SCANCODE_PROP_persist_sys_Quarn_debug_on", "1"},
                                           {"SCANCODE_PROP_ro_logsystem_usertype", "3"}};

constexpr uint8_t kUntouched = 0xAB;
constexpr float kZoomSentinel = -5.0f;

struct Box {
    int head;  // output head whose cell fires
    cv::Rect frame;
};

// One frame of a sample: what the network is scripted to see and how the
// host has set the library's flags.
struct Scenario {
    const char* name;
    // Boxes relative to the sample's code box: x, y, width and height as
    // shares of it (a code box of 1, 1 is the code itself), or absolute
    // frame boxes where `absolute` is set.
    struct Rel {
        int head;
        float x, y, w, h;
        bool absolute;
    };
    std::vector<Rel> boxes;
    bool debugFrame;  // isDebug
    bool cancel;      // g_cancelRun
};

struct Sample {
    const char* file;
    std::vector<cv::Rect> codes;  // the printed codes, as found in the picture
};

const Sample kSamples[] = {
    {"tilted_label_720p.jpg", {{480, 200, 320, 322}}},
    {"headon_code_1080p.jpg", {{757, 380, 286, 281}}},
    {"two_codes_720p.jpg", {{300, 220, 225, 220}, {775, 295, 210, 200}}},
    {"steep_tilt_1080p.jpg", {{860, 340, 270, 460}}},
    {"foreshortened_label_720p.jpg", {{450, 215, 350, 325}}},
};

// Relative boxes are placed around the sample's first code.
const Scenario kScenarios[] = {
    {"nothing", {}, false, false},
    {"code", {{2, 0, 0, 1, 1, false}}, false, false},
    {"code_debug_frame", {{2, 0, 0, 1, 1, false}}, true, false},
    {"code_loose", {{3, -0.2f, -0.2f, 1.4f, 1.4f, false}}, false, false},
    {"code_tight", {{2, 0.15f, 0.15f, 0.7f, 0.7f, false}}, false, false},
    // Clearly non-square boxes send every sample down the straightening path.
    {"code_tall", {{2, 0.15f, -0.05f, 0.7f, 1.1f, false}}, false, false},
    {"code_wide", {{2, -0.05f, 0.15f, 1.1f, 0.7f, false}}, true, false},
    {"small_far", {{0, 0, 0, 0, 0, true}}, false, false},
    {"two_boxes", {{2, 0, 0, 1, 1, false}, {1, 0, 0, 0, 0, true}}, false, false},
    {"at_the_edge", {{2, 0, 0, 0, 0, true}}, false, false},
    {"huge", {{4, 0, 0, 0, 0, true}}, true, false},
    {"cancelled", {{2, 0, 0, 1, 1, false}}, false, true},
};

// Absolute boxes, by scenario, for a frame of `size`.
cv::Rect AbsoluteBox(const std::string& scenario, cv::Size size) {
    if (scenario == "small_far") return {size.width / 10, size.height * 7 / 10, 60, 64};
    if (scenario == "two_boxes") return {size.width * 3 / 4, size.height / 8, 150, 140};
    if (scenario == "at_the_edge") return {size.width - 200, size.height - 150, 260, 220};
    return {size.width / 8, size.height / 16, size.width * 3 / 4, size.height * 7 / 8};
}

std::vector<Box> BoxesOf(const Scenario& scenario, const Sample& sample, cv::Size size) {
    std::vector<Box> boxes;
    for (const Scenario::Rel& r : scenario.boxes) {
        if (r.absolute) {
            boxes.push_back({r.head, AbsoluteBox(scenario.name, size)});
            continue;
        }
        const cv::Rect& c = sample.codes[0];
        boxes.push_back(
            {r.head, cv::Rect(cvRound(c.x + r.x * c.width), cvRound(c.y + r.y * c.height),
                              cvRound(r.w * c.width), cvRound(r.h * c.height))});
    }
    // Every further code of the sample is listed as well.
    if (!scenario.boxes.empty() && !scenario.boxes[0].absolute) {
        for (size_t i = 1; i < sample.codes.size(); ++i) boxes.push_back({2, sample.codes[i]});
    }
    return boxes;
}

uint64_t Fnv1a(const void* data, size_t size) {
    const uint8_t* p = static_cast<const uint8_t*>(data);
    uint64_t h = 0xcbf29ce484222325ull;
    for (size_t i = 0; i < size; ++i) h = (h ^ p[i]) * 0x100000001b3ull;
    return h;
}

std::string Hex(uint64_t v) {
    char text[17];
    snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(v));
    return text;
}

// Floats with every bit shown: %.9g reads back as the same float.
std::string Exact(float v) {
    char text[32];
    snprintf(text, sizeof text, "%.9g", static_cast<double>(v));
    return text;
}

void ReplaceAll(std::string& text, const std::string& what, const std::string& with) {
    if (what.empty()) return;
    for (size_t at = text.find(what); at != std::string::npos;
         at = text.find(what, at + with.size()))
        text.replace(at, what.size(), with);
}

bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
bool IsHexDigit(char c) {
    return IsDigit(c) || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
}

// Elapsed times ("1.23ms", "17ms") become "<t>ms".
std::string MaskTimes(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size();) {
        size_t end = i;
        while (end < text.size() && IsDigit(text[end])) ++end;
        if (end > i && end + 1 < text.size() && text[end] == '.' && IsDigit(text[end + 1])) {
            for (++end; end < text.size() && IsDigit(text[end]);) ++end;
        }
        if (end > i && text.compare(end, 2, "ms") == 0) {
            out += "<t>ms";
            i = end + 2;
        } else {
            out += text[i++];
        }
    }
    return out;
}

// Addresses ("0x7f12ab") become "<addr>".
std::string MaskAddresses(const std::string& text) {
    std::string out;
    for (size_t i = 0; i < text.size();) {
        if (text.compare(i, 2, "0x") == 0 && i + 2 < text.size() && IsHexDigit(text[i + 2])) {
            for (i += 2; i < text.size() && IsHexDigit(text[i]);) ++i;
            out += "<addr>";
        } else {
            out += text[i++];
        }
    }
    return out;
}

// What may differ between two runs of the same code: elapsed times,
// addresses and where the build tree lies.
std::string Masked(std::string text) {
    ReplaceAll(text, getenv("SCANCODE_ADAPTER_PATH"), "<adapter>");
    ReplaceAll(text, getenv("SCANCODE_MODEL_PATH"), "<model>");
    text = MaskAddresses(MaskTimes(text));
    // Some lines end in a newline of their own; the digest keeps one line
    // per log line.
    std::string escaped;
    for (char c : text) {
        if (c == '\n') {
            escaped += "\\n";
        } else if (static_cast<unsigned char>(c) < 0x20) {
            escaped += '?';
        } else {
            escaped += c;
        }
    }
    return escaped;
}

char Priority(int prio) {
    static const char kLetters[] = "??VDIWEF";
    return prio >= 0 && prio < 8 ? kLetters[prio] : '?';
}

class Digest {
  public:
    void Logs(const std::string& prefix, LogCapture& logs) {
        for (const LogLine& l : logs.lines())
            lines_.push_back(prefix + " log " + Priority(l.prio) + " " + Masked(l.text));
        logs.Clear();
    }
    void Add(const std::string& line) { lines_.push_back(line); }
    const std::vector<std::string>& lines() const { return lines_; }

  private:
    std::vector<std::string> lines_;
};

void RunSample(const Sample& sample, Digest& digest) {
    const std::string file = sample.file;
    const std::string name = file.substr(0, file.find('.'));
    const cv::Mat bgr = ReadJpeg(std::string(SCANCODE_SAMPLES_DIR) + "/" + file);
    ASSERT_FALSE(bgr.empty()) << file;
    // Cut to a width of whole 16-pixel groups and an even height, as the
    // command-line tool cuts pictures.
    const cv::Size size(bgr.cols / 16 * 16, bgr.rows / 2 * 2);
    const std::vector<uint8_t> nv21 = ToNV21(bgr(cv::Rect(cv::Point(0, 0), size)).clone());
    digest.Add(name + " frame " + std::to_string(size.width) + "x" + std::to_string(size.height) +
               " nv21=" + Hex(Fnv1a(nv21.data(), nv21.size())));

    LogCapture logs;
    ScriptedAdapterReset();
    void* handle = nullptr;
    digest.Add(name + " init rc=" + std::to_string(Init(&handle)));
    digest.Logs(name + " init", logs);

    for (const Scenario& scenario : kScenarios) {
        const std::string prefix = name + " " + scenario.name;
        OutputMaps maps;
        for (const Box& b : BoxesOf(scenario, sample, size))
            maps.Place(b.head, ToInput(b.frame, size.width, size.height));
        maps.Serve();
        isDebug = scenario.debugFrame;
        g_cancelRun = scenario.cancel;

        std::vector<uint8_t> out(nv21.size(), kUntouched);
        ZoomInfoResult zoom{kZoomSentinel, kZoomSentinel};
        WarpPicInfo pic{out.data(), true};
        const int rc = Process(handle, nv21.data(), size.width, size.height, size.width,
                               size.height, &zoom, &pic);
        isDebug = false;
        g_cancelRun = false;

        size_t inputSize = 0;
        const void* input = ScriptedAdapterRunInput(&inputSize);
        digest.Logs(prefix, logs);
        digest.Add(prefix + " result rc=" + std::to_string(rc) + " bestZoom=" +
                   Exact(zoom.bestZoom) + " maxEdgeRatio=" + Exact(zoom.maxEdgeRatio) +
                   " sendWarpPic=" + std::to_string(pic.sendWarpPic) +
                   " nv21=" + Hex(Fnv1a(out.data(), out.size())) +
                   " netInput=" + Hex(Fnv1a(input, inputSize)));
        ScriptedAdapterClearCalls();
    }

    digest.Add(name + " deinit rc=" + std::to_string(DeInit(handle)));
    digest.Logs(name + " deinit", logs);
}

std::vector<std::string> ReadLines(const std::string& path) {
    std::vector<std::string> lines;
    std::ifstream in(path);
    for (std::string line; std::getline(in, line);) {
        if (!line.empty() && line[0] != '#') lines.push_back(line);
    }
    return lines;
}

void WriteLines(const std::string& path, const std::vector<std::string>& lines) {
    std::ofstream out(path);
    out << "# Results of the sample frames over scripted detections; see frame_digest_test.cpp.\n"
        << "# Rewrite with SCANCODE_UPDATE_DIGEST=1 only for a change meant to alter results.\n";
    for (const std::string& line : lines) out << line << "\n";
}

// Where this run's results go; runs at a lower instruction-set level
// (SCANCODE_CPU_DISABLE) write beside the native one.
std::string ActualPath() {
    const char* disabled = getenv("SCANCODE_CPU_DISABLE");
    return std::string(FRAME_DIGEST_ACTUAL) + (disabled ? std::string(".without-") + disabled : "");
}

TEST(FrameDigest, SampleFramesGiveTheRecordedResults) {
    // Init logs whether it had to set the DSP search path itself.
    unsetenv("ADSP_LIBRARY_PATH");
    Digest digest;
    for (const Sample& sample : kSamples) {
        SCOPED_TRACE(sample.file);
        RunSample(sample, digest);
        if (HasFatalFailure()) return;
    }
    const char* update = getenv("SCANCODE_UPDATE_DIGEST");
    if (update != nullptr && std::string(update) == "1") {
        WriteLines(FRAME_DIGEST_FILE, digest.lines());
        std::printf("rewrote %s (%zu lines)\n", FRAME_DIGEST_FILE, digest.lines().size());
        return;
    }
    WriteLines(ActualPath(), digest.lines());
    const std::vector<std::string> expected = ReadLines(FRAME_DIGEST_FILE);
    const std::vector<std::string>& actual = digest.lines();
    std::ostringstream report;
    int differences = 0;
    for (size_t i = 0; i < std::max(expected.size(), actual.size()); ++i) {
        const std::string* e = i < expected.size() ? &expected[i] : nullptr;
        const std::string* a = i < actual.size() ? &actual[i] : nullptr;
        if (e != nullptr && a != nullptr && *e == *a) continue;
        if (++differences <= 20) {
            report << "entry " << i << "\n  expected: " << (e ? *e : "<none>")
                   << "\n  actual:   " << (a ? *a : "<none>") << "\n";
        }
    }
    EXPECT_EQ(differences, 0) << report.str() << "all results: " << ActualPath()
                              << " (diff it against " << FRAME_DIGEST_FILE << ")";
}

}  // namespace
}  // namespace scancode_test

// The environment has to be in place before the library is loaded, so a
// process started without it starts itself over with it.
int main(int argc, char** argv) {
    bool restart = false;
    const char* const paths[][2] = {{"SCANCODE_ADAPTER_PATH", DIGEST_ADAPTER_FILE},
                                    {"SCANCODE_MODEL_PATH", DIGEST_MODEL_FILE}};
    for (const auto& p : scancode_test::kDebugProperties) {
        const char* value = getenv(p[0]);
        restart |= value == nullptr || strcmp(value, p[1]) != 0;
    }
    for (const auto& p : paths) {
        const char* value = getenv(p[0]);
        restart |= value == nullptr || strcmp(value, p[1]) != 0;
    }
    if (restart) {
        for (const auto& p : scancode_test::kDebugProperties) setenv(p[0], p[1], 1);
        for (const auto& p : paths) setenv(p[0], p[1], 1);
        execv("/proc/self/exe", argv);
        perror("execv /proc/self/exe");
        return 2;
    }
    ::testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
