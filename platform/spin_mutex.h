// spin_mutex.h - the lock of the stand-in's own short critical sections (a few dozen instructions).
// One exchange to take, one plain store to leave: half of what a std::mutex costs on the packet path. After
// some tries the waiter yields, so a holder that lost its core gets it back. Works with std::lock_guard.
#pragma once

#include <sched.h>

#include <atomic>

namespace vex::platform {

class SpinMutex {
 public:
  void lock() {
    for (int tries = 0; taken_.exchange(true, std::memory_order_acquire);) {
      while (taken_.load(std::memory_order_relaxed)) {
        if (++tries > kTriesBeforeYield) sched_yield();
      }
    }
  }
  bool try_lock() { return !taken_.exchange(true, std::memory_order_acquire); }
  void unlock() { taken_.store(false, std::memory_order_release); }

 private:
  static constexpr int kTriesBeforeYield = 64;
  std::atomic<bool> taken_{false};
};

}  // namespace vex::platform
