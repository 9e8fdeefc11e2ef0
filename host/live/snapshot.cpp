// snapshot.cpp - sums over a snapshot, and the closing summary.
#include "host/live/snapshot.h"

#include <fmt/format.h>

#include <numeric>

namespace vex::host::live {
namespace {

uint64_t SumOf(const Sums& sums, Sum sum) { return sums[static_cast<size_t>(sum)]; }

}  // namespace

Sums PortSnapshot::sums() const {
  Sums sums{};
  for (const auto& kind : fates) {
    for (size_t fate = 0; fate < kFates; ++fate) {
      sums[static_cast<size_t>(RowOf(static_cast<Fate>(fate)).sum)] += kind[fate];
    }
  }
  return sums;
}

uint64_t PortSnapshot::Total(Fate fate) const {
  uint64_t total = 0;
  for (const auto& kind : fates) total += kind[static_cast<size_t>(fate)];
  return total;
}

uint64_t Snapshot::frames() const {
  return std::accumulate(ports.begin(), ports.end(), uint64_t{0},
                         [](uint64_t sum, const PortSnapshot& port) { return sum + port.frames; });
}

Sums Snapshot::sums() const {
  Sums total{};
  for (const PortSnapshot& port : ports) {
    const Sums sums = port.sums();
    for (size_t i = 0; i < kSums; ++i) total[i] += sums[i];
  }
  return total;
}

bool Snapshot::IdentityHolds() const {
  const Sums total = sums();
  return frames() == std::accumulate(total.begin(), total.end(), uint64_t{0});
}

std::string IdentityText(const Snapshot& snapshot) {
  const Sums sums = snapshot.sums();
  return fmt::format(
      "frames {} = {} not presented + {} not wanted + {} refused + {} delivered + {} failed: {}",
      snapshot.frames(), SumOf(sums, Sum::kNotPresented), SumOf(sums, Sum::kNotWanted),
      SumOf(sums, Sum::kRefused), SumOf(sums, Sum::kDelivered), SumOf(sums, Sum::kFailed),
      snapshot.IdentityHolds() ? "holds" : "DOES NOT HOLD");
}

std::string SummaryText(const Snapshot& snapshot) {
  std::string text = IdentityText(snapshot) + "\n";
  for (const PortSnapshot& port : snapshot.ports) {
    text += fmt::format("port {}: {} frames in, {} out, {} refused, {} failed, {} dropped by the kernel\n",
                        port.record.name, port.frames, port.io.tx_frames, SumOf(port.sums(), Sum::kRefused),
                        SumOf(port.sums(), Sum::kFailed), port.io.kernel_drops);
  }
  const auto count = [&](service::Counter counter) { return ValueOf(snapshot.service.totals, counter); };
  text += fmt::format(
      "service: {} messages, {} from clients and {} from servers forwarded, {} of rogue servers and {} rogue "
      "router advertisements dropped\n",
      snapshot.service.received, count(service::Counter::kClientForwarded),
      count(service::Counter::kServerForwarded), count(service::Counter::kRogueServer),
      count(service::Counter::kRaGuard));
  text += fmt::format("bindings: {} now, {} made, {} removed, {} expired\n", snapshot.bindings,
                      snapshot.binding_stats.made, snapshot.binding_stats.removed,
                      snapshot.binding_stats.expired);
  return text;
}

}  // namespace vex::host::live
