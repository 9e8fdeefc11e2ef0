// rate_limit_clock_test.cpp - the milliseconds that the gates count with, against the counter they come from.
// In:  rates of the counter. Out: a value between two readings of the same counter, divided by the same rate.
#include <ctime>

#include "dhcp_vex_platform.h"
#include "dhcp_vex_rate_limit.h"
#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

// What the module divides: ticks of the virtual counter on the target, elsewhere the monotonic clock.
uint64_t MillisecondsAt([[maybe_unused]] uint64_t cyclesPerMs) {
#if defined(__aarch64__)
  uint64_t cycles = 0;
  asm volatile("isb\n\tmrs %0, cntvct_el0" : "=r"(cycles)::"memory");
  return cycles / cyclesPerMs;
#else
  timespec now = {};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1000 + static_cast<uint64_t>(now.tv_nsec) / 1'000'000;
#endif
}

class RateLimitClock : public ModuleTest {};

TEST_F(RateLimitClock, MillisecondsAreTheCounterOverItsRate) {
  const PacketPtr packet = Dhcp4().New();
  const uint64_t boardRate = g_cyclePerMs;
  for (const uint64_t rate : {boardRate, uint64_t{1}, uint64_t{19'200}, uint64_t{1'000'000}}) {
    g_cyclePerMs = rate;
    const uint64_t before = MillisecondsAt(rate);
    EXPECT_EQ(DhcpVexPktRateCheck(packet.get()), 0u);
    EXPECT_GE(g_dhcpVexcurTimeMilSec, before) << rate;
    EXPECT_LE(g_dhcpVexcurTimeMilSec, MillisecondsAt(rate)) << rate;
  }
  g_cyclePerMs = boardRate;
}

}  // namespace
}  // namespace vex::module_test
