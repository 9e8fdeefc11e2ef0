// controller.cpp - see controller.h.
#include "host/live/controller.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "host/error.h"
#include "host/live/run.h"
#include "host/live/set_value.h"
#include "platform/clock.h"
#include "platform/logs.h"
#include "service/address.h"

namespace vex::host::live {
namespace {

std::string PathOf(const Config& config) {
  return config.live.socket.empty() ? kDefaultSocket : config.live.socket;
}

}  // namespace

Controller::Controller(Runtime& runtime, std::function<Config()> load, LogLine log)
    : runtime_(runtime),
      load_(std::move(load)),
      log_(std::move(log)),
      server_(ServerFor(PathOf(runtime.config()))) {}

Controller::~Controller() {
  if (trace_sink_ != 0) platform::Logs().RemoveSink(trace_sink_);
}

std::unique_ptr<ControlServer> Controller::ServerFor(const std::string& path) {
  return std::make_unique<ControlServer>(path,
                                         [this](std::span<const uint8_t> line) { return Answer(line); });
}

std::unique_ptr<Metrics> Controller::MetricsFor(const std::string& address) {
  if (address.empty()) return nullptr;
  return std::make_unique<Metrics>(address, [this] { return runtime_.Take(); });
}

void Controller::OpenMetrics() { metrics_ = MetricsFor(runtime_.config().live.metrics); }

void Controller::Serve() {
  server_->Serve();
  if (next_server_) server_ = std::move(next_server_);
}

std::string Controller::Reload() {
  try {
    log_(Apply(load_()) ? "configuration reloaded" : "configuration reloaded: nothing has changed");
    return {};
  } catch (const std::exception& error) {
    log_(fmt::format("reload refused, everything is as before: {}", error.what()));
    return error.what();
  }
}

// Listeners of the new configuration first: if one cannot be had nothing has changed.
bool Controller::Apply(Config next) {
  const Config before = runtime_.config();
  std::unique_ptr<ControlServer> server;
  std::unique_ptr<Metrics> metrics;
  if (PathOf(next) != PathOf(before)) server = ServerFor(PathOf(next));
  const bool new_metrics = next.live.metrics != before.live.metrics;
  if (new_metrics) metrics = MetricsFor(next.live.metrics);
  const bool changed = runtime_.Apply(std::move(next));
  if (server) next_server_ = std::move(server);
  if (new_metrics) metrics_ = std::move(metrics);
  return changed;
}

std::string Controller::Answer(std::span<const uint8_t> line) {
  Json answer;
  try {
    Json data = std::visit([this](const auto& request) { return Do(request); }, ParseRequest(line));
    answer["ok"] = true;
    answer["data"] = std::move(data);
  } catch (const std::exception& error) {
    answer.clear();
    answer["ok"] = false;
    answer["error"] = error.what();
  }
  return answer.dump(-1, ' ', false, Json::error_handler_t::replace);
}

Json Controller::Do(const RequestError& request) { throw InputError(request.what); }

Json Controller::Do(const ShowRequest& request) {
  const std::string& what = request.what;
  if (what == "bindings") {
    const auto now = static_cast<uint64_t>(platform::TheClock().NowNs() / 1'000'000'000);
    return BindingsView(runtime_.Bindings(), runtime_.config().ports, now);
  }
  if (what == "stations") return StationsView(runtime_.Stations(), runtime_.config().ports);
  if (what == "limits") runtime_.Tick();
  const Snapshot snapshot = runtime_.Take();
  if (what == "ports") return PortsView(snapshot);
  if (what == "limits") return LimitsView(snapshot);
  if (what == "switches") return SwitchesView(snapshot);
  if (what == "channels") return ChannelsView(snapshot);
  if (what == "stats") return StatsView(snapshot);
  return SummaryView(snapshot);
}

Json Controller::Do(const SetRequest& request) {
  Config next = runtime_.config();
  SetByName(next, request.key, request.value);
  const bool changed = Apply(std::move(next));
  if (changed) log_(fmt::format("{} = {}", request.key, request.value));
  return changed ? fmt::format("{} is {} now", request.key, request.value)
                 : fmt::format("{} was {} already", request.key, request.value);
}

Json Controller::Do(const TraceRequest& request) {
  if (request.on.empty()) {
    runtime_.trace().Off();
    if (trace_sink_ != 0) platform::Logs().RemoveSink(std::exchange(trace_sink_, 0));
    return "trace is off";
  }
  const auto mac = service::ParseMac(request.on);
  const Config config = runtime_.config();
  const auto port = std::ranges::find(config.ports, request.on, &PortRecord::name);
  if (!mac && port == config.ports.end()) {
    throw InputError(fmt::format("trace: \"{}\" is neither a port nor a MAC address", request.on));
  }
  if (trace_sink_ == 0) {
    trace_sink_ = platform::Logs().AddSink(
        platform::MaskOf(platform::LogOutput::kHostDiag),
        [log = log_](const platform::LogRecord& record) { log(fmt::format("trace:   {}", record.text)); });
  }
  if (mac) {
    runtime_.trace().FollowMac(*mac);
  } else {
    runtime_.trace().FollowPort(port->index);
  }
  return fmt::format("frames of {} are traced in the log of the switch", request.on);
}

Json Controller::Do(const ReloadRequest&) {
  const std::string problem = Reload();
  if (!problem.empty()) throw InputError(problem);
  return "reloaded";
}

Json Controller::Do(const SaveRequest&) {
  if (runtime_.config().live.bindings.empty())
    throw InputError("save: no file is configured; set live.bindings FILE");
  const std::string problem = runtime_.SaveBindings();
  if (!problem.empty()) throw InputError(problem);
  return fmt::format("{} bindings saved to {}", runtime_.Bindings().size(), runtime_.config().live.bindings);
}

}  // namespace vex::host::live
