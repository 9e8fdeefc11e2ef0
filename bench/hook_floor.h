// hook_floor.h - what the hook has to ask the framework for, with no logic between the calls.
// In:  a punted packet. Out: the framework's calls that the host hook makes for such a packet, in its order.
// A shared library of its own, like the module: its calls cross the same border, so what the hook takes
// beyond its floor is the module's own. Handed to the framework's hook table, a floor is called as the hook
// is.
#pragma once

#include <cstdint>

#include "dhcp_vex_platform.h"

#define FLOOR_EXPORT __attribute__((visibility("default")))

extern "C" {

// Where FloorWanted() sends, as the module keeps it once it has looked the names up.
struct FloorTarget {
  uint32_t channel;
  void* thread;
  uint32_t events;
};
extern FLOOR_EXPORT FloorTarget g_floorTarget;

// Verdicts as the hook's: 0, or 0x1000000 for a packet that was sent.
FLOOR_EXPORT uint32_t FloorUnwanted(OrbMbuf* pkt);
FLOOR_EXPORT uint32_t FloorRefused(OrbMbuf* pkt);
FLOOR_EXPORT uint32_t FloorWanted(OrbMbuf* pkt);

}  // extern "C"
