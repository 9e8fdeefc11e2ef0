// capture_timestamp.h - ticks of a pcapng interface to seconds and nanoseconds.
// In:  the options if_tsresol and if_tsoffset of an interface description. Out: the time a 64-bit count
// stands for. if_tsresol: 10^-n seconds per tick, or 2^-n when its top bit is set; n is up to 127, so most
// resolutions are finer than 64 bits of ticks can use. Fractions of a nanosecond are dropped; a time beyond
// 64 bits of seconds stays there.
#pragma once

#include <cstdint>

#include "host/capture_time.h"

namespace vex::host {

class TimestampScale {
 public:
  constexpr TimestampScale() : TimestampScale(6, 0) {}
  constexpr TimestampScale(uint8_t resolution, int64_t offset_seconds) : offset_(offset_seconds) {
    const uint8_t exponent = resolution & 0x7F;
    binary_ = (resolution & 0x80) != 0;
    if (binary_) {
      shift_ = exponent;
      return;
    }
    // 10^19 is the largest power in 64 bits; what is finer is cut off the ticks first.
    uint8_t kept = exponent;
    for (; kept > 19; --kept) cut_ = cut_ > UINT64_MAX / 10 ? UINT64_MAX : cut_ * 10;
    for (; kept > 0; --kept) per_second_ *= 10;
    if (per_second_ <= kNanos) nanos_per_tick_ = static_cast<uint32_t>(kNanos / per_second_);
  }

  constexpr CaptureTime TimeOf(uint64_t ticks) const {
    if (binary_) return Binary(ticks);
    if (cut_ != 1) ticks /= cut_;
    const uint64_t seconds = ticks / per_second_, rest = ticks % per_second_;
    const uint64_t nanos = nanos_per_tick_ != 0 ? rest * nanos_per_tick_ : rest / (per_second_ / kNanos);
    return {Shifted(seconds), static_cast<uint32_t>(nanos)};
  }

 private:
  static constexpr uint64_t kNanos = 1'000'000'000;

  constexpr CaptureTime Binary(uint64_t ticks) const {
    if (shift_ == 0) return {Shifted(ticks), 0};
    const uint64_t seconds = shift_ >= 64 ? 0 : ticks >> shift_;
    const uint64_t rest = shift_ >= 64 ? ticks : ticks & ((uint64_t{1} << shift_) - 1);
    __extension__ using Wide = unsigned __int128;
    return {Shifted(seconds), static_cast<uint32_t>(Wide{rest} * kNanos >> shift_)};
  }
  constexpr int64_t Shifted(uint64_t seconds) const {
    const int64_t limited = seconds > INT64_MAX ? INT64_MAX : static_cast<int64_t>(seconds);
    int64_t sum = 0;
    if (!__builtin_add_overflow(limited, offset_, &sum)) return sum;
    return INT64_MAX;  // limited is never negative, so it can only overflow upwards
  }

  uint64_t per_second_ = 1;
  uint64_t cut_ = 1;
  uint32_t nanos_per_tick_ = 0;  // 0: more than one tick per nanosecond
  uint8_t shift_ = 0;
  bool binary_ = false;
  int64_t offset_ = 0;
};

static_assert(TimestampScale(6, 0).TimeOf(1'500'000) == CaptureTime{1, 500'000'000});
static_assert(TimestampScale(9, -1).TimeOf(2'000'000'007) == CaptureTime{1, 7});
static_assert(TimestampScale(0, 0).TimeOf(42) == CaptureTime{42, 0});
static_assert(TimestampScale(0x80 | 10, 0).TimeOf(1536) == CaptureTime{1, 500'000'000});
static_assert(TimestampScale(12, 0).TimeOf(1'000'000'001'999) == CaptureTime{1, 1});
static_assert(TimestampScale(127, 0).TimeOf(UINT64_MAX) == CaptureTime{0, 0});
static_assert(TimestampScale(0xFF, 0).TimeOf(UINT64_MAX) == CaptureTime{0, 0});

}  // namespace vex::host
