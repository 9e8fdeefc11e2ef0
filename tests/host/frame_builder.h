// frame_builder.h - Ethernet frames for the tests, from the inside out; every length and tag can be made
// wrong. In:  payloads and the few fields a test varies. Out: bytes.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <vector>

namespace vex::host::testing {

using Bytes = std::vector<uint8_t>;

inline Bytes operator+(Bytes left, const Bytes& right) {
  left.insert(left.end(), right.begin(), right.end());
  return left;
}

inline Bytes Big16(uint32_t value) { return {static_cast<uint8_t>(value >> 8), static_cast<uint8_t>(value)}; }

struct Tag {
  uint16_t type;  // 0x8100 or 0x88A8
  uint16_t word;
};

inline Bytes Ethernet(uint16_t ethertype, const Bytes& payload, std::initializer_list<Tag> tags = {},
                      uint8_t station = 1) {
  Bytes frame{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 2, 0, 0, 0, 0, station};
  for (const Tag& tag : tags) frame = frame + Big16(tag.type) + Big16(tag.word);
  return frame + Big16(ethertype) + payload;
}

struct Ip4 {
  uint8_t protocol = 17;
  uint8_t first = 0x45;  // version and header length
  uint16_t fragment = 0;
};
inline Bytes Ipv4(const Ip4& ip, const Bytes& payload) {
  Bytes header(20, 0);
  header[0] = ip.first;
  header[6] = static_cast<uint8_t>(ip.fragment >> 8);
  header[7] = static_cast<uint8_t>(ip.fragment);
  header[9] = ip.protocol;
  const size_t options = (ip.first & 0x0F) > 5 ? ((ip.first & 0x0Fu) - 5) * 4 : 0;
  return header + Bytes(options, 1) + payload;
}

inline Bytes Ipv6(uint8_t next_header, const Bytes& payload, uint8_t version = 6) {
  Bytes header(40, 0);
  header[0] = static_cast<uint8_t>(version << 4);
  header[6] = next_header;
  return header + payload;
}

inline Bytes Udp(uint16_t source, uint16_t destination, const Bytes& payload) {
  return Big16(source) + Big16(destination) + Big16(static_cast<uint32_t>(payload.size() + 8)) + Big16(0) +
         payload;
}

// A BOOTP message; the last byte of the client hardware address is the station.
inline Bytes Bootp(uint8_t op, uint8_t station) {
  Bytes message(240, 0);
  message[0] = op;
  message[1] = 1;
  message[2] = 6;
  message[28] = 2;
  message[33] = station;
  return message;
}

inline Bytes Dhcp4Request(uint8_t station = 1, std::initializer_list<Tag> tags = {}) {
  return Ethernet(0x0800, Ipv4({}, Udp(68, 67, Bootp(1, station))), tags, station);
}

inline Bytes Dhcp6Solicit(uint8_t station = 1) {  // DUID-LL of the station (RFC 8415)
  const Bytes message{1, 0, 0, 1, 0, 1, 0, 10, 0, 3, 0, 1, 2, 0, 0, 0, 0, station};
  return Ethernet(0x86DD, Ipv6(17, Udp(546, 547, message)), {}, station);
}

inline Bytes ArpReply(uint8_t station = 1) {
  Bytes body(28, 0);
  body[7] = 2;
  return Ethernet(0x0806, body, {}, station);
}

inline Bytes RouterSolicit() { return Ethernet(0x86DD, Ipv6(58, Bytes{133, 0, 0, 0, 0, 0, 0, 0})); }

}  // namespace vex::host::testing
