// frame_fate.h - what became of one frame, small enough to hand millions of them from process to process.
// In:  an outcome. Out: a record of fixed size, its fate as one word, and the difference between two of them.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/outcome.h"

namespace vex::host {

enum class Fate : uint8_t { kNotPresented, kNotWanted, kSnooping, kPeerLink, kDelivered, kFailed };
inline constexpr size_t kFates = 6;
inline constexpr std::array<std::string_view, kFates> kFateNames = {
    "not presented", "not wanted", "refused by snooping", "refused by peer-link", "delivered", "failed"};

// Host byte order; crosses a pipe between two processes of one program.
struct FrameFate {
  uint64_t frame = 0;
  int64_t seconds = 0;
  uint32_t nanoseconds = 0;
  uint32_t port = 0;
  uint16_t vlan = 0;
  uint16_t delivered = 0;   // bit per channel
  uint16_t refused_by = 0;  // bit per ScopeKind, see Reason()
  uint8_t app_type = 0;
  uint8_t pkt_type = 0;
  Verdict verdict = Verdict::kNotPresented;
  Refusal refused = Refusal::kNone;
  uint16_t unused = 0;

  Fate fate() const;
  std::string Describe() const;  // "refused by snooping (interface 1 v4)", "delivered to 3 7"
};
static_assert(sizeof(FrameFate) == 40);

FrameFate FateOf(const FrameOutcome& outcome);

// "3 7": the channels of a mask.
std::string ChannelNames(uint16_t mask, std::string_view separator = " ");

// What differs between the two configurations' fates of one frame.
struct FateChange {
  bool verdict = false;
  bool refused = false;   // the gate that refused it
  bool instance = false;  // the channels that received it, unless a gate is the cause
  bool wanted = false;
  bool any() const { return verdict || refused || instance || wanted; }
};
FateChange Between(const FrameFate& a, const FrameFate& b);

}  // namespace vex::host
