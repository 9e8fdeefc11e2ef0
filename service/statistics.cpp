// statistics.cpp - names and sums of the service's counters.
// In:  counts of one thread each. Out: sums per port and in total.
#include "service/statistics.h"

#include <mutex>

namespace vex::service {
namespace {

void AddValues(CounterValues& sum, const CounterValues& more) {
  for (size_t i = 0; i < kCounterCount; ++i) sum[i] += more[i];
}

}  // namespace

std::string_view Name(Counter counter) {
  constexpr std::array<std::string_view, kCounterCount> kNames = {
      "client_forwarded", "server_forwarded", "nd_forwarded",
      "answered",         "observed",         "inner",
      "rogue_server",     "ra_guard",         "wrong_port",
      "no_trusted_port",  "unknown_client",   "same_port",
      "malformed",        "bad_header",       "made",
      "renewed",          "restored",         "released",
      "declined",         "refused",          "expired",
      "replaced",         "binding_full",     "relayed",
      "send_refused",     "no_buffer",        "unannounced",
      "discarded"};
  const auto index = static_cast<size_t>(counter);
  return index < kNames.size() ? kNames[index] : std::string_view();
}

void AddCounts(ServiceStats& sum, const ServiceStats& more) {
  sum.received += more.received;
  AddValues(sum.totals, more.totals);
  for (const auto& [port, values] : more.ports) AddValues(sum.ports[port], values);
  for (size_t i = 0; i < sum.received_by_thread.size(); ++i)
    sum.received_by_thread[i] += more.received_by_thread[i];
}

void PortCounters::Count(uint32_t port, Counter counter, uint64_t by) {
  const std::lock_guard lock(lock_);
  ports_[port][static_cast<size_t>(counter)] += by;
}

void PortCounters::AddTo(ServiceStats& stats) const {
  const std::lock_guard lock(lock_);
  for (const auto& [port, values] : ports_) {
    AddValues(stats.ports[port], values);
    AddValues(stats.totals, values);
  }
}

}  // namespace vex::service
