// metrics.h - the running switch for Prometheus: GET /metrics on one address.
// In:  snapshots, taken when somebody asks. Out: the text exposition through prometheus-cpp.
// Names have the prefix vex_ and base units, counters end in _total; labels are port, vlan, kind, reason and
// instance and never an address of a client. Threads: the exposer's own call the source.
#pragma once

#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/live/snapshot.h"

namespace prometheus {
struct MetricFamily;
}

namespace vex::host::live {

using SnapshotSource = std::function<Snapshot()>;

class Metrics {
 public:
  // address: "127.0.0.1:9100". Throws InputError when it cannot listen there.
  Metrics(const std::string& address, SnapshotSource source);
  ~Metrics();

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

std::vector<prometheus::MetricFamily> FamiliesOf(const Snapshot& snapshot);

}  // namespace vex::host::live
