// announcer.h - announces binding changes in their order and loses none while the return channel is full.
// In:  changes from any service thread. Out: user-binding messages; what finds no room waits here, bounded.
#pragma once

#include <algorithm>
#include <atomic>
#include <deque>
#include <mutex>

#include "service/return_channel.h"

namespace vex::service {

class Announcer {
 public:
  Announcer(platform::Channel& channel, size_t max_waiting)
      : channel_(channel), out_(channel), max_waiting_(max_waiting) {}

  // False: the queue of those that wait is full, the change is not announced.
  bool Announce(const BindingEvent& event);
  // Sends what waits, as far as there is room, and signals the channel event for everything sent so far.
  void Flush();
  size_t Waiting() const { return waiting_count_.load(std::memory_order_relaxed); }

 private:
  // A long restore crowds packets out of neither the channel nor the buffer pool.
  bool HasRoom() const { return channel_.Size() <= std::min<size_t>(channel_.Depth() / 2, 256); }
  platform::Channel& channel_;
  std::mutex mutex_;  // guards all below
  ReturnChannel out_;
  std::deque<BindingEvent> waiting_;
  const size_t max_waiting_;
  std::atomic<size_t> waiting_count_{0};  // size of waiting_, for readers without the lock
};

}  // namespace vex::service
