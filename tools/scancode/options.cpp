#include "options.h"

#include <cstdio>

#include "scancode/scanner.h"

const char* const kUsage =
    "usage: scancode [--json] [--decode] [--out DIR] [--size WxH] [--verbose] INPUT...\n"
    "       scancode --help | --version\n"
    "  INPUT      a picture, a folder of pictures, a video, or raw NV21 (.nv21/.yuv)\n"
    "  --json     one JSON line per frame on stdout\n"
    "  --decode   read each found code (zxing-cpp) and print its text\n"
    "  --out DIR  write each frame with its boxes and zoom view (*.boxes.jpg), and the\n"
    "             frame the library handed back when it straightened a code\n"
    "             (*.returned.jpg); DIR is created when missing\n"
    "  --size WxH frame size of raw NV21 input (width a multiple of 16, even height)\n"
    "  --verbose  show the library's log lines and the video readers' messages\n"
    "Exit status: 0 all inputs read, 1 an input could not be read or the library\n"
    "failed to start, 2 bad usage.\n";

namespace {

bool ParseSize(const std::string& text, cv::Size& size, std::string& error) {
    int width = 0, height = 0;
    char end = 0;
    if (sscanf(text.c_str(), "%dx%d%c", &width, &height, &end) != 2) {
        error = "--size takes WxH, e.g. 1280x720, not '" + text + "'";
        return false;
    }
    size = {width, height};
    if (const std::string why = scancode::CheckFrameSize(width, height); !why.empty()) {
        error = "--size " + text + ": " + why;
        return false;
    }
    return true;
}

}  // namespace

Command ParseOptions(const std::vector<std::string>& args, Options& o, std::string& error) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string& a = args[i];
        const bool hasValue = i + 1 < args.size();
        if (a == "--help" || a == "-h") {
            return Command::kHelp;
        } else if (a == "--version") {
            return Command::kVersion;
        } else if (a == "--json") {
            o.json = true;
        } else if (a == "--verbose") {
            o.verbose = true;
        } else if (a == "--decode") {
            o.decode = true;
        } else if (a == "--out" || a == "--size") {
            if (!hasValue) {
                error = a + " needs a value";
                return Command::kBadUsage;
            }
            if (a == "--out") {
                o.outDir = args[++i];
            } else if (!ParseSize(args[++i], o.rawSize, error)) {
                return Command::kBadUsage;
            }
        } else if (a == "--") {
            o.inputs.insert(o.inputs.end(), args.begin() + i + 1, args.end());
            break;
        } else if (a.size() > 1 && a[0] == '-') {
            error = "unknown option " + a;
            return Command::kBadUsage;
        } else {
            o.inputs.push_back(a);
        }
    }
    if (o.inputs.empty()) {
        error = "no input given";
        return Command::kBadUsage;
    }
    return Command::kRun;
}
