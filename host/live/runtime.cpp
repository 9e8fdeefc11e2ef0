// runtime.cpp - see runtime.h.
#include "host/live/runtime.h"

#include <fmt/format.h>

#include <algorithm>
#include <random>
#include <utility>

#include "host/error.h"
#include "host/live/run_checks.h"
#include "platform/clock.h"
#include "service/binding_store.h"

namespace vex::host::live {
namespace {

using std::chrono::steady_clock;

constexpr auto kLeastSavePause = std::chrono::seconds(1);
constexpr auto kPauseAfterFailure = std::chrono::seconds(30);
constexpr auto kLookPause = std::chrono::seconds(1);
constexpr int kSaveShare = 50;  // saving takes at most this fraction of the time

uint64_t RandomSeed() {
  std::random_device device;
  return uint64_t{device()} << 32 | device();
}

PortSnapshot PortNumbers(const LivePort& port) {
  PortSnapshot snapshot;
  snapshot.record = port.record;
  if (port.socket) snapshot.io = port.socket->Stats();
  const PortCounters& counters = *port.counters;
  snapshot.frames = ValueOf(counters.frames);
  for (size_t kind = 0; kind < kKinds; ++kind) {
    for (size_t fate = 0; fate < kFates; ++fate)
      snapshot.fates[kind][fate] = ValueOf(counters.fates[kind][fate]);
  }
  for (size_t i = 0; i < kSwitchFates; ++i) snapshot.switched[i] = ValueOf(counters.switched[i]);
  snapshot.published = ValueOf(counters.published);
  snapshot.publish_failed = ValueOf(counters.publish_failed);
  return snapshot;
}

// What a module or a plane reads only when it starts.
bool NeedsRestart(const Config& a, const Config& b) {
  // Trust is the module's and can change while it runs.
  const auto same = [](PortRecord x, PortRecord y) {
    x.trusted = y.trusted = false;
    return x == y;
  };
  return a.board != b.board || a.capabilities != b.capabilities ||
         !std::ranges::equal(a.ports, b.ports, same) || a.live.threads != b.live.threads ||
         a.live.station_age != b.live.station_age || a.live.max_bindings != b.live.max_bindings;
}

std::string NameOf(const Config& config, uint32_t index) {
  const auto port = std::ranges::find(config.ports, index, &PortRecord::index);
  return port == config.ports.end() ? std::string() : port->name;
}

}  // namespace

Runtime::Runtime(std::string module_path, Config config, LogLine log)
    : module_path_(std::move(module_path)),
      log_(std::move(log)),
      started_(steady_clock::now()),
      seed_(RandomSeed()),
      config_(std::move(config)) {
  CheckPorts(config_);
  OpenPorts(config_);
}

Runtime::~Runtime() = default;

// The ports of a configuration, opened where they are not open yet. Throws before anything changes.
std::vector<LivePort> Runtime::OpenPorts(const Config& config) {
  std::map<std::string, std::shared_ptr<PortSocket>> fresh;
  for (const PortRecord& record : config.ports) {
    const auto known = ports_.find(record.name);
    if (known == ports_.end() || !known->second.socket)
      fresh[record.name] = std::make_shared<PortSocket>(record.name);
  }
  std::vector<LivePort> ports;
  for (const PortRecord& record : config.ports) {
    LivePort& port = ports_[record.name];
    port.record = record;
    if (!port.socket) port.socket = std::move(fresh[record.name]);
    if (!port.counters) port.counters = std::make_shared<PortCounters>();
    ports.push_back(port);
  }
  return ports;
}

// An interface that is made again under its name, like the tap of a guest that restarts, is the port again.
void Runtime::FollowPorts() {
  for (const PortRecord& record : config_.ports) {
    LivePort& port = ports_.at(record.name);
    switch (port.socket->Follow()) {
      case PortSocket::Change::kNone:
        break;
      case PortSocket::Change::kGone:
        log_(
            fmt::format("port {}: the interface is gone; the port works again when it is back", record.name));
        break;
      case PortSocket::Change::kBack:
        log_(fmt::format("port {}: the interface is back", record.name));
        break;
    }
  }
}

PlaneParts Runtime::Parts() {
  ++module_starts_;
  return {.module_path = module_path_, .seed = seed_, .budgets = budgets_, .trace = trace_, .log = log_};
}

void Runtime::Start() {
  const std::lock_guard lock(mutex_);
  platform::TheClock().UseMachine();
  CheckBindingsFile(config_.live.bindings);
  LoadBindings();
  plane_ = std::make_unique<Plane>(Parts(), config_, OpenPorts(config_), bindings_);
}

void Runtime::LoadBindings() {
  if (config_.live.bindings.empty()) return;
  service::LoadedBindings loaded = service::LoadBindings(config_.live.bindings, config_.live.max_bindings);
  for (const std::string& problem : loaded.problems) log_(problem);
  const auto known = [this](const service::Binding& binding) {
    return std::ranges::any_of(config_.ports,
                               [&](const PortRecord& port) { return port.index == binding.port; });
  };
  const auto strangers = std::erase_if(loaded.bindings, [&](const auto& binding) { return !known(binding); });
  if (strangers != 0) {
    log_(fmt::format("{}: {} bindings are of ports that are not configured and were left out",
                     config_.live.bindings, strangers));
  }
  bindings_ = std::move(loaded.bindings);
}

bool Runtime::Apply(Config next) {
  const std::lock_guard lock(mutex_);
  CheckPorts(next);
  if (next == config_) return false;
  const bool other_file = next.live.bindings != config_.live.bindings;
  if (other_file) CheckBindingsFile(next.live.bindings);
  if (NeedsRestart(config_, next)) {
    Restart(next);
  } else {
    plane_->Configure(config_.module, next.module);
  }
  config_ = std::move(next);
  if (other_file) {  // it is to hold what is bound now
    saved_version_ = UINT64_MAX;
    next_save_ = {};
  }
  return true;
}

void Runtime::Restart(const Config& next) {
  const auto before = ports_;
  std::vector<LivePort> old_ports;
  for (const PortRecord& record : config_.ports) old_ports.push_back(ports_.at(record.name));
  std::vector<LivePort> ports = OpenPorts(next);
  plane_->Stop();
  bindings_ = plane_->service().bindings().Snapshot();
  service::AddCounts(past_, plane_->service().Stats());
  plane_.reset();
  saved_version_ = UINT64_MAX;  // the next table counts its changes from the start again
  try {
    plane_ = std::make_unique<Plane>(Parts(), next, std::move(ports), bindings_);
  } catch (const std::exception&) {
    ports_ = before;
    plane_ = std::make_unique<Plane>(Parts(), config_, std::move(old_ports), bindings_);
    throw;
  }
  std::erase_if(past_.ports, [&](const auto& entry) {  // an index that is another port now counts from 0
    return NameOf(config_, entry.first) != NameOf(next, entry.first);
  });
  for (auto& entry : ports_) {
    const bool kept = std::ranges::count(next.ports, entry.first, &PortRecord::name) != 0;
    if (!kept) entry.second.socket.reset();
  }
}

void Runtime::Tick() {
  const auto now = steady_clock::now();
  bool save = false;
  {
    const std::lock_guard lock(mutex_);
    budgets_.Sample();
    if (plane_ && now >= next_look_) {
      FollowPorts();
      next_look_ = now + kLookPause;
    }
    save = plane_ && !config_.live.bindings.empty() && now >= next_save_ &&
           plane_->service().bindings().Version() != saved_version_;
  }
  if (!save) return;
  const std::string problem = SaveBindings();
  const auto done = steady_clock::now();
  if (problem.empty()) {
    next_save_ = done + std::max<steady_clock::duration>(kLeastSavePause, (done - now) * kSaveShare);
  } else {
    log_(problem);
    next_save_ = done + kPauseAfterFailure;
  }
}

std::string Runtime::SaveBindings() {
  std::string path;
  std::vector<service::Binding> bindings;
  uint64_t version = 0;
  {
    const std::lock_guard lock(mutex_);
    if (config_.live.bindings.empty() || !plane_) return {};
    path = config_.live.bindings;
    version = plane_->service().bindings().Version();
    bindings = plane_->service().bindings().Snapshot();
  }
  std::string problem = service::SaveBindings(path, bindings);
  const std::lock_guard lock(mutex_);
  if (problem.empty()) saved_version_ = version;
  return problem;
}

void Runtime::Stop() {
  {
    const std::lock_guard lock(mutex_);
    if (plane_) plane_->Stop();
  }
  if (const std::string problem = SaveBindings(); !problem.empty()) log_(problem);
}

Config Runtime::config() const {
  const std::lock_guard lock(mutex_);
  return config_;
}

std::vector<service::Binding> Runtime::Bindings() const {
  const std::lock_guard lock(mutex_);
  return plane_ ? plane_->service().bindings().Snapshot() : bindings_;
}

std::vector<MacTable::Station> Runtime::Stations() const {
  const std::lock_guard lock(mutex_);
  return plane_ ? plane_->fabric().l2().stations().Stations(MonotonicSeconds())
                : std::vector<MacTable::Station>{};
}

Snapshot Runtime::Take() const {
  const std::lock_guard lock(mutex_);
  Snapshot snapshot;
  snapshot.uptime_seconds = std::chrono::duration<double>(steady_clock::now() - started_).count();
  snapshot.config = config_;
  snapshot.budgets = budgets_.Rows();
  snapshot.module_starts = module_starts_;
  snapshot.pool = platform::Packets().Stats();
  TakePorts(snapshot);
  service::AddCounts(snapshot.service, past_);
  if (plane_) TakePlane(snapshot);
  return snapshot;
}

void Runtime::TakePorts(Snapshot& snapshot) const {
  std::vector<std::unique_lock<ReceiveGate>> gates;
  if (plane_) {
    for (const auto& receiver : plane_->receivers()) gates.emplace_back(receiver->gate());
  }
  for (const PortRecord& record : config_.ports)
    snapshot.ports.push_back(PortNumbers(ports_.at(record.name)));
  for (const auto& [name, port] : ports_) {
    if (!port.socket) snapshot.ports.push_back(PortNumbers(port));
  }
}

void Runtime::TakePlane(Snapshot& snapshot) const {
  for (const platform::Channel* channel : platform::Channels().All()) {
    snapshot.channels.push_back({channel->Name(), channel->Depth(), channel->Size(), channel->Stats()});
  }
  for (size_t i = 0; i < snapshot.stats.size(); ++i) {
    snapshot.stats[i] =
        std::atomic_ref(const_cast<uint64_t&>(plane_->module().stats[i])).load(std::memory_order_relaxed);
  }
  const service::ServiceStats now = plane_->service().Stats();
  service::AddCounts(snapshot.service, now);
  snapshot.service.leases = now.leases;
  snapshot.binding_stats = plane_->service().bindings().Stats();
  snapshot.bindings = plane_->service().bindings().size();
  snapshot.stations = plane_->fabric().l2().stations().Stations(MonotonicSeconds()).size();
  for (const auto& receiver : plane_->receivers()) {
    const HookLatency& latency = receiver->latency();
    for (size_t i = 0; i < snapshot.latency.size(); ++i) snapshot.latency[i] += ValueOf(latency.buckets[i]);
    snapshot.latency_sum_ns += ValueOf(latency.sum_ns);
  }
}

}  // namespace vex::host::live
