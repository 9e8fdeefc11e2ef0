// set_value.h - one setting changed by name: what `vexhost ctl set` writes.
// In:  a name as the configuration file spells it, a value as text. Out: the configuration with that change.
// Names: those of host/settings.h ("snooping.interface.3.v4.rate"), "live.<key>", and
// "port.<interface>.<key>".
#pragma once

#include <string_view>

#include "host/config.h"

namespace vex::host::live {

// Throws InputError naming the nearest name or the allowed values; the configuration is then unchanged.
void SetByName(Config& config, std::string_view key, std::string_view value);

}  // namespace vex::host::live
