// trace.h - which frames are followed through the module and named in the log.
// In:  a port or a MAC address from the control socket. Out: yes or no per frame; one relaxed load while off.
#pragma once

#include <atomic>
#include <cstdint>

#include "host/data_plane.h"

namespace vex::host::live {

class TraceFilter {
 public:
  void FollowPort(uint32_t index) { Set(index, 0); }
  void FollowMac(const MacAddress& mac) { Set(0, Number(mac)); }
  void Off() { Set(0, 0); }
  bool on() const { return on_.load(std::memory_order_relaxed); }
  bool Follows(uint32_t port, const ParsedFrame& parsed) const {
    if (!on()) return false;
    const uint64_t mac = mac_.load(std::memory_order_relaxed);
    if (mac != 0) return mac == Number(parsed.src_mac) || mac == Number(parsed.dst_mac);
    return port == port_.load(std::memory_order_relaxed);
  }

 private:
  static uint64_t Number(const MacAddress& mac) {
    uint64_t number = 1;  // above the address: no address is 0
    for (const uint8_t byte : mac) number = number << 8 | byte;
    return number;
  }
  void Set(uint32_t port, uint64_t mac) {
    on_.store(false, std::memory_order_relaxed);
    port_.store(port, std::memory_order_relaxed);
    mac_.store(mac, std::memory_order_relaxed);
    on_.store(port != 0 || mac != 0, std::memory_order_relaxed);
  }
  std::atomic<bool> on_{false};
  std::atomic<uint32_t> port_{0};
  std::atomic<uint64_t> mac_{0};
};

}  // namespace vex::host::live
