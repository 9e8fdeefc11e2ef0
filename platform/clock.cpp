// clock.cpp - see clock.h; with the time-of-day record, the counter frequency and the timer imports.
// In:  SetTo() or the machine's clocks. Out: seconds in the record (relaxed atomic stores), timer callbacks.
#include "platform/clock.h"

#include <algorithm>
#include <chrono>

#include "platform/faults.h"
#include "platform/module_loader.h"

namespace vex::platform {
namespace {

constexpr int64_t kNsPerSecond = 1'000'000'000;
constexpr int64_t kNsPerMs = 1'000'000;

// The framework's record of the time of day as far as the module looks: seconds at offset 16.
struct alignas(8) TimeOfDay {
  uint8_t before[16];
  uint32_t seconds;  // writer: Clock; readers: any thread; relaxed on both sides
  uint8_t behind[12];
};
static_assert(offsetof(TimeOfDay, seconds) == 16);
constinit TimeOfDay g_timeOfDay{};

int64_t SystemNow() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}
int64_t SteadyNow() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::steady_clock::now().time_since_epoch())
      .count();
}

constexpr int64_t FloorSeconds(int64_t ns) { return ns / kNsPerSecond - (ns % kNsPerSecond < 0 ? 1 : 0); }
static_assert(FloorSeconds(-1) == -1 && FloorSeconds(-kNsPerSecond) == -1 &&
              FloorSeconds(kNsPerSecond - 1) == 0);

uint64_t CounterTicksPerMs() {
#if defined(__aarch64__)
  uint64_t frequency = 0;
  asm("mrs %0, cntfrq_el0" : "=r"(frequency));
  return frequency / 1000;
#else
  return kNsPerMs;  // the module counts on a nanosecond clock here; only 0 has a meaning to it
#endif
}

}  // namespace

Clock& TheClock() {
  static Clock* const clock = new Clock;
  return *clock;
}

void Clock::StoreSeconds(int64_t nowNs) {
  const auto seconds = static_cast<uint32_t>(FloorSeconds(nowNs));
  std::atomic_ref(g_timeOfDay.seconds).store(seconds, std::memory_order_relaxed);
}

uint32_t Clock::Seconds() const {
  return std::atomic_ref(g_timeOfDay.seconds).load(std::memory_order_relaxed);
}

int64_t Clock::NowNs() const {
  return CurrentMode() == Mode::kVirtual ? now_.load(std::memory_order_relaxed) : SystemNow();
}

int64_t Clock::TimerNow() const {
  return CurrentMode() == Mode::kVirtual ? now_.load(std::memory_order_relaxed) : SteadyNow();
}

void Clock::UseVirtual(int64_t nowNs) {
  StopService();
  mode_.store(Mode::kVirtual, std::memory_order_relaxed);
  now_.store(nowNs, std::memory_order_relaxed);
  StoreSeconds(nowNs);
  Restart(nowNs);
}

void Clock::UseMachine() {
  StopService();
  mode_.store(Mode::kMachine, std::memory_order_relaxed);
  StoreSeconds(SystemNow());
  Restart(SteadyNow());
  service_ = std::thread([this] { ServiceLoop(); });
}

void Clock::SetTo(int64_t nowNs) {
  const int64_t before = now_.exchange(nowNs, std::memory_order_relaxed);
  if (nowNs < before) [[unlikely]] {
    Restart(nowNs);
  } else if (nowNs >= nextDue_.load(std::memory_order_relaxed)) [[unlikely]] {
    FireDue(nowNs);
  }
  StoreSeconds(nowNs);
}

void Clock::Restart(int64_t nowNs) {
  const std::lock_guard lock(mutex_);
  for (auto& [id, timer] : timers_) timer.dueNs = nowNs + timer.periodMs * kNsPerMs;
  FindNextDue();
}

void Clock::FindNextDue() {
  int64_t next = INT64_MAX;
  for (const auto& [id, timer] : timers_) next = std::min(next, timer.dueNs);
  nextDue_.store(next, std::memory_order_relaxed);
}

void Clock::FireDue(int64_t nowNs) {
  std::vector<std::pair<int64_t, uint32_t>> due;  // time and id: the order of firing
  std::unique_lock lock(mutex_);
  for (const auto& [id, timer] : timers_) {
    if (timer.dueNs <= nowNs) due.emplace_back(timer.dueNs, id);
  }
  std::sort(due.begin(), due.end());
  for (const auto& [dueNs, id] : due) {
    const auto found = timers_.find(id);
    if (found == timers_.end()) continue;  // deleted by a callback before it
    Timer& timer = found->second;
    const int64_t period = timer.periodMs * kNsPerMs;
    timer.dueNs = dueNs + period > nowNs ? dueNs + period : nowNs + period;
    ++timer.fired;
    const Callback callback = timer.callback;
    ++running_;
    lock.unlock();
    callback();
    lock.lock();
    --running_;
    idle_.notify_all();
  }
  FindNextDue();
}

uint32_t Clock::CreateTimer(uint32_t periodMs, Callback callback) {
  if (periodMs == 0 || callback == nullptr) return kNoTimer;
  const std::lock_guard lock(mutex_);
  if (nextId_ == kNoTimer) nextId_ = 1;
  const uint32_t id = nextId_++;
  timers_[id] = {periodMs, callback, TimerNow() + periodMs * kNsPerMs, 0};
  FindNextDue();
  wake_.notify_all();
  return id;
}

bool Clock::DeleteTimer(uint32_t id) {
  const std::lock_guard lock(mutex_);
  const bool found = timers_.erase(id) != 0;
  FindNextDue();
  return found;
}

std::vector<Clock::TimerInfo> Clock::Timers() const {
  const std::lock_guard lock(mutex_);
  std::vector<TimerInfo> infos;
  for (const auto& [id, timer] : timers_) infos.push_back({id, timer.periodMs, timer.dueNs, timer.fired});
  return infos;
}

void Clock::ServiceLoop() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    const int64_t system = SystemNow();
    StoreSeconds(system);
    lock.unlock();
    FireDue(SteadyNow());
    lock.lock();
    if (stopping_) break;
    const int64_t toSecond = (FloorSeconds(system) + 1) * kNsPerSecond - SystemNow();
    const int64_t next = nextDue_.load(std::memory_order_relaxed);
    const int64_t toTimer = next == INT64_MAX ? kNsPerSecond : next - SteadyNow();
    const int64_t sleep = std::min(toSecond, toTimer);
    if (sleep > 0) wake_.wait_for(lock, std::chrono::nanoseconds(sleep));
  }
}

void Clock::StopService() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    wake_.notify_all();
  }
  if (service_.joinable()) service_.join();
  const std::lock_guard lock(mutex_);
  stopping_ = false;
}

void Clock::RemoveObject(const void* objectBase) {
  std::unique_lock lock(mutex_);
  std::erase_if(timers_, [&](const auto& entry) {
    return ObjectBase(reinterpret_cast<const void*>(entry.second.callback)) == objectBase;
  });
  FindNextDue();
  idle_.wait(lock, [this] { return running_ == 0; });
}

void Clock::Reset() {
  {
    const std::lock_guard lock(mutex_);
    timers_.clear();
    FindNextDue();
  }
  UseVirtual(0);
}

}  // namespace vex::platform

using namespace vex::platform;  // NOLINT: what follows is nothing but the C surface over that namespace

extern "C" {

void* g_pstGlobalTimeDate = &g_timeOfDay;
uint64_t g_cyclePerMs = CounterTicksPerMs();

uint32_t OrbSLcoreTimerCreateAndStart(uint32_t periodMs, uint32_t mode, uint32_t (*callback)(void),
                                      void* callbackArg, uint32_t* timerId) {
  static_cast<void>(callbackArg);  // the callback takes none
  if (const Outcome fault = Watch(Import::OrbSLcoreTimerCreateAndStart, periodMs, mode, callback, timerId)) {
    return fault.Hollow() ? 0 : fault.Code();
  }
  constexpr uint32_t kRepeating = 1;
  if (mode != kRepeating || timerId == nullptr) return 1;
  const uint32_t id = TheClock().CreateTimer(periodMs, callback);
  if (id == kNoTimer) return 1;
  *timerId = id;
  return 0;
}

uint32_t OrbSLcoreTimerDelete(uint32_t timerId) {
  if (const Outcome fault = Watch(Import::OrbSLcoreTimerDelete, timerId)) return fault.Code();
  return TheClock().DeleteTimer(timerId) ? 0 : 1;
}

}  // extern "C"
