// explain_probe.h - experiments on one frame: the same frame again, under one changed setting.
// In:  a replay stopped in front of the frame. Out: what became of it under each change.
// Each experiment is a forked process, so that each starts from the very state the frame met, and none leaves
// anything behind. Only for single-threaded replays: a fork has only the thread that called it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "host/config.h"
#include "host/module_view.h"
#include "host/replay.h"

namespace vex::host {

// FrameOutcome without references, so that it crosses a pipe.
struct Outcome {
  uint32_t pkt_type = kPktTypeNone;
  uint32_t channel = kNone;
  bool taken = false;
  Verdict verdict = Verdict::kNotPresented;
  Refusal refused = Refusal::kNone;
  uint16_t delivered = 0;  // bit c: channel c
  ScopeList refused_by;
  static constexpr uint32_t kNone = 0xFFFFFFFF;
};
Outcome OutcomeOf(const FrameOutcome& frame);
bool SameFate(const Outcome& a,
              const Outcome& b);  // type, channel, verdict, refusal, deliveries, refusing scopes

struct WhatIf {
  std::string setting;  // "switches.v4_req", "snooping.interface.1.v4.rate", "every limit"
  std::string change;   // "off", "no limit"
  Outcome outcome;
};

// Which switches make the module want the frame.
struct SwitchNeed {
  bool without = false;  // wanted with all of them off
  uint16_t alone = 0;    // bit n: switch n alone makes it wanted
};

class Probe {
 public:
  Probe(platform::Module& module, const ModuleView& view, const Config& config, const HeldFrame& held)
      : module_(module), view_(view), config_(config), held_(held) {}

  // Every switch flipped, every limit that could apply lifted, all limits lifted together.
  std::vector<WhatIf> EverySetting();
  SwitchNeed Switches();

 private:
  struct Change {
    std::string setting, change;
    std::function<void()> apply;
  };
  std::vector<Change> Changes();
  void AddSetting(std::vector<Change>& changes, const std::string& path, uint32_t value,
                  std::string_view words);
  void Apply(const service::Settings& to);
  void LiftPeerLink();

  platform::Module& module_;
  const ModuleView& view_;
  const Config& config_;
  const HeldFrame& held_;
};

// Runs `work` in a forked process and answers what it answered. Throws InputError when that process dies.
std::vector<uint8_t> InFork(const std::function<std::vector<uint8_t>()>& work);

}  // namespace vex::host
