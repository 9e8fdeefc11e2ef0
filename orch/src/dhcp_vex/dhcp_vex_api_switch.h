// dhcp_vex_api_switch.h - the sixteen feature switches.
// In:  writes by the configuration service, the only writer. Out: a switch's state, read by any thread per
// use.
#pragma once

#include "dhcp_vex_export.h"

enum DhcpCfgSwitch : uint32_t {
  DHCP_CFG_V4_REQ = 0,          // DHCPv4 to port 67 and ICMP echo replies, ordinary interfaces
  DHCP_CFG_V4_REPLY = 1,        // DHCPv4 to port 68, ordinary interfaces; precondition for ARP replies there
  DHCP_CFG_SW2 = 2,             // stored only
  DHCP_CFG_SW3 = 3,             // stored only
  DHCP_CFG_V4_SNOOPING = 4,     // DHCPv4 to port 68; the snooping limits of both IP versions; snooping timer
  DHCP_CFG_V4_ARP_A = 5,        // ARP replies, with DHCP_CFG_V4_REPLY
  DHCP_CFG_MNG_V4_REPLY = 6,    // DHCPv4 to port 68 and ARP replies, management interface
  DHCP_CFG_V4_ARP_B = 7,        // the same as DHCP_CFG_V4_ARP_A
  DHCP_CFG_V6_REQ = 8,          // DHCPv6 to port 547, ordinary interfaces
  DHCP_CFG_V6_REPLY = 9,        // DHCPv6 to port 546, ordinary interfaces
  DHCP_CFG_MNG_V4_REQ = 10,     // DHCPv4 to port 67 and ICMP echo replies, management interface
  DHCP_CFG_MNG_V6_REPLY = 11,   // DHCPv6 to port 546, management interface
  DHCP_CFG_V6_SNOOPING = 12,    // DHCPv6 to port 546; neighbour advertisements as copies; snooping timer
  DHCP_CFG_ND_SNOOPING = 13,    // router and neighbour solicitations and advertisements, taken
  DHCP_CFG_MNG_V4_REQ2 = 14,    // the same as DHCP_CFG_MNG_V4_REQ
  DHCP_CFG_MLAG_PEERLINK = 15,  // DHCP over the M-LAG peer-link, policed by kind; peer-link timer
  DHCP_CFG_ALL = 16,            // not a switch: the request that replaces the whole bitmap
};

DHCP_VEX_API uint32_t g_dhcpVexCfgBitMap;  // writer: configuration service; readers: any thread, relaxed

// 1 when switch n is on, else 0; 0 for any n above 15. Any thread, no lock.
DHCP_VEX_API uint32_t DhcpVexGetCfg(uint32_t n);
// Sets or clears one switch, or replaces all 32 bits for type 16. 1 for a type above 16. indexId is ignored.
DHCP_VEX_API uint32_t DhcpVexSaveCfg(uint32_t val, uint32_t type, uint32_t indexId);

namespace dhcp_vex {

// One reading of the bitmap, so that a packet's decision sees one configuration.
class Switches {
 public:
  explicit constexpr Switches(uint32_t bits) : bits_(bits) {}
  static Switches Now();
  constexpr bool operator[](uint32_t n) const { return n < DHCP_CFG_ALL && (bits_ >> n & 1) != 0; }

 private:
  uint32_t bits_;
};

}  // namespace dhcp_vex
