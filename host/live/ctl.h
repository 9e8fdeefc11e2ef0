// ctl.h - the client of the control socket.
// In:  words of the command line. Out: the answer on standard output as tables or JSON.
#pragma once

#include <string>

#include "host/live/views.h"
#include "host/options.h"

namespace vex::host::live {

int RunCtl(const CtlCommand& command);  // throws InputError

// An object as lines "name  value", an array of objects as a table, text as it is. Ends with a newline.
std::string TextOf(const Json& data);

}  // namespace vex::host::live
