// platform.cpp - see platform.h.
// In:  the state of every part. Out: the initial state; a list of what was not given back.
#include "platform/platform.h"

#include "platform/board.h"
#include "platform/channel.h"
#include "platform/channel_events.h"
#include "platform/clock.h"
#include "platform/egress.h"
#include "platform/event_thread.h"
#include "platform/faults.h"
#include "platform/findings.h"
#include "platform/logs.h"
#include "platform/memory.h"
#include "platform/objects.h"
#include "platform/packet.h"

namespace vex::platform {

void Reset() {
  Events().Reset();
  TheClock().Reset();
  Faults().Reset();
  Logs().Reset();
  Hooks().Reset();
  Egress().Reset();
  Channels().Reset();
  EventThreads().Reset();
  Objects().Reset();
  TheBoard().Reset();
  Memory().Reset();
  ResetImMessages();
  ResetSpinlockStats();
  Packets().Reset();
  TakeFindings();
}

std::vector<std::string> Audit() {
  std::vector<std::string> lines = PeekFindings();
  const auto append = [&lines](std::vector<std::string> more) {
    lines.insert(lines.end(), more.begin(), more.end());
  };
  append(Packets().Leaks());
  append(Memory().Leaks());
  append(Objects().Leaks());
  if (const size_t messages = LiveImMessages(); messages > 0) {
    lines.push_back(std::to_string(messages) + " IM message(s) were neither sent nor freed");
  }
  for (const Clock::TimerInfo& timer : TheClock().Timers()) {
    lines.push_back("timer " + std::to_string(timer.id) + " with a period of " +
                    std::to_string(timer.periodMs) + " ms is still running");
  }
  return lines;
}

}  // namespace vex::platform
