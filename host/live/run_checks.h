// run_checks.h - what a running switch demands of a configuration beyond what its file's reader checks.
// In:  a configuration, a path. Out: nothing, or InputError that says what to change. Any thread.
#pragma once

#include <string>

#include "host/config.h"

namespace vex::host::live {

// Ports that make sense on Linux, and not too many.
void CheckPorts(const Config& config);

// What a later save would fail on, or would replace unread. "" is no file and always good.
void CheckBindingsFile(const std::string& path);

}  // namespace vex::host::live
