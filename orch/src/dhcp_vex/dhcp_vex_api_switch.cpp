// dhcp_vex_api_switch.cpp - the sixteen feature switches in one word.
// In:  writes of the configuration service, one at a time. Out: the state of a switch for any thread.
// Not here: what a change sets in motion (dhcp_vex_api_cfg), what a switch lets through (its readers).
#include "dhcp_vex_api_switch.h"

#include "dhcp_vex_shared_word.h"

uint32_t g_dhcpVexCfgBitMap = 0;

namespace dhcp_vex {

static_assert(Switches(0x10)[DHCP_CFG_V4_SNOOPING] && !Switches(0xFFFFFFFF)[DHCP_CFG_ALL]);

Switches Switches::Now() { return Switches(Load(g_dhcpVexCfgBitMap)); }

}  // namespace dhcp_vex

using namespace dhcp_vex;

uint32_t DhcpVexGetCfg(uint32_t n) { return Switches::Now()[n] ? 1 : 0; }

uint32_t DhcpVexSaveCfg(uint32_t val, uint32_t type, uint32_t /*indexId*/) {
  if (type > DHCP_CFG_ALL) return DHCP_FAIL;
  if (type == DHCP_CFG_ALL) {
    Store(g_dhcpVexCfgBitMap, val);
    return DHCP_OK;
  }
  const uint32_t bit = 1u << type;
  const uint32_t old = Load(g_dhcpVexCfgBitMap);
  Store(g_dhcpVexCfgBitMap, val != 0 ? old | bit : old & ~bit);
  return DHCP_OK;
}
