// The lock that guards a network from load to teardown.
#pragma once

#include <condition_variable>
#include <mutex>

// A binary semaphore with lock()/unlock(). Set-up takes it on one thread and
// teardown may release it from another, or release it when nobody took it;
// std::mutex allows neither, so the state is an explicit flag: unlock() of a
// free lock leaves it free, and any thread may release it.
class NetLock {
  public:
    NetLock() = default;
    NetLock(const NetLock&) = delete;
    NetLock& operator=(const NetLock&) = delete;

    void lock() {
        std::unique_lock<std::mutex> guard(mutex_);
        released_.wait(guard, [this] { return !held_; });
        held_ = true;
    }
    bool try_lock() {
        std::lock_guard<std::mutex> guard(mutex_);
        if (held_) return false;
        held_ = true;
        return true;
    }
    void unlock() {
        {
            std::lock_guard<std::mutex> guard(mutex_);
            held_ = false;
        }
        released_.notify_one();
    }

  private:
    std::mutex mutex_;
    std::condition_variable released_;
    bool held_ = false;
};
