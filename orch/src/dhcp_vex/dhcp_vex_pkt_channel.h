// dhcp_vex_pkt_channel.h - which service channel, and so which service instance, a wanted packet goes to.
// In:  a classified packet, the instance count, switch 13. Out: a channel number; the client keys behind it.
// Every pointer given out points into the packet. Any forwarding thread, no lock, nothing allocated. A packet
// too short for its key gets the answer for malformed ones.
#pragma once

#include <optional>

#include "dhcp_vex_bytes.h"
#include "dhcp_vex_export.h"
#include "dhcp_vex_platform.h"

inline constexpr uint32_t DHCP_CHN_ICMP = 0;  // single instance; link probes without an instance digit
inline constexpr uint32_t DHCP_CHN_ARP = 1;
inline constexpr uint32_t DHCP_CHN_DHCP = 2;        // single instance; messages too malformed to hash
inline constexpr uint32_t DHCP_CHN_DHCP_INST0 = 3;  // 3 + k: DHCP of instance k
inline constexpr uint32_t DHCP_CHN_ICMP_INST0 = 7;  // 7 + k: link probes and ICMPv6 of instance k
inline constexpr uint32_t DHCP_CHN_INNER = 11;      // the module's own messages, never chosen for a packet
inline constexpr uint32_t DHCP_CHN_ALL_ICMP = 14;   // a copy to each instance's ICMP channel
inline constexpr uint32_t DHCP_MAX_INSTANCES = 4;

// The channel for a packet of the given type (dhcp_vex_pkt_classify), or 0xFFFFFFFF.
DHCP_VEX_API uint32_t DhcpPktGetChnID(OrbMbuf* pkt, uint32_t pktType);
// 3 + hash of the client modulo the instance count, or 2 when malformed or when there are no instances.
DHCP_VEX_API uint32_t DhcpPktGetDhcpChnID(OrbMbuf* pkt);
// By switch 13 the one or the other of the next two: 14, 7 + hash modulo the instance count, or 0xFFFFFFFF.
DHCP_VEX_API uint32_t DhcpPktGetIcmpv6ChnID(OrbMbuf* pkt);
DHCP_VEX_API uint32_t DhcpPktGetIcmpv6ChnIDNdSnp(OrbMbuf* pkt);
DHCP_VEX_API uint32_t DhcpPktGetIcmpv6ChnIDDhcpv6Snp(OrbMbuf* pkt);
// The digit behind the link-probe marker, 0 without one, 0xFFFFFFFF without a marker.
DHCP_VEX_API uint32_t DhcpGetInstFromIcmpPkt(OrbMbuf* pkt);
// 0 for digit 0, else digit + 6; 0xFFFFFFFF without a marker.
DHCP_VEX_API uint32_t DhcpPktGetIcmpChnID(OrbMbuf* pkt);

// djb2, low 31 bits; 0 for no key.
DHCP_VEX_API uint32_t DhcpPktDistributeHashCal(const uint8_t* key, uint32_t length);

// Client keys. `udp` is the start of a UDP header whose length field bounds every read; the caller vouches
// for that many bytes. Outputs are written only when there is something to write.
DHCP_VEX_API void DhcpGetChaddr(uint8_t* udp, uint8_t** key, uint32_t* keyLength);  // needs 42 bytes
DHCP_VEX_API void DhcpPktGetDUID(uint8_t* udp, uint8_t** duid, uint32_t* duidLength);
DHCP_VEX_API void Dhcpv6PktGetHashKey(uint8_t* udp, uint8_t** key, uint32_t* keyLength);
DHCP_VEX_API void DhcpGetDistributeHashKeyByDUID(uint8_t* duid, uint32_t duidLength, uint8_t** key,
                                                 uint32_t* keyLength);
// The innermost message reachable from the one that `optionHeader` + 4 points to; `end` is the datagram's
// end.
DHCP_VEX_API uint8_t* DhcpPktGetDhcpv6HeadFromRelayMsgOpt(uint8_t* optionHeader, uint8_t* end);

// L3 header as the framework located it, and the packet's length from there; null, and *length untouched,
// when the packet is shorter than its L2 header.
DHCP_VEX_API uint8_t* DhcpVexGetIpHead(OrbMbuf* pkt, uint32_t* length);
// L4 header behind a 20-byte IPv4 or a 40-byte IPv6 header, and the length from there; null when there is
// none. For a protocol that is neither, *length is the L3 length.
DHCP_VEX_API uint8_t* DhcpVexGetUdpHead(OrbMbuf* pkt, uint32_t* length);

namespace dhcp_vex {

// A header and all that follows it. `length` is what the packet's own length says; `bytes`, never longer, is
// what its buffer holds of that.
struct HeaderView {
  Bytes bytes;
  uint32_t length;
};

struct L4View {
  HeaderView header;
  bool ipv6;
};

// The L4 header of an IPv4 or IPv6 packet without IPv4 options or IPv6 extension headers.
std::optional<L4View> FindL4(OrbMbuf* pkt);

}  // namespace dhcp_vex
