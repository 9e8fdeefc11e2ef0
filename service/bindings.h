// bindings.h - the binding table as the process outside the DHCP service sees it.
// In:  user-binding messages, through the callback registered with the module, and nothing else.
// Out: snapshots for listing, saving and metrics. Bounded; every refusal is counted.
// Threads: messages arrive on the thread that serves channel events; everything may be called from any
// thread.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <vector>

#include "service/binding_message.h"
#include "service/module_api.h"

namespace vex::service {

struct BindingTableStats {
  uint64_t messages = 0;  // well-formed ones
  uint64_t damaged = 0;   // not a record of ours
  uint64_t made = 0;      // restored ones included
  uint64_t renewed = 0;
  uint64_t removed = 0;    // by a message
  uint64_t expired = 0;    // by the table's own clock
  uint64_t refused = 0;    // the table was full
  uint64_t unmatched = 0;  // removals of what was not there, or belongs to another client by now
};

class BindingTable {
 public:
  explicit BindingTable(size_t max_bindings);

  void Apply(const BindingEvent& event);
  void NoteDamaged();
  size_t Expire(int64_t now_ns);  // removes what ended by then, answers how many

  size_t size() const;
  size_t max_size() const { return max_; }
  std::vector<Binding> Snapshot() const;  // by VLAN, kind and address
  BindingTableStats Stats() const;
  uint64_t Version()
      const;  // rises with every change, so that a saver sees whether there is something to save
  // Called after each applied event, on the applying thread, without the table's lock.
  void SetObserver(std::function<void(const BindingEvent&)> observer);

 private:
  struct Key {
    uint16_t vlan;
    BindingKind kind;
    uint8_t prefix_length;
    IpAddress address;
    friend auto operator<=>(const Key&, const Key&) = default;
  };
  static Key KeyOf(const Binding& binding);
  bool ApplyLocked(const BindingEvent& event);
  bool Remove(const Binding& binding);

  const size_t max_;
  mutable std::mutex mutex_;  // guards all below; never held while the observer runs
  std::map<Key, Binding> bindings_;
  uint64_t earliest_end_ = kNoLeaseEnd;  // no binding ends before; may be too early, never too late
  BindingTableStats stats_;
  uint64_t version_ = 0;
  std::function<void(const BindingEvent&)> observer_;
};

// Registers the callback of event type 0 for one table, and removes it again. One feed at a time per process,
// because the callback gets no context. Made before and destroyed after the channel event threads run: the
// module's registry has no lock.
class BindingFeed {
 public:
  BindingFeed(const ModuleApi& module, BindingTable& table);  // throws std::runtime_error when refused
  ~BindingFeed();
  BindingFeed(const BindingFeed&) = delete;
  BindingFeed& operator=(const BindingFeed&) = delete;

 private:
  const ModuleApi module_;
};

}  // namespace vex::service
