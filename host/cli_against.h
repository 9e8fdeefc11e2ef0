// cli_against.h - "vexhost replay --against": the same captures under a second configuration.
#pragma once

#include "host/options.h"

namespace vex::host {

// The exit code. Throws InputError.
int ReplayAgainst(const ReplayCommand& command);

}  // namespace vex::host
