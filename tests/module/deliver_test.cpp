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

// A number for every header filled in, also when the packet then gets no further; none without a channel.
TEST_F(DeliverTest, TheHeaderStandsInFrontOfTheFrameWithItsSequenceNumber) {
  uint64_t sequence = 0;
  SetSwitches(1u << DHCP_CFG_ND_SNOOPING);
  SetInstances(3);
  for (const Import failing : {Import::kCount, Import::MbufPktAddHead, Import::memcpy_s,
                               Import::ORB_ChannelDcSend, Import::ORB_EventWrite}) {
    if (failing != Import::kCount) Faults().FailAlways(failing);
    PacketPtr packet = Dhcp4().New(), noChannel = Nd(1).New();
    EXPECT_EQ(DhcpPktSendToDhcp(noChannel.get(), DHCP_PKT_TYPE_ICMPV6), 3u);
    const uint32_t ret = DhcpPktSendToDhcp(packet.get(), DHCP_PKT_TYPE_DHCP);
    Faults().DisarmAll();
    if (ret == 0) {
      static_cast<void>(packet.release());
      const Bytes message = Next(4);
      EXPECT_EQ(HeaderOf(message), (Header{24, 0, sequence, 0}));
      EXPECT_EQ(Bytes(message.begin() + 24, message.end()), Dhcp4().bytes);
    }
    EXPECT_EQ(ret, failing == Import::ORB_ChannelDcSend ? 4u : packet != nullptr ? 1u : 0u);
    ++sequence;
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
  const std::string unresolved = "DHCP pkt get dhcp chnid 9 failed.";
  const std::string refused = "DHCP pkt send to dhcp chnid 9 failed.";
  const struct {
    std::vector<Import> failing;
    uint32_t ret;
    Stats moved;
    std::vector<std::string> logged;  // framework log
    std::string pair;
    uint32_t woken;  // mask of thread 3
  } cases[] = {
      {{thread}, 2, {0, 0, 0, 0, 1}, {kThreadLine}, unresolved, 0},
      {{thread, channel}, 2, {0, 0, 0, 0, 1}, {kThreadLine}, unresolved, 0},  // the thread comes first
      {{channel}, 3, {0, 0, 0, 0, 0, 1}, {kChannelLine}, unresolved, 0},
      {{Import::ORB_ChannelDcSend}, 4, {0, 0, 0, 0, 0, 0, 1}, {}, refused, 512},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.pair);
    for (const Import import : c.failing) Faults().FailAlways(import);
    for (int attempt = 0; attempt < 2; ++attempt) {  // a failure is met again at the next use
      PacketPtr packet = Arp().Marked().New();
      const LogCapture log;
      EXPECT_EQ(Send(packet, 9), c.ret);
      EXPECT_EQ(BytesIn(packet), Arp().bytes);
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

// A copy that cannot be made or sent does not keep the others back.
TEST_F(DeliverTest, FanOutReachesEveryInstanceThatItCan) {
  const struct {
    uint32_t instances;
    uint64_t failCopy, failSend;  // the n-th call fails, 0: none
    std::vector<size_t> reached;
  } cases[] = {{4, 0, 0, {7, 8, 9, 10}}, {1, 0, 0, {7}}, {0, 0, 0, {}}, {4, 2, 2, {7, 10}}};
  for (const auto& c : cases) {
    SCOPED_TRACE(testing::Message() << c.instances << ", " << c.failCopy << ", " << c.failSend);
    SetInstances(c.instances);
    PacketPtr packet = Nd(133).New();
    ASSERT_EQ(DhcpPktAppendIgressIntf(packet.get()), 0u);
    const Bytes whole = BytesIn(packet);
    if (c.failCopy != 0) Faults().FailNth(Import::OrbMbufPktCopyNew, c.failCopy);
    if (c.failSend != 0) Faults().FailNth(Import::ORB_ChannelDcSend, c.failSend);
    EXPECT_EQ(DhcpPktSendToAllIcmpChanel(packet.release()), 0u);
    Faults().DisarmAll();
    for (size_t channel : c.reached) EXPECT_EQ(Next(channel), whole);  // sequence number and all
    EXPECT_EQ(Queued(), OneOn({}));
    EXPECT_EQ(platform::Packets().Stats().inUse, 0u);
  }
  SetInstances(5);
  const PacketPtr packet = Nd(133).New();
  EXPECT_EQ(DhcpPktSendToAllIcmpChanel(packet.get()), 1u);
  EXPECT_EQ(BytesIn(packet), Nd(133).bytes);
}

TEST_F(DeliverTest, InnerMessagesTravelBehindTheirHead) {
  const Bytes body = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12};
  EXPECT_EQ(DhcpVexSendInnerMsgToDhcp(body.data(), 12), 0u);
  EXPECT_EQ(Queued(), OneOn({11}));
  EXPECT_EQ(Events(), (std::vector<uint32_t>{2048, 0, 0, 0, 0}));
  EXPECT_EQ(Next(11), Join({{0x20, 0, 8, 1}, Bytes(260, 0), body}));
  EXPECT_EQ(Moved(), Stats{});
}

// What a failing call leads to: the timers of the fault sweep.
TEST_F(DeliverTest, InnerMessagesThatCannotBeSent) {
  const Bytes body(12, 7);
  DhcpVexSetDbgSwitch(1);
  const std::pair<Import, uint32_t> results[] = {{Import::MbufPktNewFromData, 1},
                                                 {Import::ORB_ThreadInfoGetByName, 2},
                                                 {Import::ORB_ChannelGetIdByName, 3},
                                                 {Import::ORB_ChannelDcSend, 4}};
  for (const auto& [failing, result] : results) {
    Faults().FailAlways(failing);
    const LogCapture log;
    EXPECT_EQ(DhcpVexSendInnerMsgToDhcp(body.data(), 12), result);
    Faults().DisarmAll();
    EXPECT_THAT(log.Texts(LogOutput::kDebugReport), IsEmpty());
    for (const auto& line : log.Lines()) EXPECT_EQ(line.tag, result == 1 ? kSourcePath : "");
  }
  const LogCapture log;
  EXPECT_EQ(DhcpVexSendInnerMsgToDhcp(nullptr, 12) + DhcpVexSendInnerMsgToDhcp(body.data(), 0), 2u);
  EXPECT_THAT(log.Lines(), IsEmpty());
}

}  // namespace
}  // namespace vex::module_test
