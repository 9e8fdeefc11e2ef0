// dhcp_vex_export.h - how a symbol becomes part of the module's surface, and the results all of it shares.
// In:  nothing. Out: DHCP_VEX_API for every exported function and global; the result codes.
#pragma once

#include <cstdint>

#define DHCP_VEX_API extern "C" __attribute__((visibility("default")))

// Every uint32_t result of the module is one of these two unless its prototype says otherwise.
inline constexpr uint32_t DHCP_OK = 0;
inline constexpr uint32_t DHCP_FAIL = 1;
// No channel, an unresolved channel id, no timer, no degrade limit.
inline constexpr uint32_t DHCP_NONE = 0xFFFFFFFF;
