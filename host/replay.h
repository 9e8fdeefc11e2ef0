// replay.h - capture files through the module on the captures' own time.
// In:  files, filter, ports, a loaded and started module, and what configures it.
// Out: an outcome per frame and an event per report to a sink, and the totals.
// Single-threaded: the caller's thread runs the timers, the hook and the service's channels, frame by frame,
// so two replays give the same result. Bad input ends a file, never the program: totals hold what was read up
// to there.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "host/capture_reader.h"
#include "host/outcome.h"
#include "host/ports.h"
#include "platform/module_loader.h"

namespace vex::host {

class ReplaySink {
 public:
  virtual ~ReplaySink() = default;
  virtual void OnFrame(const FrameOutcome& outcome) = 0;
  virtual void OnEvent(const ReplayEvent& event) = 0;
};

struct ReplayProgress {
  uint64_t frames = 0;
  uint64_t bytes_done = 0;
  uint64_t bytes_total = 0;  // 0: unknown, one of the files is a pipe
};

// Why a frame does not meet the module.
enum class Obstacle : uint8_t {
  kNone,
  kLinkType,  // not Ethernet
  kSize,      // longer than a packet buffer
  kInactive,  // the module does not serve this board
};

// A frame stopped in front of the module: the clock stands on its time, everything before it has happened.
struct HeldFrame {
  const Frame& frame;
  const ParsedFrame& parsed;
  const PortRecord& port;
  Obstacle obstacle;
  // Lets it go on, at most once in a process. diagnose: the module writes its per-packet trace.
  std::function<const FrameOutcome&(bool diagnose)> present;
};

struct ReplayOptions {
  std::vector<std::string> files;
  std::string filter;  // libpcap expression, empty: every frame
  PortBy port_by = PortBy::kInterface;
  std::vector<PortRecord> ports;
  // Called once, when the clock stands on the first frame's time: pushes the settings through the handlers.
  std::function<void()> configure;
  ReplaySink* sink = nullptr;  // per-frame outcomes; null: totals only
  bool ask_channel = true;     // the sink wants to know the module's channel selection
  // Called for a refused frame with what refused it, "interface 1 v4 (100/s), global v4 (4000/s)".
  std::function<void(const Frame&, const PortRecord&, const FrameOutcome&, const std::string& reason)>
      on_refused;
  std::function<void(const ReplayProgress&)> progress;  // called for every frame
  // The frame of that number is handed to `held` instead of being presented, and ends the replay. 0: none.
  uint64_t hold_at = 0;
  std::function<void(const HeldFrame&)> held;
  // What the channels receive from the held frame: its bytes with the header in front.
  std::function<void(uint8_t channel, std::span<const uint8_t> message)> received;
};

struct ReplayTotals {
  uint64_t frames = 0;  // read and not filtered out
  uint64_t filtered_out = 0;
  // The identity: frames = not_presented + not_wanted + refused + delivered + failed. Each is counted by its
  // own evidence, none as the rest of the others.
  uint64_t not_presented = 0;
  uint64_t not_wanted = 0;
  uint64_t refused = 0;
  uint64_t delivered = 0;
  uint64_t failed = 0;
  uint64_t odd_fates = 0;                   // presented frames whose evidence shows no fate, or more than one
  std::array<uint64_t, 256> by_app_type{};  // frames presented
  std::array<std::array<uint64_t, 4>, kPktTypeNone + 1> by_pkt_type{};  // [packet type][Verdict]
  std::array<uint64_t, kServiceChannels> by_channel{};                  // messages each channel received
  std::array<uint64_t, 3> by_refusal{};                                 // [Refusal]
  std::array<uint64_t, 8> stats{};                                      // the module's counters at the end
  uint64_t speed_info_events = 0;
  uint64_t peer_link_events = 0;
  uint64_t macs_beyond_limit = 0;    // frames that shared the last learned port
  std::vector<CaptureError> errors;  // at most one per file
  std::vector<ScopeTally> scopes;    // interfaces, VLANs, global, degrade, peer-link, each in ascending order

  bool IdentityHolds() const {
    return odd_fates == 0 && frames == not_presented + not_wanted + refused + delivered + failed;
  }
};

// Replays the files through the loaded and started module. The clock becomes virtual. Throws InputError for a
// filter that cannot be compiled, before any frame is read.
ReplayTotals RunReplay(const platform::Module& module, const ReplayOptions& options);

}  // namespace vex::host
