// dhcp_vex_pkt.h - the host hook and what start-up opens for it.
// In:  every packet that the data plane punts. Out: the hook's verdict.
#pragma once

#include "dhcp_vex_export.h"
#include "dhcp_vex_pkt_classify.h"
#include "dhcp_vex_platform.h"

// Verdicts of the hook besides DHCP_HOOK_TAKEN (the module has consumed the packet).
inline constexpr uint32_t DHCP_HOOK_CONTINUE = 0;  // the packet is the framework's
inline constexpr uint32_t DHCP_HOOK_TAKE_FAILED =
    0x10000000;  // meant to be taken, not delivered, the framework's

DHCP_VEX_API uint32_t g_dhcpToVexChn;  // return channel; written once by start-up

// Registers the return channel's callback, creates the channel, registers the hook, in this order. 0 or 1.
DHCP_VEX_API uint32_t DhcpVexStart(void);
// Once per punted packet, on any forwarding thread, several at once. Null is answered with 0.
DHCP_VEX_API uint32_t DhcpHostHookCallback(OrbMbuf* pkt);
