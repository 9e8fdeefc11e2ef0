// scope_watch.h - who refused a frame, found by reading the module's budgets before and after it.
// In:  DHCP packets on their way into the hook; the module's reports. Out: the budgets that refused each
// frame, and one tally per budget. It knows where the budgets are, not how they decide: a step shows as an
// admitted packet or as a refusal counted.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/module_view.h"
#include "host/outcome.h"
#include "host/scope.h"

namespace vex::host {

class ScopeWatch {
 public:
  explicit ScopeWatch(const ModuleView& view) : view_(view) {}

  void Before(OrbMbuf* packet);
  // The scopes whose refusals moved since Before().
  ScopeList After();

  // A report that the module sent. False: the line is not a peer-link report.
  void Reported(const SpeedInfo& info);
  bool Reported(std::string_view peer_link_line);
  // A frame from the peer-link that was refused while no budget moved.
  void RefusedByPeerLinkSwitch();

  // "interface 1 v4 (100/s), global v4 (4000/s)"
  std::string Reason(const ScopeList& scopes) const;

  // In the order of ScopeKind, then version, then index. Reads what is still pending from the records.
  std::vector<ScopeTally> Tallies() const;

 private:
  struct Watched {
    Scope scope;
    const DhcpSpeedPeriod* period = nullptr;
    DhcpSpeedPeriod before{};
  };
  struct Entry {
    ScopeTally tally;
    uint16_t unreported = 0;
    int64_t second = 0;  // the one being counted
    uint64_t second_refused = 0;
  };
  static constexpr size_t kMaxWatched = 3 * 2 + 1 + DHCP_PEER_KINDS;

  void Watch(const Scope& scope, const DhcpSpeedPeriod& period);
  void WatchRecord(ScopeKind kind, uint32_t index, const DhcpSnpInfo* record);
  Entry& EntryOf(const Scope& scope);
  void Count(const Scope& scope, uint64_t passed, uint16_t refused);
  void CountReport(const Scope& scope, uint16_t dropped);
  const DhcpSpeedPeriod* PeriodOf(const Scope& scope, uint32_t& limit) const;

  const ModuleView& view_;
  std::array<Watched, kMaxWatched> watched_;
  size_t watched_count_ = 0;
  std::unordered_map<uint64_t, Entry> entries_;
};

}  // namespace vex::host
