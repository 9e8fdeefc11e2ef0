// input.h - what every fuzz target takes from its input, and how it says that something does not hold.
// In:  the fuzzer's bytes. Out: numbers off their front; or an abort, which the fuzzer keeps as a finding.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>
#include <string_view>

namespace vex::fuzz {

// Ends the process as a sanitizer would, with what did not hold.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

// Takes numbers off the front of an input; zeros when it has ended.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : rest_(data, size) {}
  uint8_t U8() {
    if (rest_.empty()) return 0;
    const uint8_t value = rest_.front();
    rest_ = rest_.subspan(1);
    return value;
  }
  uint16_t U16() { return static_cast<uint16_t>(U8() | U8() << 8); }
  uint32_t U32() { return U16() | static_cast<uint32_t>(U16()) << 16; }
  std::span<const uint8_t> Rest() const { return rest_; }
  bool Ended() const { return rest_.empty(); }

 private:
  std::span<const uint8_t> rest_;
};

// The whole input as text, for the readers of files that people write.
inline std::string_view AsText(const uint8_t* data, size_t size) {
  return {reinterpret_cast<const char*>(data), size};
}

}  // namespace vex::fuzz
