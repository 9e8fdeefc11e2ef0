// budgets.cpp - see budgets.h.
#include "host/live/budgets.h"

#include <algorithm>

#include "platform/clock.h"
#include "platform/event_thread.h"
#include "service/channel_plan.h"

namespace vex::host::live {
namespace {

constexpr uint32_t kUnlimited = 5000;  // a rate that means no limit, as the settings spell it

}  // namespace

uint64_t Budgets::KeyOf(const Scope& scope) {
  return uint64_t{static_cast<uint8_t>(scope.kind)} << 40 | uint64_t{scope.version} << 32 | scope.index;
}

Budgets::Watched& Budgets::At(const Scope& scope) {
  Watched& watched = watched_[KeyOf(scope)];
  watched.row.scope = scope;
  return watched;
}

void Budgets::Attach(const LiveModule& module, const service::Settings& settings) {
  const std::lock_guard lock(mutex_);
  if (module_ != &module) {
    for (auto& [key, watched] : watched_) watched.seen = 0;  // the records start again with the module
    reports_ = platform::Channels().Find(service::kChannels[service::kInnerChannel].name);
    reports_before_ = reports_ == nullptr ? 0 : reports_->Stats().sent;
    reports_seen_ = 0;
  }
  module_ = &module;
  interfaces_.clear();
  vlans_.clear();
  for (const auto& [index, unused] : settings.interfaces) interfaces_.insert(index);
  for (const auto& [id, unused] : settings.vlans) vlans_.insert(id);
  for (auto& [key, watched] : watched_) {
    const Scope& scope = watched.row.scope;
    const bool gone = (scope.kind == ScopeKind::kInterface && !interfaces_.contains(scope.index)) ||
                      (scope.kind == ScopeKind::kVlan && !vlans_.contains(scope.index));
    if (!gone) continue;
    watched.seen = 0;  // the store has deleted the record with its counters
    watched.row.enabled = false;
    watched.row.used = 0;
  }
}

void Budgets::Detach() {
  const std::lock_guard lock(mutex_);
  module_ = nullptr;
  reports_ = nullptr;
}

void Budgets::Sample() {
  const std::lock_guard lock(mutex_);
  if (module_ == nullptr) return;
  OrbSpinlockLock(module_->store_lock);
  // A report on its way has already cleared a counter that its arrival will account for: look again later.
  const bool settled = reports_ == nullptr || reports_->Stats().sent - reports_before_ == reports_seen_;
  if (settled) {
    for (const uint32_t index : interfaces_) {
      if (const auto* record = module_->interface_record(index))
        SampleRecord(ScopeKind::kInterface, index, *record);
    }
    for (const uint32_t id : vlans_) {
      if (const auto* record = module_->vlan_record(id)) SampleRecord(ScopeKind::kVlan, id, *record);
    }
    SampleRecord(ScopeKind::kGlobal, 0, *module_->global_record);
    const uint32_t rate = module_->degrade->degradeRate;
    SampleOne({ScopeKind::kDegrade, 0, 0}, module_->degrade->period, rate, rate != service::kDegradeOff);
  }
  for (size_t kind = 0; kind < DHCP_PEER_KINDS; ++kind) {
    peer_link_used_[kind] = UsedOf(module_->peer_link[kind].period);
  }
  OrbSpinlockUnlock(module_->store_lock);
}

void Budgets::SampleRecord(ScopeKind kind, uint32_t index, const DhcpSnpInfo& record) {
  const auto one = [&](uint8_t version, const DhcpSnpIpCfg& limit, const DhcpSpeedPeriod& period) {
    SampleOne({kind, version, index}, period, limit.pktRate,
              limit.rateEnable == 1 && limit.pktRate != kUnlimited);
  };
  one(4, record.v4Cfg, record.v4Period);
  one(6, record.v6Cfg, record.v6Period);
}

uint32_t Budgets::UsedOf(const DhcpSpeedPeriod& period) {
  return period.periodSec == platform::TheClock().Seconds() ? period.pktCnt : 0;
}

void Budgets::SampleOne(const Scope& scope, const DhcpSpeedPeriod& period, uint32_t limit, bool enabled) {
  Watched& watched = At(scope);
  watched.row.refused += static_cast<uint16_t>(period.dropCnt - watched.seen);
  watched.seen = period.dropCnt;
  watched.row.limit = limit;
  watched.row.enabled = enabled;
  watched.row.used = UsedOf(period);
}

void Budgets::Reported(const DhcpSpeedInfoMsg& report) {
  constexpr std::array kScopes = {ScopeKind::kInterface, ScopeKind::kVlan, ScopeKind::kGlobal};
  const std::lock_guard lock(mutex_);
  ++reports_seen_;
  if (report.msgKind < 1 || report.msgKind > 2 * kScopes.size()) return;
  const uint8_t version = report.msgKind <= kScopes.size() ? 4 : 6;
  Watched& watched = At({kScopes[(report.msgKind - 1) % kScopes.size()], version, report.indexId});
  watched.row.refused += static_cast<uint16_t>(report.dropCnt - watched.seen);
  watched.seen = 0;  // the module cleared its counter when the report had gone out
}

std::vector<BudgetRow> Budgets::Rows() const {
  const std::lock_guard lock(mutex_);
  std::vector<BudgetRow> rows;
  for (const auto& [key, watched] : watched_) rows.push_back(watched.row);
  for (uint32_t kind = 0; kind <= DHCP_PEER_KINDS; ++kind) {
    BudgetRow row;
    row.scope = {kind < DHCP_PEER_KINDS ? ScopeKind::kPeerLink : ScopeKind::kPeerLinkOff, 0,
                 kind < DHCP_PEER_KINDS ? kind : 0};
    row.refused = ValueOf(peer_link_[kind]);
    if (module_ != nullptr && kind < DHCP_PEER_KINDS) {
      const DhcpPeerLinkRate& record = module_->peer_link[kind];
      row.limit = std::atomic_ref(const_cast<uint32_t&>(record.pktRate)).load(std::memory_order_relaxed);
      row.enabled = row.limit != 0;
      row.used = row.enabled ? peer_link_used_[kind] : 0;
    }
    rows.push_back(row);
  }
  return rows;
}

}  // namespace vex::host::live
