// tally.h - sums over a replay, counted from outside the module.
// In:  one FrameOutcome per frame, one ReportEvent per report, the scopes' counters.
// Out: the numbers of the report (host/report.h) and of the JSON summary (host/json_lines.h).
// Add() is on the replay's fast path: a few increments, no allocation.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "host/outcome.h"
#include "service/channel_plan.h"

namespace vex::host {

inline constexpr size_t kStatCount = 8;
inline constexpr size_t kPktTypeRows = 14;  // 0..12 wanted, 13 all else

// One budget over the whole replay. Filled by whoever watches the store.
struct ScopeTally {
  Scope scope;
  uint32_t limit = 0;    // packets per second in force at the end
  uint64_t offered = 0;  // counting steps taken: passed + refused
  uint64_t passed = 0;
  uint64_t refused = 0;
  uint64_t worst_refused = 0;  // refusals in the worst second
  int64_t worst_second = 0;    // that second
  uint64_t reported = 0;       // sum over the reports seen
  uint64_t pending = 0;        // still in the record at the end
  uint64_t lost = 0;           // gone with deleted records
  // True: refusals seen = reported + pending + lost, modulo 65536. Always true where nothing reports
  // (degrade).
  bool Balanced() const;
};

struct Tally {
  uint64_t frames = 0;
  std::array<uint64_t, kFateCount> by_fate{};
  std::array<uint64_t, 256> by_app_type{};
  std::array<std::array<uint64_t, kVerdictCount>, kPktTypeRows> by_type_verdict{};
  std::array<uint64_t, service::kChannelCount> by_channel{};  // messages received by the service
  std::array<uint64_t, 3> by_refusal{};                       // index: RefusedBy
  uint64_t speed_info = 0;                                    // inner messages received
  uint64_t peer_link_lines = 0;
  std::array<uint64_t, kStatCount> stats{};  // the module's own statistics, read at the end
  std::vector<ScopeTally> scopes;  // in a fixed order: interfaces, VLANs, global, degrade, peer-link
  uint32_t instances = 0;          // the module's capability item

  void Add(const FrameOutcome& outcome) {
    ++frames;
    ++by_fate[static_cast<size_t>(outcome.fate)];
    ++by_app_type[outcome.app_type];
    const size_t row = outcome.pkt_type < kPktTypeRows ? outcome.pkt_type : kPktTypeRows - 1;
    ++by_type_verdict[row][static_cast<size_t>(outcome.verdict)];
    ++by_refusal[static_cast<size_t>(outcome.refused)];
    for (uint32_t left = outcome.delivered; left != 0; left &= left - 1) {
      const auto channel = static_cast<size_t>(std::countr_zero(left));
      if (channel < by_channel.size()) ++by_channel[channel];
    }
  }
  void Add(const ReportEvent& event) {
    ++(event.kind == ReportEvent::Kind::kSpeedInfo ? speed_info : peer_link_lines);
  }

  // frames = not presented + not wanted + refused + delivered + failed
  bool IdentityHolds() const;
};

// "interface 1", "VLAN 30", "global", "degrade", "peer-link DHCPv4 Request", "peer-link off"
std::string ScopeName(const Scope& scope);

}  // namespace vex::host
