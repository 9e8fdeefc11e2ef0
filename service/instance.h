// instance.h - one service thread: waits for its events, drains its channels, lets a handler judge each
// frame. In:  the channels that belong to one thread name. Out: outcomes counted, one per message; what the
// handler sent is signalled once per batch. Threaded (Start, Stop) or driven by the caller (Drain).
#pragma once

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "platform/channel.h"
#include "platform/event_thread.h"
#include "service/context.h"

namespace vex::service {

class Instance {
 public:
  using SpeedInfoSink = std::function<void(const DhcpSpeedInfoMsg&)>;
  using HandlerMaker = std::function<std::unique_ptr<FrameHandler>(Desk&)>;
  // `thread` indexes kThreadNames. Opens that thread and its channels, which are created when missing; throws
  // std::runtime_error when the framework's tables refuse.
  Instance(Context& context, uint32_t thread, uint32_t depth, const HandlerMaker& handler,
           SpeedInfoSink speed_info);
  ~Instance();
  Instance(const Instance&) = delete;
  Instance& operator=(const Instance&) = delete;

  // Handles what is queued, at most that many rounds through the channels; answers how many messages.
  size_t Drain(int64_t now_ns, size_t max_rounds = SIZE_MAX);
  // Calls `tick` with the time about once a second, and sooner while announcements wait; null: never.
  void Start(std::function<void(int64_t)> tick);
  void Stop();       // ends the thread, keeps the queue
  size_t Discard();  // frees what is queued

  Desk& desk() { return desk_; }
  void AddTo(ServiceStats& stats) const;

 private:
  void Run(const std::function<void(int64_t)>& tick);
  Counter Take(uint32_t channel, platform::PacketPtr packet, uint32_t& port, int64_t now_ns);
  Counter TakeInner(platform::PacketPtr packet);

  struct Source {
    uint32_t number;  // 0 to 11
    platform::Channel* channel;
  };
  const uint32_t thread_index_;
  Desk desk_;
  const std::unique_ptr<FrameHandler> handler_;
  const SpeedInfoSink speed_info_;
  platform::EventThread* events_ = nullptr;
  std::vector<Source> sources_;
  std::thread thread_;
  std::atomic<bool> stopping_{false};
  std::atomic<uint64_t> received_{0};
  std::atomic<uint64_t> highest_sequence_{0};
  mutable platform::SpinMutex drops_lock_;
  std::map<uint64_t, uint64_t> reported_drops_;  // key as in ServiceStats
};

}  // namespace vex::service
