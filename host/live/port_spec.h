// port_spec.h - a port as the command line names it.
// In:  "p1", "up0:trusted", "p2:vlan=30,index=7". Out: a port record, or InputError saying what is wrong.
// Options: trusted, management, peer-link, vlan=N, index=N, cause=N.
#pragma once

#include <string_view>

#include "host/config.h"

namespace vex::host::live {

// Adds the port to the configuration, or changes the one of that name. Without an index it gets the lowest
// free one.
void AddPort(Config& config, std::string_view spec);

}  // namespace vex::host::live
