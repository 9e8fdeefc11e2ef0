// announcer.cpp - the queue in front of the return channel.
// In:  binding events. Out: messages in the order of the events.
#include "service/announcer.h"

namespace vex::service {

bool Announcer::Announce(const BindingEvent& event) {
  const std::lock_guard lock(mutex_);
  if (waiting_.empty() && HasRoom() && out_.SendBinding(Encode(event)))
    return true;  // none waits: it cannot overtake one
  if (waiting_.size() >= max_waiting_) return false;
  waiting_.push_back(event);
  waiting_count_.store(waiting_.size(), std::memory_order_relaxed);
  return true;
}

void Announcer::Flush() {
  const std::lock_guard lock(mutex_);
  while (!waiting_.empty() && HasRoom() && out_.SendBinding(Encode(waiting_.front()))) waiting_.pop_front();
  waiting_count_.store(waiting_.size(), std::memory_order_relaxed);
  out_.Flush();
}

}  // namespace vex::service
