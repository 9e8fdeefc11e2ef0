// snapshot.h - everything the running switch tells about itself, at one moment.
// In:  filled by Runtime::Take() while no batch of frames is under way. Out: the tables and JSON of `vexhost
// ctl`, the metrics, the closing summary. Plain values.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "host/config.h"
#include "host/live/budgets.h"
#include "host/live/counters.h"
#include "host/live/port_io.h"
#include "platform/channel.h"
#include "platform/packet.h"
#include "service/bindings.h"
#include "service/statistics.h"

namespace vex::host::live {

using Sums = std::array<uint64_t, kSums>;

struct PortSnapshot {
  PortRecord record;
  PortIoStats io;
  uint64_t frames = 0;
  std::array<std::array<uint64_t, kFates>, kKinds> fates{};
  std::array<uint64_t, kSwitchFates> switched{};
  uint64_t published = 0;
  uint64_t publish_failed = 0;

  Sums sums() const;
  uint64_t Total(Fate fate) const;  // over all kinds
};

struct ChannelSnapshot {
  std::string name;
  uint32_t depth = 0;
  size_t queued = 0;
  platform::ChannelStats stats;
};

struct Snapshot {
  double uptime_seconds = 0;
  Config config;
  std::vector<PortSnapshot> ports;  // those of the configuration, then those it no longer has
  std::vector<BudgetRow> budgets;
  std::vector<ChannelSnapshot> channels;
  std::array<uint64_t, 8> stats{};  // the module's, since its last start
  service::ServiceStats service;
  service::BindingTableStats binding_stats;
  size_t bindings = 0;
  size_t stations = 0;
  platform::PoolStats pool;
  std::array<uint64_t, HookLatency::kBoundsNs.size() + 1> latency{};
  uint64_t latency_sum_ns = 0;
  uint64_t module_starts = 0;

  uint64_t frames() const;
  Sums sums() const;
  bool IdentityHolds() const;
};

// "frames 10 = 0 not presented + ... : holds"
std::string IdentityText(const Snapshot& snapshot);
// The lines printed when the switch ends.
std::string SummaryText(const Snapshot& snapshot);

// The module's statistics counters, by their numbers.
inline constexpr std::array<std::string_view, 8> kStatNames = {"hook_packets",
                                                               "service_messages",
                                                               "egress_publish_failures",
                                                               "egress_cut_head_failures",
                                                               "thread_lookup_failures",
                                                               "channel_lookup_failures",
                                                               "packet_send_failures",
                                                               "inner_message_send_failures"};

}  // namespace vex::host::live
