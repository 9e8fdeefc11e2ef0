// run.h - `vexhost run`: the switch on real ports from its command line to its closing summary.
// In:  the command. Out: a running switch until SIGINT or SIGTERM, its log on standard error, the summary on
// standard output, an exit code.
#pragma once

#include "host/options.h"

namespace vex::host::live {

inline constexpr const char* kDefaultSocket = "/run/vexhost.sock";
// Requests, replies and snooping of both IP versions, and ND snooping.
inline constexpr uint32_t kLiveSwitches =
    1U << 0 | 1U << 1 | 1U << 4 | 1U << 8 | 1U << 9 | 1U << 12 | 1U << 13;

int Run(const RunCommand& command);

}  // namespace vex::host::live
