// punt.h - one frame through the host hook, and what was to be seen of it from outside.
// In:  a frame, what the data plane knows of it, its port. Out: the module's own classification and channel,
// the hook's verdict, the channels that received something. Single-threaded: the service's channels are
// emptied behind every frame, so what is in them came from this frame.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "host/data_plane.h"
#include "host/module_view.h"
#include "host/outcome.h"
#include "host/ports.h"
#include "platform/event_thread.h"
#include "platform/packet.h"

namespace vex::host {

platform::PacketAttributes AttributesOf(const ParsedFrame& parsed, const PortRecord& port);

// The module's answers about a packet that has not met the hook yet.
struct Question {
  uint32_t pkt_type = kPktTypeNone;
  bool take = false;
  std::optional<uint32_t> channel;
};
Question Ask(const ModuleView& view, OrbMbuf* packet, bool want_channel);

// Offers the packet to the hook. Afterwards the packet is gone, whatever the verdict.
struct Punted {
  Verdict verdict = Verdict::kContinue;
  bool accepted = false;  // the module counted it as past the gates
};
Punted Punt(const ModuleView& view, platform::PacketPtr packet);

// The service's ends of the channels, read by the same thread that runs the hook.
class ServiceEnd {
 public:
  using InnerMessage = std::function<void(std::span<const uint8_t> message)>;
  // Opens channels and threads that do not exist yet. Messages of the module itself go to on_inner.
  explicit ServiceEnd(InnerMessage on_inner);
  // Frees what is queued and names the channels it was queued on.
  void Collect(DeliveredList& delivered);
  void CollectInner();
  // From here on everything collected is shown before it is freed.
  using Tap = std::function<void(uint8_t channel, std::span<const uint8_t> message)>;
  void SetTap(Tap tap) { tap_ = std::move(tap); }
  const std::array<uint64_t, kServiceChannels>& received() const { return received_; }

 private:
  void Show(uint8_t number);
  platform::ServicePorts ports_;
  InnerMessage on_inner_;
  Tap tap_;
  std::array<uint64_t, kServiceChannels> received_{};
  uint64_t sends_seen_ = 0;  // of this thread, when the channels were last empty
};

}  // namespace vex::host
