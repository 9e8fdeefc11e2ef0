// capture_time.h - a point in time as a capture file gives it.
// In:  nothing. Out: seconds since 1970 and nanoseconds, ordered and printable.
// Seconds and nanoseconds stay apart because a file may hold any 64-bit time, more than nanoseconds in an
// int64_t can tell. Nanoseconds are always 0 to 999,999,999.
#pragma once

#include <compare>
#include <cstdint>

namespace vex::host {

struct CaptureTime {
  int64_t seconds = 0;
  uint32_t nanoseconds = 0;
  friend constexpr auto operator<=>(const CaptureTime&, const CaptureTime&) = default;
};

}  // namespace vex::host
