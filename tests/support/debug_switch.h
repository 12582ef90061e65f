// Flips the library's debug switch for the length of a scope (white-box
// tests only: the library itself decides it once at load).
#pragma once

extern bool gDebugLogOn;

namespace scancode_test {

class ScopedDebugLog {
  public:
    explicit ScopedDebugLog(bool on) : saved_(gDebugLogOn) { gDebugLogOn = on; }
    ~ScopedDebugLog() { gDebugLogOn = saved_; }

  private:
    bool saved_;
};

}  // namespace scancode_test
