// dhcp_vex_pkt_return.h - the drain of the return channel.
// In:  messages of the DHCP service on "channel/dhcp2vex". Out: transmissions, ND uploads, notifications.
#pragma once

#include "dhcp_vex_export.h"

inline constexpr uint32_t DHCP_RETURN_CHANNEL_EVENT = 2;

DHCP_VEX_API uint32_t g_dhcpPktLogVexBarrier;  // 1 while a drain runs; written by the drain only, atomically

// Handles up to 33 counted messages and signals the event again when the batch is used up or a receive
// succeeded without a packet. Any thread that serves channel events; a call that finds a drain running
// returns at once.
DHCP_VEX_API void Dhcp2VexChnEvtCallback(void);
