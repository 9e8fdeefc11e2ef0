// instance.cpp - the loop of a service thread.
// In:  events and messages. Out: handled messages.
#include "service/instance.h"

#include <fmt/format.h>
#include <pthread.h>

#include <stdexcept>

#include "platform/clock.h"
#include "service/channel_plan.h"

namespace vex::service {
namespace {

constexpr size_t kBatch =
    32;  // messages of one channel before the others get their turn and the event its signal
constexpr size_t kRounds = 16;  // between two looks at the clock
constexpr auto kTick = std::chrono::seconds(1);
constexpr auto kRetry = std::chrono::milliseconds(10);
constexpr auto kForever = std::chrono::hours(1);

FrameHandler::Stream StreamOf(uint32_t channel) {
  if (channel == 1) return FrameHandler::Stream::kArp;
  return channel >= 2 && channel <= 6 ? FrameHandler::Stream::kDhcp : FrameHandler::Stream::kIcmp;
}

}  // namespace

Instance::Instance(Context& context, uint32_t thread, uint32_t depth, const HandlerMaker& handler,
                   SpeedInfoSink speed_info)
    : thread_index_(thread), desk_(context), handler_(handler(desk_)), speed_info_(std::move(speed_info)) {
  for (uint32_t number = 0; number < kChannelCount; ++number) {
    if (kChannels[number].thread != thread) continue;
    const std::string_view name = kChannels[number].name;
    platform::Channel* channel = platform::Channels().Find(name);
    if (channel == nullptr) channel = platform::Channels().Create(name, depth);
    if (channel == nullptr)
      throw std::runtime_error(
          fmt::format("cannot create {} with depth {}: the depth is 0 or the table is full", name, depth));
    sources_.push_back({number, channel});
  }
  events_ = platform::EventThreads().Create(kThreadNames[thread]);
}

Instance::~Instance() { Stop(); }

size_t Instance::Drain(int64_t now_ns, size_t max_rounds) {
  size_t handled = 0;
  for (size_t round = 0; round < max_rounds; ++round) {
    const size_t before = handled;
    for (const Source& source : sources_) {
      for (size_t i = 0; i < kBatch; ++i) {
        platform::PacketPtr packet = source.channel->Receive();
        if (!packet) break;
        uint32_t port = 0;
        const Counter outcome = Take(source.number, std::move(packet), port, now_ns);
        desk_.counters().Count(port, outcome);
        ++handled;
      }
    }
    if (handled == before) break;
    desk_.Flush();
  }
  received_.fetch_add(handled, std::memory_order_relaxed);
  return handled;
}

Counter Instance::Take(uint32_t channel, platform::PacketPtr packet, uint32_t& port, int64_t now_ns) {
  if (channel == kInnerChannel) return TakeInner(std::move(packet));
  std::optional<Ingress> in = TakeIngress(std::move(packet));
  if (!in) return Counter::kBadHeader;
  port = in->port;
  if (in->sequence > highest_sequence_.load(std::memory_order_relaxed))
    highest_sequence_.store(in->sequence, std::memory_order_relaxed);  // this thread is the only writer
  return handler_->Handle(*in, StreamOf(channel), now_ns);
}

Counter Instance::TakeInner(platform::PacketPtr packet) {
  const std::optional<DhcpSpeedInfoMsg> message = TakeSpeedInfo(std::move(packet));
  if (!message) return Counter::kBadHeader;
  {
    const std::lock_guard lock(drops_lock_);
    reported_drops_[uint64_t{message->msgKind} << 32 | message->indexId] += message->dropCnt;
  }
  if (speed_info_) speed_info_(*message);
  return Counter::kInner;
}

void Instance::Start(std::function<void(int64_t)> tick) {
  stopping_.store(false);
  thread_ = std::thread([this, tick = std::move(tick)] { Run(tick); });
  const std::string_view name = kThreadNames[thread_index_];
  pthread_setname_np(thread_.native_handle(), std::string(name.substr(name.find('/') + 1)).c_str());
}

void Instance::Run(const std::function<void(int64_t)>& tick) {
  while (!stopping_.load()) {
    const size_t handled = Drain(platform::TheClock().NowNs(), kRounds);
    if (tick) tick(platform::TheClock().NowNs());
    if (handled != 0) continue;  // a flood must not keep the thread from its clock and its end
    const bool waiting = desk_.context().announcer.Waiting() != 0;
    const std::chrono::nanoseconds timeout = !tick     ? std::chrono::nanoseconds(kForever)
                                             : waiting ? kRetry
                                                       : kTick;
    events_->Wait(timeout);
  }
}

void Instance::Stop() {
  if (!thread_.joinable()) return;
  stopping_.store(true);
  events_->Interrupt();
  thread_.join();
}

size_t Instance::Discard() {
  size_t discarded = 0;
  for (const Source& source : sources_) discarded += source.channel->Drain();
  if (discarded != 0) desk_.counters().Count(0, Counter::kDiscarded, discarded);
  return discarded;
}

void Instance::AddTo(ServiceStats& stats) const {
  desk_.counters().AddTo(stats);
  const uint64_t received = received_.load(std::memory_order_relaxed);
  stats.received += received;
  stats.received_by_thread[thread_index_] = received;
  stats.highest_sequence =
      std::max(stats.highest_sequence, highest_sequence_.load(std::memory_order_relaxed));
  const std::lock_guard lock(drops_lock_);
  for (const auto& [key, drops] : reported_drops_) stats.reported_drops[key] += drops;
}

}  // namespace vex::service
