// data_plane.cpp - the parse, outermost header first. Each step proves what it reads and hands on the rest.
#include "host/data_plane.h"

#include <algorithm>
#include <optional>

namespace vex::host {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr size_t kMacs = 12;
constexpr size_t kEthernetHeader = 14;
constexpr size_t kTag = 4;
constexpr size_t kIpv4Header = 20;
constexpr size_t kIpv6Header = 40;
constexpr uint16_t kTypeArp = 0x0806, kTypeIpv4 = 0x0800, kTypeIpv6 = 0x86DD;
constexpr uint16_t kTypeVlan = 0x8100, kTypeServiceVlan = 0x88A8;  // IEEE 802.1Q and 802.1ad
constexpr uint8_t kProtocolIcmp = 1, kProtocolUdp = 17, kProtocolIcmp6 = 58;

std::optional<uint16_t> BigU16(Bytes bytes, size_t at) {
  if (at > bytes.size() || bytes.size() - at < 2) return std::nullopt;
  return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

bool IsTag(uint16_t type) { return type == kTypeVlan || type == kTypeServiceVlan; }

// Up to two tags; a third stays in place as an ethertype that nobody wants. False: cut inside a tag.
bool TakeTags(Bytes frame, ParsedFrame& out) {
  while (out.tags < 2 && IsTag(out.ethertype)) {
    const auto tag = BigU16(frame, out.l2_length), type = BigU16(frame, out.l2_length + size_t{2});
    if (!tag) return false;
    if (out.tags++ == 0) out.vlan_tag = *tag;
    out.l2_length = static_cast<uint8_t>(std::min(frame.size(), out.l2_length + kTag));
    if (!type) return false;
    out.ethertype = *type;
  }
  return true;
}

// The ports suffice: the rest of the UDP header may be cut.
bool TakeUdpPorts(Bytes l3, size_t at, ParsedFrame& out) {
  const auto source = BigU16(l3, at), destination = BigU16(l3, at + 2);
  if (!source || !destination) return false;
  out.l4_src_port = *source;
  out.l4_dst_port = *destination;
  return true;
}

uint8_t Ipv4App(Bytes l3, ParsedFrame& out) {
  if (l3.size() < kIpv4Header) return kAppNone;
  const bool first_fragment = (*BigU16(l3, 6) & 0x1FFF) == 0;
  if (!first_fragment) return kAppNone;
  if (l3[9] == kProtocolIcmp) return kAppIcmp;
  if (l3[9] != kProtocolUdp || !TakeUdpPorts(l3, (l3[0] & 0x0Fu) * size_t{4}, out)) return kAppNone;
  return out.l4_dst_port == 67 || out.l4_dst_port == 68 ? kAppDhcp4 : kAppNone;
}

uint8_t Ipv6App(Bytes l3, ParsedFrame& out) {
  if (l3.size() < kIpv6Header) return kAppNone;
  if (l3[6] == kProtocolIcmp6) return kAppIcmp6;
  if (l3[6] != kProtocolUdp || !TakeUdpPorts(l3, kIpv6Header, out)) return kAppNone;
  return out.l4_dst_port == 546 || out.l4_dst_port == 547 ? kAppDhcp6 : kAppNone;
}

}  // namespace

std::string_view AppTypeName(size_t type) {
  switch (type) {
    case kAppArp:
      return "ARP";
    case kAppIcmp:
      return "ICMP";
    case kAppDhcp4:
      return "DHCPv4";
    case kAppIcmp6:
      return "ICMPv6";
    case kAppDhcp6:
      return "DHCPv6";
    default:
      return "other";
  }
}

ParsedFrame ParseFrame(Bytes frame) {
  ParsedFrame out;
  out.l2_length = static_cast<uint8_t>(std::min(frame.size(), kEthernetHeader));
  if (frame.size() < kEthernetHeader) return out;
  std::copy_n(frame.begin(), out.dst_mac.size(), out.dst_mac.begin());
  std::copy_n(frame.begin() + 6, out.src_mac.size(), out.src_mac.begin());
  out.ethertype = *BigU16(frame, kMacs);
  if (!TakeTags(frame, out)) return out;
  const Bytes l3 = frame.subspan(out.l2_length);
  switch (out.ethertype) {
    case kTypeArp:
      out.app_type = kAppArp;
      break;
    case kTypeIpv4:
      out.proto_type = kProtoIpv4;
      out.app_type = Ipv4App(l3, out);
      break;
    case kTypeIpv6:
      out.proto_type = kProtoIpv6;
      out.app_type = Ipv6App(l3, out);
      break;
    default:
      break;
  }
  return out;
}

}  // namespace vex::host
