// rights.h - what the process may still do after its ports are open.
// In:  nothing. Out: every capability dropped except CAP_NET_RAW, which opening another port and sending
// need; no way to gain others. Called before any thread starts, because capabilities belong to threads.
#pragma once

#include <string>

namespace vex::host::live {

// "": done. Otherwise what failed; the process then goes on with the rights it has.
std::string DropRights();

}  // namespace vex::host::live
