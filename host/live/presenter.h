// presenter.h - one received frame through the host hook.
// In:  a frame, what the data plane knows of it, its port. Out: its fate, and whether the switch goes on with
// it. Nothing is decided here: wanted or not, taken or copied, refused or not are the module's answers.
// Threads: one presenter per receive thread.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string_view>

#include "host/data_plane.h"
#include "host/live/budgets.h"
#include "host/live/counters.h"
#include "host/live/live_module.h"
#include "host/live/trace.h"
#include "host/ports.h"
#include "platform/packet.h"

namespace vex::host::live {

// One line of log, from any thread.
using LogLine = std::function<void(std::string_view)>;

class Presenter {
 public:
  Presenter(const LiveModule& view, PeerLinkRefusals& peer_link, const TraceFilter& trace, LogLine log)
      : view_(view), peer_link_(peer_link), trace_(trace), log_(std::move(log)) {}

  struct Result {
    Fate fate = Fate::kNotPresented;
    bool goes_on = true;  // the switch has the frame now
  };
  Result Present(std::span<const uint8_t> frame, const ParsedFrame& parsed, const PortRecord& port);
  const HookLatency& latency() const { return latency_; }

 private:
  Result Punt(std::span<const uint8_t> frame, const ParsedFrame& parsed, const PortRecord& port, bool traced);
  Fate WhyRefused(platform::Packet& packet, uint32_t peer_drops_before);
  uint32_t PeerLinkDrops() const;
  void Tell(const ParsedFrame& parsed, const PortRecord& port, const Result& result) const;

  const LiveModule& view_;
  PeerLinkRefusals& peer_link_;
  const TraceFilter& trace_;
  const LogLine log_;
  HookLatency latency_;
};

}  // namespace vex::host::live
