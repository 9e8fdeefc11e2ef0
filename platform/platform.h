// platform.h - the stand-in as a whole: back to its initial state, and what is left at the end.
// In:  nothing. Out: a clean stand-in for the next test; a list of leaks and misuse for a person.
// Both are for moments when no thread is inside the stand-in and no module is running.
#pragma once

#include <string>
#include <vector>

namespace vex::platform {

// Channel event and time service threads stopped, faults disarmed, sinks removed, channels, threads, tables
// and timers gone, every packet and block free, virtual clock at 0. Channel pointers become invalid.
void Reset();

// Everything that should have been given back by now and was not (packets with the source path and line of
// their allocation, memory blocks, object handles, IM messages, timers), after the misuse noticed so far.
// Packets that wait in channels or in the egress queues count as leaked: drain first. Empty: clean.
std::vector<std::string> Audit();

}  // namespace vex::platform
