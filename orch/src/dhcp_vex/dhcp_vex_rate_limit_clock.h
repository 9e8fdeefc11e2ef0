// dhcp_vex_rate_limit_clock.h - the two clocks behind the module time.
// In:  the framework's time-of-day record and counter frequency, the processor's counter. Out: seconds,
// milliseconds.
#pragma once

#include <cstdint>

namespace dhcp_vex {

// Seconds of the time of day; may step either way.
uint32_t TimeOfDaySeconds();

// Milliseconds that never go back; 0 while the framework has not set the counter's frequency.
uint64_t MonotonicMilliseconds();

}  // namespace dhcp_vex
