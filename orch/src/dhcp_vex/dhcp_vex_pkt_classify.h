// dhcp_vex_pkt_classify.h - does the service want a punted packet, as what, and is the packet itself taken.
// In:  a packet with the framework's accessors, the switches, capability items 1 and 2. Out: packet type and
// take flag. Any forwarding thread, no lock, nothing allocated or changed. A packet too short for a byte that
// its rule tests is not wanted.
#pragma once

#include "dhcp_vex_export.h"
#include "dhcp_vex_platform.h"

inline constexpr uint32_t DHCP_PKT_TYPE_ICMP = 0;     // IPv4 ICMP echo reply (link probes)
inline constexpr uint32_t DHCP_PKT_TYPE_ARP = 1;      // ARP reply
inline constexpr uint32_t DHCP_PKT_TYPE_DHCP = 2;     // DHCPv4 or DHCPv6 message
inline constexpr uint32_t DHCP_PKT_TYPE_ICMPV6 = 12;  // ICMPv6 neighbour discovery
inline constexpr uint32_t DHCP_PKT_TYPE_NONE = 13;    // not wanted, as is every higher value

inline constexpr uint32_t DHCP_HOOK_TAKEN = 0x1000000;  // take flag, and the hook's verdict

inline constexpr uint8_t DHCP_APP_TYPE_ARP = 1;
inline constexpr uint8_t DHCP_APP_TYPE_ICMP = 10;
inline constexpr uint8_t DHCP_APP_TYPE_DHCPV4 = 17;
inline constexpr uint8_t DHCP_APP_TYPE_ICMPV6 = 28;
inline constexpr uint8_t DHCP_APP_TYPE_DHCPV6 = 32;

inline constexpr uint8_t ND_ROUTER_SOLICIT = 133;  // RFC 4861
inline constexpr uint8_t ND_ROUTER_ADVERT = 134;
inline constexpr uint8_t ND_NEIGHBOR_SOLICIT = 135;
inline constexpr uint8_t ND_NEIGHBOR_ADVERT = 136;

// The packet type. Writes DHCP_HOOK_TAKEN to *takeFlag when the module is to consume the packet itself, else
// leaves the word as it is.
DHCP_VEX_API uint32_t DhcpGetPktType(OrbMbuf* pkt, uint32_t* takeFlag);

// One rule each: 1 wanted, 0 not. The request rules also test the destination port, the reply rules do not.
DHCP_VEX_API uint32_t DhcpIsArpPktNeed(OrbMbuf* pkt);
DHCP_VEX_API uint32_t DhcpIsIcmpPktNeed(OrbMbuf* pkt);
DHCP_VEX_API uint32_t DhcpIsDhcp4PktNeed(OrbMbuf* pkt);
DHCP_VEX_API uint32_t DhcpIsRequestPktNeed(OrbMbuf* pkt);
DHCP_VEX_API uint32_t DhcpIsReplyPktNeed(OrbMbuf* pkt);
DHCP_VEX_API uint32_t DhcpIsDhcp6PktNeed(OrbMbuf* pkt);
DHCP_VEX_API uint32_t DhcpIsV6RequestPktNeed(OrbMbuf* pkt);
DHCP_VEX_API uint32_t DhcpIsV6ReplyPktNeed(OrbMbuf* pkt);
DHCP_VEX_API uint32_t DhcpIsIcmpv6PktNeed(OrbMbuf* pkt, uint32_t* takeFlag);

// Plain questions about a packet; no switch is read.
DHCP_VEX_API uint32_t DhcpIsNdSnpPkt(OrbMbuf* pkt);         // ICMPv6 type 133 to 136
DHCP_VEX_API uint32_t DhcpIsIcmpEhcoReply(OrbMbuf* pkt);    // IPv4 ICMP type 0
DHCP_VEX_API uint32_t DhcpIsIcmpv6EhcoReply(OrbMbuf* pkt);  // ICMPv6 type 136
DHCP_VEX_API uint32_t DhcpIsNacDhcpCauseId(int32_t causeId);
