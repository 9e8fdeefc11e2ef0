// receiver.h - the loop of one receive thread over its group of ports.
// In:  readable ports. Out: every frame through the hook and, when it goes on, through the switch; counters.
// Sleeps in epoll while nothing arrives. Runs as a job of an lcore thread; Stop() may come from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "host/live/fabric.h"
#include "host/live/presenter.h"

namespace vex::host::live {

class Receiver {
 public:
  // `group`: positions in the fabric's ports.
  Receiver(Fabric& fabric, std::vector<uint16_t> group, const LiveModule& module, PeerLinkRefusals& peer_link,
           const TraceFilter& trace, LogLine log);
  ~Receiver();
  Receiver(const Receiver&) = delete;
  Receiver& operator=(const Receiver&) = delete;

  void Run();   // until Stop()
  void Stop();  // ends one Run(), also one that has not begun

  ReceiveGate& gate() { return gate_; }
  const HookLatency& latency() const { return presenter_.latency(); }

 private:
  static constexpr size_t kBatch = TxQueue::kCapacity;
  void Batch(uint16_t at);
  void Handle(const RxFrame& frame, uint16_t at, uint32_t now);

  Fabric& fabric_;
  const std::vector<uint16_t> group_;
  Presenter presenter_;
  ReceiveGate gate_;
  std::vector<std::unique_ptr<TxQueue>> queues_;  // one per port of the fabric
  L2Switch::Route route_;
  int epoll_ = -1;
  int wake_ = -1;  // eventfd
};

}  // namespace vex::host::live
