// known_defects_test.cpp - classes of defects that DHCP code elsewhere has had, one test each, through the
// hook. In:  frames in heap blocks of exactly their size. Out: the channel that the client's identity, or its
// absence, leads to; a read behind a packet stops the address sanitizer, a packet lost or kept the fixture's
// audit.
#include "dhcp_vex_pkt.h"
#include "dhcp_vex_pkt_channel.h"
#include "dhcp_vex_rate_limit_peerlink.h"
#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

constexpr uint32_t kEverySwitch = 0xFFFF;
constexpr uint32_t kInstances = 3;
constexpr size_t kMalformed = 2;                               // the channel of what has no datagram
constexpr size_t kFirst = 3;                                   // and of a datagram without an identity
constexpr size_t kClient = 3 + kHashOfClientMac % kInstances;  // of kClientMac
static_assert(kClient != kFirst, "the identity has to show");

class KnownDefects : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    SetSwitches(kEverySwitch);
    SetInstances(kInstances);
  }
  void TearDown() override {
    SetInstances(0);
    ModuleTest::TearDown();
  }

  // The channels that hold the frame after it was offered, 24 bytes of header in front of it.
  std::vector<size_t> Offer(const Frame& frame) {
    PacketPtr packet = frame.Exact(24);
    verdict_ = DhcpHostHookCallback(packet.get());
    if (verdict_ == kTaken) static_cast<void>(packet.release());
    std::vector<size_t> reached;
    for (size_t channel = 0; channel < ports_.channels.size(); ++channel) {
      for (Bytes got = Next(channel); !got.empty(); got = Next(channel)) {
        reached.push_back(channel);
        EXPECT_EQ(Bytes(got.begin() + 24, got.end()), frame.bytes);
      }
    }
    return reached;
  }
  struct Case {
    const char* name;
    Frame frame;
    std::vector<size_t> channels;
  };
  void Check(const std::vector<Case>& cases) {
    for (const Case& c : cases) EXPECT_EQ(Offer(c.frame), c.channels) << c.name;
  }

  static constexpr uint32_t kTaken = 0x1000000;
  uint32_t verdict_ = 0;
};

// An option with a length of its own choosing in front of the bytes.
Bytes Lying(uint16_t code, size_t length, const Bytes& data) {
  return Join({Be16(code), Be16(length), data});
}

TEST_F(KnownDefects, OptionLengthPastTheBufferInARelayedMessage) {
  const Bytes id = DuidLl();
  Check({
      {"the client id", Dhcp6(Relayed(Message6(1, Lying(1, id.size() + 1, id)))), {kFirst}},
      {"an option in front of it",
       Dhcp6(Relayed(Message6(1, Join({Lying(8, 200, {0, 1}), Option6(1, id)})))),
       {kFirst}},
      {"the relay message", Dhcp6(Relay6(12, Lying(9, Solicit().size() + 1, Solicit()))), {kFirst}},
      {"the inner relay message", Dhcp6(Relayed(Relay6(13, Lying(9, 0xFFFF, Solicit())))), {kFirst}},
      {"the same, told the truth", Dhcp6(Relayed(Relay6(13, Option6(9, Solicit())))), {kClient}},
  });
}

TEST_F(KnownDefects, OverLongClientId) {
  for (const size_t length : {130u, 131u, 255u, 256u, 1400u, 8000u}) {
    const Bytes tail(length, 0x5A);
    const size_t byContent =
        3 + DhcpPktDistributeHashCal(tail.data(), static_cast<uint32_t>(length)) % kInstances;
    Check({
        {"link layer: its first six bytes", Dhcp6(Solicit(Join({DuidLl(), tail}))), {kClient}},
        {"enterprise: all behind the number", Dhcp6(Solicit(Join({{0, 2, 0, 0, 0, 9}, tail}))), {byContent}},
        {"DHCPv4: the hardware address", Dhcp4().CutL3(28 + 240 + length), {kClient}},
    });
  }
}

TEST_F(KnownDefects, UdpLengthLargerOrSmallerThanTheFrame) {
  for (const Frame& frame : {Dhcp4(), Dhcp6()}) {
    const size_t whole = frame.bytes.size() - frame.L4();
    const bool v6 = frame.attr.protoType == 1;
    Check({
        {"larger by one", frame.UdpLength(whole + 1), {kMalformed}},
        {"65535", frame.UdpLength(0xFFFF), {kMalformed}},
        {"all of it", frame, {kClient}},
        {"up to the identity", frame.UdpLength(v6 ? 26 : 42), {kClient}},
        {"into the identity", frame.UdpLength(v6 ? 25 : 41), {v6 ? kFirst : kMalformed}},
        {"no data", frame.UdpLength(8), {v6 ? kFirst : kMalformed}},
        {"less than its header", frame.UdpLength(7), {v6 ? kFirst : kMalformed}},
        {"0", frame.UdpLength(0), {v6 ? kFirst : kMalformed}},
    });
  }
}

TEST_F(KnownDefects, RelayNestedTo255Levels) {
  Bytes message = Solicit();
  for (size_t level = 1; level <= 255; ++level) message = Relayed(message, level % 2 == 0 ? 13 : 12);
  const Frame deep = Dhcp6(message);
  Check({{"whole", deep, {kClient}}});
  for (size_t cut = 1; cut < 60; ++cut) {
    const size_t length = deep.bytes.size() - cut;
    Check({{"cut at the innermost", deep.Cut(length).UdpLength(length - deep.L4()), {kFirst}}});
  }
}

TEST_F(KnownDefects, OptionLength0And65535) {
  const Bytes id = Option6(1, DuidLl());
  Check({
      {"0 in front of the client id", Dhcp6(Message6(1, Join({Lying(14, 0, {}), id}))), {kClient}},
      {"a chain of them", Dhcp6(Message6(1, Join({Bytes(4 * 300, 0), id}))), {kClient}},
      {"client id of no bytes", Dhcp6(Message6(1, Join({Lying(1, 0, {}), id}))), {kFirst}},
      {"relay message of no bytes", Dhcp6(Relay6(12, Join({Lying(9, 0, {}), id}))), {kFirst}},
      {"65535 in front of the client id", Dhcp6(Message6(1, Join({Lying(14, 0xFFFF, {}), id}))), {kFirst}},
      {"client id of 65535", Dhcp6(Message6(1, Lying(1, 0xFFFF, DuidLl()))), {kFirst}},
      {"relay message of 65535", Dhcp6(Relay6(12, Lying(9, 0xFFFF, Solicit()))), {kFirst}},
  });
}

TEST_F(KnownDefects, TruncatedOptionHeaderAtTheEnd) {
  const Bytes id = Option6(1, DuidLl()), other = Option6(8, {0, 0});
  for (const Bytes& stump : {Bytes{0}, Bytes{0, 1}, Bytes{0, 1, 0}, Bytes{0, 9, 0}}) {
    Check({
        {"behind the client id", Dhcp6(Message6(1, Join({id, stump}))), {kClient}},
        {"behind another option", Dhcp6(Message6(1, Join({other, stump}))), {kFirst}},
        {"in a relay", Dhcp6(Relay6(12, Join({other, stump}))), {kFirst}},
        {"in a relayed message", Dhcp6(Relayed(Message6(1, Join({other, stump})))), {kFirst}},
    });
  }
}

// The header of DHCPv4 is taken for 20 bytes long: what follows them is read as UDP, and never behind the
// packet.
TEST_F(KnownDefects, Ipv4Options) {
  const Frame plain = Dhcp4();
  const Bytes udp(plain.bytes.begin() + static_cast<ptrdiff_t>(plain.L4()), plain.bytes.end());
  const auto with = [&udp](uint8_t words) {
    return Ethernet(kAppDhcp4, 0x0800, Ipv4(17, udp, words)).With([](auto& a) { a.l4DstPort = 67; });
  };
  // One option, as a router alert is: the source port reads as length, the client as four bytes of the relay
  // agent and its own first two.
  Check({{"one word of options", with(6), Offer(Dhcp4({0, 0, 0, 0, kClientMac[0], kClientMac[1]}))}});
  for (uint8_t words = 7; words <= 15; ++words) {  // the length field lies in the options
    Frame frame = with(words);
    Check({{"options that read as UDP length 0", frame, {kMalformed}}});
    frame = frame.UdpLength(0xFFFF);
    Check({{"options that read as UDP length 65535", frame, {kMalformed}}});
    Check({{"nothing behind the options", frame.CutL3(words * 4u), {kMalformed}}});
    Check({{"echo reply with options", Echo(0, Join({BytesOf(kMarker), {'1'}}), words), {}}});
  }
  for (uint8_t words = 0; words < 5; ++words) {
    const Frame lying = Probe("1").L3Byte(0, static_cast<uint8_t>(0x40 | words));
    Offer(lying);  // its type is read from the header, which may or may not look like an echo reply
    EXPECT_EQ(verdict_, 0u);
  }
}

// The header of DHCPv6 is taken for 40 bytes long, whatever extension headers stand behind it.
TEST_F(KnownDefects, Ipv6ExtensionHeaders) {
  const Bytes udp = Udp(546, 547, Solicit());
  for (const uint8_t next : Bytes{0, 43, 44, 50, 51, 60, 135}) {
    for (const uint8_t length : Bytes{0, 1, 255}) {
      const Bytes extension = Join({{17, length, 1, 4}, Bytes(4, 0)});
      const Frame frame =
          Ethernet(kAppDhcp6, 0x86DD, Ipv6(next, Join({extension, udp}), kFe80A)).With([](auto& a) {
            a.l4DstPort = 547;
          });
      Check({{"DHCPv6 behind it", frame, {kFirst}}, {"nothing behind it", frame.CutL3(48), {kFirst}}});
      // Under ND snooping the byte behind the fixed header is the type.
      const Frame nd = Ethernet(kAppIcmp6, 0x86DD, Ipv6(next, Join({extension, {133}}), kFe80A));
      Check({{"ICMPv6 behind it", nd, {}}});
    }
  }
}

TEST_F(KnownDefects, VlanTagsWithoutPayload) {
  for (const size_t tags : {1u, 2u}) {
    for (size_t length = 12; length <= 14 + 4 * tags; ++length) {
      Check({
          {"DHCPv4", Dhcp4(kClientMac, 1, tags).Cut(length), {kMalformed}},
          {"DHCPv6", Dhcp6(Solicit(), tags).Cut(length), {kMalformed}},
          {"ARP", Arp(2, tags).Cut(length), {}},
      });
    }
  }
}

TEST_F(KnownDefects, MessageTypesOutsideTheKnownOnes) {
  DhcpVexPeerLinkRateInit();
  for (int type = 0; type < 256; ++type) {
    const auto byte = static_cast<uint8_t>(type);
    SCOPED_TRACE(type);
    const bool relay = type == 12 || type == 13;
    Check({
        {"DHCPv4 op", Dhcp4(kClientMac, byte).Ports(68, 67).FromPeerLink(), {kClient}},
        {"DHCPv6", Dhcp6(Message6(byte, Option6(1, DuidLl()))).FromPeerLink(), {relay ? kFirst : kClient}},
        {"relayed DHCPv6", Dhcp6(Relayed(Message6(byte, Option6(1, DuidLl())))), {kClient}},
    });
    const std::vector<size_t> nd = Offer(Nd(byte));
    EXPECT_EQ(nd.empty(), type < 133 || type > 136);
    EXPECT_EQ(Offer(Echo(byte, Join({BytesOf(kMarker), {'1'}}))).empty(), type != 0);
    EXPECT_EQ(Offer(Arp(static_cast<uint16_t>(type))).empty(), type != 2);
  }
}

// Nothing grows with the number of clients, and no instance carries much more than its share.
TEST_F(KnownDefects, AFloodOfDistinctClients) {
  constexpr uint32_t kClients = 30000;
  std::vector<size_t> reached(platform::kServiceChannelCount, 0);
  const size_t blocks = platform::Memory().LiveBlocks();
  for (uint32_t client = 0; client < kClients; ++client) {
    Mac mac = {2};
    for (size_t i = 0; i < 3; ++i) mac[3 + i] = static_cast<uint8_t>(client >> (16 - 8 * i));
    const std::vector<size_t> channels = Offer(client % 2 == 0 ? Dhcp4(mac) : Dhcp6(Solicit(DuidLl(mac))));
    ASSERT_EQ(channels.size(), 1u);
    ++reached[channels[0]];
  }
  EXPECT_EQ(platform::Memory().LiveBlocks(), blocks);
  for (size_t channel = 3; channel < 3 + kInstances; ++channel) {
    EXPECT_NEAR(static_cast<double>(reached[channel]), kClients / 3.0, kClients / 30.0) << channel;
  }
}

// However DHCP comes to be wanted, a limit of 0 on its interface refuses it.
TEST_F(KnownDefects, NoPuntPathWithoutAMeter) {
  for (const uint32_t rateType : {3u, 15u}) {
    DhcpVexSaveSnpCfg(0, rateType, 7);
    DhcpVexSaveSnpCfg(1, rateType - 1, 7);
  }
  const Frame reply4 = Dhcp4(kClientMac, 2),
              reply6 = Dhcp6(Message6(7, Option6(1, DuidLl()))).Ports(547, 546);
  const Frame between = Dhcp4().Ports(67, 67).Management().ToMac(kRouterMac);
  const std::vector<Frame> ways = Frames(
      Dhcp4(), Dhcp4(kClientMac, 1, 2), Dhcp4().Management(), Dhcp4().Cause(124), Dhcp4().FromPeerLink(),
      between, Dhcp4().CutL3(20), reply4, reply4.Management(), Dhcp6(), Dhcp6(Solicit(), 2),
      Dhcp6(Relayed(Solicit())), Dhcp6().Cause(124), Dhcp6().FromPeerLink(), Dhcp6().CutL3(40), reply6);
  uint32_t dropped = 0;
  for (const Frame& frame : ways) {
    uint32_t takeFlag = 0;
    EXPECT_EQ(DhcpGetPktType(frame.New().get(), &takeFlag), 2u) << dropped << " is not wanted";
    EXPECT_EQ(Offer(frame), std::vector<size_t>()) << dropped;
    EXPECT_EQ(verdict_, 0u);
    const DhcpSnpInfo& record = *DhcpVexGetSnpIfInfoByIfIndex(7);
    EXPECT_EQ(record.v4Period.dropCnt + record.v6Period.dropCnt, static_cast<int>(++dropped));
  }
}

}  // namespace
}  // namespace vex::module_test
