// dhcp_vex_pkt_egress.h - the header in front of every return-channel message, and its way to the data plane.
// In:  messages that the DHCP service wrote. Out: the framework's egress descriptor filled, the packet
// published or given to the M-LAG library. The service owns the meaning of the fields; the module copies
// them.
#pragma once

#include <cstddef>
#include <optional>
#include <type_traits>

#include "dhcp_vex_bytes.h"
#include "dhcp_vex_export.h"
#include "dhcp_vex_platform.h"

inline constexpr uint16_t DHCP_MSG_USER_BIND = 32;  // intfType: user-binding message
inline constexpr uint16_t DHCP_MSG_ND_UPLOAD =
    33;  // intfType: neighbour-discovery upload; any other is a packet

// Host byte order; addresses in network byte order. Ranges named `other` are not read by the module.
struct DhcpHostEgressIntfInfo {
  uint16_t intfType;  // message kind, or the egress interface type
  uint16_t intfLen;   // header length in bytes; the packet or message body follows
  uint32_t sendIfIndex;
  uint32_t sendPhyIfIndex;
  uint8_t other12[4];
  uint32_t vrfIndex;
  uint8_t dstAddr[16];
  uint8_t nextHop[16];
  uint16_t bsFlags;  // DHCP_BS_...
  uint8_t other54[4];
  uint8_t oePriority;
  uint8_t protoType;
  uint8_t srcMac[6];
  uint8_t dstMac[6];
  uint8_t other72;
  uint8_t tunnelType;
  uint8_t other74[14];
  uint8_t vlanBaseInfo[4];
  uint32_t pruneIfIndex;
  uint8_t other96[4];
  uint32_t bdId;
  uint32_t egressFlags;  // DHCP_EGRESS_...
  uint32_t tunnelId;
  uint8_t other112[118];
  uint16_t svp;
  uint8_t other232[12];
  uint16_t vplsFlag;  // non-zero: bound for a VPLS pseudo-wire
  uint8_t other246[2];
  uint32_t egressInfo1;
  // The value of the egress TLV of type 250 follows; the host-packet library defines its length.
};
static_assert(sizeof(DhcpHostEgressIntfInfo) == 252 && std::is_trivially_copyable_v<DhcpHostEgressIntfInfo>);
static_assert(offsetof(DhcpHostEgressIntfInfo, vrfIndex) == 16 &&
              offsetof(DhcpHostEgressIntfInfo, bsFlags) == 52);
static_assert(offsetof(DhcpHostEgressIntfInfo, oePriority) == 58 &&
              offsetof(DhcpHostEgressIntfInfo, dstMac) == 66);
static_assert(offsetof(DhcpHostEgressIntfInfo, tunnelType) == 73 &&
              offsetof(DhcpHostEgressIntfInfo, vlanBaseInfo) == 88);
static_assert(offsetof(DhcpHostEgressIntfInfo, bdId) == 100 &&
              offsetof(DhcpHostEgressIntfInfo, tunnelId) == 108);
static_assert(offsetof(DhcpHostEgressIntfInfo, svp) == 230 &&
              offsetof(DhcpHostEgressIntfInfo, vplsFlag) == 244);
static_assert(offsetof(DhcpHostEgressIntfInfo, egressInfo1) == 248);

inline constexpr uint16_t DHCP_BS_VLAN_NUM = 0x3;
inline constexpr uint16_t DHCP_BS_OE_DMAC = 0x8;
inline constexpr uint16_t DHCP_BS_OE_SMAC = 0x10;
inline constexpr uint16_t DHCP_BS_NO_LINK_ENCAP = 0x400;

inline constexpr uint32_t DHCP_EGRESS_SPECIFY_IPAT = 0x10;
inline constexpr uint32_t DHCP_EGRESS_VXLAN_VPEERLINK = 0x200;
inline constexpr uint32_t DHCP_EGRESS_VXLAN_ENCODE_VLAN = 0x800;
inline constexpr uint32_t DHCP_EGRESS_HUB_SPOKE = 0x7000;  // three bits from bit 12
inline constexpr uint32_t DHCP_EGRESS_PRUNE_KIND = 0x78000;
inline constexpr uint32_t DHCP_EGRESS_PRUNE_KIND_5 = 0x28000;

inline constexpr uint32_t DHCP_EGRESS_SOURCE_ID = 105;

// Copies the header's fields into the descriptor, one setter each, in a fixed order. `header` is 252 readable
// bytes, of any alignment, with the TLV value behind them. The result of the last setter; the others are not
// looked at.
DHCP_VEX_API uint32_t DhcpHostEgressIntfTrans(const void* header, HostEgressDesc* desc);
// The prune rule alone.
DHCP_VEX_API void DhcpHostEgressSetPruneType(const void* header, HostEgressDesc* desc);
// Publishes a translated packet, or gives it to the M-LAG library and frees it; it is gone afterwards in
// every case. The publish or free result; 0 for null.
DHCP_VEX_API uint32_t Dhcp2VexPacketOutput(OrbMbuf* pkt, HostEgressDesc* desc);

namespace dhcp_vex {

// The fields that every message kind reads.
struct MessageKind {
  uint16_t intfType;
  uint16_t intfLen;
};

// `message` is the buffer memory from the message's first byte. Nothing when the fields do not lie inside it.
std::optional<MessageKind> ReadMessageKind(Bytes message);

// The body of a user-binding message: at least one byte inside the buffer.
std::optional<Bytes> UserBindBody(Bytes message);

}  // namespace dhcp_vex
