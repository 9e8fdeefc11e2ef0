// dhcp_vex_api_cfg.h - the methods of the configuration service "DhcpCfgService".
// In:  one request record per call, from the service's thread, one request at a time and not before
// DhcpVexInit has returned. Out: switches, snooping store, degrade rate, debug switch and timers changed; 0,
// or 1 for a null request (the three stubs answer 0 always). The caller keeps the request. All fields in host
// byte order.
#pragma once

#include <cstddef>

#include "dhcp_vex_export.h"

struct DhcpCfgReq {
  uint32_t val;      // 0 off, any other value on; the whole bitmap for type 16
  uint32_t type;     // switch 0 to 15, or DHCP_CFG_ALL
  uint32_t indexId;  // accepted and not used
};
static_assert(sizeof(DhcpCfgReq) == 12 && offsetof(DhcpCfgReq, type) == 4);

struct DhcpSnpCfgReq {
  uint32_t type;  // store type 0 to 26, or DHCP_SNP_CFG_DEBUG
  uint32_t val;
  uint32_t indexId;  // interface index or VLAN id; ignored by global types and by the debug switch
};
static_assert(sizeof(DhcpSnpCfgReq) == 12 && offsetof(DhcpSnpCfgReq, val) == 4);

struct DhcpDegradeCfgReq {
  uint32_t rate;  // packets per second; 0xFFFFFFFF: no degrade limit
};
static_assert(sizeof(DhcpDegradeCfgReq) == 4);

inline constexpr uint32_t DHCP_SNP_CFG_DEBUG = 27;  // request type that sets the debug switch

DHCP_VEX_API uint32_t DhcpCfg(const DhcpCfgReq* req);
DHCP_VEX_API uint32_t DhcpSnpCfg(const DhcpSnpCfgReq* req);
DHCP_VEX_API uint32_t DhcpDegradeCfg(const DhcpDegradeCfgReq* req);
DHCP_VEX_API uint32_t DhcpSnpDelMac(const void* req);
DHCP_VEX_API uint32_t DhcpPktCtrlCfg(const void* req);
DHCP_VEX_API uint32_t DhcpPktCtrlCfgSync(const void* req);
