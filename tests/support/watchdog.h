// Ends the test program when a scope outlives its time limit, so a call that
// would never return fails with a message instead of hanging the suite until
// CTest's own timeout.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <string>
#include <thread>

namespace scancode_test {

class Watchdog {
  public:
    Watchdog(std::chrono::seconds limit, std::string what)
        : what_(std::move(what)), thread_([this, limit] {
              std::unique_lock<std::mutex> lock(mutex_);
              if (!done_cv_.wait_for(lock, limit, [this] { return done_; })) {
                  fprintf(stderr, "watchdog: %s still running after %llds\n", what_.c_str(),
                          static_cast<long long>(limit.count()));
                  std::_Exit(124);
              }
          }) {}
    ~Watchdog() {
        {
            std::lock_guard<std::mutex> lock(mutex_);
            done_ = true;
        }
        done_cv_.notify_one();
        thread_.join();
    }
    Watchdog(const Watchdog&) = delete;
    Watchdog& operator=(const Watchdog&) = delete;

  private:
    std::string what_;
    std::mutex mutex_;
    std::condition_variable done_cv_;
    bool done_ = false;
    std::thread thread_;
};

}  // namespace scancode_test
