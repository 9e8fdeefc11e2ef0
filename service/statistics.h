// statistics.h - what the service did with every message, counted per port.
// In:  one Outcome per message taken from a channel, Events beside them. Out: sums for reports and metrics.
// A message has exactly one outcome, so received == sum of the outcomes.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <map>
#include <string_view>
#include <unordered_map>

#include "platform/spin_mutex.h"

namespace vex::service {

enum class Counter : uint8_t {
  // Outcomes: what became of a message.
  kClientForwarded,  // client's DHCP message, sent to the trusted ports
  kServerForwarded,  // server's DHCP message, sent to the client's port
  kNdForwarded,      // ND message, uploaded or sent on
  kAnswered,         // answered by the service itself (answer mode)
  kObserved,         // a copy that needs nothing: ARP or ICMP reply, RS/RA copy of another instance
  kInner,            // message of the module itself
  kRogueServer,      // server's DHCP message from an untrusted port, dropped
  kRaGuard,          // router advertisement from an untrusted port, dropped
  kWrongPort,        // RELEASE or DECLINE of a binding of another port or client, dropped
  kNoTrustedPort,    // no trusted port but the one it came from, dropped
  kUnknownClient,    // server's message to a client that never asked, dropped
  kSamePort,         // the client is behind the port the answer came from: nothing to forward, dropped
  kMalformed,        // cannot be parsed, dropped
  kBadHeader,        // not behind the module's ingress or inner header, dropped
  kOutcomeCount,
  // Events: beside the outcomes.
  kMade = kOutcomeCount,  // bindings
  kRenewed,
  kRestored,
  kReleased,
  kDeclined,
  kRefused,
  kExpired,
  kReplaced,
  kBindingFull,  // lease seen but the table of leases is full
  kRelayed,      // message of or to a relay agent; makes no binding
  kSendRefused,  // a packet for the return channel was refused and freed
  kNoBuffer,     // no packet buffer for a copy or an announcement
  kUnannounced,  // announcement of a change lost: the queue of those that wait was full
  kDiscarded,    // message still queued when the service stopped
  kCount
};
inline constexpr size_t kCounterCount = static_cast<size_t>(Counter::kCount);
inline constexpr size_t kOutcomeCount = static_cast<size_t>(Counter::kOutcomeCount);
std::string_view Name(Counter counter);  // "rogue_server": lower case, for labels and JSON

using CounterValues = std::array<uint64_t, kCounterCount>;
constexpr uint64_t ValueOf(const CounterValues& values, Counter counter) {
  return values[static_cast<size_t>(counter)];
}

struct ServiceStats {
  uint64_t received = 0;  // messages taken from the channels
  CounterValues totals{};
  std::map<uint32_t, CounterValues> ports;       // by interface index; 0: no port known
  std::array<uint64_t, 5> received_by_thread{};  // index as in kThreadNames; 1 to 4 are the instances 0 to 3
  uint64_t highest_sequence = 0;                 // of the ingress headers seen
  uint64_t waiting_announcements = 0;            // for room on the return channel
  size_t leases = 0;                             // as the service itself knows them
  size_t clients = 0;                            // with an exchange of the last two minutes
  // Packets that each snooping limit refused, as the module reported: key msgKind << 32 | indexId.
  std::map<uint64_t, uint64_t> reported_drops;
};

// To a sum of several services, the counts of one: what only a running service has is left alone.
void AddCounts(ServiceStats& sum, const ServiceStats& more);

// One thread's counters. The thread counts, anybody sums up.
class PortCounters {
 public:
  void Count(uint32_t port, Counter counter, uint64_t by = 1);
  void AddTo(ServiceStats& stats) const;

 private:
  mutable platform::SpinMutex lock_;
  std::unordered_map<uint32_t, CounterValues> ports_;
};

}  // namespace vex::service
