// plane.h - one incarnation of the switch: module, service, ports and threads under one configuration.
// In:  a checked configuration with its ports open, the bindings to start from. Out: a running switch; the
// bindings it leaves behind. What a module reads only at its start (board, capabilities), the ports and the
// threads change by stopping one plane and starting the next on the same sockets, which meanwhile queue what
// arrives. The platform's module, clock and channels are process-wide: one Plane at a time.
#pragma once

#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/config.h"
#include "host/live/budgets.h"
#include "host/live/fabric.h"
#include "host/live/receiver.h"
#include "host/session.h"
#include "service/service.h"

namespace vex::host::live {

struct PlaneParts {
  std::string module_path;
  uint64_t seed = 0;  // of the station table's hash
  Budgets& budgets;
  const TraceFilter& trace;
  LogLine log;
};

class Plane {
 public:
  // Throws InputError when the module does not start under this configuration.
  Plane(const PlaneParts& parts, const Config& config, std::vector<LivePort> ports,
        std::span<const service::Binding> bindings);
  ~Plane();  // stops
  Plane(const Plane&) = delete;
  Plane& operator=(const Plane&) = delete;

  // From one state of the module's settings to another, while running. Throws InputError, with the settings
  // as they were, when the module refuses.
  void Configure(const service::Settings& from, const service::Settings& to);

  // Ends the threads, the receiving ones first, and lets the service's last messages out.
  void Stop();

  service::Service& service() { return *service_; }
  const service::Service& service() const { return *service_; }
  const Fabric& fabric() const { return *fabric_; }
  const LiveModule& module() const { return *module_; }
  const std::vector<std::unique_ptr<Receiver>>& receivers() const { return receivers_; }

 private:
  void StartReceivers(const PlaneParts& parts, size_t threads);
  void Dispatch(const service::Settings& from, const service::Settings& to);

  Budgets& budgets_;
  std::unique_ptr<Session> session_;
  std::unique_ptr<LiveModule> module_;
  std::unique_ptr<service::Service> service_;
  std::unique_ptr<Fabric> fabric_;
  std::vector<std::unique_ptr<Receiver>> receivers_;
  bool running_ = false;
};

}  // namespace vex::host::live
