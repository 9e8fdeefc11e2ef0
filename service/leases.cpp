// leases.cpp - grants, renewals and ends of leases.
// In:  changes. Out: the same as announcements, each counted on the lease's port.
#include "service/leases.h"

#include <string_view>

namespace vex::service {
namespace {

Counter CounterOf(BindingChange change) {
  const auto first = static_cast<size_t>(BindingChange::kMade);
  constexpr std::array<Counter, 8> kCounters = {Counter::kMade,     Counter::kRenewed,  Counter::kRestored,
                                                Counter::kReleased, Counter::kDeclined, Counter::kRefused,
                                                Counter::kExpired,  Counter::kReplaced};
  return kCounters[static_cast<size_t>(change) - first];
}

}  // namespace

LeasePlace PlaceOf(const Binding& binding) {
  return {binding.vlan, binding.kind, binding.prefix_length, binding.address};
}

size_t LeasePlaceHash::operator()(const LeasePlace& place) const {
  const auto& bytes = place.address.bytes;
  const std::string_view text(reinterpret_cast<const char*>(bytes.data()), bytes.size());
  return std::hash<std::string_view>()(text) ^ (size_t{place.vlan} << 16 | place.prefix_length);
}

bool Leases::Set(const Binding& binding, BindingChange change, int64_t now_ns, PortCounters& counters) {
  Shard& shard = ShardOf(PlaceOf(binding));
  const std::lock_guard lock(shard.lock);
  const auto found = shard.leases.find(PlaceOf(binding));
  if (found == shard.leases.end()) {
    if (!Add(shard, binding)) return false;
    Announce(change, binding, now_ns, counters);
  } else if (SameLease(found->second, binding)) {
    found->second = binding;
    Announce(BindingChange::kRenewed, binding, now_ns, counters);
  } else {
    Announce(BindingChange::kReplaced, found->second, now_ns, counters);
    found->second = binding;
    Announce(change, binding, now_ns, counters);
  }
  shard.earliest_end = std::min(shard.earliest_end, binding.lease_end);
  return true;
}

bool Leases::Add(Shard& shard, const Binding& binding) {
  if (count_.fetch_add(1, std::memory_order_relaxed) >= max_) {
    count_.fetch_sub(1, std::memory_order_relaxed);
    return false;
  }
  shard.leases.emplace(PlaceOf(binding), binding);
  return true;
}

void Leases::Remove(const Binding& owner, BindingChange change, int64_t now_ns, PortCounters& counters) {
  Shard& shard = ShardOf(PlaceOf(owner));
  const std::lock_guard lock(shard.lock);
  const auto found = shard.leases.find(PlaceOf(owner));
  if (found == shard.leases.end() || !SameLease(found->second, owner)) return;
  Announce(change, found->second, now_ns, counters);
  shard.leases.erase(found);
  count_.fetch_sub(1, std::memory_order_relaxed);
}

size_t Leases::Expire(int64_t now_ns, PortCounters& counters) {
  size_t expired = 0;
  for (Shard& shard : shards_) {
    const std::lock_guard lock(shard.lock);
    if (!HasEnded(shard.earliest_end, now_ns)) continue;
    shard.earliest_end = kNoLeaseEnd;
    expired += std::erase_if(shard.leases, [&](const auto& entry) {
      const Binding& binding = entry.second;
      if (!HasEnded(binding.lease_end, now_ns)) {
        shard.earliest_end = std::min(shard.earliest_end, binding.lease_end);
        return false;
      }
      Announce(BindingChange::kExpired, binding, now_ns, counters);
      return true;
    });
  }
  count_.fetch_sub(expired, std::memory_order_relaxed);
  return expired;
}

std::optional<Binding> Leases::Find(const LeasePlace& place) const {
  const Shard& shard = ShardOf(place);
  const std::lock_guard lock(shard.lock);
  const auto found = shard.leases.find(place);
  if (found == shard.leases.end()) return std::nullopt;
  return found->second;
}

void Leases::Announce(BindingChange change, const Binding& binding, int64_t now_ns, PortCounters& counters) {
  counters.Count(binding.port, CounterOf(change));
  if (!announcer_.Announce({change, binding, now_ns})) counters.Count(binding.port, Counter::kUnannounced);
}

}  // namespace vex::service
