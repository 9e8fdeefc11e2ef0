// dhcp_vex_pkt_channel.cpp - maps a classified packet to a service channel.
// In:  packet type, packet bytes, instance count (read per packet), switch 13. Out: a channel number.
// All packets of one client reach the same instance: the hash runs over the client's identity and nothing
// else. Not here: the DHCPv6 option walk (dhcp_vex_pkt_duid), the sending (dhcp_vex_pkt_deliver).
#include "dhcp_vex_pkt_channel.h"

#include <algorithm>
#include <string_view>

#include "dhcp_vex_api.h"
#include "dhcp_vex_api_switch.h"
#include "dhcp_vex_pkt_classify.h"
#include "dhcp_vex_pkt_duid.h"

using namespace dhcp_vex;

namespace {

constexpr uint32_t kProtoIpv4 = 0;
constexpr uint32_t kProtoIpv6 = 1;
constexpr uint32_t kIpv4Header = 20;  // options are not considered
constexpr uint32_t kIpv6Header = 40;
constexpr size_t kUdpHeader = 8;
constexpr size_t kUdpLengthAt = 4;
constexpr size_t kChaddrAt = 36;  // UDP header and 28 bytes of fixed fields (RFC 2131)
constexpr size_t kMacSize = 6;
constexpr size_t kIpv6SourceAt = 8;
constexpr size_t kIpv6AddressSize = 16;
constexpr size_t kNdTypeAt = 40;  // offsets into L3 (RFC 4861)
constexpr size_t kNdTargetAt = 48;
constexpr size_t kNaLinkLayerAt = 66;
constexpr uint32_t kNaWithLinkLayer = 72;
constexpr uint32_t kProbePayloadAt = 28;
constexpr uint32_t kProbeMinL3 = 53;
constexpr uint32_t kProbeMaxL3 = 155;
constexpr std::string_view kProbeMarker = "Quor DHCP lnkprobemarkerz";
static_assert(kProbeMarker.size() == 25 && kProbePayloadAt + kProbeMarker.size() == kProbeMinL3);

constexpr uint32_t Djb2(std::span<const uint8_t> key) {
  if (key.empty()) return 0;
  uint32_t hash = 5381;
  for (const uint8_t byte : key) hash = hash * 33 + byte;
  return hash & 0x7FFFFFFF;
}
constexpr uint8_t kHashProof[] = {2, 0, 0, 0, 0, 0x0B};
static_assert(Djb2(kHashProof) == 210327058);

constexpr bool SingleInstance(uint32_t instances) { return instances == 0 || instances > DHCP_MAX_INSTANCES; }

uint32_t Instances() { return DhcpVexGetSpecs(DHCP_SPEC_MULTICORE_SVC_NUM); }

uint8_t L2Length(OrbMbuf* pkt) { return static_cast<uint8_t>(HostMbufGetL2HeadLength(pkt)); }

// Nothing when the packet is shorter than its L2 header or has no data buffer.
std::optional<HeaderView> FindL3(OrbMbuf* pkt) {
  const uint8_t l2Length = L2Length(pkt);
  if (pkt->dataLen < l2Length || pkt->bufAddr == nullptr) return std::nullopt;
  return HeaderView{From(PacketBytes(pkt), l2Length), pkt->dataLen - l2Length};
}

std::optional<uint32_t> FixedIpHeader(uint32_t protocol) {
  if (protocol == kProtoIpv6) return kIpv6Header;
  if (protocol == kProtoIpv4) return kIpv4Header;
  return std::nullopt;
}

std::optional<HeaderView> Behind(const HeaderView& header, uint32_t headerLength) {
  if (header.length < headerLength) return std::nullopt;
  return HeaderView{From(header.bytes, headerLength), header.length - headerLength};
}

// The datagram behind a UDP header that is whole, cut at its length field; nothing when it claims more than
// the packet has.
std::optional<Bytes> Datagram(const HeaderView& l4) {
  const std::optional<uint16_t> length = U16(l4.bytes, kUdpLengthAt);
  if (l4.length < kUdpHeader || !length || l4.length < *length) return std::nullopt;
  return l4.bytes.first(std::min<size_t>(*length, l4.bytes.size()));
}

uint32_t HashOf(std::optional<Bytes> key) { return key ? Djb2(*key) : 0; }

uint32_t Dhcp6Hash(Bytes datagram) {
  const std::optional<Bytes> duid = FindDuid(datagram);
  return duid ? HashOf(DuidKey(*duid)) : 0;
}

uint32_t Icmpv6Channel(std::optional<Bytes> key, uint32_t instances) {
  if (!key || instances == 0) return DHCP_NONE;
  return DHCP_CHN_ICMP_INST0 + Djb2(*key) % instances;
}

// During duplicate address detection the source is unspecified and the target identifies the client (RFC
// 4862).
std::optional<Bytes> SolicitationKey(Bytes l3) {
  const std::optional<Bytes> source = Part(l3, kIpv6SourceAt, kIpv6AddressSize);
  const bool unspecified = source && std::ranges::all_of(*source, [](uint8_t byte) { return byte == 0; });
  return unspecified ? Part(l3, kNdTargetAt, kIpv6AddressSize) : source;
}

uint32_t ProbeChannel(uint32_t digit) {
  if (digit == DHCP_NONE || digit == 0) return digit;
  return digit + DHCP_CHN_ICMP_INST0 - 1;
}
static_assert(DHCP_CHN_ICMP == 0, "a probe without a digit goes to channel 0");

}  // namespace

std::optional<L4View> dhcp_vex::FindL4(OrbMbuf* pkt) {
  const std::optional<HeaderView> l3 = FindL3(pkt);
  if (!l3) return std::nullopt;
  const uint32_t protocol = HostMbufGetProtoType(pkt);
  const std::optional<uint32_t> headerLength = FixedIpHeader(protocol);
  const std::optional<HeaderView> l4 = headerLength ? Behind(*l3, *headerLength) : std::nullopt;
  return l4 ? std::optional(L4View{*l4, protocol == kProtoIpv6}) : std::nullopt;
}

uint32_t DhcpPktGetChnID(OrbMbuf* pkt, uint32_t pktType) {
  if (SingleInstance(Instances())) return pktType == DHCP_PKT_TYPE_ICMPV6 ? DHCP_CHN_ICMP : pktType;
  switch (pktType) {
    case DHCP_PKT_TYPE_ICMPV6:
      return DhcpPktGetIcmpv6ChnID(pkt);
    case DHCP_PKT_TYPE_DHCP:
      return DhcpPktGetDhcpChnID(pkt);
    case DHCP_PKT_TYPE_ICMP:
      return DhcpPktGetIcmpChnID(pkt);
    default:
      return pktType;
  }
}

uint32_t DhcpPktGetDhcpChnID(OrbMbuf* pkt) {
  const std::optional<L4View> l4 = FindL4(pkt);
  const std::optional<Bytes> datagram = l4 ? Datagram(l4->header) : std::nullopt;
  const uint32_t instances = Instances();
  if (!datagram || instances == 0) return DHCP_CHN_DHCP;
  if (l4->ipv6) return DHCP_CHN_DHCP_INST0 + Dhcp6Hash(*datagram) % instances;
  const std::optional<Bytes> chaddr = Part(*datagram, kChaddrAt, kMacSize);
  return chaddr ? DHCP_CHN_DHCP_INST0 + Djb2(*chaddr) % instances : DHCP_CHN_DHCP;
}

uint32_t DhcpPktGetIcmpv6ChnID(OrbMbuf* pkt) {
  return DhcpVexGetCfg(DHCP_CFG_ND_SNOOPING) == 1 ? DhcpPktGetIcmpv6ChnIDNdSnp(pkt)
                                                  : DhcpPktGetIcmpv6ChnIDDhcpv6Snp(pkt);
}

uint32_t DhcpPktGetIcmpv6ChnIDNdSnp(OrbMbuf* pkt) {
  const std::optional<HeaderView> l3 = FindL3(pkt);
  if (!l3) return DHCP_NONE;
  switch (U8(l3->bytes, kNdTypeAt).value_or(0)) {
    case ND_ROUTER_SOLICIT:
    case ND_ROUTER_ADVERT:
      return DHCP_CHN_ALL_ICMP;
    case ND_NEIGHBOR_ADVERT:
      return Icmpv6Channel(Part(l3->bytes, kIpv6SourceAt, kIpv6AddressSize), Instances());
    case ND_NEIGHBOR_SOLICIT:
      return Icmpv6Channel(SolicitationKey(l3->bytes), Instances());
    default:
      return DHCP_NONE;
  }
}

uint32_t DhcpPktGetIcmpv6ChnIDDhcpv6Snp(OrbMbuf* pkt) {
  const std::optional<HeaderView> l3 = FindL3(pkt);
  if (!l3 || l3->length < kNaWithLinkLayer) return DHCP_NONE;
  return Icmpv6Channel(Part(l3->bytes, kNaLinkLayerAt, kMacSize), Instances());
}

uint32_t DhcpGetInstFromIcmpPkt(OrbMbuf* pkt) {
  const std::optional<HeaderView> l3 = FindL3(pkt);
  if (!l3 || l3->length < kProbeMinL3 || l3->length > kProbeMaxL3) return DHCP_NONE;
  const std::optional<Bytes> start = Part(l3->bytes, kProbePayloadAt, kProbeMarker.size());
  if (!start || !std::ranges::equal(*start, kProbeMarker)) return DHCP_NONE;
  const uint8_t next = U8(l3->bytes, kProbeMinL3).value_or(0);
  return next >= '0' && next <= '9' ? next - '0' : 0;
}

uint32_t DhcpPktGetIcmpChnID(OrbMbuf* pkt) { return ProbeChannel(DhcpGetInstFromIcmpPkt(pkt)); }

uint32_t DhcpPktDistributeHashCal(const uint8_t* key, uint32_t length) {
  return key == nullptr ? 0 : Djb2({key, length});
}

void DhcpGetChaddr(uint8_t* udp, uint8_t** key, uint32_t* keyLength) {
  *key = udp + kChaddrAt;
  *keyLength = kMacSize;
}

uint8_t* DhcpVexGetIpHead(OrbMbuf* pkt, uint32_t* length) {
  const uint8_t l2Length = L2Length(pkt);
  if (pkt->dataLen < l2Length) return nullptr;
  *length = pkt->dataLen - l2Length;
  return HostMbufGetL3Hdr(pkt);
}

uint8_t* DhcpVexGetUdpHead(OrbMbuf* pkt, uint32_t* length) {
  const std::optional<HeaderView> l3 = FindL3(pkt);
  if (!l3) return nullptr;
  const std::optional<uint32_t> headerLength = FixedIpHeader(HostMbufGetProtoType(pkt));
  if (!headerLength) {
    *length = l3->length;
    return nullptr;
  }
  const std::optional<HeaderView> l4 = Behind(*l3, *headerLength);
  if (!l4) return nullptr;
  *length = l4->length;
  return pkt->bufAddr + pkt->dataOff + L2Length(pkt) + *headerLength;
}
