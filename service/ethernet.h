// ethernet.h - Ethernet frames with IPv4 or IPv6 inside, as the service reads and makes them.
// In:  the bytes of a frame as it was punted, from its L2 header on. Out: its addresses and its UDP or ICMPv6
// payload, or nothing when it is cut short, a fragment or something else. Checksums are not verified: frames
// are forwarded unchanged, and whoever receives them verifies.
#pragma once

#include <optional>

#include "service/address.h"

namespace vex::service {

inline constexpr uint16_t kEthertypeIp4 = 0x0800;
inline constexpr uint16_t kEthertypeIp6 = 0x86DD;
inline constexpr uint8_t kProtocolUdp = 17;
inline constexpr uint8_t kProtocolIcmp6 = 58;

struct Frame {
  MacAddress dst{};
  MacAddress src{};
  uint8_t tags = 0;        // IEEE 802.1Q and 802.1ad tags in front of the ethertype, 0 to 3
  uint16_t ethertype = 0;  // behind the tags
  IpAddress ip_src;
  IpAddress ip_dst;
  uint8_t protocol = 0;   // of the payload, behind any IPv6 extension headers
  uint16_t src_port = 0;  // UDP only, host byte order
  uint16_t dst_port = 0;
  Bytes payload;  // UDP: behind the UDP header, as far as its length field says; else the IP payload
};

// Nothing unless the frame holds a whole, unfragmented IPv4 or IPv6 packet; for UDP also its whole datagram.
std::optional<Frame> ParseFrame(Bytes frame);

// A UDP datagram in an untagged frame; the addresses' version decides between IPv4 and IPv6.
struct Datagram {
  MacAddress dst{};
  MacAddress src{};
  IpAddress ip_src;
  IpAddress ip_dst;
  uint16_t src_port = 0;
  uint16_t dst_port = 0;
  Bytes payload;
};
// The tags of `like`, if any, are repeated, so that an answer stays in its VLAN.
std::vector<uint8_t> BuildFrame(const Datagram& datagram, Bytes like = {});

}  // namespace vex::service
