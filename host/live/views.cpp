// views.cpp - see views.h.
#include "host/live/views.h"

#include <fmt/format.h>

#include <algorithm>

#include "service/address.h"
#include "service/channel_plan.h"

namespace vex::host::live {
namespace {

std::string PortName(const std::vector<PortRecord>& ports, uint32_t index) {
  const auto found = std::ranges::find(ports, index, &PortRecord::index);
  return found == ports.end() ? fmt::format("#{}", index) : found->name;
}

std::string RoleOf(const PortRecord& port) {
  std::string role = port.trusted ? "trusted" : "untrusted";
  if (port.management) role += ", management";
  if (port.peer_link) role += ", peer-link";
  return role;
}

std::string_view CarriesOf(const std::string& channel) {
  const auto row =
      std::ranges::find(service::kChannels, std::string_view(channel), &service::ChannelRow::name);
  return row == service::kChannels.end() ? "from the service" : row->carries;
}

uint64_t ServiceCount(const Snapshot& snapshot, uint32_t port, service::Counter counter) {
  const auto found = snapshot.service.ports.find(port);
  return found == snapshot.service.ports.end() ? 0 : ValueOf(found->second, counter);
}

}  // namespace

Json SummaryView(const Snapshot& snapshot) {
  Json view;
  view["uptime_seconds"] = static_cast<uint64_t>(snapshot.uptime_seconds);
  view["ports"] = snapshot.config.ports.size();
  view["instances"] = snapshot.config.capabilities.instances;
  view["receive_threads"] = snapshot.config.live.threads;
  view["module_starts"] = snapshot.module_starts;
  view["frames"] = snapshot.frames();
  const Sums sums = snapshot.sums();
  for (size_t i = 0; i < kSums; ++i) view[std::string(Name(static_cast<Sum>(i)))] = sums[i];
  view["identity_holds"] = snapshot.IdentityHolds();
  view["bindings"] = snapshot.bindings;
  view["stations"] = snapshot.stations;
  view["rogue_server"] = ValueOf(snapshot.service.totals, service::Counter::kRogueServer);
  view["ra_guard"] = ValueOf(snapshot.service.totals, service::Counter::kRaGuard);
  view["buffers"] = snapshot.pool.capacity;
  view["buffers_in_use"] = snapshot.pool.inUse;
  view["buffers_exhausted"] = snapshot.pool.exhausted;
  return view;
}

Json PortsView(const Snapshot& snapshot) {
  Json view = Json::array();
  for (const PortSnapshot& port : snapshot.ports) {
    Json row;
    row["port"] = port.record.name;
    row["index"] = port.record.index;
    row["vlan"] = UntaggedVlan(port.record);
    row["role"] = RoleOf(port.record);
    row["frames"] = port.frames;
    const Sums sums = port.sums();
    for (size_t i = 0; i < kSums; ++i) row[std::string(Name(static_cast<Sum>(i)))] = sums[i];
    row["rogue_server"] = ServiceCount(snapshot, port.record.index, service::Counter::kRogueServer);
    row["ra_guard"] = ServiceCount(snapshot, port.record.index, service::Counter::kRaGuard);
    row["sent"] = port.io.tx_frames;
    row["send_failed"] = port.io.tx_failed;
    row["kernel_drops"] = port.io.kernel_drops;
    view.push_back(std::move(row));
  }
  return view;
}

Json LimitsView(const Snapshot& snapshot) {
  Json view = Json::array();
  for (const BudgetRow& budget : snapshot.budgets) {
    if (!budget.enabled && budget.refused == 0) continue;
    Json row;
    row["scope"] = ScopeName(budget.scope);
    row["version"] = budget.scope.version == 0 ? "both" : fmt::format("v{}", budget.scope.version);
    row["enabled"] = budget.enabled;
    row["limit_per_second"] = budget.limit;
    row["used_this_second"] = budget.used;
    row["refused"] = budget.refused;
    view.push_back(std::move(row));
  }
  return view;
}

Json SwitchesView(const Snapshot& snapshot) {
  Json view = Json::array();
  for (uint32_t number = 0; number < service::kSwitchCount; ++number) {
    Json row;
    row["number"] = number;
    row["switch"] = service::kSwitchNames[number];
    row["on"] = (snapshot.config.module.switches >> number & 1U) != 0;
    view.push_back(std::move(row));
  }
  return view;
}

Json ChannelsView(const Snapshot& snapshot) {
  Json view = Json::array();
  for (const ChannelSnapshot& channel : snapshot.channels) {
    Json row;
    row["channel"] = channel.name;
    row["carries"] = CarriesOf(channel.name);
    row["depth"] = channel.depth;
    row["queued"] = channel.queued;
    row["highest"] = channel.stats.highWater;
    row["sent"] = channel.stats.sent;
    row["refused"] = channel.stats.refused;
    view.push_back(std::move(row));
  }
  return view;
}

Json StatsView(const Snapshot& snapshot) {
  Json view;
  for (size_t i = 0; i < snapshot.stats.size(); ++i) view[std::string(kStatNames[i])] = snapshot.stats[i];
  view["service_received"] = snapshot.service.received;
  for (size_t i = 0; i < service::kCounterCount; ++i) {
    if (i == service::kOutcomeCount) view["service_leases"] = snapshot.service.leases;
    view["service_" + std::string(service::Name(static_cast<service::Counter>(i)))] =
        snapshot.service.totals[i];
  }
  return view;
}

Json BindingsView(const std::vector<service::Binding>& bindings, const std::vector<PortRecord>& ports,
                  uint64_t now) {
  Json view = Json::array();
  for (const service::Binding& binding : bindings) {
    const bool prefix = binding.kind == service::BindingKind::kPrefix;
    Json row;
    row["kind"] = service::Name(binding.kind);
    row["address"] =
        service::ToText(binding.address) + (prefix ? fmt::format("/{}", binding.prefix_length) : "");
    row["mac"] = service::ToText(binding.mac);
    row["vlan"] = binding.vlan;
    row["port"] = PortName(ports, binding.port);
    if (binding.lease_end == service::kNoLeaseEnd) {
      row["seconds_left"] = "never ends";
    } else {
      row["seconds_left"] = binding.lease_end > now ? binding.lease_end - now : 0;
    }
    row["duid"] = service::ToHex(binding.duid);
    view.push_back(std::move(row));
  }
  return view;
}

Json StationsView(const std::vector<MacTable::Station>& stations, const std::vector<PortRecord>& ports) {
  Json view = Json::array();
  for (const MacTable::Station& station : stations) {
    Json row;
    row["vlan"] = station.vlan;
    row["mac"] = service::ToText(station.mac);
    row["port"] = station.port < ports.size() ? ports[station.port].name : "?";
    row["age_seconds"] = station.age;
    view.push_back(std::move(row));
  }
  return view;
}

}  // namespace vex::host::live
