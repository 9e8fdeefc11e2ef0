// clients.cpp - remembers and finds exchanges.
// In:  requests and the questions of answers. Out: ports. Time is an argument.
#include "service/clients.h"

#include <algorithm>
#include <mutex>

namespace vex::service {
namespace {

template <class Item>
bool IsOld(const Item& item, int64_t now_ns, int64_t age_ns) {
  return now_ns - item.time_ns > age_ns;
}

// Neighbouring addresses differ in their low bits only, and many vendors give out even ones.
size_t Mix(uint64_t key) { return key * 0x9E3779B97F4A7C15 >> 32; }

}  // namespace

ClientKey::ClientKey(uint8_t ip_version, uint16_t vlan, Bytes identity) {
  bytes_.reserve(3 + identity.size());
  bytes_ += {static_cast<char>(ip_version), static_cast<char>(vlan >> 8), static_cast<char>(vlan)};
  bytes_.append(identity.begin(), identity.end());
}

Clients::Clients(size_t capacity) {
  const size_t each = std::max<size_t>(1, capacity / kShards);
  for (size_t i = 0; i < kShards; ++i) shards_.push_back(std::make_unique<Shard>(each));
}

uint64_t Clients::StationKey(uint16_t vlan, const MacAddress& mac) {
  uint64_t key = vlan;
  for (const uint8_t byte : mac) key = key << 8 | byte;
  return key;
}

void Clients::NoteRequest(const ClientKey& key, uint16_t vlan, uint32_t xid, const Asked& asked,
                          int64_t now_ns) {
  {
    Shard& shard = ShardOf(key.Hash());
    const std::lock_guard lock(shard.lock);
    Client& client = shard.clients.Use(key);
    client.time_ns = now_ns;
    Exchange* exchange = &client.exchanges[client.last];
    if (exchange->xid != xid || exchange->asked.port != asked.port) {
      client.last = static_cast<uint8_t>((client.last + 1) % client.exchanges.size());
      exchange = &client.exchanges[client.last];
    }
    *exchange = {xid, now_ns, asked};
  }
  const uint64_t station = StationKey(vlan, asked.mac);
  Shard& shard = ShardOf(Mix(station));
  const std::lock_guard lock(shard.lock);
  shard.stations.Use(station) = {asked.port, now_ns};
}

std::optional<Asked> Clients::Find(const ClientKey& key, uint32_t xid, int64_t now_ns) {
  Shard& shard = ShardOf(key.Hash());
  const std::lock_guard lock(shard.lock);
  const Client* client = shard.clients.Find(key);
  if (client == nullptr || IsOld(*client, now_ns, kExchangeNs)) return std::nullopt;
  const Exchange* best = &client->exchanges[client->last];
  for (const Exchange& exchange : client->exchanges)
    if (exchange.xid == xid && exchange.time_ns != INT64_MIN &&
        (best->xid != xid || exchange.time_ns > best->time_ns))
      best = &exchange;
  return best->asked;
}

std::optional<uint32_t> Clients::FindStation(uint16_t vlan, const MacAddress& mac, int64_t now_ns) {
  const uint64_t key = StationKey(vlan, mac);
  Shard& shard = ShardOf(Mix(key));
  const std::lock_guard lock(shard.lock);
  const Station* station = shard.stations.Find(key);
  if (station == nullptr || IsOld(*station, now_ns, kStationNs)) return std::nullopt;
  return station->port;
}

void Clients::Forget(int64_t now_ns) {
  for (const auto& shard : shards_) {
    const std::lock_guard lock(shard->lock);
    shard->clients.Forget([now_ns](const Client& c) { return IsOld(c, now_ns, kExchangeNs); });
    shard->stations.Forget([now_ns](const Station& s) { return IsOld(s, now_ns, kStationNs); });
  }
}

size_t Clients::size() const {
  size_t sum = 0;
  for (const auto& shard : shards_) {
    const std::lock_guard lock(shard->lock);
    sum += shard->clients.size();
  }
  return sum;
}

}  // namespace vex::service
