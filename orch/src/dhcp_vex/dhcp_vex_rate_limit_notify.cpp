// dhcp_vex_rate_limit_notify.cpp - the two notification timers and what they report.
// In:  speed periods with their drop flag set. Out: inner messages and log lines; the flag and count cleared.
// The numbers given to OrbMionAssert identify the failing site to the field; they are not this file's lines.
#include "dhcp_vex_rate_limit_notify.h"

#include "dhcp_vex_api_switch.h"
#include "dhcp_vex_guard.h"
#include "dhcp_vex_pkt_deliver.h"
#include "dhcp_vex_pkt_diag.h"
#include "dhcp_vex_shared_word.h"

using namespace dhcp_vex;

uint32_t g_dhcpVexSnpInfoNotifyTimerId = DHCP_NONE;
uint32_t g_dhcpVexPeerLinkNotifyTimerId = DHCP_NONE;

namespace {

constexpr char kSourcePath[] = "orch/src/dhcp_vex/dhcp_vex_rate_limit";
constexpr uint32_t kRepeating = 1;
constexpr uint32_t kSiteV4Send = 289;
constexpr uint32_t kSiteV6Send = 308;

enum Scope : uint32_t { kInterface = 1, kVlan = 2, kGlobal = 3 };  // message kinds of DHCPv4
constexpr uint32_t kV6KindOffset = 3;

struct NotifyTimer {
  uint32_t& id;
  uint32_t periodMs;
  uint32_t (*callback)(void);
  uint32_t siteCreate;
  uint32_t siteDelete;
};

const NotifyTimer kSnpTimer = {g_dhcpVexSnpInfoNotifyTimerId, 30000, DhcpVexSnpInfoNotifyTimerCallBack, 362,
                               349};
const NotifyTimer kPeerLinkTimer = {g_dhcpVexPeerLinkNotifyTimerId, 60000, DhcpVexPeerLinkNotifyTimerCallBack,
                                    430, 413};

void Start(const NotifyTimer& timer) {
  const uint32_t ret =
      OrbSLcoreTimerCreateAndStart(timer.periodMs, kRepeating, timer.callback, nullptr, &timer.id);
  if (ret != 0 || timer.id == DHCP_NONE) OrbMionAssert(kSourcePath, timer.siteCreate, nullptr);
}

void Stop(const NotifyTimer& timer) {
  if (timer.id == DHCP_NONE) return;
  if (OrbSLcoreTimerDelete(timer.id) != 0) OrbMionAssert(kSourcePath, timer.siteDelete, nullptr);
  timer.id = DHCP_NONE;
}

void ClearDrops(DhcpSpeedPeriod& period) {
  period.dropCnt = 0;
  period.dropFlag = 0;
}

// A report that could not be sent leaves the counter for the next expiry.
void Report(uint32_t kind, uint32_t indexId, DhcpSpeedPeriod& period, uint32_t siteSend) {
  if (period.dropFlag == 0) return;
  const DhcpSpeedInfoMsg msg = {kind, indexId, period.dropCnt, 0};
  if (DhcpVexSendInnerMsgToDhcp(reinterpret_cast<const uint8_t*>(&msg), sizeof(msg)) == 0) {
    ClearDrops(period);
  } else {
    OrbMionAssert(kSourcePath, siteSend, nullptr);
  }
}

void ReportRecord(Scope scope, DhcpSnpInfo& record) {
  DhcpVexSnpSendPktSpeedInfoToDhcp(scope, &record);
  DhcpVexSnpSendV6PktSpeedInfoToDhcp(scope + kV6KindOffset, &record);
}

void ReportList(Scope scope, const DhcpDll& list) {
  DllForEach<DhcpSnpInfo>(list, [scope](DhcpSnpInfo& record) { ReportRecord(scope, record); });
}

}  // namespace

void DhcpVexStartSnpNotifyTimer(void) {
  if (g_dhcpVexSnpInfoNotifyTimerId == DHCP_NONE) Start(kSnpTimer);
}

void DhcpVexStopSnpNotifyTimer(void) { Stop(kSnpTimer); }

void DhcpVexStartPeerLinkNotifyTimer(void) {
  if (g_dhcpVexPeerLinkNotifyTimerId != DHCP_NONE) return;
  DhcpVexPeerLinkRateInit();
  Start(kPeerLinkTimer);
}

void DhcpVexStopPeerLinkNotifyTimer(void) { Stop(kPeerLinkTimer); }

void DhcpVexProcSnpTimer(uint32_t switchNumber) {
  if (switchNumber != DHCP_CFG_V4_SNOOPING && switchNumber != DHCP_CFG_V6_SNOOPING &&
      switchNumber != DHCP_CFG_ALL) {
    return;
  }
  const Switches on = Switches::Now();
  if (on[DHCP_CFG_V4_SNOOPING] || on[DHCP_CFG_V6_SNOOPING]) {
    DhcpVexStartSnpNotifyTimer();
  } else {
    DhcpVexStopSnpNotifyTimer();
  }
}

void DhcpVexProcPeerLinkTimer(uint32_t switchNumber) {
  if (switchNumber != DHCP_CFG_MLAG_PEERLINK && switchNumber != DHCP_CFG_ALL) return;
  if (Switches::Now()[DHCP_CFG_MLAG_PEERLINK]) {
    DhcpVexStartPeerLinkNotifyTimer();
  } else {
    DhcpVexStopPeerLinkNotifyTimer();
  }
}

uint32_t DhcpVexSnpInfoNotifyTimerCallBack(void) {
  const LockGuard guard(g_dhcpVexSnpInfoUseLock);
  DhcpVexSnpNotifyPktSpeedInfo();
  return 0;
}

uint32_t DhcpVexPeerLinkNotifyTimerCallBack(void) {
  const LockGuard guard(g_dhcpVexSnpInfoUseLock);
  DhcpVexPeerLinkNotifyPktSpeedInfo();
  return 0;
}

void DhcpVexSnpNotifyPktSpeedInfo(void) {
  ReportList(kInterface, g_dhcpVexSnpIfInfo);
  ReportList(kVlan, g_dhcpVexSnpVlanInfo);
  ReportRecord(kGlobal, g_dhcpSnpGblInfo);
}

void DhcpVexSnpSendPktSpeedInfoToDhcp(uint32_t kind, DhcpSnpInfo* record) {
  if (record != nullptr) Report(kind, record->indexId, record->v4Period, kSiteV4Send);
}

void DhcpVexSnpSendV6PktSpeedInfoToDhcp(uint32_t kind, DhcpSnpInfo* record) {
  if (record != nullptr) Report(kind, record->indexId, record->v6Period, kSiteV6Send);
}

void DhcpVexPeerLinkNotifyPktSpeedInfo(void) {
  for (uint32_t kind = 0; kind < DHCP_PEER_KINDS; ++kind) {
    DhcpVexPeerLinkNotifyInfo(&g_dhcpVexPeerLinkInfo[kind], kind);
  }
}

void DhcpVexPeerLinkNotifyInfo(DhcpPeerLinkRate* record, uint32_t kind) {
  if (record == nullptr || kind >= DHCP_PEER_KINDS || record->period.dropFlag == 0) return;
  DHCP_LOG_RARE(
      "[VEX-DHCP][M-LAG] The rate of %s packet exceeds the speed limit(%u/s) and has been discarded. "
      "(pktdiscardcnt:%u)",
      g_dhcpPktTypeStr[kind], Load(record->pktRate), record->period.dropCnt);
  ClearDrops(record->period);
}
