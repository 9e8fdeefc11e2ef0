// channel_test.cpp - which service channel a wanted packet goes to, by packet class, instance count and
// client. In:  valid frames and frames spoiled in one thing. Out: channel numbers; the helpers' pointers and
// lengths.
#include "dhcp_vex_pkt_channel.h"

#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

constexpr uint32_t kNoChannel = 0xFFFFFFFF;
constexpr uint32_t kNdSnooping = 1u << 13;
constexpr Mac kOtherMac = {2, 0, 0, 0, 0, 0x0C};

// djb2 as a sum of powers of 33, which is not how the module computes it.
uint32_t Djb2(const Bytes& key) {
  if (key.empty()) return 0;
  uint32_t power = 1, sum = 0;
  for (size_t i = key.size(); i-- > 0; power *= 33) sum += key[i] * power;
  return (sum + 5381 * power) & 0x7FFFFFFF;
}

class ChannelTest : public ModuleTest {};

TEST_F(ChannelTest, HashOfKnownKeys) {
  EXPECT_EQ(DhcpPktDistributeHashCal(kClientMac.data(), 6), kHashOfClientMac);
  EXPECT_EQ(DhcpPktDistributeHashCal(kFe80A.data(), 16), kHashOfFe80A);
  EXPECT_EQ(DhcpPktDistributeHashCal(kUnspecified.data(), 2), 5859909u);
  EXPECT_EQ(DhcpPktDistributeHashCal(kUnspecified.data(), 6), 132056261u);
  EXPECT_EQ(DhcpPktDistributeHashCal(nullptr, 6), 0u);
  EXPECT_EQ(DhcpPktDistributeHashCal(kClientMac.data(), 0), 0u);
  Bytes key;
  for (size_t length = 1; length <= 300; ++length) {
    key.push_back(static_cast<uint8_t>(length * 151));
    EXPECT_EQ(DhcpPktDistributeHashCal(key.data(), static_cast<uint32_t>(length)), Djb2(key));
  }
}

TEST_F(ChannelTest, OneInstanceUsesThePacketTypeWhateverThePacketHolds) {
  SetSwitches(kNdSnooping);
  for (uint32_t n : {0u, 5u, 7u, 0xFFFF'FFFFu}) {
    SetInstances(n);
    for (const Frame& frame : {Probe("3"), Arp(), Dhcp4(), Dhcp6(), Nd(133), Dhcp4().CutL3(3)}) {
      const PacketPtr packet = frame.New();
      EXPECT_EQ(DhcpPktGetChnID(packet.get(), 0), 0u);
      EXPECT_EQ(DhcpPktGetChnID(packet.get(), 1), 1u);
      EXPECT_EQ(DhcpPktGetChnID(packet.get(), 2), 2u);
      EXPECT_EQ(DhcpPktGetChnID(packet.get(), 12), 0u);
    }
  }
}

TEST_F(ChannelTest, EveryIdentityOfAClientReachesItsInstance) {
  const Bytes mac = BytesOf(kClientMac), other = BytesOf(kOtherMac), byA = BytesOf(kFe80A);
  const Bytes duidLlt = Join({{0, 1, 0, 1, 9, 9, 9, 9}, mac}), duidEn = {0, 2, 0, 0, 0, 9, 1, 2, 3};
  const Frame relayedReply = Dhcp6(Relayed(Message6(7, Option6(1, DuidLl())), 13));
  const Frame fromNone = Nd(135, kUnspecified);
  const struct {
    const char* name;
    Frame frame;
    uint32_t pktType, switches;
    uint32_t first;  // channel of instance 0
    Bytes key;
  } cases[] = {
      {"DHCPv4", Dhcp4(), 2, 0, 3, mac},
      {"DHCPv4 of another client", Dhcp4(kOtherMac), 2, 0, 3, other},
      {"DHCPv4 behind two tags", Dhcp4(kClientMac, 1, 2), 2, 0, 3, mac},
      {"DHCPv4 with another hardware length", Dhcp4().L3Byte(28 + 2, 16), 2, 0, 3, mac},
      {"DUID-LL", Dhcp6(), 2, 0, 3, mac},
      {"DUID-LLT", Dhcp6(Solicit(duidLlt)), 2, 0, 3, mac},
      {"DUID-EN", Dhcp6(Solicit(duidEn)), 2, 0, 3, {1, 2, 3}},
      {"relayed reply", relayedReply, 2, 0, 3, mac},
      {"no client id", Dhcp6(Message6(1, Option6(2, DuidLl()))), 2, 0, 3, {}},
      {"relay message without an inner one", Dhcp6(Relay6(12, Option6(18, DuidLl()))), 2, 0, 3, {}},
      {"advertisement, DHCPv6 snooping", Nd(136), 12, 0, 7, mac},
      {"any type, DHCPv6 snooping", Nd(1), 12, 0, 7, mac},
      {"advertisement, ND snooping", Nd(136), 12, kNdSnooping, 7, byA},
      {"solicitation, ND snooping", Nd(135), 12, kNdSnooping, 7, byA},
      {"solicitation from ::", fromNone, 12, kNdSnooping, 7, BytesOf(kFe80B)},
      {"advertisement from ::", Nd(136, kUnspecified), 12, kNdSnooping, 7, BytesOf(kUnspecified)},
      {"solicitation from ::1", fromNone.L3Byte(23, 1), 12, kNdSnooping, 7, Join({Bytes(15, 0), {1}})},
  };
  for (const auto& c : cases) {
    const PacketPtr packet = c.frame.New();
    SetSwitches(c.switches);
    for (uint32_t n = 1; n <= 4; ++n) {
      SetInstances(n);
      EXPECT_EQ(DhcpPktGetChnID(packet.get(), c.pktType), c.first + Djb2(c.key) % n) << c.name << ", " << n;
    }
  }
}

TEST_F(ChannelTest, MalformedAndUnhashedPackets) {
  const auto protocol = [](uint32_t p) { return [=](auto& a) { a.protoType = p; }; };
  const auto l2 = [](uint32_t length) { return [=](auto& a) { a.l2Length = length; }; };
  const Frame probe = Probe(""), shorter = Arp().With(l2(255));  // than its L2 header
  const Frame v4AsV6 = Dhcp4().With(protocol(1)).L3Byte(44, 0xFF);
  const Frame fromNone = Nd(135, kUnspecified, kFe80A);
  const uint32_t none = kNoChannel, snooping = kNdSnooping, ofA = 7 + kHashOfFe80A % 3;
  const struct {
    const char* name;
    Frame frame;
    uint32_t pktType, switches, channel;
  } cases[] = {
      {"IPv4 of 19 bytes", Dhcp4().CutL3(19), 2, 0, 2},
      {"no whole UDP header", Dhcp4().CutL3(27), 2, 0, 2},
      {"IPv6 of 39 bytes", Dhcp6().CutL3(39), 2, 0, 2},
      {"neither IPv4 nor IPv6", Dhcp4().With(protocol(2)), 2, 0, 2},
      {"IPv4 taken for IPv6: UDP length out of the message", v4AsV6, 2, 0, 2},
      {"shorter than its L2 header", shorter, 2, 0, 2},
      {"shorter than its L2 header, ND", shorter, 12, snooping, none},
      {"shorter than its L2 header, DHCPv6 snooping", shorter, 12, 0, none},
      {"shorter than its L2 header, probe", shorter, 0, 0, none},
      {"L2 length cut to 8 bits", Dhcp6().With(l2(0x10E)), 2, 0, 4},
      {"ARP", Arp(), 1, 0, 1},
      {"router solicitation", Nd(133), 12, snooping, 14},
      {"router advertisement with nothing behind its type", Nd(134).CutL3(41), 12, snooping, 14},
      {"redirect", Nd(137), 12, snooping, none},
      {"no type byte", Nd(136).CutL3(40), 12, snooping, none},
      {"advertisement of 41 bytes", Nd(136).CutL3(41), 12, snooping, ofA},
      {"solicitation from :: of 63 bytes", fromNone.CutL3(63), 12, snooping, none},
      {"solicitation from :: of 64 bytes", fromNone.CutL3(64), 12, snooping, ofA},
      {"DHCPv6 snooping, 39 bytes", Nd(136).CutL3(39), 12, 0, none},
      {"DHCPv6 snooping, 63 bytes", Nd(136).CutL3(63), 12, 0, none},
      {"DHCPv6 snooping, 64 bytes", Nd(136).CutL3(64), 12, 0, none},
      {"DHCPv6 snooping, 71 bytes", Nd(136).CutL3(71), 12, 0, none},
      {"DHCPv6 snooping, 72 bytes", Nd(136).CutL3(72), 12, 0, 8},
      {"probe of 52 bytes", probe.CutL3(52), 0, 0, none},
      {"probe of 53 bytes", probe.CutL3(53), 0, 0, 0},
      {"probe of 155 bytes", Probe("4").CutL3(155), 0, 0, 10},
      {"probe of 156 bytes", Probe("4").CutL3(156), 0, 0, none},
      {"probe with the last marker byte wrong", Probe("4").L3Byte(52, 'Z'), 0, 0, none},
      {"probe with the first marker byte wrong", Probe("4").L3Byte(28, 'q'), 0, 0, none},
      {"probe with something else behind", Probe("x1"), 0, 0, 0},
      {"probe with '/', below the digits", Probe("/"), 0, 0, 0},
      {"probe with ':', above the digits", Probe(":"), 0, 0, 0},
      {"marker behind IPv4 options", Echo(0, BytesOf(kMarker), 6), 0, 0, none},
  };
  SetInstances(3);
  for (const auto& c : cases) {
    SetSwitches(c.switches);
    const PacketPtr packet = c.frame.Exact();
    EXPECT_EQ(DhcpPktGetChnID(packet.get(), c.pktType), c.channel) << c.name;
  }
}

TEST_F(ChannelTest, ProbeDigitsNameChannels) {
  SetInstances(2);
  for (char digit = '0'; digit <= '9'; ++digit) {
    const PacketPtr packet = Probe(std::string(1, digit) + "7").New();
    const auto value = static_cast<uint32_t>(digit - '0');
    EXPECT_EQ(DhcpGetInstFromIcmpPkt(packet.get()), value);
    EXPECT_EQ(DhcpPktGetIcmpChnID(packet.get()), value == 0 ? 0 : value + 6);
  }
  EXPECT_EQ(DhcpGetInstFromIcmpPkt(Echo(0, Bytes(40, 'z')).New().get()), kNoChannel);
  EXPECT_EQ(DhcpPktGetIcmpChnID(Echo(0, Bytes(40, 'z')).New().get()), kNoChannel);
}

// Called directly, the functions take the count as it is; only a count of 0 has an answer of its own.
TEST_F(ChannelTest, DirectCallsWithOtherInstanceCounts) {
  const PacketPtr v4 = Dhcp4().New(), v6 = Dhcp6().New(), nd = Nd(136).New(), rs = Nd(133).New();
  for (uint32_t n : {5u, 7u, 0x8000'0001u}) {
    SetInstances(n);
    EXPECT_EQ(DhcpPktGetDhcpChnID(v4.get()), 3 + kHashOfClientMac % n);
    EXPECT_EQ(DhcpPktGetDhcpChnID(v6.get()), 3 + kHashOfClientMac % n);
    EXPECT_EQ(DhcpPktGetIcmpv6ChnIDNdSnp(nd.get()), 7 + kHashOfFe80A % n);
    EXPECT_EQ(DhcpPktGetIcmpv6ChnIDDhcpv6Snp(nd.get()), 7 + kHashOfClientMac % n);
  }
  SetInstances(0);
  EXPECT_EQ(DhcpPktGetDhcpChnID(v4.get()), 2u);
  EXPECT_EQ(DhcpPktGetDhcpChnID(v6.get()), 2u);
  EXPECT_EQ(DhcpPktGetIcmpv6ChnIDNdSnp(nd.get()), kNoChannel);
  EXPECT_EQ(DhcpPktGetIcmpv6ChnIDDhcpv6Snp(nd.get()), kNoChannel);
  EXPECT_EQ(DhcpPktGetIcmpv6ChnIDNdSnp(rs.get()), 14u);
}

TEST_F(ChannelTest, NoDataBuffer) {
  SetInstances(3);
  const PacketPtr packet = platform::Packets().NewWithoutBuffer(Dhcp6().attr);
  packet->dataLen = 500;  // a length without the bytes
  for (const auto& [pktType, switches, channel] : std::initializer_list<std::array<uint32_t, 3>>{
           {2, 0, 2}, {12, 0, kNoChannel}, {12, kNdSnooping, kNoChannel}, {0, 0, kNoChannel}}) {
    SetSwitches(switches);
    EXPECT_EQ(DhcpPktGetChnID(packet.get(), pktType), channel);
  }
  packet->dataLen = 0;
}

// A header that is not there leaves the length untouched, unless it is the version that is unknown.
TEST_F(ChannelTest, HeadersAndTheirLengths) {
  const struct {
    const char* name;
    Frame frame;
    bool found;
    uint32_t length;  // written, or 77 when untouched
  } cases[] = {
      {"IPv4", Dhcp4(), true, 248},
      {"IPv6", Dhcp6(), true, 26},
      {"IPv4 of exactly its header", Dhcp4().CutL3(20), true, 0},
      {"IPv4 too short", Dhcp4().CutL3(19), false, 77},
      {"IPv6 of exactly its header", Dhcp6().CutL3(40), true, 0},
      {"IPv6 too short", Dhcp6().CutL3(39), false, 77},
      {"neither", Dhcp4().With([](auto& a) { a.protoType = 7; }), false, 268},
      {"neither, with nothing behind L2", Dhcp4().CutL3(0).With([](auto& a) { a.protoType = 7; }), false, 0},
      {"shorter than L2", Dhcp4().Cut(13), false, 77},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const PacketPtr packet = c.frame.New();
    uint32_t length = 77;
    EXPECT_EQ(DhcpVexGetUdpHead(packet.get(), &length), c.found ? packet->Data() + c.frame.L4() : nullptr);
    EXPECT_EQ(length, c.length);
  }
  const PacketPtr shorter = Arp().Cut(13).New(), noBuffer = platform::Packets().NewWithoutBuffer({});
  uint32_t length = 77;
  EXPECT_EQ(DhcpVexGetIpHead(shorter.get(), &length), nullptr);
  EXPECT_EQ(DhcpVexGetUdpHead(noBuffer.get(), &length), nullptr);
  EXPECT_EQ(length, 77u);
  EXPECT_EQ(DhcpVexGetIpHead(noBuffer.get(), &length), nullptr);  // as the framework locates it
  EXPECT_EQ(length, 0u);
  const PacketPtr tagged = Arp(2, 1).New();
  EXPECT_EQ(DhcpVexGetIpHead(tagged.get(), &length), tagged->Data() + 18);
  EXPECT_EQ(length, 28u);
}

TEST_F(ChannelTest, Dhcp4KeyIsSixBytesOfTheHardwareAddress) {
  const PacketPtr packet = Dhcp4().New();
  uint8_t* key = nullptr;
  uint32_t length = 0;
  DhcpGetChaddr(packet->Data() + Dhcp4().L4(), &key, &length);
  EXPECT_EQ(Bytes(key, key + length), BytesOf(kClientMac));
}

}  // namespace
}  // namespace vex::module_test
