// Captures the library's log lines in-process through the host stand-in.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "host_shim.h"

namespace scancode_test {

struct LogLine {
    int prio;
    std::string text;
    bool operator==(const LogLine& o) const { return prio == o.prio && text == o.text; }
};

class LogCapture {
  public:
    LogCapture() { ScanHostSetLogSink(&LogCapture::Sink, this); }
    ~LogCapture() { ScanHostSetLogSink(nullptr, nullptr); }
    LogCapture(const LogCapture&) = delete;
    LogCapture& operator=(const LogCapture&) = delete;

    const std::vector<LogLine>& lines() const { return lines_; }
    std::vector<std::string> texts() const {
        std::vector<std::string> out;
        for (const auto& l : lines_) out.push_back(l.text);
        return out;
    }
    bool Contains(const std::string& text) const {
        return std::any_of(lines_.begin(), lines_.end(),
                           [&](const LogLine& l) { return l.text == text; });
    }
    bool Contains(int prio, const std::string& text) const {
        return std::any_of(lines_.begin(), lines_.end(),
                           [&](const LogLine& l) { return l.prio == prio && l.text == text; });
    }
    size_t Count(const std::string& text) const {
        return std::count_if(lines_.begin(), lines_.end(),
                             [&](const LogLine& l) { return l.text == text; });
    }
    void Clear() { lines_.clear(); }

  private:
    static void Sink(int prio, const char* tag, const char* text, void* user) {
        if (std::string(tag) == "SCAN_CODE_LIB_MSG")
            static_cast<LogCapture*>(user)->lines_.push_back({prio, text});
    }
    std::vector<LogLine> lines_;
};

}  // namespace scancode_test
