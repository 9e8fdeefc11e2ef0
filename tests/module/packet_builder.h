// packet_builder.h - frames as the data plane punts them: valid by default, spoiled in one thing on request.
// In:  the few fields a test varies; chained changes of a finished frame. Out: bytes with the attributes that
// the data plane derives from them, as packets in the pool or in heap blocks of exactly their size.
#pragma once

#include <array>
#include <cstdint>
#include <string_view>
#include <vector>

#include "platform/packet.h"

namespace vex::module_test {

using Bytes = std::vector<uint8_t>;
using Mac = std::array<uint8_t, 6>;
using Address6 = std::array<uint8_t, 16>;

inline constexpr Mac kClientMac = {2, 0, 0, 0, 0, 0x0B};  // hashes to 210327058
inline constexpr Mac kRouterMac = {2, 1, 1, 1, 1, 0x01};  // odd but for the first, which tells a group
inline constexpr Mac kBroadcastMac = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
inline constexpr Address6 kUnspecified = {};
inline constexpr Address6 kFe80A = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x0A};  // 2117989581
inline constexpr Address6 kFe80B = {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0x0B};
inline constexpr uint32_t kHashOfClientMac = 210327058;
inline constexpr uint32_t kHashOfFe80A = 2117989581;
inline constexpr std::string_view kMarker = "Quor DHCP lnkprobemarkerz";

inline constexpr uint32_t kAppArp = 1, kAppIcmp = 10, kAppDhcp4 = 17, kAppIcmp6 = 28, kAppDhcp6 = 32;

inline Bytes Join(std::initializer_list<Bytes> parts) {
  Bytes all;
  for (const Bytes& part : parts) all.insert(all.end(), part.begin(), part.end());
  return all;
}
inline Bytes Be16(size_t value) { return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}; }
template <size_t N>
Bytes BytesOf(const std::array<uint8_t, N>& bytes) {
  return {bytes.begin(), bytes.end()};
}
inline Bytes BytesOf(std::string_view text) { return {text.begin(), text.end()}; }

// A frame and what the data plane says about it. Every change answers a changed copy.
struct Frame {
  Bytes bytes;
  platform::PacketAttributes attr;

  size_t L3() const { return attr.l2Length; }
  size_t L4() const { return L3() + (attr.protoType == 1 ? 40 : 20); }

  Frame Byte(size_t at, uint8_t value) const {
    Frame frame = *this;
    frame.bytes.at(at) = value;
    return frame;
  }
  Frame L3Byte(size_t at, uint8_t value) const { return Byte(L3() + at, value); }
  Frame L4Word(size_t at, size_t value) const {
    return Byte(L4() + at, static_cast<uint8_t>(value >> 8)).Byte(L4() + at + 1, static_cast<uint8_t>(value));
  }
  Frame UdpLength(size_t length) const { return L4Word(4, length); }
  Frame Cut(size_t length) const {
    Frame frame = *this;
    frame.bytes.resize(length);
    return frame;
  }
  Frame CutL3(size_t length) const { return Cut(L3() + length); }  // also longer: zeros behind
  template <class Change>
  Frame With(Change change) const {
    Frame frame = *this;
    change(frame.attr);
    return frame;
  }
  Frame Management() const {
    return With([](auto& a) { a.management = 1; });
  }
  Frame Ports(uint16_t source, uint16_t destination) const {
    return L4Word(0, source).L4Word(2, destination).With([=](auto& a) {
      a.l4SrcPort = source;
      a.l4DstPort = destination;
    });
  }
  Frame ToMac(const Mac& mac) const {
    Frame frame = *this;
    frame.attr.dstMac = mac;
    std::copy(mac.begin(), mac.end(), frame.bytes.begin());
    return frame;
  }
  Frame Cause(uint32_t cause) const {
    return With([=](auto& a) { a.causeAction = cause; });
  }
  Frame On(uint32_t ifIndex, uint16_t tag) const {
    return With([=](auto& a) { a.ifIndex = ifIndex, a.vlanTag = tag; });
  }
  Frame FromPeerLink() const {
    return With([](auto& a) { a.appPktType = 2; });
  }
  Frame Marked() const {
    return With([](auto& a) { a.diagSwitch = 1; });
  }

  platform::PacketPtr New() const { return platform::Packets().New(bytes, attr); }
  platform::PacketPtr Exact(uint16_t headroom = 0) const {
    return platform::Packets().NewExact(bytes, attr, headroom);
  }
};

template <class... F>
std::vector<Frame> Frames(const F&... frames) {
  return {frames...};
}

inline Frame Ethernet(uint32_t appType, uint16_t etherType, const Bytes& payload, size_t tags = 0) {
  Frame frame;
  frame.bytes = Join({BytesOf(kBroadcastMac), BytesOf(kClientMac)});
  for (size_t i = 0; i < tags; ++i) frame.bytes = Join({frame.bytes, Be16(0x8100), Be16(i + 2)});
  frame.bytes = Join({frame.bytes, Be16(etherType), payload});
  frame.attr.appType = appType;
  frame.attr.l2Length = static_cast<uint32_t>(14 + 4 * tags);
  frame.attr.protoType = etherType == 0x86DD ? 1 : 0;
  frame.attr.dstMac = kBroadcastMac;
  frame.attr.ifIndex = 7;
  frame.attr.vlanTag = 10;
  return frame;
}

// ---- IPv4 (RFC 791, 792, 826, 2131) ---------------------------------------------------------------------
inline Bytes Ipv4(uint8_t protocol, const Bytes& payload, uint8_t words = 5) {
  Bytes header(words * 4u, 0);
  header[0] = static_cast<uint8_t>(0x40 | words);
  header[2] = static_cast<uint8_t>((header.size() + payload.size()) >> 8);
  header[3] = static_cast<uint8_t>(header.size() + payload.size());
  header[9] = protocol;
  return Join({header, payload});
}

inline Bytes Udp(uint16_t source, uint16_t destination, const Bytes& payload) {
  return Join({Be16(source), Be16(destination), Be16(payload.size() + 8), Be16(0), payload});
}

inline Frame Arp(uint16_t opcode = 2, size_t tags = 0) {
  return Ethernet(kAppArp, 0x0806, Join({{0, 1, 8, 0, 6, 4}, Be16(opcode), Bytes(20, 0)}), tags);
}

inline Frame Echo(uint8_t type, const Bytes& payload, uint8_t words = 5) {
  return Ethernet(kAppIcmp, 0x0800, Ipv4(1, Join({{type}, Bytes(7, 0), payload}), words));
}
inline Frame Probe(std::string_view behindMarker) {
  return Echo(0, Join({BytesOf(kMarker), BytesOf(behindMarker)}));
}

inline Frame Dhcp4(const Mac& chaddr = kClientMac, uint8_t op = 1, size_t tags = 0) {
  const Bytes message = Join({{op, 1, 6, 0}, Bytes(24, 0), BytesOf(chaddr), Bytes(206, 0)});
  const Frame frame = Ethernet(kAppDhcp4, 0x0800, Ipv4(17, Udp(68, 67, message)), tags);
  return frame.Ports(op == 2 ? 67 : 68, op == 2 ? 68 : 67);
}

// ---- IPv6 (RFC 8200, 4861, 8415) ------------------------------------------------------------------------
inline Bytes Ipv6(uint8_t next, const Bytes& payload, const Address6& source) {
  return Join({{0x60, 0, 0, 0}, Be16(payload.size()), {next, 64}, BytesOf(source), Bytes(16, 0xFF), payload});
}

// A neighbour-discovery message: 24 bytes, and the link-layer address option of neighbour messages behind.
inline Frame Nd(uint8_t type, const Address6& source = kFe80A, const Address6& target = kFe80B) {
  const Bytes option = Join({{2, 1}, BytesOf(kClientMac)});
  return Ethernet(kAppIcmp6, 0x86DD, Ipv6(58, Join({{type}, Bytes(7, 0), BytesOf(target), option}), source));
}

inline Bytes Option6(uint16_t code, const Bytes& data) { return Join({Be16(code), Be16(data.size()), data}); }
inline Bytes Message6(uint8_t type, const Bytes& options) { return Join({{type, 1, 2, 3}, options}); }
inline Bytes Relay6(uint8_t type, const Bytes& options) {
  return Join({{type, 0}, Bytes(16, 0xAA), Bytes(16, 0xBB), options});
}
inline Bytes Relayed(const Bytes& inner, uint8_t type = 12) { return Relay6(type, Option6(9, inner)); }
inline Bytes DuidLl(const Mac& mac = kClientMac) { return Join({{0, 3, 0, 1}, BytesOf(mac)}); }
inline Bytes Solicit(const Bytes& duid = DuidLl()) { return Message6(1, Option6(1, duid)); }

inline Frame Dhcp6(const Bytes& message = Solicit(), size_t tags = 0) {
  const Frame frame = Ethernet(kAppDhcp6, 0x86DD, Ipv6(17, Udp(546, 547, message), kFe80A), tags);
  return frame.Ports(546, 547);
}

}  // namespace vex::module_test
