// dhcp_vex_rate_limit_peerlink.cpp - polices DHCP from the M-LAG peer-link per packet kind.
// In:  application packet type, switch 15, message type, the capability's rates. Out: 0 pass or 1 refuse.
// Not here: the counting step (dhcp_vex_rate_limit), the log lines about refusals
// (dhcp_vex_rate_limit_notify).
#include "dhcp_vex_rate_limit_peerlink.h"

#include <optional>

#include "dhcp_vex_api.h"
#include "dhcp_vex_api_switch.h"
#include "dhcp_vex_guard.h"
#include "dhcp_vex_pkt_channel.h"
#include "dhcp_vex_pkt_classify.h"
#include "dhcp_vex_pkt_diag.h"
#include "dhcp_vex_rate_limit.h"
#include "dhcp_vex_shared_word.h"

using namespace dhcp_vex;

DhcpPeerLinkRate g_dhcpVexPeerLinkInfo[DHCP_PEER_KINDS] = {};
const char* const g_dhcpPktTypeStr[DHCP_PEER_KINDS] = {"DHCPv4 Request", "DHCPv4 Reply", "DHCPv6 Request",
                                                       "DHCPv6 Reply"};

namespace {

constexpr uint8_t kFromPeerLink = 2;  // application packet type
constexpr size_t kMessageTypeAt = 8;  // behind the UDP header
constexpr uint8_t kBootReply = 2;     // RFC 951

// ADVERTISE, REPLY, RECONFIGURE, RELAY-REPL (RFC 8415) and LEASEQUERY-REPLY (RFC 5007).
constexpr bool IsDhcp6Reply(uint8_t type) {
  return type == 2 || type == 7 || type == 10 || type == 13 || type == 15;
}

constexpr uint32_t KindOf(uint8_t appType, uint8_t messageType) {
  if (appType == DHCP_APP_TYPE_DHCPV4) {
    return messageType == kBootReply ? DHCP_PEER_KIND_V4_REPLY : DHCP_PEER_KIND_V4_REQUEST;
  }
  if (appType == DHCP_APP_TYPE_DHCPV6) {
    return IsDhcp6Reply(messageType) ? DHCP_PEER_KIND_V6_REPLY : DHCP_PEER_KIND_V6_REQUEST;
  }
  return DHCP_PEER_KINDS;
}

}  // namespace

uint32_t DhcpVexPeerLinkRateCheck(OrbMbuf* pkt) {
  if (pkt == nullptr || static_cast<uint8_t>(HostMbufGetAppPktType(pkt)) != kFromPeerLink) return 0;
  if (DhcpVexGetCfg(DHCP_CFG_MLAG_PEERLINK) != 1) return 1;
  const TryGuard guard(g_dhcpVexSnpInfoUseLock);
  if (!guard) return 0;
  RefreshModuleTime();
  return DhcpVexCheckPeerLinkPktSpeed(DhcpVexGetPktType(pkt));
}

uint32_t DhcpVexGetPktType(OrbMbuf* pkt) {
  const std::optional<L4View> udp = FindL4(pkt);
  const std::optional<uint8_t> messageType = udp ? U8(udp->header.bytes, kMessageTypeAt) : std::nullopt;
  if (!messageType) return DHCP_PEER_KINDS;
  return KindOf(static_cast<uint8_t>(HostMbufGetPktAppType(pkt)), *messageType);
}

uint32_t DhcpVexCheckPeerLinkPktSpeed(uint32_t kind) {
  if (kind >= DHCP_PEER_KINDS) return 0;
  DhcpPeerLinkRate& record = g_dhcpVexPeerLinkInfo[kind];
  const uint32_t rate = Load(record.pktRate);
  return rate == 0 ? 0 : DhcpVexSpeedLimitJudge(&record.period, rate);
}

void DhcpVexPeerLinkRateInit(void) {
  const uint32_t v4Rate = DhcpVexGetSpecs(DHCP_SPEC_MLAG_IPV4_PKT_RATE);
  const uint32_t v6Rate = DhcpVexGetSpecs(DHCP_SPEC_MLAG_IPV6_PKT_RATE);
  Store(g_dhcpVexPeerLinkInfo[DHCP_PEER_KIND_V4_REQUEST].pktRate, v4Rate);
  Store(g_dhcpVexPeerLinkInfo[DHCP_PEER_KIND_V4_REPLY].pktRate, v4Rate);
  Store(g_dhcpVexPeerLinkInfo[DHCP_PEER_KIND_V6_REQUEST].pktRate, v6Rate);
  Store(g_dhcpVexPeerLinkInfo[DHCP_PEER_KIND_V6_REPLY].pktRate, v6Rate);
  DHCP_LOG_RARE("[VEX-DHCP][M-LAG] Set PeerLink ipv4PktRate=%d, ipv6PktRate=%d.",
                static_cast<int32_t>(v4Rate), static_cast<int32_t>(v6Rate));
}
