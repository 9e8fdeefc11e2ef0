// hook_test.cpp - the host hook from a punted packet to its verdict.
// In:  packets of every class, limits, failing imports. Out: verdict, what the service receives, counters,
// log lines; every packet and block accounted for.
#include "dhcp_vex_pkt.h"

#include "dhcp_vex_rate_limit_notify.h"
#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using ::testing::StartsWith;

constexpr uint32_t kTaken = 0x1000000;
constexpr uint32_t kTakeFailed = 0x10000000;
constexpr uint32_t kEverySwitch = 0xFFFF;
constexpr uint32_t kSnooping = 1u << 12;

class HookTest : public ModuleTest {
 protected:
  void TearDown() override {
    g_dhcpPktDump = 0;
    DhcpVexSetDbgSwitch(0);
    ModuleTest::TearDown();
  }
  // Calls the hook through the framework's table; a packet that was not taken comes back unfreed.
  uint32_t Punt(PacketPtr& packet) {
    const uint32_t verdict = platform::Hooks().Call(18, packet.get());
    if (verdict == kTaken) static_cast<void>(packet.release());
    return verdict;
  }
};

TEST_F(HookTest, IsRegisteredAsTheFrameworkExpects) {
  const auto hooks = platform::Hooks().All();
  ASSERT_EQ(hooks.size(), 1u);
  EXPECT_EQ(hooks[0].point, 18u);
  EXPECT_EQ(hooks[0].value, 100u);
  EXPECT_EQ(hooks[0].name, "dhcp");
  EXPECT_EQ(DhcpHostHookCallback(nullptr), 0u);
}

TEST_F(HookTest, Verdicts) {
  const struct {
    const char* name;
    Frame frame;
    uint32_t switches;
    uint32_t instances;
    uint32_t verdict;
    std::vector<size_t> received;  // channels
    uint64_t counted;              // counter 0
  } cases[] = {
      {"not wanted", Dhcp4(), 0, 1, 0, {}, 0},
      {"ARP reply: a copy", Arp(), kEverySwitch, 1, 0, {1}, 1},
      {"echo reply: a copy", Probe("2"), kEverySwitch, 4, 0, {8}, 1},
      {"echo reply, one instance", Probe("2"), kEverySwitch, 0, 0, {0}, 1},
      {"echo reply without the marker", Echo(0, Bytes(40, 1)), kEverySwitch, 4, 0, {}, 1},
      {"echo reply to every instance: the copy is fanned out", Probe("8"), kEverySwitch, 2, 0, {7, 8}, 1},
      {"echo reply to the module's own channel", Probe("5"), kEverySwitch, 4, 0, {}, 1},
      {"DHCPv4: the packet itself", Dhcp4(), kEverySwitch, 3, kTaken, {4}, 1},
      {"DHCPv6: the packet itself", Dhcp6(), kEverySwitch, 3, kTaken, {4}, 1},
      {"malformed DHCPv4", Dhcp4().CutL3(25), kEverySwitch, 3, kTaken, {2}, 1},
      {"advertisement, DHCPv6 snooping: a copy", Nd(136), kSnooping, 3, 0, {8}, 1},
      {"advertisement, ND snooping: the packet itself", Nd(136), kEverySwitch, 4, kTaken, {8}, 1},
      {"router solicitation: a copy for each, the packet freed", Nd(133), kEverySwitch, 2, kTaken, {7, 8}, 1},
      {"router solicitation, one instance", Nd(133), kEverySwitch, 0, kTaken, {0}, 1},
      {"solicitation without its key", Nd(135, kUnspecified).CutL3(60), kEverySwitch, 3, kTakeFailed, {}, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    SetSwitches(c.switches);
    SetInstances(c.instances);
    PacketPtr packet = c.frame.New();
    EXPECT_EQ(Punt(packet), c.verdict);
    if (packet != nullptr) {
      EXPECT_EQ(BytesIn(packet), c.frame.bytes);  // nothing in front of it
    }
    for (size_t channel : c.received) {
      const Bytes message = Next(channel);
      ASSERT_GT(message.size(), 24u) << "nothing on channel " << channel;
      EXPECT_EQ(Bytes(message.begin() + 24, message.end()), c.frame.bytes);
    }
    EXPECT_EQ(Queued(), OneOn({})) << "one each, and nothing elsewhere";
    EXPECT_EQ(Moved(), (Stats{c.counted}));
    packet.reset();
    EXPECT_EQ(platform::Packets().Stats().inUse, 0u);
  }
}

TEST_F(HookTest, WithoutACopyNothingHappens) {
  SetSwitches(kEverySwitch);
  g_dhcpPktDump = 1;
  DhcpVexSetDbgSwitch(1);
  Faults().FailAlways(Import::OrbMbufPktCopyNew);
  const LogCapture log;
  PacketPtr packet = Arp().Marked().New();
  EXPECT_EQ(Punt(packet), 0u);
  EXPECT_EQ(Moved(), Stats{});
  EXPECT_THAT(log.Lines(), IsEmpty());
}

// The mark of the packet that the framework passed in governs the trace of its copy too. What is taken stays
// the framework's when it cannot be delivered, with its header in front.
TEST_F(HookTest, TheSendFailureIsTracedForMarkedPackets) {
  SetSwitches(kEverySwitch);
  Faults().FailAlways(Import::ORB_ChannelDcSend);
  for (const bool taken : {false, true}) {
    for (const bool marked : {false, true}) {
      const Frame frame = taken ? Dhcp4() : Arp();
      PacketPtr packet = (marked ? frame.Marked() : frame).New();
      const LogCapture log;
      EXPECT_EQ(Punt(packet), taken ? kTakeFailed : 0u);
      EXPECT_EQ(packet->dataLen, frame.bytes.size() + (taken ? 24 : 0));
      const std::string type = taken ? "2" : "1";
      const std::vector<std::string> lines = {
          "DHCP pkt send to dhcp chnid " + type + " failed.",
          "DHCP packet send to dhcp-svc process failed, ret=4, pktType=" + type};
      EXPECT_EQ(log.Texts(LogOutput::kHostDiag), marked ? lines : std::vector<std::string>());
      EXPECT_THAT(log.Texts(LogOutput::kDebugReport), IsEmpty());
    }
  }
}

TEST_F(HookTest, ARefusedPacketIsLeftAlone) {
  SetSwitches(kEverySwitch);
  Degrade(0);
  g_dhcpPktDump = 1;
  const LogCapture log;
  PacketPtr packet = Dhcp4().Marked().New(), other = Arp().New();
  EXPECT_EQ(Punt(packet), 0u);
  EXPECT_EQ(BytesIn(packet), Dhcp4().bytes);
  EXPECT_EQ(Moved(), Stats{});
  EXPECT_THAT(log.Lines(), IsEmpty());
  EXPECT_EQ(Punt(other), 0u);  // other classes pass no gate
  EXPECT_EQ(Queued(), OneOn({1}));
}

// A packet that the peer-link gate refuses has been charged to the snooping limits before.
TEST_F(HookTest, TheSnoopingGateComesFirst) {
  SetSwitches(0x7FFF);
  DhcpVexSetSnpGblInfo(100, 1, 0);
  DhcpVexSetSnpGblInfo(1, 0, 0);
  PacketPtr packet = Dhcp4().FromPeerLink().New();
  EXPECT_EQ(Punt(packet), 0u);
  EXPECT_EQ(g_dhcpSnpGblInfo.v4Period.pktCnt, 1u);
  EXPECT_EQ(Queued(), OneOn({}));
  SetSwitches(kEverySwitch);
  EXPECT_EQ(Punt(packet), kTaken);
  EXPECT_EQ(g_dhcpSnpGblInfo.v4Period.pktCnt, 2u);
}

TEST_F(HookTest, TheDumpShowsThePacketBeforeItsHeader) {
  SetSwitches(kEverySwitch);
  g_dhcpPktDump = 1;
  const LogCapture log;
  for (const Frame& frame : {Dhcp4(), Arp()}) {
    PacketPtr packet = frame.New();
    Punt(packet);
  }
  EXPECT_THAT(
      log.Texts(LogOutput::kFrameworkLog),
      ElementsAre(StartsWith("DHCP Recieve packet:\n FF FF FF FF FF FF 02 00 00 00 00 0B 08 00 45 00\n"),
                  StartsWith("DHCP Recieve packet:\n FF FF FF FF FF FF 02 00 00 00 00 0B 08 06 00 01\n")));
  EXPECT_EQ(log.Lines()[0].level, 4u);
}

}  // namespace
}  // namespace vex::module_test
