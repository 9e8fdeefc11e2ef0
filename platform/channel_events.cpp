// channel_events.cpp - see channel_events.h; with the imports that register and signal channel events.
// In:  event numbers. Out: callback calls, on the threads started here or on the caller of RunPending().
#include "platform/channel_events.h"

#include "platform/faults.h"
#include "platform/module_loader.h"

namespace vex::platform {

ChannelEvents& Events() {
  static ChannelEvents* const events = new ChannelEvents;
  return *events;
}

bool ChannelEvents::Register(uint32_t event, Callback callback) {
  if (callback == nullptr) return false;
  const std::lock_guard lock(mutex_);
  slots_[event] = {callback, false};
  return true;
}

bool ChannelEvents::Write(uint32_t event) {
  {
    const std::lock_guard lock(mutex_);
    const auto slot = slots_.find(event);
    if (slot == slots_.end()) return false;
    slot->second.pending = true;
  }
  wake_.notify_one();  // without the lock, for which the woken thread would have to wait again
  return true;
}

size_t ChannelEvents::RunPending() {
  std::vector<Callback> due;
  {
    const std::lock_guard lock(mutex_);
    for (auto& [event, slot] : slots_) {
      if (!slot.pending) continue;
      slot.pending = false;
      due.push_back(slot.callback);
    }
  }
  for (const Callback callback : due) callback();
  return due.size();
}

size_t ChannelEvents::RunUntilIdle() {
  size_t calls = 0;
  while (const size_t now = RunPending()) calls += now;
  return calls;
}

bool ChannelEvents::AnyPending() const {
  const std::lock_guard lock(mutex_);
  for (const auto& [event, slot] : slots_) {
    if (slot.pending) return true;
  }
  return false;
}

void ChannelEvents::Serve() {
  std::unique_lock lock(mutex_);
  while (!stopping_) {
    Callback callback = nullptr;
    for (auto& [event, slot] : slots_) {
      if (!slot.pending) continue;
      slot.pending = false;
      callback = slot.callback;
      break;
    }
    if (callback == nullptr) {
      wake_.wait(lock);
      continue;
    }
    lock.unlock();
    callback();
    lock.lock();
  }
}

void ChannelEvents::StartThreads(size_t count) {
  StopThreads();
  for (size_t i = 0; i < count; ++i) threads_.emplace_back([this] { Serve(); });
}

void ChannelEvents::StopThreads() {
  {
    const std::lock_guard lock(mutex_);
    stopping_ = true;
    wake_.notify_all();
  }
  for (std::thread& thread : threads_) thread.join();
  threads_.clear();
  const std::lock_guard lock(mutex_);
  stopping_ = false;
}

void ChannelEvents::RemoveObject(const void* objectBase) {
  const std::lock_guard lock(mutex_);
  std::erase_if(slots_, [&](const auto& entry) {
    return ObjectBase(reinterpret_cast<const void*>(entry.second.callback)) == objectBase;
  });
}

void ChannelEvents::Reset() {
  StopThreads();
  const std::lock_guard lock(mutex_);
  slots_.clear();
}

}  // namespace vex::platform

using namespace vex::platform;  // NOLINT: what follows is nothing but the C surface over that namespace

extern "C" {

uint32_t OrbChnEvtCallbackRegister(uint32_t eventKind, void (*callback)(void)) {
  if (const Outcome fault = Watch(Import::OrbChnEvtCallbackRegister, eventKind, callback))
    return fault.Code();
  return Events().Register(eventKind, callback) ? 0 : 1;
}

uint32_t ORB_ChannelEventWritePublic(uint32_t eventId) {
  if (const Outcome fault = Watch(Import::ORB_ChannelEventWritePublic, eventId)) return fault.Code();
  return Events().Write(eventId) ? 0 : 1;
}

}  // extern "C"
