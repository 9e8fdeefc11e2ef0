// service.cpp - puts the instances, their shared tables and the binding table together.
// In:  options. Out: a running service.
#include "service/service.h"

#include <atomic>
#include <stdexcept>

#include "service/answer.h"
#include "service/channel_plan.h"
#include "service/instance.h"
#include "service/snoop.h"

namespace vex::service {
namespace {

platform::Channel& ReturnChannelOrThrow() {
  platform::Channel* const channel = platform::Channels().Find(kReturnChannelName);
  if (channel == nullptr)
    throw std::runtime_error(std::string(kReturnChannelName) +
                             " does not exist: initialise the module first");
  return *channel;
}

// Threads beside the first: one per instance, none in single-instance mode.
uint32_t InstanceThreads(uint32_t instances) { return instances > kMaxInstances ? 0 : instances; }

}  // namespace

struct Service::Impl {
  explicit Impl(Options given)
      : options(std::move(given)),
        table(options.max_bindings),
        context(options.module, options.notice, ReturnChannelOrThrow(), options.max_clients,
                options.max_bindings),
        feed(options.module, table) {
    context.ports.Set(options.ports);
    const uint32_t extra = InstanceThreads(options.instances);
    for (uint32_t thread = 0; thread <= extra; ++thread) {
      // The first that receives router messages: the only thread, or else instance 0.
      const bool routers = thread == (extra == 0 ? 0 : 1);
      const auto maker = [this, routers](Desk& desk) { return MakeHandler(desk, routers); };
      instances.push_back(
          std::make_unique<Instance>(context, thread, options.channel_depth, maker, options.speed_info));
    }
  }

  std::unique_ptr<FrameHandler> MakeHandler(Desk& desk, bool routers) const {
    if (options.mode == Mode::kAnswer) return std::make_unique<Answerer>(desk, routers);
    return std::make_unique<Snooper>(desk, routers);
  }

  // On the first thread. Lease ends are whole seconds, so once a second is enough.
  void Tick(int64_t now_ns) {
    context.announcer.Flush();
    const int64_t second = now_ns / 1'000'000'000;
    if (second == last_tick_second) return;
    last_tick_second = second;
    context.clients.Forget(now_ns);
    context.leases.Expire(now_ns, instances.front()->desk().counters());
    table.Expire(now_ns);
    context.announcer.Flush();
  }

  const Options options;
  BindingTable table;
  Context context;
  BindingFeed feed;
  std::vector<std::unique_ptr<Instance>> instances;
  int64_t last_tick_second = INT64_MIN;
  bool running = false;
};

Service::Service(Options options) : impl_(std::make_unique<Impl>(std::move(options))) {}

Service::~Service() { Stop(); }

void Service::Start() {
  if (impl_->running) return;
  impl_->running = true;
  for (size_t i = 0; i < impl_->instances.size(); ++i) {
    std::function<void(int64_t)> tick;
    if (i == 0) tick = [this](int64_t now_ns) { impl_->Tick(now_ns); };
    impl_->instances[i]->Start(std::move(tick));
  }
}

void Service::Stop() {
  for (const auto& instance : impl_->instances) instance->Stop();
  for (const auto& instance : impl_->instances) instance->Discard();
  impl_->running = false;
}

size_t Service::Poll(int64_t now_ns) {
  size_t handled = 0;
  for (const auto& instance : impl_->instances) handled += instance->Drain(now_ns);
  impl_->Tick(now_ns);
  return handled;
}

void Service::Restore(std::span<const Binding> bindings, int64_t now_ns) {
  PortCounters& counters = impl_->instances.front()->desk().counters();
  for (const Binding& binding : bindings) {
    if (HasEnded(binding.lease_end, now_ns)) continue;
    if (!impl_->context.leases.Set(binding, BindingChange::kRestored, now_ns, counters))
      counters.Count(binding.port, Counter::kBindingFull);
  }
  impl_->context.announcer.Flush();
}

void Service::SetPorts(std::vector<uint32_t> ports) { impl_->context.ports.Set(std::move(ports)); }

ServiceStats Service::Stats() const {
  ServiceStats stats;
  for (const auto& instance : impl_->instances) instance->AddTo(stats);
  stats.waiting_announcements = impl_->context.announcer.Waiting();
  stats.leases = impl_->context.leases.size();
  stats.clients = impl_->context.clients.size();
  return stats;
}

BindingTable& Service::bindings() { return impl_->table; }
const BindingTable& Service::bindings() const { return impl_->table; }

}  // namespace vex::service
