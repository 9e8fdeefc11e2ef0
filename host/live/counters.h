// counters.h - what became of every frame a port received, counted where it was decided.
// In:  one fate per frame from the receive threads, one time per hook call. Out: sums for the summary, the
// control socket and the metrics. frames = not presented + not wanted + refused + delivered + failed holds
// whenever no batch is under way, and that is when ReceiveGate lets a reader in.
#pragma once

#include <array>
#include <atomic>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string_view>

#include "host/live/l2_switch.h"

namespace vex::host::live {

enum class Kind : uint8_t { kOther, kArp, kIcmp, kDhcp4, kIcmp6, kDhcp6, kCount };
constexpr std::string_view Name(Kind kind) {
  constexpr std::string_view kNames[] = {"other", "arp", "icmp", "dhcp4", "icmp6", "dhcp6"};
  return kNames[static_cast<size_t>(kind)];
}
constexpr Kind KindOf(uint8_t app_type) {
  switch (app_type) {
    case kAppArp:
      return Kind::kArp;
    case kAppIcmp:
      return Kind::kIcmp;
    case kAppDhcp4:
      return Kind::kDhcp4;
    case kAppIcmp6:
      return Kind::kIcmp6;
    case kAppDhcp6:
      return Kind::kDhcp6;
    default:
      return Kind::kOther;
  }
}

// One per frame. The five sums of the identity group them.
enum class Fate : uint8_t {
  kNotPresented,     // nothing the data plane punts
  kNotWanted,        // the module leaves it alone
  kRefusedSnooping,  // over a budget of its interface, its VLAN, the device or the degrade rate: dropped
  kRefusedPeerLink,  // over the peer-link's budget, or the peer-link is off: dropped
  kDelivered,        // the service got it, or a copy of it
  kTakeFailed,       // the service should have got it: dropped
  kCopyFailed,       // the service should have got a copy; the frame itself goes on
  kNoBuffer,         // no packet buffer, or longer than one: DHCP and ND dropped, the rest goes on
  kCount
};
enum class Sum : uint8_t { kNotPresented, kNotWanted, kRefused, kDelivered, kFailed, kCount };
constexpr std::string_view Name(Sum sum) {
  constexpr std::string_view kNames[] = {"not_presented", "not_wanted", "refused", "delivered", "failed"};
  return kNames[static_cast<size_t>(sum)];
}
struct FateRow {
  Sum sum;
  std::string_view reason;  // "" when the sum says it all
};
constexpr FateRow RowOf(Fate fate) {
  constexpr FateRow kRows[] = {{Sum::kNotPresented, ""},      {Sum::kNotWanted, ""},
                               {Sum::kRefused, "snooping"},   {Sum::kRefused, "peer_link"},
                               {Sum::kDelivered, ""},         {Sum::kFailed, "take_failed"},
                               {Sum::kFailed, "copy_failed"}, {Sum::kFailed, "no_buffer"}};
  return kRows[static_cast<size_t>(fate)];
}

inline constexpr auto kKinds = static_cast<size_t>(Kind::kCount);
inline constexpr auto kFates = static_cast<size_t>(Fate::kCount);
inline constexpr auto kSums = static_cast<size_t>(Sum::kCount);
inline constexpr auto kSwitchFates = static_cast<size_t>(SwitchFate::kCount);

using Counter = std::atomic<uint64_t>;
inline void Count(Counter& counter, uint64_t by = 1) { counter.fetch_add(by, std::memory_order_relaxed); }
inline uint64_t ValueOf(const Counter& counter) { return counter.load(std::memory_order_relaxed); }

// One port's. Writers: the port's receive thread; the channel-event thread for the last two.
struct alignas(64) PortCounters {
  Counter frames{0};
  std::array<std::array<Counter, kFates>, kKinds> fates{};
  std::array<Counter, kSwitchFates> switched{};  // of frames that the DHCP path left to the switch
  Counter published{0};                          // sent for the service by this port
  Counter publish_failed{0};
};

// How long the hook took, in buckets for a histogram. Writer: one receive thread.
struct HookLatency {
  static constexpr std::array<uint32_t, 11> kBoundsNs = {250,   500,    1000,   2500,   5000,     10000,
                                                         25000, 100000, 250000, 500000, 1'000'000};
  std::array<Counter, kBoundsNs.size() + 1> buckets{};
  Counter sum_ns{0};
  void Add(uint64_t ns) {
    size_t bucket = 0;
    while (bucket < kBoundsNs.size() && ns > kBoundsNs[bucket]) ++bucket;
    Count(buckets[bucket]);
    Count(sum_ns, ns);
  }
};

// Keeps a reader out while a batch is handled. The receiver gives way between two batches.
class ReceiveGate {
 public:
  // Reader's side, for std::lock_guard.
  void lock() {
    waiting_.fetch_add(1, std::memory_order_relaxed);
    mutex_.lock();
    waiting_.fetch_sub(1, std::memory_order_relaxed);
  }
  void unlock() { mutex_.unlock(); }
  // Receiver's side, around each batch.
  void Enter();
  void Leave() { mutex_.unlock(); }

 private:
  std::mutex mutex_;
  std::atomic<uint32_t> waiting_{0};
};

}  // namespace vex::host::live
