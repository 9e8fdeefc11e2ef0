// event_thread.h - named threads of the framework as their senders see them: a name and a mask of events.
// In:  ORB_EventWrite sets bits from any thread. Out: the owner takes all bits at once, waiting if it wants.
// The thread itself is the owner's (a std::thread of the service, or the caller in a single-threaded replay).
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <string_view>

namespace vex::platform {

class EventThread {
 public:
  explicit EventThread(std::string name) : name_(std::move(name)) {}
  void Write(uint32_t mask);                       // wakes a waiter
  uint32_t Take() { return events_.exchange(0); }  // what was written since the last take; does not wait
  // The same, waiting until something is written. 0 after the timeout or after Interrupt().
  uint32_t Wait(std::chrono::nanoseconds timeout);
  void Interrupt();  // ends one running or the next Wait() without events
  const std::string& Name() const { return name_; }
  uint64_t Writes() const { return writes_.load(std::memory_order_relaxed); }

 private:
  friend class EventThreadTable;
  const std::string name_;
  std::atomic<uint32_t> events_{0};  // pairs with waiters_: both sequentially consistent, so no wake is lost
  std::atomic<uint32_t> waiters_{0};
  std::atomic<uint64_t> writes_{0};
  std::atomic<bool> registered_{true};
  std::mutex mutex_;
  std::condition_variable wake_;
  bool interrupted_ = false;  // guarded by mutex_
};

class EventThreadTable {
 public:
  EventThread* Create(std::string_view name);      // the existing one when the name is known
  EventThread* Find(std::string_view name) const;  // null when unknown
  bool IsRegistered(const EventThread& thread) const;
  bool Remove(
      std::string_view name);  // unknown from now on; handles given out stay readable but refuse writes
  void Reset();                // Remove() for all

 private:
  mutable std::mutex mutex_;
  std::deque<EventThread> threads_;  // never shrinks: a handle once given out stays valid memory
};
EventThreadTable& EventThreads();

// The ends that the DHCP service reads: twelve channels and five threads, by the names that the module uses.
constexpr size_t kServiceChannelCount = 12;
constexpr size_t kServiceThreadCount = 5;
std::string ServiceChannelName(size_t channel);  // "channel/vex2dhcp0" to "channel/vex2dhcp11"
std::string ServiceThreadName(size_t thread);    // "thread/vex2dhcp", "thread/vex2dhcp1" to "...4"

class Channel;
struct ServicePorts {
  std::array<Channel*, kServiceChannelCount> channels{};
  std::array<EventThread*, kServiceThreadCount> threads{};
};
ServicePorts OpenServicePorts(uint32_t depth = 4096);  // creates what does not exist yet

}  // namespace vex::platform
