// clock.h - the time of day and the repeating timers, on the machine's clock or on a virtual one.
// In:  SetTo() from the caller (virtual) or a service thread (machine); timers from the module.
// Out: the 32-bit seconds of the record behind g_pstGlobalTimeDate, and the timer callbacks.
// Virtual: single-threaded and repeatable. Machine: callbacks run on the service thread, seconds follow the
// system clock, periods the monotonic one. Callbacks always run without a lock of the stand-in held.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace vex::platform {

constexpr uint32_t kNoTimer = 0xFFFFFFFF;

class Clock {
 public:
  using Callback = uint32_t (*)();
  enum class Mode : uint8_t { kVirtual, kMachine };

  // Starts virtual, at 0. A change of mode restarts the period of every timer.
  void UseVirtual(int64_t nowNs = 0);
  void UseMachine();  // starts the service thread
  Mode CurrentMode() const { return mode_.load(std::memory_order_relaxed); }

  // Virtual time becomes nowNs (nanoseconds since the epoch). First the timers: one whose time has come fires
  // once, and its next time is one period after the missed one, or one period from now when that too has
  // passed. A step back fires nothing and restarts every period at the new time. Then the seconds follow.
  void SetTo(int64_t nowNs);
  void Advance(int64_t deltaNs) { SetTo(NowNs() + deltaNs); }
  int64_t NowNs() const;     // nanoseconds since the epoch in either mode
  uint32_t Seconds() const;  // as the module reads them

  // Timers. The callback's result is not looked at; ids are never 0 or kNoTimer.
  uint32_t CreateTimer(uint32_t periodMs, Callback callback);  // kNoTimer when periodMs is 0 or callback null
  bool DeleteTimer(uint32_t id);  // false when unknown; a running call is not waited for
  struct TimerInfo {
    uint32_t id;
    uint32_t periodMs;
    int64_t dueNs;  // on the clock that runs the timer
    uint64_t fired;
  };
  std::vector<TimerInfo> Timers() const;

  void RemoveObject(const void* objectBase);  // deletes timers of that loaded object, waits for running calls
  void Reset();                               // virtual at 0, no timers

 private:
  struct Timer {
    uint32_t periodMs;
    Callback callback;
    int64_t dueNs;
    uint64_t fired;
  };
  void FireDue(int64_t nowNs);  // virtual and machine: one call per due timer
  void Restart(int64_t nowNs);  // every period starts at nowNs
  void FindNextDue();           // caller holds mutex_
  int64_t TimerNow() const;
  void StoreSeconds(int64_t nowNs);
  void ServiceLoop();
  void StopService();

  std::atomic<Mode> mode_{Mode::kVirtual};
  std::atomic<int64_t> now_{0};              // virtual time; one writer, the caller of SetTo
  std::atomic<int64_t> nextDue_{INT64_MAX};  // earliest due time, so that SetTo usually needs no lock
  mutable std::mutex mutex_;                 // guards what follows
  std::condition_variable wake_;
  std::condition_variable idle_;
  std::map<uint32_t, Timer> timers_;
  uint32_t nextId_ = 1;
  uint32_t running_ = 0;  // callbacks being executed
  bool stopping_ = false;
  std::thread service_;
};
Clock& TheClock();

}  // namespace vex::platform
