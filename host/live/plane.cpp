// plane.cpp - the order of starting and stopping.
#include "host/live/plane.h"

#include <fmt/format.h>

#include <algorithm>
#include <map>
#include <utility>

#include "host/error.h"
#include "platform/channel_events.h"
#include "platform/clock.h"
#include "platform/egress.h"
#include "service/configure.h"

namespace vex::host::live {
namespace {

std::vector<uint32_t> IndexesOf(const std::vector<LivePort>& ports) {
  std::vector<uint32_t> indexes;
  for (const LivePort& port : ports) indexes.push_back(port.record.index);
  return indexes;
}

}  // namespace

Plane::Plane(const PlaneParts& parts, const Config& config, std::vector<LivePort> ports,
             std::span<const service::Binding> bindings)
    : budgets_(parts.budgets) {
  const size_t threads = std::clamp<size_t>(config.live.threads, 1, std::max<size_t>(ports.size(), 1));
  session_ = std::make_unique<Session>(parts.module_path, config, threads);
  if (!session_->active()) {
    throw InputError(fmt::format("board {}: the module serves other boards only and stays idle on this one",
                                 config.board));
  }
  module_ = std::make_unique<LiveModule>(session_->module());
  service::Options options;
  options.module = service::ModuleApi::Of(session_->module());
  options.instances = config.capabilities.instances;
  options.ports = IndexesOf(ports);
  options.max_bindings = config.live.max_bindings;
  std::map<uint32_t, std::string> names;
  for (const LivePort& port : ports) names[port.record.index] = port.record.name;
  options.notice = [log = parts.log, names](const service::Notice& notice) {
    const auto name = names.find(notice.port);
    log(fmt::format("{}: {}", name == names.end() ? "?" : name->second, notice.Text()));
  };
  options.speed_info = [&budgets = budgets_](const DhcpSpeedInfoMsg& report) { budgets.Reported(report); };
  service_ = std::make_unique<service::Service>(std::move(options));
  service_->Restore(bindings, platform::TheClock().NowNs());
  Dispatch({}, config.module);
  budgets_.Attach(*module_, config.module);

  fabric_ = std::make_unique<Fabric>(std::move(ports),
                                     L2Switch::Limits{.age_seconds = config.live.station_age}, parts.seed);
  platform::Egress().SetPublishSink(
      [fabric = fabric_.get()](platform::PacketPtr packet, const HostEgressDesc& desc, uint32_t) {
        return fabric->Publish(std::move(packet), desc);
      });
  platform::Egress().SetUploadSink(
      [fabric = fabric_.get()](platform::PacketPtr packet) { return fabric->Upload(std::move(packet)); });
  StartReceivers(parts, threads);
}

Plane::~Plane() {
  Stop();
  if (module_) budgets_.Detach();
  service_.reset();  // before the module: it takes its callback back
}

void Plane::StartReceivers(const PlaneParts& parts, size_t threads) {
  std::vector<std::vector<uint16_t>> groups(threads);
  const auto count = static_cast<uint16_t>(fabric_->ports().size());
  for (uint16_t at = 0; at < count; ++at) groups[at % threads].push_back(at);
  for (auto& group : groups) {
    receivers_.push_back(std::make_unique<Receiver>(*fabric_, std::move(group), *module_,
                                                    budgets_.peer_link(), parts.trace, parts.log));
  }
  running_ = true;
  service_->Start();
  platform::Events().StartThreads();
  for (size_t i = 0; i < receivers_.size(); ++i) {
    session_->module().Lcores().Start(i, [receiver = receivers_[i].get()] { receiver->Run(); });
  }
}

void Plane::Dispatch(const service::Settings& from, const service::Settings& to) {
  const auto requests = service::RequestsBetween(from, to);
  const size_t accepted = service::Send(session_->module(), requests);
  if (accepted == requests.size()) return;
  throw InputError(fmt::format("the module refused the request {}", service::Describe(requests[accepted])));
}

void Plane::Configure(const service::Settings& from, const service::Settings& to) {
  budgets_.Sample();  // what a record has counted goes with it
  try {
    Dispatch(from, to);
  } catch (const InputError&) {
    service::Send(session_->module(), service::RequestsBetween(to, from));
    throw;
  }
  budgets_.Attach(*module_, to);
}

void Plane::Stop() {
  if (!running_) return;
  running_ = false;
  for (const auto& receiver : receivers_) receiver->Stop();
  session_->module().Lcores().Wait();
  budgets_.Sample();
  service_->Stop();
  platform::Events().RunUntilIdle();
  platform::Events().StopThreads();
  platform::Egress().SetPublishSink({});
  platform::Egress().SetUploadSink({});
}

}  // namespace vex::host::live
