// data_plane_test.cpp - what the data plane makes of a frame, and frames cut at every length.
#include "host/data_plane.h"

#include <gtest/gtest.h>

#include <memory>

#include "tests/host/frame_builder.h"

namespace vex::host {
namespace {

using namespace testing;

struct Case {
  const char* name;
  Bytes frame;
  uint8_t app_type;
  uint8_t l2_length = 14;
  uint16_t vlan_tag = 0;
};

const Bytes kUdp67 = Udp(68, 67, {});
const Bytes kUdp547 = Udp(546, 547, {});

std::vector<Case> Cases() {
  return {
      {"ARP needs no body", Ethernet(0x0806, {}), kAppArp},
      {"ARP in one tag", Ethernet(0x0806, {}, {{0x8100, 0x6064}}), kAppArp, 18, 0x6064},
      {"outer tag is the VLAN", Ethernet(0x0806, {}, {{0x88A8, 200}, {0x8100, 100}}), kAppArp, 22, 200},
      {"tags in the other order", Ethernet(0x0806, {}, {{0x8100, 5}, {0x88A8, 6}}), kAppArp, 22, 5},
      {"third tag", Ethernet(0x0806, {}, {{0x8100, 5}, {0x8100, 6}, {0x8100, 7}}), kAppNone, 22, 5},
      {"other tag type", Ethernet(0x0806, {}, {{0x9100, 5}}), kAppNone},
      {"length instead of a type", Ethernet(0x0100, Ipv4({}, kUdp67)), kAppNone},
      {"IPv4 ICMP", Ethernet(0x0800, Ipv4({.protocol = 1}, {})), kAppIcmp},
      {"DHCPv4 request", Ethernet(0x0800, Ipv4({}, kUdp67)), kAppDhcp4},
      {"DHCPv4 reply", Ethernet(0x0800, Ipv4({}, Udp(67, 68, {}))), kAppDhcp4},
      {"source port 67 does not count", Ethernet(0x0800, Ipv4({}, Udp(67, 1000, {}))), kAppNone},
      {"DHCPv6 ports in IPv4", Ethernet(0x0800, Ipv4({}, kUdp547)), kAppNone},
      {"IPv4 TCP to port 67", Ethernet(0x0800, Ipv4({.protocol = 6}, kUdp67)), kAppNone},
      {"ports behind IPv4 options", Ethernet(0x0800, Ipv4({.first = 0x4F}, kUdp67)), kAppDhcp4},
      {"version nibble is not looked at", Ethernet(0x0800, Ipv4({.first = 0x65}, kUdp67)), kAppDhcp4},
      {"header length below 20: ports where it says", Ethernet(0x0800, Ipv4({.first = 0x44}, kUdp67)),
       kAppNone},
      {"first fragment", Ethernet(0x0800, Ipv4({.fragment = 0x2000}, kUdp67)), kAppDhcp4},
      {"later fragment", Ethernet(0x0800, Ipv4({.fragment = 1}, kUdp67)), kAppNone},
      {"later ICMP fragment", Ethernet(0x0800, Ipv4({.protocol = 1, .fragment = 0x1FFF}, {})), kAppNone},
      {"four port bytes suffice", Ethernet(0x0800, Ipv4({}, Bytes{0, 68, 0, 67})), kAppDhcp4},
      {"three port bytes do not", Ethernet(0x0800, Ipv4({}, Bytes{0, 68, 0})), kAppNone},
      {"IPv6 in an IPv4 ethertype", Ethernet(0x0800, Ipv6(17, kUdp547)), kAppNone},
      {"ICMPv6", Ethernet(0x86DD, Ipv6(58, {})), kAppIcmp6},
      {"DHCPv6 request", Ethernet(0x86DD, Ipv6(17, kUdp547)), kAppDhcp6},
      {"DHCPv6 reply", Ethernet(0x86DD, Ipv6(17, Udp(547, 546, {}))), kAppDhcp6},
      {"IPv6 version is not looked at", Ethernet(0x86DD, Ipv6(58, {}, 4)), kAppIcmp6},
      {"ICMPv6 behind an extension header", Ethernet(0x86DD, Ipv6(0, {58, 0, 0, 0, 0, 0, 0, 0})), kAppNone},
      {"DHCPv4 ports in IPv6", Ethernet(0x86DD, Ipv6(17, kUdp67)), kAppNone},
      {"DHCPv6 in two tags", Ethernet(0x86DD, Ipv6(17, kUdp547), {{0x88A8, 0xF001}, {0x8100, 2}}), kAppDhcp6,
       22, 0xF001},
  };
}

TEST(DataPlane, ApplicationTypeL2LengthAndTag) {
  for (const Case& c : Cases()) {
    const ParsedFrame parsed = ParseFrame(c.frame);
    EXPECT_EQ(parsed.app_type, c.app_type) << c.name;
    EXPECT_EQ(parsed.l2_length, c.l2_length) << c.name;
    EXPECT_EQ(parsed.vlan_tag, c.vlan_tag) << c.name;
  }
}

TEST(DataPlane, AddressesPortsAndProtocol) {
  const ParsedFrame parsed = ParseFrame(Dhcp6Solicit(9));
  EXPECT_EQ(parsed.src_mac, (MacAddress{2, 0, 0, 0, 0, 9}));
  EXPECT_EQ(parsed.dst_mac, (MacAddress{255, 255, 255, 255, 255, 255}));
  EXPECT_EQ(parsed.l4_src_port, 546);
  EXPECT_EQ(parsed.l4_dst_port, 547);
  EXPECT_EQ(parsed.proto_type, kProtoIpv6);
  EXPECT_EQ(ParseFrame(Dhcp4Request()).proto_type, kProtoIpv4);
  EXPECT_EQ(ParseFrame(ArpReply()).proto_type, kProtoOther);
  EXPECT_EQ(ParseFrame(Ethernet(0x0800, {})).proto_type, kProtoIpv4) << "the ethertype alone decides";
}

// The shortest prefix that is recognised, and everything below: no read leaves the block (address sanitizer).
TEST(DataPlane, CutAtEveryLength) {
  struct Cut {
    Bytes frame;
    size_t recognised_from;
  };
  const std::initializer_list<Tag> two = {{0x88A8, 1}, {0x8100, 2}};
  for (const Cut& cut : {Cut{Dhcp4Request(), 14 + 20 + 4}, Cut{Dhcp4Request(1, two), 22 + 20 + 4},
                         Cut{Dhcp6Solicit(), 14 + 40 + 4}, Cut{RouterSolicit(), 14 + 40}, Cut{ArpReply(), 14},
                         Cut{Ethernet(0x0800, Ipv4({.first = 0x4F}, kUdp67)), 14 + 60 + 4},
                         Cut{Ethernet(0x0800, Ipv4({.protocol = 1}, kUdp67)), 14 + 20}}) {
    for (size_t length = 0; length <= cut.frame.size(); ++length) {
      const auto block = std::make_unique<uint8_t[]>(length);
      std::copy_n(cut.frame.begin(), length, block.get());
      const ParsedFrame parsed = ParseFrame({block.get(), length});
      EXPECT_EQ(parsed.app_type != kAppNone, length >= cut.recognised_from) << length;
      EXPECT_LE(parsed.l2_length, length);
    }
  }
}

}  // namespace
}  // namespace vex::host
