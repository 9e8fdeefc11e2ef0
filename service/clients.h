// clients.h - which client is behind which port, learned from what it asked.
// In:  requests. Out: the port that an answer goes back to. Bounded: the client that asked longest ago gives
// way. Threads: any; sharded by client, one short lock per call. Instances share it because a message that
// the module cannot hash reaches another instance than the rest of its exchange.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/spin_mutex.h"
#include "service/address.h"
#include "service/lru_map.h"

namespace vex::service {

// IP version, VLAN and the client's identity: the DHCPv4 hardware address or the DUID.
class ClientKey {
 public:
  ClientKey(uint8_t ip_version, uint16_t vlan, Bytes identity);
  const std::string& bytes() const { return bytes_; }
  size_t Hash() const { return std::hash<std::string>()(bytes_); }
  friend bool operator==(const ClientKey&, const ClientKey&) = default;

 private:
  std::string bytes_;
};

struct ClientKeyHash {
  size_t operator()(const ClientKey& key) const { return key.Hash(); }
};

// Where an exchange came from.
struct Asked {
  uint32_t port = 0;
  MacAddress mac{};   // source of the request's frame
  IpAddress address;  // DHCPv4: what the client asked for; zero when it named none
};

class Clients {
 public:
  explicit Clients(size_t capacity);

  void NoteRequest(const ClientKey& client, uint16_t vlan, uint32_t xid, const Asked& asked, int64_t now_ns);
  // The request of that exchange; else the client's last one; nothing when it never asked or long ago.
  std::optional<Asked> Find(const ClientKey& client, uint32_t xid, int64_t now_ns);
  // The port from which the MAC sent its last request in that VLAN.
  std::optional<uint32_t> FindStation(uint16_t vlan, const MacAddress& mac, int64_t now_ns);
  void Forget(int64_t now_ns);  // what is older than the two below
  size_t size() const;

  static constexpr int64_t kExchangeNs = 120'000'000'000;    // the longest that a client waits for an answer
  static constexpr int64_t kStationNs = 86'400'000'000'000;  // a server may reconfigure a client unasked

 private:
  // A client may have several exchanges under way, also through several relays.
  struct Exchange {
    uint32_t xid = 0;
    int64_t time_ns = INT64_MIN;
    Asked asked;
  };
  struct Client {
    std::array<Exchange, 4> exchanges;  // a ring
    uint8_t last = 0;
    int64_t time_ns = 0;
  };
  struct Station {
    uint32_t port = 0;
    int64_t time_ns = 0;
  };
  struct Shard {
    explicit Shard(size_t capacity) : clients(capacity), stations(capacity) {}
    mutable platform::SpinMutex lock;
    LruMap<ClientKey, Client, ClientKeyHash> clients;
    LruMap<uint64_t, Station> stations;
  };
  static constexpr size_t kShards = 16;
  static uint64_t StationKey(uint16_t vlan, const MacAddress& mac);
  Shard& ShardOf(size_t hash) { return *shards_[hash % kShards]; }
  std::vector<std::unique_ptr<Shard>> shards_;
};

}  // namespace vex::service
