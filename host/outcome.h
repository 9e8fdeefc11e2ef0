// outcome.h - what became of one frame, seen from outside the module.
// In:  filled by the replay engine, one record per frame read, and one per report the module made on the way.
// Out: read by the reports and the JSON writer. The views in it are good during the call that hands it over.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

#include "host/capture_time.h"
#include "host/scope.h"

namespace vex::host {

inline constexpr uint32_t kPktTypeNone = 13;
inline constexpr size_t kServiceChannels = 12;

enum class Verdict : uint8_t { kContinue, kTaken, kTakeFailed, kNotPresented };
enum class Refusal : uint8_t { kNone, kSnooping, kPeerLink };

constexpr std::string_view Name(Verdict verdict) {
  constexpr std::array<std::string_view, 4> kNames = {"continue", "taken", "take_failed", "not_presented"};
  return kNames[static_cast<size_t>(verdict)];
}
constexpr std::string_view Name(Refusal refusal) {  // "" for none
  constexpr std::array<std::string_view, 3> kNames = {"", "snooping", "peer-link"};
  return kNames[static_cast<size_t>(refusal)];
}

// The channels that received the frame or a copy of it, in the order of their numbers.
struct DeliveredList {
  std::array<uint8_t, kServiceChannels> channels{};
  uint8_t count = 0;
  bool empty() const { return count == 0; }
  const uint8_t* begin() const { return channels.data(); }
  const uint8_t* end() const { return channels.data() + count; }
  void Add(uint8_t channel) {
    if (count < channels.size()) channels[count++] = channel;
  }
};

struct FrameOutcome {
  std::string_view file;  // base name
  uint64_t frame = 0;     // from 1, within its file
  CaptureTime time;
  uint32_t port = 0;
  uint16_t vlan = 0;  // outer tag id, 0 when untagged
  uint8_t app_type = 0;
  uint32_t pkt_type = kPktTypeNone;  // the module's classification
  bool taken = false;                // the take flag of the classification, not the verdict
  std::optional<uint32_t> channel;   // the module's channel selection; empty: not wanted, none, or not asked
  Verdict verdict = Verdict::kNotPresented;
  Refusal refused = Refusal::kNone;
  DeliveredList delivered;
  ScopeList refused_by;  // every budget that refused it; empty unless refused
};

// A speed-info message that arrived on channel 11.
struct SpeedInfo {
  uint32_t kind = 0;      // 1 to 3 DHCPv4 of interface, VLAN, global; 4 to 6 the same for DHCPv6
  uint32_t index_id = 0;  // interface index, VLAN id, or 0
  uint16_t dropped = 0;   // refused since the last report, modulo 65536
};

struct ReplayEvent {
  enum class Kind : uint8_t { kSpeedInfo, kPeerLink };
  Kind kind = Kind::kSpeedInfo;
  std::string_view file;  // of the frame whose time let the timer fire
  uint64_t frame = 0;     // that frame; the event stands before it
  CaptureTime time;
  SpeedInfo speed_info;   // kSpeedInfo
  std::string_view text;  // kPeerLink: the module's line
};

}  // namespace vex::host
