// dhcp_vex_api_cfg.cpp - the methods of the configuration service.
// In:  request records, one at a time. Out: switches, store, degrade rate and debug switch written, timers
// following. A request that a store refuses is answered with 0 all the same; only a null request is an error.
#include "dhcp_vex_api_cfg.h"

#include "dhcp_vex_api_snoop.h"
#include "dhcp_vex_api_switch.h"
#include "dhcp_vex_guard.h"
#include "dhcp_vex_pkt_diag.h"
#include "dhcp_vex_rate_limit_notify.h"

using namespace dhcp_vex;

uint32_t DhcpCfg(const DhcpCfgReq* req) {
  if (req == nullptr) return DHCP_FAIL;
  DhcpVexSaveCfg(req->val, req->type, req->indexId);
  DhcpVexProcSnpTimer(req->type);
  DhcpVexProcPeerLinkTimer(req->type);
  return DHCP_OK;
}

uint32_t DhcpSnpCfg(const DhcpSnpCfgReq* req) {
  if (req == nullptr) return DHCP_FAIL;
  if (req->type == DHCP_SNP_CFG_DEBUG) {
    DhcpVexSetDbgSwitch(req->val);
    return DHCP_OK;
  }
  DhcpVexDebugOut(0, "[INFO][VEX-DHCP] Rcv snooping cfg.(val:%u type:%u indexId:%u)", req->val, req->type,
                  req->indexId);
  const LockGuard guard(g_dhcpVexSnpInfoUseLock);
  DhcpVexSaveSnpCfg(req->val, req->type, req->indexId);
  return DHCP_OK;
}

uint32_t DhcpDegradeCfg(const DhcpDegradeCfgReq* req) {
  if (req == nullptr) return DHCP_FAIL;
  OrbLog(3, "DHCP degrade rate %u", req->rate);
  const LockGuard guard(g_dhcpVexSnpInfoUseLock);
  DhcpVexSetDegradeCfg(req->rate);
  return DHCP_OK;
}

uint32_t DhcpSnpDelMac(const void* /*req*/) { return DHCP_OK; }
uint32_t DhcpPktCtrlCfg(const void* /*req*/) { return DHCP_OK; }
uint32_t DhcpPktCtrlCfgSync(const void* /*req*/) { return DHCP_OK; }
