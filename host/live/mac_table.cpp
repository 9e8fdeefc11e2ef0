// mac_table.cpp - see mac_table.h.
#include "host/live/mac_table.h"

#include <algorithm>
#include <bit>
#include <mutex>

namespace vex::host::live {

MacTable::MacTable(size_t capacity, uint32_t age_seconds, uint64_t seed)
    : buckets_(std::bit_ceil(std::max(capacity, kWays) / kWays)), age_(age_seconds), seed_(seed | 1) {}

uint64_t MacTable::KeyOf(const MacAddress& mac, uint16_t vlan) {
  uint64_t key = 0;
  for (const uint8_t byte : mac) key = key << 8 | byte;
  return uint64_t{vlan} << 48 | uint64_t{1} << 60 | key;  // bit 60: never 0
}

const MacTable::Bucket& MacTable::BucketOf(uint64_t key) const {
  uint64_t mixed = (key ^ seed_) * 0x9E3779B97F4A7C15U;  // the golden ratio, odd: a multiplicative hash
  mixed ^= mixed >> 32;
  mixed *= seed_;
  return buckets_[(mixed >> 24) & (buckets_.size() - 1)];
}

void MacTable::Learn(const MacAddress& mac, uint16_t vlan, uint16_t port, uint32_t now) {
  const uint64_t key = KeyOf(mac, vlan);
  auto& bucket = const_cast<Bucket&>(BucketOf(key));
  const std::lock_guard lock(bucket.lock);
  // The entries stand in the order in which they were last heard, so the last one gives way.
  auto place = std::ranges::find(bucket.entries, key, &Entry::key);
  if (place == bucket.entries.end()) {
    --place;
    if (Live(*place, now)) evicted_.fetch_add(1, std::memory_order_relaxed);
  }
  std::rotate(bucket.entries.begin(), place, place + 1);
  bucket.entries.front() = {key, now, port};
}

std::optional<uint16_t> MacTable::Find(const MacAddress& mac, uint16_t vlan, uint32_t now) const {
  const uint64_t key = KeyOf(mac, vlan);
  const Bucket& bucket = BucketOf(key);
  const std::lock_guard lock(bucket.lock);
  for (const Entry& entry : bucket.entries) {
    if (entry.key == key && Live(entry, now)) return entry.port;
  }
  return std::nullopt;
}

void MacTable::Clear() {
  for (Bucket& bucket : buckets_) {
    const std::lock_guard lock(bucket.lock);
    bucket.entries = {};
  }
}

std::vector<MacTable::Station> MacTable::Stations(uint32_t now) const {
  std::vector<Station> stations;
  for (const Bucket& bucket : buckets_) {
    const std::lock_guard lock(bucket.lock);
    for (const Entry& entry : bucket.entries) {
      if (!Live(entry, now)) continue;
      Station station{.mac = {},
                      .vlan = static_cast<uint16_t>(entry.key >> 48 & 0xFFF),
                      .port = entry.port,
                      .age = now - entry.heard};
      for (size_t i = 0; i < station.mac.size(); ++i) {
        station.mac[i] = static_cast<uint8_t>(entry.key >> (8 * (station.mac.size() - 1 - i)));
      }
      stations.push_back(station);
    }
  }
  std::ranges::sort(stations, {}, [](const Station& s) { return std::pair(s.vlan, s.mac); });
  return stations;
}

}  // namespace vex::host::live
