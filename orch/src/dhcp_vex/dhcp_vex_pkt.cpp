// dhcp_vex_pkt.cpp - the ingress path from top to bottom, and the start-up step that opens it.
// In:  a punted packet. Out: the packet or a copy of it on a service channel, and a verdict.
// The order: classify, the two rate gates for DHCP, copy unless taken, count, dump, deliver.
// Holds no state between calls and takes no lock of its own.
#include "dhcp_vex_pkt.h"

#include "dhcp_vex_api.h"
#include "dhcp_vex_guard.h"
#include "dhcp_vex_pkt_deliver.h"
#include "dhcp_vex_pkt_diag.h"
#include "dhcp_vex_pkt_return.h"
#include "dhcp_vex_pkt_source.h"
#include "dhcp_vex_rate_limit.h"
#include "dhcp_vex_rate_limit_peerlink.h"
#include "dhcp_vex_shared_word.h"

using namespace dhcp_vex;

uint32_t g_dhcpToVexChn = DHCP_NONE;

namespace {

constexpr uint32_t kReturnChannelDepth = 4096;
constexpr uint32_t kHookPoint = 18;
constexpr uint32_t kHookValue = 100;

bool RefusedByGates(OrbMbuf* pkt) {
  return DhcpVexPktRateCheck(pkt) != 0 || DhcpVexPeerLinkRateCheck(pkt) != 0;
}

// True when the service has the packet. `marked` is the packet whose diagnostic mark governs the trace.
bool Deliver(OrbMbuf* pkt, uint32_t pktType, OrbMbuf* marked) {
  Count(DhcpStat::kHookPkt);
  DhcpDiagDumpPacket(pkt, 0, DHCP_DIAG_RECEIVE);
  const uint32_t ret = DhcpPktSendToDhcp(pkt, pktType);
  if (ret == DHCP_OK) return true;
  DHCP_LOG_PAIR(marked, "DHCP packet send to dhcp-svc process failed, ret=%u, pktType=%u", ret, pktType);
  return false;
}

void DeliverCopy(OrbMbuf* pkt, uint32_t pktType) {
  OwnedPacket copy(OrbMbufPktCopyNew(pkt, kPktSourcePath, __LINE__), kPktSourcePath, __LINE__);
  if (copy && Deliver(copy.Get(), pktType, pkt)) copy.Release();
}

}  // namespace

uint32_t DhcpHostHookCallback(OrbMbuf* pkt) {
  if (pkt == nullptr) return DHCP_HOOK_CONTINUE;
  uint32_t takeFlag = 0;
  const uint32_t pktType = DhcpGetPktType(pkt, &takeFlag);
  if (pktType >= DHCP_PKT_TYPE_NONE) return DHCP_HOOK_CONTINUE;
  if (pktType == DHCP_PKT_TYPE_DHCP && RefusedByGates(pkt)) return DHCP_HOOK_CONTINUE;
  if (takeFlag == 0) {
    DeliverCopy(pkt, pktType);
    return DHCP_HOOK_CONTINUE;
  }
  return Deliver(pkt, pktType, pkt) ? takeFlag : DHCP_HOOK_TAKE_FAILED;
}

uint32_t DhcpVexStart(void) {
  if (OrbChnEvtCallbackRegister(DHCP_RETURN_CHANNEL_EVENT, Dhcp2VexChnEvtCallback) != 0) {
    OrbLog(1, "DHCP Regist dhcp2vex channel event callback failed.");
    return DHCP_FAIL;
  }
  const uint32_t channel = ORB_ChannelCreate("channel/dhcp2vex", kReturnChannelDepth);
  Store(g_dhcpToVexChn, channel);
  if (channel == DHCP_NONE) return DHCP_FAIL;
  const uint64_t ret = HostHookRegister(kHookPoint, kHookValue, DhcpHostHookCallback, "dhcp");
  if (ret != 0) {
    OrbLog(1, "DHCP regist vex hook failed. (ret=%lx)", ret);
    return DHCP_FAIL;
  }
  return DHCP_OK;
}
