// scope_watch.cpp - snapshots of the speed periods around a frame, and the sums over a replay.
#include "host/scope_watch.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <tuple>

namespace vex::host {
namespace {

uint64_t Key(const Scope& scope) {
  return uint64_t{static_cast<uint8_t>(scope.kind)} << 40 | uint64_t{scope.version} << 32 | scope.index;
}

// Behind the marker, a decimal number.
bool NumberBehind(std::string_view text, std::string_view marker, uint32_t& number) {
  const size_t at = text.find(marker);
  if (at == std::string_view::npos) return false;
  text.remove_prefix(at + marker.size());
  return std::from_chars(text.data(), text.data() + text.size(), number).ec == std::errc();
}

}  // namespace

void ScopeWatch::Watch(const Scope& scope, const DhcpSpeedPeriod& period) {
  watched_[watched_count_++] = {scope, &period, period};
}

void ScopeWatch::WatchRecord(ScopeKind kind, uint32_t index, const DhcpSnpInfo* record) {
  if (record == nullptr) return;
  Watch({kind, 4, index}, record->v4Period);
  Watch({kind, 6, index}, record->v6Period);
}

void ScopeWatch::Before(OrbMbuf* packet) {
  watched_count_ = 0;
  uint32_t interface = 0, vlan = 0;
  if (view_.interface_and_vlan(packet, &interface, &vlan) == 0) {
    WatchRecord(ScopeKind::kInterface, interface, view_.interface_record(interface));
    if (vlan != 0) WatchRecord(ScopeKind::kVlan, vlan, view_.vlan_record(vlan));
  }
  WatchRecord(ScopeKind::kGlobal, 0, view_.global_record);
  Watch({ScopeKind::kDegrade, 0, 0}, view_.degrade->period);
  for (uint32_t kind = 0; kind < DHCP_PEER_KINDS; ++kind) {
    Watch({ScopeKind::kPeerLink, 0, kind}, view_.peer_link[kind].period);
  }
}

ScopeList ScopeWatch::After() {
  ScopeList refused_by;
  for (size_t i = 0; i < watched_count_; ++i) {
    const Watched& watched = watched_[i];
    const DhcpSpeedPeriod &was = watched.before, &is = *watched.period;
    const bool opened = was.periodSec != is.periodSec || was.periodMilSec != is.periodMilSec;
    const uint32_t passed = opened ? is.pktCnt : is.pktCnt - was.pktCnt;
    const auto refused = static_cast<uint16_t>(is.dropCnt - was.dropCnt);
    if (passed == 0 && refused == 0) continue;
    Count(watched.scope, passed, refused);
    if (refused != 0) refused_by.Add(watched.scope);
  }
  watched_count_ = 0;
  return refused_by;
}

ScopeWatch::Entry& ScopeWatch::EntryOf(const Scope& scope) {
  const auto [at, fresh] = entries_.try_emplace(Key(scope));
  if (fresh) at->second.tally.scope = scope;
  return at->second;
}

void ScopeWatch::Count(const Scope& scope, uint64_t passed, uint16_t refused) {
  Entry& entry = EntryOf(scope);
  entry.tally.passed += passed;
  entry.tally.refused += refused;
  entry.tally.offered += passed + refused;
  entry.unreported = static_cast<uint16_t>(entry.unreported + refused);
  if (entry.second != *view_.seconds) {
    entry.second = *view_.seconds;
    entry.second_refused = 0;
  }
  entry.second_refused += refused;
  if (entry.second_refused > entry.tally.worst_refused) {
    entry.tally.worst_refused = entry.second_refused;
    entry.tally.worst_second = entry.second;
  }
}

void ScopeWatch::CountReport(const Scope& scope, uint16_t dropped) {
  Entry& entry = EntryOf(scope);
  entry.tally.reported += dropped;
  entry.unreported = static_cast<uint16_t>(entry.unreported - dropped);
}

void ScopeWatch::Reported(const SpeedInfo& info) {
  constexpr std::array kKinds = {ScopeKind::kInterface, ScopeKind::kVlan, ScopeKind::kGlobal};
  if (info.kind < 1 || info.kind > 2 * kKinds.size()) return;
  const uint8_t version = info.kind <= kKinds.size() ? 4 : 6;
  CountReport({kKinds[(info.kind - 1) % kKinds.size()], version, info.index_id}, info.dropped);
}

bool ScopeWatch::Reported(std::string_view line) {
  uint32_t dropped = 0;
  if (!NumberBehind(line, "pktdiscardcnt:", dropped)) return false;
  for (uint32_t kind = 0; kind < DHCP_PEER_KINDS; ++kind) {
    if (line.find(view_.peer_link_names[kind]) == std::string_view::npos) continue;
    CountReport({ScopeKind::kPeerLink, 0, kind}, static_cast<uint16_t>(dropped));
    return true;
  }
  return false;
}

void ScopeWatch::RefusedByPeerLinkSwitch() {
  ScopeTally& tally = EntryOf({ScopeKind::kPeerLinkOff, 0, 0}).tally;
  ++tally.offered;
  ++tally.refused;
}

const DhcpSpeedPeriod* ScopeWatch::PeriodOf(const Scope& scope, uint32_t& limit) const {
  const DhcpSnpInfo* record = nullptr;
  switch (scope.kind) {
    case ScopeKind::kInterface:
      record = view_.interface_record(scope.index);
      break;
    case ScopeKind::kVlan:
      record = view_.vlan_record(scope.index);
      break;
    case ScopeKind::kGlobal:
      record = view_.global_record;
      break;
    case ScopeKind::kDegrade:
      limit = view_.degrade->degradeRate;
      return &view_.degrade->period;
    case ScopeKind::kPeerLink:
      limit = view_.peer_link[scope.index].pktRate;
      return &view_.peer_link[scope.index].period;
    case ScopeKind::kPeerLinkOff:
      return nullptr;
  }
  if (record == nullptr) return nullptr;
  limit = scope.version == 4 ? record->v4Cfg.pktRate : record->v6Cfg.pktRate;
  return scope.version == 4 ? &record->v4Period : &record->v6Period;
}

std::string ScopeWatch::Reason(const ScopeList& scopes) const {
  std::string reason;
  for (const Scope& scope : scopes) {
    if (!reason.empty()) reason += ", ";
    reason += ScopeName(scope);
    if (scope.version != 0) reason += fmt::format(" v{}", scope.version);
    uint32_t limit = 0;
    if (PeriodOf(scope, limit) != nullptr) reason += fmt::format(" ({}/s)", limit);
  }
  return reason;
}

std::vector<ScopeTally> ScopeWatch::Tallies() const {
  std::vector<ScopeTally> tallies;
  for (const auto& [key, entry] : entries_) {
    ScopeTally tally = entry.tally;
    if (tally.scope.kind == ScopeKind::kPeerLinkOff) {
      tally.pending = tally.refused;  // counted nowhere in the module
    } else if (const DhcpSpeedPeriod* period = PeriodOf(tally.scope, tally.limit); period != nullptr) {
      tally.pending = period->dropCnt;
    } else {
      tally.lost = entry.unreported;
    }
    tallies.push_back(tally);
  }
  std::ranges::sort(tallies, {}, [](const ScopeTally& tally) {
    return std::tuple(tally.scope.kind, tally.scope.version, tally.scope.index);
  });
  return tallies;
}

}  // namespace vex::host
