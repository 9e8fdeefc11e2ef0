// dhcp_vex_rate_limit_notify.h - two timers turn the counters of refused packets into reports.
// In:  the counters of the gates; switches 4, 12 and 15. Out: every 30 s a speed-info message to the service
// per snooping counter that moved, every 60 s a log line per peer-link kind that refused. The callbacks run
// on the framework's timer service and hold g_dhcpVexSnpInfoUseLock for the whole report; start and stop run
// on the configuration service's thread without it.
#pragma once

#include <type_traits>

#include "dhcp_vex_api_snoop.h"
#include "dhcp_vex_export.h"
#include "dhcp_vex_rate_limit_peerlink.h"

// Body of an inner message. Host byte order.
struct DhcpSpeedInfoMsg {
  uint32_t msgKind;  // 1 interface, 2 VLAN, 3 global, all DHCPv4; 4, 5, 6 the same for DHCPv6
  uint32_t indexId;  // interface index, VLAN id, or 0
  uint16_t dropCnt;  // refused since the last report that went out, modulo 65536
  uint16_t reserved;
};
static_assert(sizeof(DhcpSpeedInfoMsg) == 12 && offsetof(DhcpSpeedInfoMsg, dropCnt) == 8);
static_assert(std::is_trivially_copyable_v<DhcpSpeedInfoMsg>);

// 0xFFFFFFFF: not running. Writer: configuration service.
DHCP_VEX_API uint32_t g_dhcpVexSnpInfoNotifyTimerId;
DHCP_VEX_API uint32_t g_dhcpVexPeerLinkNotifyTimerId;

// Starting what runs and stopping what does not changes nothing. A failure is reported by OrbMionAssert only.
DHCP_VEX_API void DhcpVexStartSnpNotifyTimer(void);
DHCP_VEX_API void DhcpVexStopSnpNotifyTimer(void);
DHCP_VEX_API void DhcpVexStartPeerLinkNotifyTimer(void);  // loads the peer-link rates first
DHCP_VEX_API void DhcpVexStopPeerLinkNotifyTimer(void);

// After a write of the given switch, or of the whole bitmap (16): the timer runs or not as the switches now
// say. Other switch numbers do nothing.
DHCP_VEX_API void DhcpVexProcSnpTimer(uint32_t switchNumber);
DHCP_VEX_API void DhcpVexProcPeerLinkTimer(uint32_t switchNumber);

// Timer callbacks; always 0.
DHCP_VEX_API uint32_t DhcpVexSnpInfoNotifyTimerCallBack(void);
DHCP_VEX_API uint32_t DhcpVexPeerLinkNotifyTimerCallBack(void);

// The caller holds the lock. A counter is cleared once its report has gone out.
DHCP_VEX_API void DhcpVexSnpNotifyPktSpeedInfo(void);
DHCP_VEX_API void DhcpVexSnpSendPktSpeedInfoToDhcp(uint32_t kind, DhcpSnpInfo* record);
DHCP_VEX_API void DhcpVexSnpSendV6PktSpeedInfoToDhcp(uint32_t kind, DhcpSnpInfo* record);
DHCP_VEX_API void DhcpVexPeerLinkNotifyPktSpeedInfo(void);
DHCP_VEX_API void DhcpVexPeerLinkNotifyInfo(DhcpPeerLinkRate* record, uint32_t kind);
