// dhcp_vex_rate_limit.h - the snooping and degrade gate, and the one-second counting step of every limiter.
// In:  DHCP packets of the hook; the module time. Out: 0 pass, 1 refuse; a refusal is counted in the period
// that was full. The gate only tries g_dhcpVexSnpInfoUseLock and lets the packet through uncounted when it is
// busy; the judging functions are called with the lock held and the module time refreshed.
#pragma once

#include "dhcp_vex_api_snoop.h"
#include "dhcp_vex_export.h"
#include "dhcp_vex_platform.h"

// Module time: seconds of the framework's time of day and monotonic milliseconds, as of the last gate call.
// Written by the two gates only, under the lock.
DHCP_VEX_API uint32_t g_dhcpVexcurTimeSec;
DHCP_VEX_API uint64_t g_dhcpVexcurTimeMilSec;

// The gate: takes and releases the lock itself. Any forwarding thread; null passes.
DHCP_VEX_API uint32_t DhcpVexPktRateCheck(OrbMbuf* pkt);
// Interface, VLAN (0: none) and global record, each stepped whatever the others say, then the degrade rate.
DHCP_VEX_API uint32_t DhcpVexCheckPktSpeed(uint32_t ifIndex, uint32_t vlanId, uint32_t appType);
// One record; null passes.
DHCP_VEX_API uint32_t DhcpVexSnpSpeedLimitJudge(DhcpSnpInfo* record, uint8_t appType);
// One counting step: at most `limit` packets per value of the module seconds.
DHCP_VEX_API uint32_t DhcpVexSpeedLimitJudge(DhcpSpeedPeriod* period, uint32_t limit);
// 1 when a period that opened then ends now.
DHCP_VEX_API uint32_t DhcpVexCheckIsNewSecond(uint32_t periodSec, uint64_t periodMilSec);
// The receiving interface and the VLAN id, 0 unless it is 2 to 4093. 1 for a null argument.
DHCP_VEX_API uint32_t DhcpVexGetIfIndexAndVlanFromPkt(OrbMbuf* pkt, uint32_t* ifIndex, uint32_t* vlanId);

namespace dhcp_vex {

// Sets the module time from the framework's clocks. The caller holds the lock.
void RefreshModuleTime();

}  // namespace dhcp_vex
