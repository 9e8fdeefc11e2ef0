// dhcp_vex_rate_limit_peerlink.h - the second gate: DHCP that arrives over the M-LAG peer-link, by packet
// kind. In:  DHCP packets that passed the first gate. Out: 0 pass, 1 refuse, refusals counted per kind.
// Guarded by g_dhcpVexSnpInfoUseLock, which the gate only tries; the rates alone are loaded without it, one
// aligned word each.
#pragma once

#include "dhcp_vex_api_snoop.h"
#include "dhcp_vex_export.h"
#include "dhcp_vex_platform.h"

inline constexpr uint32_t DHCP_PEER_KIND_V4_REQUEST = 0;
inline constexpr uint32_t DHCP_PEER_KIND_V4_REPLY = 1;
inline constexpr uint32_t DHCP_PEER_KIND_V6_REQUEST = 2;
inline constexpr uint32_t DHCP_PEER_KIND_V6_REPLY = 3;
inline constexpr uint32_t DHCP_PEER_KINDS = 4;  // as a kind: cannot be classified, has no record

struct DhcpPeerLinkRate {
  uint32_t pktRate;   // packets per second; 0: no limit
  uint32_t reserved;  // always zero
  DhcpSpeedPeriod period;
};
static_assert(sizeof(DhcpPeerLinkRate) == 32 && offsetof(DhcpPeerLinkRate, period) == 8);

DHCP_VEX_API DhcpPeerLinkRate g_dhcpVexPeerLinkInfo[DHCP_PEER_KINDS];
DHCP_VEX_API const char* const g_dhcpPktTypeStr[DHCP_PEER_KINDS];

// The gate: takes and releases the lock itself.
DHCP_VEX_API uint32_t DhcpVexPeerLinkRateCheck(OrbMbuf* pkt);
// Kind 0 to 3, or 4 for a packet without a message behind a UDP header.
DHCP_VEX_API uint32_t DhcpVexGetPktType(OrbMbuf* pkt);
// The counting step on a kind's record; 0 for a kind above 3 or without a limit. The caller holds the lock.
DHCP_VEX_API uint32_t DhcpVexCheckPeerLinkPktSpeed(uint32_t kind);
// Loads the rates from capability items 3 and 4 and logs them.
DHCP_VEX_API void DhcpVexPeerLinkRateInit(void);
