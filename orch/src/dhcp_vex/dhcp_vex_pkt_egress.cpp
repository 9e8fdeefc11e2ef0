// dhcp_vex_pkt_egress.cpp - translates an egress header into the framework's descriptor and outputs the
// packet. In:  a header in packet memory, of any alignment; a descriptor. Out: 28 setter calls in a fixed
// order; the packet published or handed to the M-LAG library. Touches no state but counter 2.
#include "dhcp_vex_pkt_egress.h"

#include <cstring>

#include "dhcp_vex_api.h"
#include "dhcp_vex_egress_db_dynso.h"
#include "dhcp_vex_pkt_source.h"

using namespace dhcp_vex;

namespace {

constexpr uint8_t kLeavesByMlag = 1;  // application packet type
constexpr uint32_t kPruneType = 5;
constexpr uint32_t kInfoType = 1;
constexpr uint32_t kTlvType = 250;
constexpr uint32_t kHubSpokeShift = 12;

constexpr uint32_t Flag(uint32_t flags, uint32_t mask) { return (flags & mask) != 0 ? 1 : 0; }

constexpr bool AsksForPrune(uint32_t egressFlags) {
  return (egressFlags & DHCP_EGRESS_PRUNE_KIND) == DHCP_EGRESS_PRUNE_KIND_5;
}
static_assert(AsksForPrune(0x28000) && AsksForPrune(0x2FFFF) && !AsksForPrune(0x30000) &&
              !AsksForPrune(0x20000));

DhcpHostEgressIntfInfo ReadHeader(const void* header) {
  DhcpHostEgressIntfInfo info;
  std::memcpy(&info, header, sizeof(info));
  return info;
}

void SetPrune(const DhcpHostEgressIntfInfo& info, HostEgressDesc* desc) {
  if (!AsksForPrune(info.egressFlags)) return;
  const HostEgressPruneType prune = {kPruneType, {}};
  HostSetEgressPruneType(desc, &prune);
}

}  // namespace

uint32_t DhcpHostEgressIntfTrans(const void* header, HostEgressDesc* desc) {
  const DhcpHostEgressIntfInfo info = ReadHeader(header);
  // What goes by address points into the message: the library may keep it as long as it keeps the packet.
  const auto* const in = static_cast<const uint8_t*>(header);
  HostSetEgressOePriority(desc, info.oePriority);
  HostSetEgressIntfType(desc, info.intfType);
  HostSetEgressSendIfIndex(desc, info.sendIfIndex);
  HostSetEgressProtoType(desc, info.protoType);
  HostSetEgressBdId(desc, info.bdId);
  HostSetEgressBsNoLinkEncap(desc, Flag(info.bsFlags, DHCP_BS_NO_LINK_ENCAP));
  HostSetEgressBsVlanNum(desc, info.bsFlags & DHCP_BS_VLAN_NUM);
  HostSetEgressVlanBaseInfo(desc, in + offsetof(DhcpHostEgressIntfInfo, vlanBaseInfo));
  HostSetEgressPruneIf(desc, info.pruneIfIndex);
  HostSetEgressBsSpecifyIpat(desc, Flag(info.egressFlags, DHCP_EGRESS_SPECIFY_IPAT));
  HostSetEgressVxlanEncodeVlan(desc, Flag(info.egressFlags, DHCP_EGRESS_VXLAN_ENCODE_VLAN));
  HostSetEgressBsOeSMAC(desc, Flag(info.bsFlags, DHCP_BS_OE_SMAC));
  HostSetEgressBsOeDMAC(desc, Flag(info.bsFlags, DHCP_BS_OE_DMAC));
  HostSetEgressSrcMac(desc, in + offsetof(DhcpHostEgressIntfInfo, srcMac));
  HostSetEgressDstMac(desc, in + offsetof(DhcpHostEgressIntfInfo, dstMac));
  HostSetEgressDstAddr(desc, in + offsetof(DhcpHostEgressIntfInfo, dstAddr));
  HostSetEgressNextHop(desc, in + offsetof(DhcpHostEgressIntfInfo, nextHop));
  HostSetEgressSvp(desc, info.svp);
  HostSetEgressTunnelID(desc, info.tunnelId);
  HostSetEgressTunnelType(desc, info.tunnelType);
  HostSetEgressVrfIndex(desc, info.vrfIndex);
  HostSetEgressSendPhyIfIndex(desc, info.sendPhyIfIndex);
  HostSetEgressIntfLen(desc);
  HostSetEgressVxlanHubSpkV2(desc, (info.egressFlags & DHCP_EGRESS_HUB_SPOKE) >> kHubSpokeShift);
  HostSetEgressVxlanVpeerlink(desc, Flag(info.egressFlags, DHCP_EGRESS_VXLAN_VPEERLINK));
  HostSetEgressUint32InfoByType(desc, info.egressInfo1, kInfoType);
  SetPrune(info, desc);
  return HostSetEgressAppendTlv(desc, kTlvType, in + sizeof(info));
}

void DhcpHostEgressSetPruneType(const void* header, HostEgressDesc* desc) {
  SetPrune(ReadHeader(header), desc);
}

uint32_t Dhcp2VexPacketOutput(OrbMbuf* pkt, HostEgressDesc* desc) {
  if (pkt == nullptr) return 0;
  if (static_cast<uint8_t>(HostMbufGetAppPktType(pkt)) == kLeavesByMlag) {
    DhcpVexDbMlagHookEgress(pkt, 0);
    return g_mbufFreeCb(pkt, kPktSourcePath, __LINE__);
  }
  const uint32_t ret = HostEgressPktPubWithSource(pkt, desc, DHCP_EGRESS_SOURCE_ID);
  if (ret != 0) Count(DhcpStat::kEgressPubFail);
  return ret;
}

std::optional<MessageKind> dhcp_vex::ReadMessageKind(Bytes message) {
  MessageKind kind;
  if (message.size() < sizeof(kind)) return std::nullopt;
  std::memcpy(&kind, message.data(), sizeof(kind));
  return kind;
}

std::optional<Bytes> dhcp_vex::UserBindBody(Bytes message) {
  const std::optional<MessageKind> kind = ReadMessageKind(message);
  if (!kind || kind->intfLen >= message.size()) return std::nullopt;
  return message.subspan(kind->intfLen);
}
