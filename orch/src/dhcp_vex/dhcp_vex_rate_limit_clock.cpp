// dhcp_vex_rate_limit_clock.cpp - reads the clocks, the only place that does.
// In:  g_pstGlobalTimeDate, g_cyclePerMs, the virtual counter (AArch64) or the system's monotonic clock
// (elsewhere). Out: seconds and milliseconds. Any thread.
#include "dhcp_vex_rate_limit_clock.h"

#include <ctime>

#include "dhcp_vex_platform.h"
#include "dhcp_vex_shared_word.h"

namespace dhcp_vex {
namespace {

constexpr size_t kSecondsAt = 16;  // in the time-of-day record

#if defined(__aarch64__)
uint64_t CounterMilliseconds(uint64_t cyclesPerMs) {
  uint64_t cycles = 0;
  asm volatile("isb\n\tmrs %0, cntvct_el0"
               : "=r"(cycles)::"memory");  // isb: not read ahead of what came before
  return cycles / cyclesPerMs;
}
#else
uint64_t CounterMilliseconds(uint64_t /*cyclesPerMs*/) {
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1000000;
}
#endif

}  // namespace

uint32_t TimeOfDaySeconds() {
  auto* const record = static_cast<uint8_t*>(Load(g_pstGlobalTimeDate));
  return record == nullptr ? 0 : Load(*reinterpret_cast<uint32_t*>(record + kSecondsAt));
}

uint64_t MonotonicMilliseconds() {
  const uint64_t cyclesPerMs = Load(g_cyclePerMs);
  return cyclesPerMs == 0 ? 0 : CounterMilliseconds(cyclesPerMs);
}

}  // namespace dhcp_vex
