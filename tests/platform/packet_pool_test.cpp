// The packet pool and the imports over it.
#include "platform/channel.h"
#include "platform/packet.h"
#include "tests/platform/platform_fixture.h"

#if defined(__SANITIZE_ADDRESS__)
constexpr bool kAddressSanitizer = true;
#else
constexpr bool kAddressSanitizer = false;
#endif

namespace vex::platform {
namespace {

using testing::ElementsAre;
using testing::HasSubstr;

constexpr PacketAttributes kAttributes{.appType = 17,
                                       .appPktType = 3,
                                       .ifIndex = 7,
                                       .causeAction = 123,
                                       .l2Length = 18,
                                       .protoType = 1,
                                       .management = 1,
                                       .l4SrcPort = 68,
                                       .l4DstPort = 67,
                                       .diagSwitch = 2,
                                       .vlanTag = 0x6064,
                                       .dstMac = {1, 2, 3, 4, 5, 6},
                                       .ingressPort = 9,
                                       .cookie = 1'000'000'007};

class PacketPoolTest : public PlatformTest {};

void ExpectAttributes(OrbMbuf* mbuf) {
  EXPECT_EQ(HostMbufGetPktAppType(mbuf), 17u);
  EXPECT_EQ(HostMbufGetAppPktType(mbuf), 3u);
  EXPECT_EQ(HostMbufGetOectrlIfIndex(mbuf), 7u);
  EXPECT_EQ(HostMbufGetCauseAction(mbuf), 123u);
  EXPECT_EQ(HostMbufGetL2HeadLength(mbuf), 18u);
  EXPECT_EQ(HostMbufGetProtoType(mbuf), 1u);
  EXPECT_EQ(HostMbufGetMngIfFlag(mbuf), 1u);
  EXPECT_EQ(HostMbufGetL4SrcPort(mbuf), 68u);
  EXPECT_EQ(HostMbufGetL4DstPort(mbuf), 67u);
  EXPECT_EQ(HostMbufGetHostDiagSwitch(mbuf), 2u);
  EXPECT_EQ(*HostMbufGetVlanTag(mbuf), 0x6064);
  EXPECT_EQ(HostMbufGetDstMac(mbuf)[5], 6);
  EXPECT_EQ(PacketOf(mbuf).attr.cookie, 1'000'000'007u);
  EXPECT_EQ(PacketOf(mbuf).attr.ingressPort, 9u);
}

TEST_F(PacketPoolTest, AttributesSurviveCopyHeadOperationsAndChannel) {
  const std::vector<uint8_t> bytes = CountingBytes(60);
  PacketPtr packet = Packets().New(bytes, kAttributes);
  ASSERT_GE(packet->dataOff, 512);
  PacketPtr copy(&PacketOf(OrbMbufPktCopyNew(packet.get(), "here", 1)));
  packet->Data()[0] = 99;
  ASSERT_EQ(MbufPktAddHead(copy.get(), 24, "here", 2), 0u);
  Channel* const channel = Channels().Create("channel/test", 1);
  ASSERT_TRUE(channel->Send(copy));
  copy = channel->Receive();
  EXPECT_EQ(copy->dataLen, 84u);
  EXPECT_EQ(HostMbufGetL3Hdr(copy.get()), copy->Data() + 24 + 18)
      << "the L3 header does not move with the head";
  ASSERT_EQ(MbufPktCutHead(copy.get(), 24, "here", 3), 0u);
  EXPECT_THAT(copy->Bytes(), testing::ElementsAreArray(bytes));
  ExpectAttributes(copy.get());
  EXPECT_EQ(HostMbufIsNdHookIgnore(copy.get()), 0u);
  HostMbufSetNdHookIgnore(copy.get());
  EXPECT_NE(HostMbufIsNdHookIgnore(copy.get()), 0u);
  EXPECT_EQ(HostMbufIsNdHookIgnore(packet.get()), 0u);
}

TEST_F(PacketPoolTest, HeadOperationsRefuseWhatThereIsNoRoomFor) {
  PacketPtr packet = Packets().New(CountingBytes(40), kAttributes);
  const uint16_t headroom = packet->dataOff;
  EXPECT_NE(MbufPktAddHead(packet.get(), headroom + 1u, "here", 1), 0u);
  EXPECT_EQ(MbufPktAddHead(packet.get(), headroom, "here", 2), 0u);
  EXPECT_EQ(packet->dataOff, 0);
  EXPECT_NE(MbufPktCutHead(packet.get(), headroom + 41u, "here", 3), 0u);
  EXPECT_EQ(packet->dataLen, headroom + 40u) << "a refused cut changes nothing";
  EXPECT_EQ(MbufPktCutHead(packet.get(), headroom + 40u, "here", 4), 0u);
  EXPECT_EQ(packet->dataLen, 0u);
  EXPECT_EQ(packet->bufAddr[headroom], 1) << "cut bytes stay in memory";
}

TEST_F(PacketPoolTest, CutRefusesALengthThatLiesAboutTheBuffer) {
  PacketPtr packet = Packets().NewExact(CountingBytes(40), {});
  packet->dataLen = 4000;
  EXPECT_NE(MbufPktCutHead(packet.get(), 41, "here", 1), 0u);
  EXPECT_EQ(packet->Bytes().size(), 40u);
}

TEST_F(PacketPoolTest, IsBoundedAndGivesBack) {
  ASSERT_TRUE(Packets().Configure({.count = 3, .headroom = 512, .dataRoom = 100}));
  std::vector<PacketPtr> held;
  for (int i = 0; i < 3; ++i) held.push_back(Packets().New(CountingBytes(100), {}));
  EXPECT_NE(held.back(), nullptr);
  EXPECT_EQ(Packets().New(CountingBytes(1), {}), nullptr);
  EXPECT_EQ(OrbMbufPktCopyNew(held[0].get(), "here", 1), nullptr);
  EXPECT_EQ(MbufPktNewFromData("x", 1, "here", 2), nullptr);
  EXPECT_EQ(Packets().Stats().exhausted, 3u);
  EXPECT_EQ(Packets().Stats().inUse, 3u);
  held.pop_back();
  EXPECT_EQ(Packets().New(CountingBytes(101), {}), nullptr) << "longer than a buffer";
  EXPECT_NE(Packets().New(CountingBytes(100), {}), nullptr);
  EXPECT_FALSE(Packets().Configure({}));
  ExpectFinding("2 packets are in use");
  held.clear();
  EXPECT_FALSE(Packets().Configure({.headroom = 511}));
  ExpectFinding("511");
}

TEST_F(PacketPoolTest, NamesTheSitesOfLeaks) {
  OrbMbuf* const first = MbufPktNewFromData("abc", 3, "src/a", 10);
  OrbMbuf* const second = MbufPktNewFromData("abc", 3, "src/a", 10);
  OrbMbuf* const third = OrbMbufPktCopyNew(first, "src/b", 20);
  Channel* const channel = Channels().Create("channel/test", 1);
  ASSERT_EQ(ORB_ChannelDcSend(channel->Id(), third, 1000), 0u);
  EXPECT_THAT(Audit(), ElementsAre(HasSubstr("2 packet(s) allocated at src/a:10 were never freed"),
                                   HasSubstr("1 packet(s) allocated at src/b:20 still wait in a channel")));
  EXPECT_EQ(g_mbufFreeCb(first, "here", 1), 0u);
  EXPECT_EQ(g_mbufFreeCb(second, "here", 2), 0u);
  EXPECT_EQ(channel->Drain(), 1u);
}

TEST_F(PacketPoolTest, ReportsFreesOfWhatIsNotOwned) {
  for (const bool exact : {false, true}) {
    ASSERT_TRUE(Packets().Configure({.exactBlocks = exact}));
    OrbMbuf* const packet = MbufPktNewFromData("abc", 3, "src/a", 10);
    Channel* const channel = Channels().Create("channel/test", 2);
    ASSERT_EQ(ORB_ChannelDcSend(channel->Id(), packet, 1000), 0u);
    EXPECT_NE(g_mbufFreeCb(packet, "src/b", 30), 0u);
    ExpectFinding("a channel holds, allocated at src/a:10, at src/b:30");
    EXPECT_NE(ORB_ChannelDcSend(channel->Id(), packet, 1000), 0u);
    ExpectFinding("already in a channel, on channel/test");
    OrbMbuf* received = nullptr;
    ASSERT_EQ(ORB_ChannelDcRecv(channel->Id(), &received), 0u);
    EXPECT_EQ(received, packet);
    EXPECT_EQ(g_mbufFreeCb(packet, "src/b", 31), 0u);
    EXPECT_NE(g_mbufFreeCb(packet, "src/b", 32), 0u);
    ExpectFinding(exact ? "not in use" : "double free of a packet, allocated at src/a:10, at src/b:32");
  }
  EXPECT_NE(g_mbufFreeCb(nullptr, "src/b", 33), 0u);
  ExpectFinding("null packet at src/b:33");
  EXPECT_EQ(Packets().Stats().badFrees, 5u);
}

TEST_F(PacketPoolTest, ExactPacketsEndWithTheirBuffer) {
  const PacketPtr packet = Packets().NewExact(CountingBytes(33), kAttributes, 24);
  EXPECT_EQ(packet->bufLen, 57);
  EXPECT_EQ(packet->dataOff, 24);
  EXPECT_EQ(Packets().BytesBehind(packet->Data()), 33u);
  EXPECT_EQ(Packets().BytesBehind(packet->Data() + 33), 0u);
  const PacketPtr copy = Packets().Copy(*packet);
  EXPECT_GE(copy->dataOff, 512) << "a copy has room for headers again";
  EXPECT_EQ(HostMbufGetL3Hdr(copy.get()), copy->Data() + 18);
  EXPECT_EQ(Packets().BytesBehind(copy->bufAddr), copy->bufLen);
  EXPECT_EQ(Packets().BytesBehind(copy->bufAddr + copy->bufLen), 0u);
  const uint8_t elsewhere = 0;
  EXPECT_EQ(Packets().BytesBehind(&elsewhere), SIZE_MAX);
}

TEST_F(PacketPoolTest, ExactBlocksCoverCopiesAndNewPackets) {
  ASSERT_TRUE(Packets().Configure({.exactBlocks = true}));
  const PacketPtr packet = Packets().New(CountingBytes(33), {});
  const PacketPtr copy = Packets().Copy(*packet);
  EXPECT_EQ(copy->bufLen, 512 + 33);
  EXPECT_EQ(copy->dataOff, 512);
}

TEST_F(PacketPoolTest, L3HeaderIsWhereTheAttributesPutIt) {
  uint8_t elsewhere = 0;
  const struct {
    const char* name;
    PacketAttributes attributes;
    bool withBuffer;
    int expected;  // offset from the data; -1 null, -2 elsewhere
  } cases[] = {
      {"behind the L2 header", {.l2Length = 14}, true, 14},
      {"at an offset of its own", {.l2Length = 14, .l3Offset = 22}, true, 22},
      {"nowhere", {.l2Length = 14, .l3Offset = PacketAttributes::kNoL3}, true, -1},
      {"no data buffer", {.l2Length = 14}, false, -1},
      {"no data buffer, but a header", {.l3Elsewhere = &elsewhere}, false, -2},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    const PacketPtr packet = c.withBuffer ? Packets().New(CountingBytes(60), c.attributes)
                                          : Packets().NewWithoutBuffer(c.attributes);
    const uint8_t* const l3 = HostMbufGetL3Hdr(packet.get());
    EXPECT_EQ(l3, c.expected == -1 ? nullptr : c.expected == -2 ? &elsewhere : packet->Data() + c.expected);
  }
}

TEST_F(PacketPoolTest, RefusesEmptyNewPackets) {
  EXPECT_EQ(MbufPktNewFromData(nullptr, 4, "here", 1), nullptr);
  EXPECT_EQ(MbufPktNewFromData("x", 0, "here", 1), nullptr);
  EXPECT_EQ(OrbMbufPktCopyNew(nullptr, "here", 1), nullptr);
}

TEST(PacketPoolDeathTest, AFreePacketIsOutOfReach) {
  if (!kAddressSanitizer) GTEST_SKIP() << "needs the address sanitizer";
  PacketPtr packet = Packets().New(CountingBytes(60), {});
  OrbMbuf* const stale = packet.get();
  volatile uint8_t* const data = packet->Data();
  packet.reset();
  EXPECT_DEATH(static_cast<void>(*data), "use-after-poison");
  EXPECT_DEATH(HostMbufGetPktAppType(stale), "use-after-poison");
}

}  // namespace
}  // namespace vex::platform
