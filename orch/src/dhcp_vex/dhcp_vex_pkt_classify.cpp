// dhcp_vex_pkt_classify.cpp - the rules by which a punted packet is wanted.
// In:  application type, header bytes, management flag, ports, cause id; one reading of the switches per
// rule. Out: packet type and take flag. The rules are pure functions; the exports fetch what the rules need.
// Not here: which channel (dhcp_vex_pkt_channel), how often (dhcp_vex_rate_limit).
#include "dhcp_vex_pkt_classify.h"

#include "dhcp_vex_api.h"
#include "dhcp_vex_api_switch.h"
#include "dhcp_vex_bytes.h"
#include "dhcp_vex_pkt_diag.h"

using namespace dhcp_vex;

namespace {

constexpr uint16_t kArpReply = 2;  // RFC 826
constexpr size_t kArpOpcodeAt = 6;
constexpr uint8_t kIcmpEchoReply = 0;      // RFC 792
constexpr size_t kIcmpv6TypeAt = 40;       // directly behind the fixed IPv6 header
constexpr uint16_t kDhcp4ServerPort = 67;  // RFC 2131
constexpr uint16_t kDhcp4ClientPort = 68;
constexpr uint16_t kDhcp6ClientPort = 546;  // RFC 8415
constexpr uint16_t kDhcp6ServerPort = 547;

// ---- Rules ---------------------------------------------------------------------------------------------

constexpr bool ArpReplyWanted(bool management, Switches on) {
  if (management) return on[DHCP_CFG_MNG_V4_REPLY];
  return on[DHCP_CFG_V4_REPLY] && (on[DHCP_CFG_V4_ARP_A] || on[DHCP_CFG_V4_ARP_B]);
}
static_assert(!ArpReplyWanted(false, Switches(0x02)) && ArpReplyWanted(false, Switches(0x82)));

constexpr bool MngRequestSwitch(Switches on) { return on[DHCP_CFG_MNG_V4_REQ] || on[DHCP_CFG_MNG_V4_REQ2]; }

constexpr bool EchoReplyWanted(bool management, Switches on) {
  return management ? MngRequestSwitch(on) : on[DHCP_CFG_V4_REQ];
}

constexpr bool Dhcp4ReplyWanted(bool management, bool noCheckCfg, Switches on) {
  if (management) return on[DHCP_CFG_MNG_V4_REPLY];
  return noCheckCfg || on[DHCP_CFG_V4_REPLY] || on[DHCP_CFG_V4_SNOOPING];
}

constexpr bool Dhcp6ReplyWanted(bool management, Switches on) {
  if (management) return on[DHCP_CFG_MNG_V6_REPLY];
  return on[DHCP_CFG_V6_REPLY] || on[DHCP_CFG_V6_SNOOPING];
}

constexpr bool IsNdType(std::optional<uint8_t> type) {
  return type && *type >= ND_ROUTER_SOLICIT && *type <= ND_NEIGHBOR_ADVERT;
}

constexpr bool NacCauseId(int32_t id, uint32_t scheme) {
  if (scheme > 1) return false;
  if (id == 30 || id == 31) return true;
  return scheme == 0 && (id == 123 || id == 124);
}
static_assert(NacCauseId(124, 0) && !NacCauseId(124, 1) && NacCauseId(30, 1) && !NacCauseId(30, 2));

// ---- What the rules read from a packet -----------------------------------------------------------------

bool OnManagement(OrbMbuf* pkt) { return HostMbufGetMngIfFlag(pkt) != 0; }

uint16_t DstPort(OrbMbuf* pkt) { return static_cast<uint16_t>(HostMbufGetL4DstPort(pkt)); }

bool HasNacCause(OrbMbuf* pkt) {
  return DhcpIsNacDhcpCauseId(static_cast<uint16_t>(HostMbufGetCauseAction(pkt))) == 1;
}

bool IsArpReply(OrbMbuf* pkt) {
  const size_t arpAt = static_cast<uint8_t>(HostMbufGetL2HeadLength(pkt));
  return U16(PacketBytes(pkt), arpAt + kArpOpcodeAt) == kArpReply;
}

// The ICMP type stands behind the IPv4 header, whose length is its low nibble in 32-bit words.
std::optional<uint8_t> IcmpType(OrbMbuf* pkt) {
  const Bytes ip = PacketBytesFrom(pkt, HostMbufGetL3Hdr(pkt));
  if (ip.empty()) return std::nullopt;
  return U8(ip, (ip[0] & 0x0Fu) * 4u);
}

std::optional<uint8_t> Icmpv6Type(OrbMbuf* pkt) {
  return U8(PacketBytesFrom(pkt, HostMbufGetL3Hdr(pkt)), kIcmpv6TypeAt);
}

// On the management interface a server's message to another server's port, sent to one host, is wanted
// whatever the switches say.
bool IsUnicastBetweenServers(OrbMbuf* pkt) {
  if (static_cast<uint16_t>(HostMbufGetL4SrcPort(pkt)) != kDhcp4ServerPort) return false;
  const uint8_t* dstMac = HostMbufGetDstMac(pkt);
  return dstMac != nullptr && (dstMac[0] & 1) == 0;
}

bool Dhcp4RequestWanted(OrbMbuf* pkt) {
  if (OnManagement(pkt)) return MngRequestSwitch(Switches::Now()) || IsUnicastBetweenServers(pkt);
  return HasNacCause(pkt) || Switches::Now()[DHCP_CFG_V4_REQ];
}

bool Dhcp6RequestWanted(OrbMbuf* pkt) {
  if (OnManagement(pkt)) return false;
  return HasNacCause(pkt) || Switches::Now()[DHCP_CFG_V6_REQ];
}

bool Dhcp4Wanted(OrbMbuf* pkt) {
  const uint16_t port = DstPort(pkt);
  if (port == kDhcp4ServerPort) return Dhcp4RequestWanted(pkt);
  return port == kDhcp4ClientPort && DhcpIsReplyPktNeed(pkt) == 1;
}

bool Dhcp6Wanted(OrbMbuf* pkt) {
  const uint16_t port = DstPort(pkt);
  if (port == kDhcp6ServerPort) return Dhcp6RequestWanted(pkt);
  return port == kDhcp6ClientPort && DhcpIsV6ReplyPktNeed(pkt) == 1;
}

// ---- ICMPv6 --------------------------------------------------------------------------------------------

void Take(uint32_t* takeFlag) {
  if (takeFlag != nullptr) *takeFlag = DHCP_HOOK_TAKEN;
}

bool WantedUnderNdSnooping(OrbMbuf* pkt, uint32_t* takeFlag) {
  const std::optional<uint8_t> type = Icmpv6Type(pkt);
  if (!IsNdType(type)) {
    DHCP_LOG_PAIR(pkt, "ND snooping is enable, but not ra,rs,na,ns.");
    return false;
  }
  DHCP_LOG_PAIR(pkt, "ND snooping is enable, pkt type is %u.", *type);
  Take(takeFlag);
  DHCP_LOG_PAIR(pkt, "ND snooping is enable, no continue ND host dispatch.");
  return true;
}

bool WantedWithoutNdSnooping(OrbMbuf* pkt, Switches on) {
  DHCP_LOG_PAIR(pkt, "ND snooping is not enable.");
  if (on[DHCP_CFG_V6_SNOOPING]) return Icmpv6Type(pkt) == ND_NEIGHBOR_ADVERT;
  DHCP_LOG_PAIR(pkt, "DHCPv6 snooping is not enable.");
  return false;
}

bool Icmpv6Wanted(OrbMbuf* pkt, uint32_t* takeFlag) {
  if (OnManagement(pkt)) return false;
  const Switches on = Switches::Now();
  return on[DHCP_CFG_ND_SNOOPING] ? WantedUnderNdSnooping(pkt, takeFlag) : WantedWithoutNdSnooping(pkt, on);
}

}  // namespace

uint32_t DhcpGetPktType(OrbMbuf* pkt, uint32_t* takeFlag) {
  if ((HostMbufIsNdHookIgnore(pkt) & 1) != 0) return DHCP_PKT_TYPE_NONE;
  switch (static_cast<uint8_t>(HostMbufGetPktAppType(pkt))) {
    case DHCP_APP_TYPE_ARP:
      return DhcpIsArpPktNeed(pkt) == 1 ? DHCP_PKT_TYPE_ARP : DHCP_PKT_TYPE_NONE;
    case DHCP_APP_TYPE_ICMP:
      return DhcpIsIcmpPktNeed(pkt) == 1 ? DHCP_PKT_TYPE_ICMP : DHCP_PKT_TYPE_NONE;
    case DHCP_APP_TYPE_DHCPV4:
      if (!Dhcp4Wanted(pkt)) return DHCP_PKT_TYPE_NONE;
      Take(takeFlag);
      return DHCP_PKT_TYPE_DHCP;
    case DHCP_APP_TYPE_ICMPV6:
      return Icmpv6Wanted(pkt, takeFlag) ? DHCP_PKT_TYPE_ICMPV6 : DHCP_PKT_TYPE_NONE;
    case DHCP_APP_TYPE_DHCPV6:
      if (!Dhcp6Wanted(pkt)) return DHCP_PKT_TYPE_NONE;
      Take(takeFlag);
      return DHCP_PKT_TYPE_DHCP;
    default:
      return DHCP_PKT_TYPE_NONE;
  }
}

uint32_t DhcpIsArpPktNeed(OrbMbuf* pkt) {
  return IsArpReply(pkt) && ArpReplyWanted(OnManagement(pkt), Switches::Now()) ? 1 : 0;
}

uint32_t DhcpIsIcmpPktNeed(OrbMbuf* pkt) {
  return IcmpType(pkt) == kIcmpEchoReply && EchoReplyWanted(OnManagement(pkt), Switches::Now()) ? 1 : 0;
}

uint32_t DhcpIsDhcp4PktNeed(OrbMbuf* pkt) { return Dhcp4Wanted(pkt) ? 1 : 0; }

uint32_t DhcpIsRequestPktNeed(OrbMbuf* pkt) {
  return DstPort(pkt) == kDhcp4ServerPort && Dhcp4RequestWanted(pkt) ? 1 : 0;
}

uint32_t DhcpIsReplyPktNeed(OrbMbuf* pkt) {
  const bool noCheckCfg = DhcpVexGetSpecs(DHCP_SPEC_NO_CHECK_CFG) == 1;
  return Dhcp4ReplyWanted(OnManagement(pkt), noCheckCfg, Switches::Now()) ? 1 : 0;
}

uint32_t DhcpIsDhcp6PktNeed(OrbMbuf* pkt) { return Dhcp6Wanted(pkt) ? 1 : 0; }

uint32_t DhcpIsV6RequestPktNeed(OrbMbuf* pkt) {
  return DstPort(pkt) == kDhcp6ServerPort && Dhcp6RequestWanted(pkt) ? 1 : 0;
}

uint32_t DhcpIsV6ReplyPktNeed(OrbMbuf* pkt) {
  return Dhcp6ReplyWanted(OnManagement(pkt), Switches::Now()) ? 1 : 0;
}

uint32_t DhcpIsIcmpv6PktNeed(OrbMbuf* pkt, uint32_t* takeFlag) { return Icmpv6Wanted(pkt, takeFlag) ? 1 : 0; }

uint32_t DhcpIsNdSnpPkt(OrbMbuf* pkt) {
  const std::optional<uint8_t> type = Icmpv6Type(pkt);
  if (!IsNdType(type)) return 0;
  DHCP_LOG_PAIR(pkt, "ND snooping is enable, pkt type is %u.", *type);
  return 1;
}

uint32_t DhcpIsIcmpEhcoReply(OrbMbuf* pkt) { return IcmpType(pkt) == kIcmpEchoReply ? 1 : 0; }

uint32_t DhcpIsIcmpv6EhcoReply(OrbMbuf* pkt) { return Icmpv6Type(pkt) == ND_NEIGHBOR_ADVERT ? 1 : 0; }

uint32_t DhcpIsNacDhcpCauseId(int32_t causeId) {
  return NacCauseId(causeId, DhcpVexGetSpecs(DHCP_SPEC_CAUSID_TYPE)) ? 1 : 0;
}
