// runtime.h - the switch while the program runs: its plane, and what outlives a plane.
// In:  configurations, one after the other. Out: a running switch; snapshots; bindings on disk.
// Threads: Apply, Tick and Stop from one thread; everything else from any.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/live/plane.h"
#include "host/live/snapshot.h"

namespace vex::host::live {

class Runtime {
 public:
  // Opens the ports; nothing runs before Start(), so rights can be given up in between.
  Runtime(std::string module_path, Config config, LogLine log);
  ~Runtime();
  Runtime(const Runtime&) = delete;
  Runtime& operator=(const Runtime&) = delete;

  void Start();  // throws InputError
  // Wholly or not at all: throws InputError and goes on as before. Answers whether anything changed.
  bool Apply(Config next);
  // A few times per second: samples budgets, follows ports that went and came, saves bindings when it is
  // time.
  void Tick();
  // Ends the plane. The snapshot after it is the closing one.
  void Stop();

  Config config() const;
  Snapshot Take() const;
  std::vector<service::Binding> Bindings() const;
  std::vector<MacTable::Station> Stations() const;
  std::string SaveBindings();  // "": saved, or there is no file to save to; otherwise what failed
  TraceFilter& trace() { return trace_; }

 private:
  std::vector<LivePort> OpenPorts(const Config& config);
  void LoadBindings();
  void Restart(const Config& next);
  void FollowPorts();
  void TakePorts(Snapshot& snapshot) const;
  void TakePlane(Snapshot& snapshot) const;
  PlaneParts Parts();

  const std::string module_path_;
  const LogLine log_;
  const std::chrono::steady_clock::time_point started_;
  const uint64_t seed_;
  Budgets budgets_;
  TraceFilter trace_;

  mutable std::mutex mutex_;  // guards what follows; held for a whole Apply()
  Config config_;
  // By interface. A port that the configuration no longer has keeps its counters and no socket.
  std::map<std::string, LivePort> ports_;
  std::vector<service::Binding> bindings_;  // while no plane holds them
  service::ServiceStats past_;              // counts of the services of former planes
  std::unique_ptr<Plane> plane_;
  uint64_t module_starts_ = 0;
  uint64_t saved_version_ = 0;
  std::chrono::steady_clock::time_point next_save_;
  std::chrono::steady_clock::time_point next_look_;  // at the ports
};

}  // namespace vex::host::live
