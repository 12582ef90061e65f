// The tool's command line.
#pragma once

#include <string>
#include <vector>

#include <opencv2/core.hpp>

struct Options {
    bool json = false;
    bool verbose = false;
    bool decode = false;
    std::string outDir;
    cv::Size rawSize;  // 0x0 when not given
    std::vector<std::string> inputs;
};

enum class Command { kRun, kHelp, kVersion, kBadUsage };

// Reads the arguments into `options`; on kBadUsage `error` says what is wrong.
Command ParseOptions(const std::vector<std::string>& args, Options& options, std::string& error);

extern const char* const kUsage;
