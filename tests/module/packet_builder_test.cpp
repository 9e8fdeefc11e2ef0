// packet_builder_test.cpp - the builders themselves: what they call valid is valid, a change changes one
// thing. In:  frames. Out: offsets, lengths and fields read by hand, as the RFCs have them.
#include <gtest/gtest.h>

#include "tests/module/packet_builder.h"

namespace vex::module_test {
namespace {

using platform::PacketPtr;

uint32_t At16(const Frame& frame, size_t at) { return frame.bytes.at(at) << 8 | frame.bytes.at(at + 1); }

TEST(PacketBuilder, LengthsAgreeWithTheBytes) {
  const struct {
    const char* name;
    Frame frame;
    size_t size;
  } cases[] = {
      {"DHCPv4", Dhcp4(), 14 + 20 + 8 + 240},
      {"DHCPv4 with two tags", Dhcp4(kClientMac, 1, 2), 290},
      {"DHCPv6", Dhcp6(), 14 + 40 + 8 + 4 + 14},
      {"relayed DHCPv6", Dhcp6(Relayed(Solicit())), 14 + 48 + 56},
      {"ARP", Arp(), 14 + 28},
      {"ND", Nd(136), 14 + 40 + 32},
      {"probe", Probe("3"), 14 + 20 + 8 + 26},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const Frame& f = c.frame;
    EXPECT_EQ(f.bytes.size(), c.size);
    if (f.attr.appType == kAppArp) continue;
    const bool v6 = f.attr.protoType == 1;
    EXPECT_EQ(f.bytes.at(f.L3()) >> 4, v6 ? 6 : 4);
    EXPECT_EQ(At16(f, f.L3() + (v6 ? 4 : 2)) + (v6 ? 40 : 0), f.bytes.size() - f.L3());
    if (f.attr.l4DstPort != 0) {
      EXPECT_EQ(At16(f, f.L4() + 2), f.attr.l4DstPort);
      EXPECT_EQ(At16(f, f.L4() + 4), f.bytes.size() - f.L4());
    }
  }
}

TEST(PacketBuilder, KeysStandWhereTheProtocolsPutThem) {
  const Bytes mac = BytesOf(kClientMac);
  const auto part = [](const Frame& f, size_t at, size_t count) {
    return Bytes(f.bytes.begin() + static_cast<ptrdiff_t>(at),
                 f.bytes.begin() + static_cast<ptrdiff_t>(at + count));
  };
  EXPECT_EQ(part(Dhcp4(), 14 + 20 + 8 + 28, 6), mac);
  EXPECT_EQ(part(Dhcp6(), 14 + 40 + 8 + 4 + 4 + 4, 6),
            mac);  // message, option header, DUID type and hardware
  EXPECT_EQ(part(Dhcp6(Relayed(Solicit())), 14 + 40 + 8 + 34 + 4 + 12, 6), mac);
  EXPECT_EQ(part(Nd(136), 14 + 66, 6), mac);
  EXPECT_EQ(part(Nd(136), 14 + 8, 16), BytesOf(kFe80A));
  EXPECT_EQ(part(Nd(135), 14 + 48, 16), BytesOf(kFe80B));
  EXPECT_EQ(part(Probe("3"), 14 + 28, 26), Join({BytesOf(kMarker), {'3'}}));
  EXPECT_EQ(At16(Arp(1), 14 + 6), 1u);
}

TEST(PacketBuilder, AChangeSpoilsOneThing) {
  const Frame good = Dhcp4();
  const auto differing = [&](const Frame& f) {
    size_t count = 0;
    for (size_t i = 0; i < good.bytes.size(); ++i) count += f.bytes.at(i) != good.bytes[i];
    return count;
  };
  EXPECT_EQ(differing(good.UdpLength(0x0101)), 2u);
  EXPECT_EQ(differing(good.L3Byte(0, 0x46)), 1u);
  EXPECT_EQ(differing(good.Management()), 0u);
  EXPECT_EQ(differing(good.Ports(67, 67)), 1u);
  EXPECT_EQ(good.Ports(67, 67).attr.l4SrcPort, 67u);
  EXPECT_EQ(good.CutL3(5).bytes.size(), 19u);
  EXPECT_EQ(good.CutL3(5).attr.l2Length, 14u);
  EXPECT_EQ(differing(good.ToMac(kRouterMac)), 6u);
}

TEST(PacketBuilder, AnExactPacketEndsWhereItsBlockEnds) {
  const PacketPtr packet = Arp().Exact(24);
  EXPECT_EQ(packet->bufLen, 24 + packet->dataLen);
  EXPECT_EQ(Bytes(packet->Bytes().begin(), packet->Bytes().end()), Arp().bytes);
}

}  // namespace
}  // namespace vex::module_test
