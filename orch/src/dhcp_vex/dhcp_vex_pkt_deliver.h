// dhcp_vex_pkt_deliver.h - hands packets and the module's own messages to the DHCP service.
// In:  a classified packet, or the bytes of an inner message. Out: a message on a service channel and a
// wake-up of the thread that reads it. Any thread, no lock. On failure a packet stays its caller's; an inner
// message is freed here.
#pragma once

#include <cstddef>
#include <type_traits>

#include "dhcp_vex_export.h"
#include "dhcp_vex_platform.h"

// Results of the delivery operations besides DHCP_OK.
inline constexpr uint32_t DHCP_SEND_REJECTED =
    1;  // no such channel, no room for the header, too many instances
inline constexpr uint32_t DHCP_SEND_NO_THREAD = 2;  // the service thread is not known to the framework
inline constexpr uint32_t DHCP_SEND_NO_CHANNEL =
    3;                                            // the channel is not known, or there is none for the packet
inline constexpr uint32_t DHCP_SEND_REFUSED = 4;  // the channel refused the message

// In front of every packet sent to the service. Host byte order.
struct DhcpIngressHeader {
  uint32_t length;  // 24
  uint32_t zero4;
  uint64_t sequence;  // unique and rising by one per header filled in
  uint64_t zero16;
};
static_assert(sizeof(DhcpIngressHeader) == 24 && offsetof(DhcpIngressHeader, sequence) == 8);
static_assert(std::is_trivially_copyable_v<DhcpIngressHeader>);

// In front of every inner message. Host byte order; the two fields are those that also head the messages on
// the return channel.
struct DhcpInnerHead {
  uint16_t intfType;  // 32
  uint16_t intfLen;   // 264
  uint8_t zero4[260];
};
static_assert(sizeof(DhcpInnerHead) == 264 && std::is_trivially_copyable_v<DhcpInnerHead>);

// Puts the ingress header in front of the packet and sends it on the channel that dhcp_vex_pkt_channel chose.
DHCP_VEX_API uint32_t DhcpPktSendToDhcp(OrbMbuf* pkt, uint32_t pktType);
// Sends a packet that carries its header; wakes the reader whether or not the channel took it. Never frees.
DHCP_VEX_API uint32_t DhcpPktSendToOneDhcpSvc(OrbMbuf* pkt, uint32_t channel);
// One copy to each instance's ICMP channel; frees the packet and answers 0 whatever became of the copies, or
// answers 1 and leaves the packet alone when there are more than four instances.
DHCP_VEX_API uint32_t DhcpPktSendToAllIcmpChanel(OrbMbuf* pkt);
// The header alone: 0, or 1 when it could not be added. The sequence number is used up either way.
DHCP_VEX_API uint32_t DhcpPktAppendIgressIntf(OrbMbuf* pkt);
// Resolves and caches a thread (below 5) and a channel (below 12) by name: 0, 2 or 3. The caller keeps the
// bounds.
DHCP_VEX_API uint32_t DhcpVexSetThreadIdAndChnnelId(uint32_t threadIndex, uint32_t channel);
// A new packet buffer with a copy of the bytes behind the inner head, or null. The caller owns it.
DHCP_VEX_API OrbMbuf* DhcpVexConstructOrbMbuf(const uint8_t* bytes, uint32_t length);
// Sends a copy of the bytes on channel 11; the caller keeps them.
DHCP_VEX_API uint32_t DhcpVexSendInnerMsgToDhcp(const uint8_t* bytes, uint32_t length);
