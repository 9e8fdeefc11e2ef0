// dhcp_vex_rate_limit.cpp - the per-second budgets of interface, VLAN, global record and degrade rate.
// In:  a packet's interface, VLAN and application type; the module time; the store.
// Out: 0 pass or 1 refuse; a refusal is counted in the period that was full.
// Not here: storing the rates (dhcp_vex_api_snoop), the peer-link (dhcp_vex_rate_limit_peerlink), the
// reports.
#include "dhcp_vex_rate_limit.h"

#include "dhcp_vex_api_switch.h"
#include "dhcp_vex_guard.h"
#include "dhcp_vex_pkt_classify.h"
#include "dhcp_vex_rate_limit_clock.h"
#include "dhcp_vex_shared_word.h"

using namespace dhcp_vex;

uint32_t g_dhcpVexcurTimeSec = 0;
uint64_t g_dhcpVexcurTimeMilSec = 0;

namespace {

constexpr uint16_t kVlanIdMask = 0x0FFF;
constexpr uint16_t kLowestVlan = 2;  // 0, 1, 4094 and 4095 count as no VLAN
constexpr uint16_t kHighestVlan = 4093;

struct ModuleTime {
  uint32_t sec;
  uint64_t milSec;
};

ModuleTime Now() { return {g_dhcpVexcurTimeSec, g_dhcpVexcurTimeMilSec}; }

// Seconds that went backwards give a huge difference and so open a period at once.
constexpr bool IsNewSecond(uint32_t periodSec, uint64_t periodMilSec, ModuleTime now) {
  const uint32_t elapsed = now.sec - periodSec;
  return elapsed >= 2 || (elapsed == 1 && now.milSec >= periodMilSec);
}
static_assert(IsNewSecond(7, 0, {6, 0}) && !IsNewSecond(7, 0, {7, 999}) && !IsNewSecond(7, 5, {8, 4}));

constexpr bool Refuse(DhcpSpeedPeriod& period) {
  period.dropCnt = static_cast<uint16_t>(period.dropCnt + 1);
  period.dropFlag = 1;
  return false;
}

// The counting step. True: the packet is within the budget.
constexpr bool Admit(DhcpSpeedPeriod& period, uint32_t limit, ModuleTime now) {
  if (IsNewSecond(period.periodSec, period.periodMilSec, now)) {
    period.periodSec = now.sec;
    period.periodMilSec = now.milSec;
    period.pktCnt = 0;
  }
  if (period.pktCnt + 1 > limit) return Refuse(period);
  ++period.pktCnt;
  return true;
}

constexpr uint32_t VlanOfTag(uint16_t tag) {
  const uint16_t id = tag & kVlanIdMask;
  return id >= kLowestVlan && id <= kHighestVlan ? id : 0;
}
static_assert(VlanOfTag(0xE001) == 0 && VlanOfTag(0xE002) == 2 && VlanOfTag(4093) == 4093 &&
              VlanOfTag(4094) == 0);

struct VersionView {
  const DhcpSnpIpCfg& cfg;
  DhcpSpeedPeriod& period;
};

uint32_t JudgeVersion(const VersionView& version) {
  if (version.cfg.pktRate == DHCP_SNP_SPEED_UNLIMITED) return 0;
  const uint32_t degradeRate = g_dhcpDegradeInfo.degradeRate;
  if (degradeRate != DHCP_DEGRADE_OFF && degradeRate < version.cfg.pktRate) {
    return DhcpVexSpeedLimitJudge(&g_dhcpDegradeInfo.period, degradeRate);
  }
  // One switch turns the limits on for both IP versions.
  if (DhcpVexGetCfg(DHCP_CFG_V4_SNOOPING) != 1 || version.cfg.rateEnable != 1) return 0;
  return DhcpVexSpeedLimitJudge(&version.period, version.cfg.pktRate);
}

uint16_t VlanTagOf(OrbMbuf* pkt) {
  const uint16_t* tag = HostMbufGetVlanTag(pkt);
  return tag == nullptr ? 0 : *tag;
}

}  // namespace

void dhcp_vex::RefreshModuleTime() {
  g_dhcpVexcurTimeSec = TimeOfDaySeconds();
  g_dhcpVexcurTimeMilSec = MonotonicMilliseconds();
}

uint32_t DhcpVexPktRateCheck(OrbMbuf* pkt) {
  if (pkt == nullptr) return 0;
  uint32_t ifIndex = 0;
  uint32_t vlanId = 0;
  DhcpVexGetIfIndexAndVlanFromPkt(pkt, &ifIndex, &vlanId);
  const TryGuard guard(g_dhcpVexSnpInfoUseLock);
  if (!guard) return 0;
  RefreshModuleTime();
  return DhcpVexCheckPktSpeed(ifIndex, vlanId, static_cast<uint8_t>(HostMbufGetPktAppType(pkt)));
}

uint32_t DhcpVexCheckPktSpeed(uint32_t ifIndex, uint32_t vlanId, uint32_t appType) {
  const auto type = static_cast<uint8_t>(appType);
  uint32_t refused = DhcpVexSnpSpeedLimitJudge(DhcpVexGetSnpIfInfoByIfIndex(ifIndex), type);
  if (vlanId != 0) refused |= DhcpVexSnpSpeedLimitJudge(DhcpVexGetSnpVlanInfoByVlanId(vlanId), type);
  refused |= DhcpVexSnpSpeedLimitJudge(&g_dhcpSnpGblInfo, type);
  if (refused != 0) return 1;
  const uint32_t degradeRate = g_dhcpDegradeInfo.degradeRate;
  if (degradeRate == DHCP_DEGRADE_OFF) return 0;
  return DhcpVexSpeedLimitJudge(&g_dhcpDegradeInfo.period, degradeRate);
}

uint32_t DhcpVexSnpSpeedLimitJudge(DhcpSnpInfo* record, uint8_t appType) {
  if (record == nullptr) return 0;
  if (appType == DHCP_APP_TYPE_DHCPV6) return JudgeVersion({record->v6Cfg, record->v6Period});
  if (appType == DHCP_APP_TYPE_DHCPV4) return JudgeVersion({record->v4Cfg, record->v4Period});
  return 0;
}

uint32_t DhcpVexSpeedLimitJudge(DhcpSpeedPeriod* period, uint32_t limit) {
  return period == nullptr || Admit(*period, limit, Now()) ? 0 : 1;
}

uint32_t DhcpVexCheckIsNewSecond(uint32_t periodSec, uint64_t periodMilSec) {
  return IsNewSecond(periodSec, periodMilSec, Now()) ? 1 : 0;
}

uint32_t DhcpVexGetIfIndexAndVlanFromPkt(OrbMbuf* pkt, uint32_t* ifIndex, uint32_t* vlanId) {
  if (pkt == nullptr || ifIndex == nullptr || vlanId == nullptr) return DHCP_FAIL;
  *ifIndex = HostMbufGetOectrlIfIndex(pkt);
  *vlanId = VlanOfTag(VlanTagOf(pkt));
  return DHCP_OK;
}
