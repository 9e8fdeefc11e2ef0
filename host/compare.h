// compare.h - the same captures under two configurations, frame by frame.
// In:  two replay processes. Out: the sums of what changed, and each changed frame to a caller.
// Frames are compared in step: memory does not grow with the capture.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <utility>

#include "host/frame_fate.h"
#include "host/replay_process.h"

namespace vex::host {

struct ChangedFrame {
  std::string_view file;  // base name
  FrameFate a, b;
  FateChange change;
};

struct Comparison {
  SideResult a, b;
  uint64_t frames = 0;
  uint64_t changed = 0;
  uint64_t verdict = 0, refused = 0, instance = 0,
           wanted = 0;  // changed frames by what changed; they may overlap
  std::array<std::array<uint64_t, kFates>, kFates> moved{};  // [fate under A][fate under B]
  std::map<std::pair<uint16_t, uint16_t>, uint64_t>
      channels;  // delivered by both, to other channels: masks A, B
};

// progress is called for every frame. Throws InputError when a side fails or the sides do not read the same
// frames.
Comparison Compare(ReplayProcess& a, ReplayProcess& b,
                   const std::function<void(const ChangedFrame&)>& on_changed,
                   const std::function<void(const ReplayProgress&)>& progress);

// "verdict, instance"
std::string ChangeNames(const FateChange& change, std::string_view separator = ", ");

}  // namespace vex::host
