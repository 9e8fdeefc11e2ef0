// leases.h - the leases that the service has seen granted, and the announcement of every change.
// In:  completed exchanges, releases, refusals, time, the bindings of the last run. Out: user-binding
// messages, in the order of the changes: each is announced under the lock that made it. Threads: any; sharded
// by address. Bounded: what finds no room is counted and has no binding.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "service/announcer.h"
#include "service/binding.h"
#include "service/statistics.h"

namespace vex::service {

// What a lease is found by: the address or prefix in its VLAN.
struct LeasePlace {
  uint16_t vlan = 0;
  BindingKind kind{};
  uint8_t prefix_length = 0;
  IpAddress address;
  friend bool operator==(const LeasePlace&, const LeasePlace&) = default;
};
LeasePlace PlaceOf(const Binding& binding);
struct LeasePlaceHash {
  size_t operator()(const LeasePlace& place) const;
};

class Leases {
 public:
  Leases(size_t max_leases, Announcer& announcer) : max_(max_leases), announcer_(announcer) {}

  // A lease was granted, or is known from the last run (kRestored). False: no room for it.
  bool Set(const Binding& binding, BindingChange change, int64_t now_ns, PortCounters& counters);
  // The lease ends for this reason, if it is that client's: `owner` names place and client.
  void Remove(const Binding& owner, BindingChange change, int64_t now_ns, PortCounters& counters);
  size_t Expire(int64_t now_ns, PortCounters& counters);

  std::optional<Binding> Find(const LeasePlace& place) const;
  size_t size() const { return count_.load(std::memory_order_relaxed); }

 private:
  struct Shard {
    mutable std::mutex lock;
    std::unordered_map<LeasePlace, Binding, LeasePlaceHash> leases;
    uint64_t earliest_end = kNoLeaseEnd;  // no lease ends before; may be too early, never too late
  };
  static constexpr size_t kShards = 16;
  Shard& ShardOf(const LeasePlace& place) { return shards_[LeasePlaceHash()(place) % kShards]; }
  const Shard& ShardOf(const LeasePlace& place) const { return shards_[LeasePlaceHash()(place) % kShards]; }
  // The caller holds the shard's lock, so that announcements keep the order of the changes.
  void Announce(BindingChange change, const Binding& binding, int64_t now_ns, PortCounters& counters);
  bool Add(Shard& shard, const Binding& binding);

  const size_t max_;
  Announcer& announcer_;
  std::atomic<size_t> count_{0};
  std::array<Shard, kShards> shards_;
};

}  // namespace vex::service
