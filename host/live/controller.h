// controller.h - what may change while the switch runs, and who is told.
// In:  requests of the control socket, a reload signal. Out: a changed switch, or an error and nothing
// changed. One thread: the one that waits for signals and control requests.
#pragma once

#include <functional>
#include <memory>
#include <span>
#include <string>

#include "host/live/control_request.h"
#include "host/live/control_server.h"
#include "host/live/metrics.h"
#include "host/live/runtime.h"
#include "host/live/views.h"

namespace vex::host::live {

class Controller {
 public:
  // load: the configuration as file and command line have it now. Opens the control socket.
  Controller(Runtime& runtime, std::function<Config()> load, LogLine log);
  ~Controller();

  void OpenMetrics();  // after the rights are dropped, because it starts threads
  int fd() const { return server_->fd(); }
  const std::string& path() const { return server_->path(); }
  void Serve();
  // "": done; otherwise why not, and everything is as it was.
  std::string Reload();

 private:
  std::string Answer(std::span<const uint8_t> line);
  Json Do(const ShowRequest& request);
  Json Do(const SetRequest& request);
  Json Do(const TraceRequest& request);
  Json Do(const ReloadRequest& request);
  Json Do(const SaveRequest& request);
  Json Do(const RequestError& request);
  bool Apply(Config next);
  std::unique_ptr<Metrics> MetricsFor(const std::string& address);
  std::unique_ptr<ControlServer> ServerFor(const std::string& path);

  Runtime& runtime_;
  const std::function<Config()> load_;
  const LogLine log_;
  std::unique_ptr<ControlServer> server_;
  std::unique_ptr<ControlServer> next_server_;  // takes over once the answer to its request has gone out
  std::unique_ptr<Metrics> metrics_;
  uint64_t trace_sink_ = 0;
};

}  // namespace vex::host::live
