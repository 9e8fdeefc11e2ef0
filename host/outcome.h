// outcome.h - what the host saw of one frame, and of the module's own reports. Plain values, no rules.
// In:  filled by the replay engine: classification and channel from the module's exports, the rest from the
// hook's
//      verdict, the service's channels and the store's counters.
// Out: read by host/tally.h, host/report.h and host/json_lines.h.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace vex::host {

enum class Verdict : uint8_t { kContinue, kTaken, kTakeFailed, kNotPresented };
inline constexpr size_t kVerdictCount = 4;

enum class RefusedBy : uint8_t { kNone, kSnooping, kPeerLink };

// The one fate each frame has; the identity of the report sums them.
enum class Fate : uint8_t { kNotPresented, kNotWanted, kRefused, kDelivered, kFailed };
inline constexpr size_t kFateCount = 5;

// A budget that can refuse. Ordered as the gates meet them.
enum class ScopeKind : uint8_t { kInterface, kVlan, kGlobal, kDegrade, kPeerLink, kPeerLinkOff };
struct Scope {
  ScopeKind kind = ScopeKind::kGlobal;
  uint8_t version = 0;  // 4 or 6; 0: both (degrade, kPeerLinkOff)
  uint32_t index = 0;   // interface index, VLAN id, peer-link kind 0..3; else 0
  bool operator==(const Scope&) const = default;
};

// The scopes that refused one frame. At most interface, VLAN, global and degrade, or one peer-link kind.
struct ScopeList {
  Scope items[4];
  uint8_t count = 0;
  void Add(const Scope& scope) {
    if (count < 4) items[count++] = scope;
  }
  const Scope* begin() const { return items; }
  const Scope* end() const { return items + count; }
};

struct FrameTime {
  int64_t seconds = 0;
  uint32_t nanoseconds = 0;
};

struct FrameOutcome {
  uint64_t frame = 0;  // number within its file, from 1
  FrameTime time;
  uint32_t port = 0;  // port index
  uint16_t vlan = 0;  // VLAN id of the outer tag, 0 when untagged
  uint8_t app_type = 0;
  uint32_t pkt_type = 13;           // as the module classified it; 13: not wanted or not presented
  bool taken = false;               // the take flag of the classification, not the verdict
  std::optional<uint32_t> channel;  // as the channel selection answered; none: no channel or not wanted
  Verdict verdict = Verdict::kContinue;
  RefusedBy refused = RefusedBy::kNone;
  uint16_t delivered = 0;  // bit c: a copy or the packet itself arrived on channel c
  Fate fate = Fate::kNotWanted;
  ScopeList refused_by;
};

// A speed-info message that arrived on the inner channel, or a peer-link line of the diagnostic log.
struct ReportEvent {
  enum class Kind : uint8_t { kSpeedInfo, kPeerLink } kind = Kind::kSpeedInfo;
  uint64_t frame = 0;  // the frame whose time made the timer fire
  FrameTime time;
  Scope scope;
  uint32_t limit = 0;    // peer-link: the rate in the line
  uint32_t refused = 0;  // refusals reported (speed-info: modulo 65536)
  std::string text;      // peer-link: the line; speed-info: empty
};

}  // namespace vex::host
