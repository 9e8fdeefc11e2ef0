// channel_events.h - numbered channel events and the callbacks that serve them.
// In:  OrbChnEvtCallbackRegister, ORB_ChannelEventWritePublic. Out: calls of the callbacks.
// An event is a flag: writes before it is served count once; a write during its callback asks for one more
// call. Without threads events stay pending until the caller runs them; StartThreads() serves them at once,
// with several threads the calls of one callback may overlap. Callbacks run without any lock held.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <map>
#include <mutex>
#include <thread>
#include <vector>

namespace vex::platform {

class ChannelEvents {
 public:
  using Callback = void (*)();
  bool Register(uint32_t event, Callback callback);  // false for null; a second one replaces the first
  bool Write(uint32_t event);                        // false when no callback is registered for it

  size_t RunPending();    // serves the events pending at this moment, on the caller; answers the calls made
  size_t RunUntilIdle();  // repeats until nothing is pending; an event that always re-arms never ends it
  bool AnyPending() const;

  void StartThreads(size_t count = 1);
  void StopThreads();  // waits for running callbacks; pending events stay pending

  void RemoveObject(const void* objectBase);  // forgets callbacks inside that loaded object
  void Reset();                               // stops threads, forgets everything

 private:
  struct Slot {
    Callback callback = nullptr;
    bool pending = false;
  };
  void Serve();
  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::map<uint32_t, Slot> slots_;
  std::vector<std::thread> threads_;
  bool stopping_ = false;
};
ChannelEvents& Events();

}  // namespace vex::platform
