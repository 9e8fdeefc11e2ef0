// event_thread.cpp - see event_thread.h; with the imports that find and signal threads.
// In:  masks from senders. Out: masks to the owner. A writer takes the mutex only while somebody waits.
#include "platform/event_thread.h"

#include "platform/channel.h"
#include "platform/faults.h"

namespace vex::platform {

void EventThread::Write(uint32_t mask) {
  events_.fetch_or(mask);
  writes_.fetch_add(1, std::memory_order_relaxed);
  if (waiters_.load() == 0) return;
  { const std::lock_guard lock(mutex_); }  // a waiter between its look at events_ and its sleep holds this
  wake_.notify_all();  // without the lock, for which the woken thread would have to wait again
}

uint32_t EventThread::Wait(std::chrono::nanoseconds timeout) {
  if (const uint32_t events = Take(); events != 0) return events;
  std::unique_lock lock(mutex_);
  waiters_.fetch_add(1);
  wake_.wait_for(lock, timeout, [this] { return events_.load() != 0 || interrupted_; });
  waiters_.fetch_sub(1);
  interrupted_ = false;
  return Take();
}

void EventThread::Interrupt() {
  const std::lock_guard lock(mutex_);
  interrupted_ = true;
  wake_.notify_all();
}

EventThreadTable& EventThreads() {
  static EventThreadTable* const table = new EventThreadTable;
  return *table;
}

EventThread* EventThreadTable::Create(std::string_view name) {
  if (EventThread* const existing = Find(name)) return existing;
  const std::lock_guard lock(mutex_);
  return &threads_.emplace_back(std::string(name));
}

EventThread* EventThreadTable::Find(std::string_view name) const {
  const std::lock_guard lock(mutex_);
  for (const EventThread& thread : threads_) {
    if (thread.registered_ && thread.Name() == name) return const_cast<EventThread*>(&thread);
  }
  return nullptr;
}

bool EventThreadTable::IsRegistered(const EventThread& thread) const {
  return thread.registered_.load(std::memory_order_relaxed);
}

bool EventThreadTable::Remove(std::string_view name) {
  EventThread* const thread = Find(name);
  if (thread == nullptr) return false;
  thread->registered_ = false;
  return true;
}

void EventThreadTable::Reset() {
  const std::lock_guard lock(mutex_);
  for (EventThread& thread : threads_) thread.registered_ = false;
}

std::string ServiceChannelName(size_t channel) { return "channel/vex2dhcp" + std::to_string(channel); }

std::string ServiceThreadName(size_t thread) {
  return thread == 0 ? "thread/vex2dhcp" : "thread/vex2dhcp" + std::to_string(thread);
}

ServicePorts OpenServicePorts(uint32_t depth) {
  ServicePorts ports;
  for (size_t c = 0; c < kServiceChannelCount; ++c) {
    Channel* const existing = Channels().Find(ServiceChannelName(c));
    ports.channels[c] = existing != nullptr ? existing : Channels().Create(ServiceChannelName(c), depth);
  }
  for (size_t t = 0; t < kServiceThreadCount; ++t)
    ports.threads[t] = EventThreads().Create(ServiceThreadName(t));
  return ports;
}

}  // namespace vex::platform

using namespace vex::platform;  // NOLINT: what follows is nothing but the C surface over that namespace

extern "C" {

void* ORB_ThreadInfoGetByName(const char* name) {
  if (Watch(Import::ORB_ThreadInfoGetByName, name) || name == nullptr) return nullptr;
  return EventThreads().Find(name);
}

uint32_t ORB_EventWrite(void* thread, uint32_t mask) {
  if (const Outcome fault = Watch(Import::ORB_EventWrite, thread, mask)) return fault.Code();
  if (thread == nullptr) return 1;
  EventThread& target = *static_cast<EventThread*>(thread);
  if (!EventThreads().IsRegistered(target)) return 1;
  target.Write(mask);
  return 0;
}

}  // extern "C"
