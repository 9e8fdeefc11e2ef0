// budgets.h - how much of every limit is used, and how many packets each refused since the start.
// In:  the module's records, sampled now and then; its reports of refused packets. Out: one row per budget.
// The records count refusals in 16 bits and start again with every report, so refusals are summed up here: by
// sampling between reports, by the reports themselves across them. Exact while a budget refuses less than
// 65536 packets between two samples. Refusals of the peer-link come from the receive threads, because the
// module clears those without a report. Threads: any. The list of records must not change during Sample(),
// whose caller keeps configuration out.
#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <mutex>
#include <set>
#include <vector>

#include "dhcp_vex_rate_limit_notify.h"
#include "host/live/counters.h"
#include "host/live/live_module.h"
#include "host/scope.h"
#include "platform/channel.h"
#include "service/settings.h"

namespace vex::host::live {

struct BudgetRow {
  Scope scope;
  bool enabled = false;  // as configured
  uint32_t limit = 0;    // packets per second
  uint32_t used = 0;     // admitted in the current second
  uint64_t refused = 0;  // since the start
};

// Refused frames from the peer-link by packet kind; the last one: because the peer-link is off.
using PeerLinkRefusals = std::array<Counter, DHCP_PEER_KINDS + 1>;

class Budgets {
 public:
  // The records of these settings are watched from now on. Refusals so far are kept.
  void Attach(const LiveModule& module, const service::Settings& settings);
  void Detach();  // before the module is unloaded
  void Sample();
  void Reported(const DhcpSpeedInfoMsg& report);  // on a service thread

  std::vector<BudgetRow> Rows() const;  // of the last sample, in the order of the scopes
  PeerLinkRefusals& peer_link() { return peer_link_; }

 private:
  struct Watched {
    BudgetRow row;
    uint16_t seen = 0;  // the record's count when it was last looked at
  };
  static uint64_t KeyOf(const Scope& scope);
  Watched& At(const Scope& scope);
  void SampleRecord(ScopeKind kind, uint32_t index, const DhcpSnpInfo& record);
  static uint32_t UsedOf(const DhcpSpeedPeriod& period);
  void SampleOne(const Scope& scope, const DhcpSpeedPeriod& period, uint32_t limit, bool enabled);

  PeerLinkRefusals peer_link_{};
  mutable std::mutex mutex_;  // guards all below; taken before the module's lock, never while holding it
  const LiveModule* module_ = nullptr;
  const platform::Channel* reports_ = nullptr;
  std::set<uint32_t> interfaces_, vlans_;
  std::map<uint64_t, Watched> watched_;
  std::array<uint32_t, DHCP_PEER_KINDS> peer_link_used_{};
  uint64_t reports_seen_ = 0;
  uint64_t reports_before_ = 0;  // sent on that channel before it was attached
};

}  // namespace vex::host::live
