// mac_table.h - which station was last seen behind which port, per VLAN.
// In:  source addresses of received frames; the time in seconds. Out: the port of a destination address.
// Bounded: 4-way buckets of a fixed number. When a bucket is full the station not heard for longest gives
// way, so a flood of invented addresses costs flooding, never memory. Threads: any number; a lock per bucket.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "host/data_plane.h"
#include "platform/spin_mutex.h"

namespace vex::host::live {

class MacTable {
 public:
  // Capacity is rounded up to a power of two. An entry not refreshed for age_seconds is gone.
  MacTable(size_t capacity, uint32_t age_seconds, uint64_t seed);

  void Learn(const MacAddress& mac, uint16_t vlan, uint16_t port, uint32_t now);
  std::optional<uint16_t> Find(const MacAddress& mac, uint16_t vlan, uint32_t now) const;
  void Clear();

  struct Station {
    MacAddress mac;
    uint16_t vlan;
    uint16_t port;
    uint32_t age;  // seconds since it was heard
  };
  std::vector<Station> Stations(uint32_t now) const;
  size_t capacity() const { return buckets_.size() * kWays; }
  uint64_t evicted() const { return evicted_.load(std::memory_order_relaxed); }

 private:
  static constexpr size_t kWays = 4;
  struct Entry {
    uint64_t key = 0;  // VLAN and address; 0: free
    uint32_t heard = 0;
    uint16_t port = 0;
  };
  struct Bucket {
    mutable platform::SpinMutex lock;
    std::array<Entry, kWays> entries;
  };
  static uint64_t KeyOf(const MacAddress& mac, uint16_t vlan);
  const Bucket& BucketOf(uint64_t key) const;
  bool Live(const Entry& entry, uint32_t now) const { return entry.key != 0 && now - entry.heard < age_; }

  std::vector<Bucket> buckets_;
  const uint32_t age_;
  const uint64_t seed_;  // so that nobody can choose addresses that share a bucket
  std::atomic<uint64_t> evicted_{0};
};

}  // namespace vex::host::live
