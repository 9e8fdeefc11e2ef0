// board.h - what the module learns about the device it runs on, and what it registers there.
// In:  board type and capabilities from the host; the RPC record and the hooks from the module.
// Out: answers to OrbCurrentBoard and OrbCapabilityQueryItem; the registered services; calls of hooks.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "dhcp_vex_platform.h"

namespace vex::platform {

struct RpcService {
  uint16_t number;
  std::string name;
  std::array<uint8_t, 48> record;  // as it was handed over
};

class Board {
 public:
  void SetType(uint32_t type) { type_.store(type, std::memory_order_relaxed); }  // initially 1
  uint32_t Type() const { return type_.load(std::memory_order_relaxed); }

  void SetCapability(std::string_view name, uint32_t value);
  void RemoveCapability(std::string_view name);
  std::optional<uint32_t> Capability(std::string_view name) const;  // nothing: the device lacks it

  void AddRpcService(const void* record48);
  std::vector<RpcService> RpcServices() const;
  void RemoveRpcServices();  // what an unloaded module had registered
  void Reset();

 private:
  std::atomic<uint32_t> type_{1};
  mutable std::mutex mutex_;
  std::map<std::string, uint32_t, std::less<>> capabilities_;
  std::vector<RpcService> services_;
};
Board& TheBoard();

// Hooks on the host-packet path. Registration takes a lock, calling does not: hooks are registered at
// start-up and removed only when no packet is under way.
class HookTable {
 public:
  using Callback = uint32_t (*)(OrbMbuf*);
  static constexpr uint32_t kHostPacketPoint = 18;  // where punted packets pass
  struct Hook {
    uint32_t point;
    uint32_t value;
    std::string name;
    Callback callback;
  };
  // False for a null callback or a full table. The same callback at the same point is kept once.
  bool Register(uint32_t point, uint32_t value, Callback callback, const char* name);
  // Offers the packet to the hooks of the point in the order of their registration until one answers
  // non-zero; that verdict, or 0. 0x1000000: taken, the packet is no longer the caller's.
  uint32_t Call(uint32_t point, OrbMbuf* packet) const {
    for (const Slot& slot : slots_) {
      const Callback callback = slot.callback.load(std::memory_order_acquire);
      if (callback == nullptr || slot.point != point) continue;
      if (const uint32_t verdict = callback(packet); verdict != 0) return verdict;
    }
    return 0;
  }
  std::vector<Hook> All() const;
  void RemoveObject(const void* objectBase);
  void Reset();

 private:
  struct Slot {
    uint32_t point = 0;
    uint32_t value = 0;
    std::string name;
    std::atomic<Callback> callback{nullptr};  // release after the other fields, acquire in Call()
  };
  mutable std::mutex mutex_;
  std::array<Slot, 8> slots_;
};
HookTable& Hooks();

}  // namespace vex::platform
