// deliver_test.cpp - the ingress header, service channels and threads, the fan-out and inner messages.
// In:  packets and bytes; names that are missing, copies and sends that fail. Out: result codes, exactly the
// counters that moved, log lines, wake-ups, and every packet accounted for.
#include "dhcp_vex_pkt_deliver.h"

#include <cstring>

#include "dhcp_vex_pkt_classify.h"
#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kThreadLine[] = "[DHCP-vex]DhcpPktGetChnID get thread info id failed.";
constexpr char kChannelLine[] = "[DHCP-vex]DhcpPktGetChnID get channel id by name id failed.";
constexpr char kSourcePath[] = "orch/src/dhcp_vex/dhcp_vex_pkt";

struct Header {
  uint32_t length, zero4;
  uint64_t sequence, zero16;
  friend bool operator==(const Header&, const Header&) = default;
};
Header HeaderOf(const Bytes& bytes) {
  Header header{};
  if (bytes.size() >= sizeof(header)) std::memcpy(&header, bytes.data(), sizeof(header));
  return header;
}

class DeliverTest : public ModuleTest {
 protected:
  // Hands the packet over; gives it back when the module did not take it.
  uint32_t Send(PacketPtr& packet, uint32_t channel) {
    const uint32_t ret = DhcpPktSendToOneDhcpSvc(packet.get(), channel);
    if (ret == 0) static_cast<void>(packet.release());
    return ret;
  }
  std::vector<uint32_t> Events() {
    std::vector<uint32_t> masks;
    for (auto* thread : ports_.threads) masks.push_back(thread->Take());
    return masks;
  }
};

TEST_F(DeliverTest, TheHeaderStandsInFrontOfTheFrame) {
  for (uint64_t sequence = 0; sequence < 3; ++sequence) {
    PacketPtr packet = Dhcp4().New();
    ASSERT_EQ(DhcpPktSendToDhcp(packet.get(), DHCP_PKT_TYPE_DHCP), 0u);
    static_cast<void>(packet.release());
    const Bytes message = Next(2);
    EXPECT_EQ(HeaderOf(message), (Header{24, 0, sequence, 0}));
    EXPECT_EQ(Bytes(message.begin() + 24, message.end()), Dhcp4().bytes);
  }
}

TEST_F(DeliverTest, ASequenceNumberPerHeaderFilledIn) {
  const Frame other = Dhcp4({2, 0, 0, 0, 0, 0x0D});  // its channel is not resolved before its own look-ups
  const struct {
    const char* name;
    Frame frame;
    uint32_t pktType;
    Import failing;  // kCount: none
    uint32_t ret;
    uint32_t used;  // sequence numbers
  } cases[] = {
      {"no channel", Nd(1), 12, Import::kCount, 3, 0},
      {"sent", Dhcp4(), 2, Import::kCount, 0, 1},
      {"no room for the header", Dhcp4(), 2, Import::MbufPktAddHead, 1, 1},
      {"header not copied", Dhcp4(), 2, Import::memcpy_s, 1, 1},
      {"thread unknown", other, 2, Import::ORB_ThreadInfoGetByName, 2, 1},
      {"channel unknown", other, 2, Import::ORB_ChannelGetIdByName, 3, 1},
      {"refused", Dhcp4(), 2, Import::ORB_ChannelDcSend, 4, 1},
      {"nobody woken", Dhcp4(), 2, Import::ORB_EventWrite, 0, 1},
  };
  SetInstances(3);
  SetSwitches(1u << DHCP_CFG_ND_SNOOPING);
  uint64_t sequence = 0;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    if (c.failing != Import::kCount) Faults().FailAlways(c.failing);
    PacketPtr packet = c.frame.New();
    EXPECT_EQ(DhcpPktSendToDhcp(packet.get(), c.pktType), c.ret);
    Faults().DisarmAll();
    sequence += c.used;
    if (c.ret == 0) {
      static_cast<void>(packet.release());
      EXPECT_EQ(HeaderOf(Next(4)).sequence, sequence - 1);
    } else if (c.used == 0 || c.failing == Import::MbufPktAddHead) {
      EXPECT_EQ(Bytes(packet->Bytes().begin(), packet->Bytes().end()), c.frame.bytes);
    }
  }
}

TEST_F(DeliverTest, EachChannelWakesItsThread) {
  const size_t threadOf[] = {0, 0, 0, 1, 2, 3, 4, 1, 2, 3, 4};
  for (uint32_t channel = 0; channel <= 10; ++channel) {
    SCOPED_TRACE(channel);
    PacketPtr packet = Arp().New();
    EXPECT_EQ(Send(packet, channel), 0u);
    std::vector<uint32_t> masks(5, 0);
    masks[threadOf[channel]] = 1u << channel;
    EXPECT_EQ(Events(), masks);
    EXPECT_EQ(Queued(), OneOn({channel}));
    DrainAll();
  }
  EXPECT_EQ(Moved(), Stats{});
}

TEST_F(DeliverTest, ChannelsThatPacketsMustNotUse) {
  DhcpVexSetDbgSwitch(1);
  for (const auto& [channel, thread] : std::initializer_list<std::pair<uint32_t, uint32_t>>{
           {11, 5}, {12, 6}, {13, 7}, {15, 9}, {kNone, kNone - 6}}) {
    PacketPtr packet = Arp().Marked().New();
    const LogCapture log;
    EXPECT_EQ(Send(packet, channel), 1u);
    const std::string line = "DHCP pkt send, ThreadInfoId " + std::to_string(thread) + " or chnId " +
                             std::to_string(channel) + " is error.";
    EXPECT_THAT(log.Texts(LogOutput::kHostDiag), ElementsAre(line));
    EXPECT_THAT(log.Texts(LogOutput::kDebugReport), ElementsAre(line));
  }
  EXPECT_EQ(Moved(), Stats{});
  EXPECT_EQ(Events(), std::vector<uint32_t>(5, 0));
}

TEST_F(DeliverTest, FailuresCountOnceLogOnceAndLeaveThePacket) {
  DhcpVexSetDbgSwitch(1);
  const auto thread = Import::ORB_ThreadInfoGetByName, channel = Import::ORB_ChannelGetIdByName;
  const struct {
    const char* name;
    std::vector<Import> failing;
    uint32_t ret;
    Stats moved;
    std::vector<std::string> logged;  // framework log
    std::string pair;
    uint32_t woken;  // mask of thread 3
  } cases[] = {
      {"thread", {thread}, 2, {0, 0, 0, 0, 1}, {kThreadLine}, "DHCP pkt get dhcp chnid 9 failed.", 0},
      {"both: the thread comes first",
       {thread, channel},
       2,
       {0, 0, 0, 0, 1},
       {kThreadLine},
       "DHCP pkt get dhcp chnid 9 failed.",
       0},
      {"channel", {channel}, 3, {0, 0, 0, 0, 0, 1}, {kChannelLine}, "DHCP pkt get dhcp chnid 9 failed.", 0},
      {"refused",
       {Import::ORB_ChannelDcSend},
       4,
       {0, 0, 0, 0, 0, 0, 1},
       {},
       "DHCP pkt send to dhcp chnid 9 failed.",
       512},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    for (const Import import : c.failing) Faults().FailAlways(import);
    for (int attempt = 0; attempt < 2; ++attempt) {  // a failure is met again at the next use
      PacketPtr packet = Arp().Marked().New();
      const LogCapture log;
      EXPECT_EQ(Send(packet, 9), c.ret);
      ASSERT_NE(packet, nullptr);
      EXPECT_EQ(Bytes(packet->Bytes().begin(), packet->Bytes().end()), Arp().bytes);
      EXPECT_EQ(Moved(), c.moved);
      EXPECT_EQ(log.Texts(LogOutput::kFrameworkLog), c.logged);
      EXPECT_THAT(log.Texts(LogOutput::kHostDiag), ElementsAre(c.pair));
      EXPECT_THAT(log.Texts(LogOutput::kDebugReport), ElementsAre(c.pair));
      if (!c.logged.empty()) {
        EXPECT_EQ(log.Lines()[0].level, 1u);
      }
      EXPECT_EQ(Events(), (std::vector<uint32_t>{0, 0, 0, c.woken, 0}));
    }
    Faults().DisarmAll();
  }
}

TEST_F(DeliverTest, ANameIsLookedUpUntilItIsKnownAndNeverAgain) {
  platform::EventThreads().Remove("thread/vex2dhcp2");
  platform::Channels().Remove("channel/vex2dhcp4");
  ports_.channels[4] = nullptr;
  Faults().StartCounting();
  const auto lookups = [] {
    return std::pair(Faults().Calls(Import::ORB_ThreadInfoGetByName),
                     Faults().Calls(Import::ORB_ChannelGetIdByName));
  };
  PacketPtr packet = Arp().New();
  EXPECT_EQ(Send(packet, 4), 2u);
  EXPECT_EQ(lookups(), (std::pair<uint64_t, uint64_t>(1, 0)));
  platform::EventThreads().Create("thread/vex2dhcp2");
  EXPECT_EQ(Send(packet, 4), 3u);
  EXPECT_EQ(Send(packet, 4), 3u);
  EXPECT_EQ(lookups(), (std::pair<uint64_t, uint64_t>(2, 2)));
  ports_.channels[4] = platform::Channels().Create("channel/vex2dhcp4", 64);
  EXPECT_EQ(Send(packet, 4), 0u);
  for (int i = 0; i < 3; ++i) {
    packet = Arp().New();
    EXPECT_EQ(Send(packet, 4), 0u);
  }
  EXPECT_EQ(lookups(), (std::pair<uint64_t, uint64_t>(2, 3)));
  EXPECT_EQ(Moved(), (Stats{0, 0, 0, 0, 1, 2}));
  packet = Arp().New();  // channel 8 has a thread that is resolved already
  EXPECT_EQ(Send(packet, 8), 0u);
  EXPECT_EQ(lookups(), (std::pair<uint64_t, uint64_t>(2, 4)));
}

TEST_F(DeliverTest, ResolvingWithoutSending) {
  EXPECT_EQ(DhcpVexSetThreadIdAndChnnelId(4, 11), 0u);
  Faults().StartCounting();
  EXPECT_EQ(DhcpVexSetThreadIdAndChnnelId(4, 11), 0u);
  EXPECT_EQ(Faults().Calls(Import::ORB_ThreadInfoGetByName), 0u);
  Faults().FailAlways(Import::ORB_ThreadInfoGetByName);
  Faults().FailAlways(Import::ORB_ChannelGetIdByName);
  const LogCapture log;
  EXPECT_EQ(DhcpVexSetThreadIdAndChnnelId(3, 5), 2u);
  EXPECT_EQ(DhcpVexSetThreadIdAndChnnelId(4, 5), 3u);
  EXPECT_THAT(log.Texts(LogOutput::kFrameworkLog), ElementsAre(kThreadLine, kChannelLine));
  EXPECT_EQ(Moved(), (Stats{0, 0, 0, 0, 1, 1}));
  EXPECT_EQ(Queued(), OneOn({}));
}

TEST_F(DeliverTest, FanOutReachesEveryInstanceThatItCan) {
  const struct {
    const char* name;
    uint32_t instances;
    uint64_t failCopy, failSend;  // the n-th call fails, 0: none, 99: all
    std::vector<size_t> reached;
    uint64_t refused;  // counter 6
  } cases[] = {
      {"four", 4, 0, 0, {7, 8, 9, 10}, 0},
      {"three", 3, 0, 0, {7, 8, 9}, 0},
      {"one", 1, 0, 0, {7}, 0},
      {"none", 0, 0, 0, {}, 0},
      {"first copy fails", 3, 1, 0, {8, 9}, 0},
      {"second copy fails", 3, 2, 0, {7, 9}, 0},
      {"every copy fails", 3, 99, 0, {}, 0},
      {"first send fails", 3, 0, 1, {8, 9}, 1},
      {"every send fails", 3, 0, 99, {}, 3},
      {"second copy, second send", 4, 2, 2, {7, 10}, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    SetInstances(c.instances);
    PacketPtr packet = Nd(133).New();
    ASSERT_EQ(DhcpPktAppendIgressIntf(packet.get()), 0u);
    const Bytes whole(packet->Bytes().begin(), packet->Bytes().end());
    const auto arm = [](Import import, uint64_t n) {
      if (n == 99) Faults().FailAlways(import);
      if (n != 0 && n != 99) Faults().FailNth(import, n);
    };
    arm(Import::OrbMbufPktCopyNew, c.failCopy);
    arm(Import::ORB_ChannelDcSend, c.failSend);
    EXPECT_EQ(DhcpPktSendToAllIcmpChanel(packet.release()), 0u);
    Faults().DisarmAll();
    std::vector<size_t> sizes(12, 0);
    for (size_t channel : c.reached) sizes[channel] = 1;
    EXPECT_EQ(Queued(), sizes);
    for (size_t channel : c.reached) EXPECT_EQ(Next(channel), whole);  // sequence number and all
    EXPECT_EQ(Moved(), (Stats{0, 0, 0, 0, 0, 0, c.refused}));
    EXPECT_EQ(platform::Packets().Stats().inUse, 0u);
  }
  SetInstances(5);
  const PacketPtr packet = Nd(133).New();
  EXPECT_EQ(DhcpPktSendToAllIcmpChanel(packet.get()), 1u);
  EXPECT_EQ(Bytes(packet->Bytes().begin(), packet->Bytes().end()), Nd(133).bytes);
}

TEST_F(DeliverTest, InnerMessagesTravelBehindTheirHead) {
  const Bytes body = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  EXPECT_EQ(DhcpVexSendInnerMsgToDhcp(body.data(), 12), 0u);
  EXPECT_EQ(Queued(), OneOn({11}));
  EXPECT_EQ(Events(), (std::vector<uint32_t>{2048, 0, 0, 0, 0}));
  EXPECT_EQ(Next(11), Join({{0x20, 0, 8, 1}, Bytes(260, 0), body}));
  EXPECT_EQ(Moved(), Stats{});
}

TEST_F(DeliverTest, InnerMessagesThatCannotBeSentAreFreed) {
  const struct {
    const char* name;
    Import failing;
    uint32_t ret;
    Stats moved;
    std::vector<std::string> logged;
    bool asserted;
  } cases[] = {
      {"no packet", Import::MbufPktNewFromData, 1, {}, {}, true},
      {"no room for the head", Import::MbufPktAddHead, 1, {}, {}, true},
      {"head not copied", Import::memcpy_s, 1, {}, {}, true},
      {"thread unknown", Import::ORB_ThreadInfoGetByName, 2, {0, 0, 0, 0, 1}, {kThreadLine}, false},
      {"channel unknown", Import::ORB_ChannelGetIdByName, 3, {0, 0, 0, 0, 0, 1}, {kChannelLine}, false},
      {"refused", Import::ORB_ChannelDcSend, 4, {0, 0, 0, 0, 0, 0, 0, 1}, {}, false},
  };
  const Bytes body(12, 7);
  DhcpVexSetDbgSwitch(1);
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    Faults().FailAlways(c.failing);
    const LogCapture log;
    EXPECT_EQ(DhcpVexSendInnerMsgToDhcp(body.data(), 12), c.ret);
    Faults().DisarmAll();
    EXPECT_EQ(Moved(), c.moved);
    EXPECT_EQ(log.Texts(LogOutput::kFrameworkLog), c.logged);
    EXPECT_THAT(log.Texts(LogOutput::kDebugReport), IsEmpty());
    EXPECT_EQ(log.Texts(LogOutput::kAssert).size(), c.asserted ? 1u : 0u);
    for (const auto& line : log.Lines()) {
      EXPECT_EQ(line.tag, c.asserted ? kSourcePath : "");
    }
    EXPECT_EQ(platform::Packets().Stats().inUse, 0u);
    EXPECT_EQ(Events()[0], c.ret == 4 ? 2048u : 0u);
  }
  const LogCapture log;
  EXPECT_EQ(DhcpVexSendInnerMsgToDhcp(nullptr, 12), 1u);
  EXPECT_EQ(DhcpVexSendInnerMsgToDhcp(body.data(), 0), 1u);
  EXPECT_EQ(DhcpVexConstructOrbMbuf(nullptr, 12), nullptr);
  EXPECT_EQ(DhcpVexConstructOrbMbuf(body.data(), 0), nullptr);
  EXPECT_THAT(log.Lines(), IsEmpty());
  EXPECT_EQ(Moved(), Stats{});
}

// The framework's accounting names who asked for, and who gave back, a packet.
TEST_F(DeliverTest, FrameworkCallsCarryTheirFixedArguments) {
  SetInstances(2);
  PacketPtr packet = Nd(133).New();
  Faults().StartRecording();
  DhcpPktSendToAllIcmpChanel(packet.release());
  const Bytes body(4, 1);
  Faults().FailAlways(Import::ORB_ChannelDcSend);
  DhcpVexSendInnerMsgToDhcp(body.data(), 4);
  size_t seen = 0;
  for (const auto& call : Faults().TakeRecorded()) {
    if (call.import == Import::ORB_ChannelDcSend) {
      EXPECT_EQ(call.args[2], 1000u);
    }
    size_t path = 0;
    if (call.import == Import::MbufFree || call.import == Import::OrbMbufPktCopyNew) path = 1;
    if (call.import == Import::MbufPktNewFromData || call.import == Import::MbufPktAddHead) path = 2;
    if (path == 0) continue;
    ++seen;
    EXPECT_STREQ(reinterpret_cast<const char*>(call.args[path]), kSourcePath);
    EXPECT_NE(call.args[path + 1], 0u);  // the line
  }
  EXPECT_EQ(seen, 2u + 1 + 2 + 1);  // copies, the original, new with its head, the refused one
}

}  // namespace
}  // namespace vex::module_test
