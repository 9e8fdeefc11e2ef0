// notify_test.cpp - the configuration handlers, the timers that they start and stop, and what expiries
// report. In:  requests, counters of refused packets, sends and timers that fail. Out: messages in their
// order, log lines, assertion sites, counters cleared or kept.
#include "dhcp_vex_rate_limit_notify.h"

#include <cstring>

#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr char kSite[] = "orch/src/dhcp_vex/dhcp_vex_rate_limit";
constexpr uint32_t kV4 = 1u << 4, kV6 = 1u << 12, kPeer = 1u << 15;

struct Message {
  uint32_t kind, indexId;
  uint16_t dropCnt, reserved;
  friend bool operator==(const Message&, const Message&) = default;
  friend void PrintTo(const Message& m, std::ostream* out) {
    *out << m.kind << ":" << m.indexId << ":" << m.dropCnt << ":" << m.reserved;
  }
};

class NotifyTest : public ModuleTest {
 protected:
  // Periods of the running timers in milliseconds, the shorter first.
  static std::vector<uint32_t> Timers() {
    std::vector<uint32_t> periods;
    for (const auto& timer : platform::TheClock().Timers()) periods.push_back(timer.periodMs);
    std::sort(periods.begin(), periods.end());
    return periods;
  }
  std::vector<Message> Messages() {
    std::vector<Message> messages;
    for (Bytes bytes = Next(11); !bytes.empty(); bytes = Next(11)) {
      EXPECT_EQ(bytes.size(), 264u + 12);
      Message message{};
      std::memcpy(&message, bytes.data() + 264, sizeof(message));
      messages.push_back(message);
    }
    return messages;
  }
  static void Drop(DhcpSpeedPeriod& period, uint16_t count) { period.dropCnt = count, period.dropFlag = 1; }
  static std::vector<uint32_t> Sites(const LogCapture& log) {
    std::vector<uint32_t> lines;
    for (const auto& line : log.Lines()) {
      if (line.output != LogOutput::kAssert) continue;
      EXPECT_EQ(line.tag, kSite);
      EXPECT_EQ(line.text, "");
      lines.push_back(line.level);
    }
    return lines;
  }
};

// ---- Handlers -------------------------------------------------------------------------------------------

TEST_F(NotifyTest, NullRequestsAndStubs) {
  EXPECT_EQ(DhcpCfg(nullptr) + DhcpSnpCfg(nullptr) + DhcpDegradeCfg(nullptr), 3u);
  DhcpVexSnpSendPktSpeedInfoToDhcp(1, nullptr);
  DhcpVexSnpSendV6PktSpeedInfoToDhcp(4, nullptr);
  for (const auto stub : {DhcpSnpDelMac, DhcpPktCtrlCfg, DhcpPktCtrlCfgSync}) {
    EXPECT_EQ(stub(nullptr), 0u);
    EXPECT_EQ(stub("anything"), 0u);
  }
  EXPECT_EQ(g_dhcpVexCfgBitMap, 0u);
}

TEST_F(NotifyTest, SnoopingRequestsReachTheStoreUnderTheLock) {
  const LogCapture log;
  EXPECT_EQ(Configure(27, 257, 9), 0u);  // the low 8 bits: on
  EXPECT_EQ(g_dhcpVexDebugSwitch, 1);
  EXPECT_THAT(log.Lines(), IsEmpty());
  Faults().StartRecording();
  EXPECT_EQ(Configure(5, 300, 10), 0u);
  std::vector<Import> order;
  for (const auto& call : Faults().TakeRecorded()) order.push_back(call.import);
  EXPECT_THAT(order, ElementsAre(Import::vsprintf_s, Import::OrbIMDebugReport, Import::OrbSpinlockLock,
                                 Import::OrbMemAllocInner, Import::memset_s, Import::OrbSpinlockUnlock));
  EXPECT_EQ(DhcpVexGetSnpVlanInfoByVlanId(10)->v4Cfg.pktRate, 300);
  EXPECT_EQ(Configure(28, 1, 1), 0u);
  EXPECT_EQ(Configure(27, 0, 9), 0u);
  EXPECT_EQ(Configure(2, 1, 1), 0u);
  EXPECT_THAT(log.Texts(LogOutput::kDebugReport),
              ElementsAre("[INFO][VEX-DHCP] Rcv snooping cfg.(val:300 type:5 indexId:10)",
                          "[INFO][VEX-DHCP] Rcv snooping cfg.(val:1 type:28 indexId:1)"));
}

TEST_F(NotifyTest, DegradeRequests) {
  const LogCapture log;
  Faults().StartRecording();
  EXPECT_EQ(Degrade(0xFFFF'FFFE), 0u);
  EXPECT_EQ(Faults().TakeRecorded().size(), 3u);  // the log line, lock, unlock
  EXPECT_EQ(g_dhcpDegradeInfo.degradeRate, 0xFFFF'FFFEu);
  EXPECT_THAT(log.Texts(LogOutput::kFrameworkLog), ElementsAre("DHCP degrade rate 4294967294"));
  EXPECT_EQ(log.Lines()[0].level, 3u);
  DhcpVexDegradeInfoInit();
}

// ---- Timers follow the switches -------------------------------------------------------------------------

TEST_F(NotifyTest, EverySwitchWriteDecidesItsTimersAgain) {
  const auto running = [](uint32_t switches) {
    std::vector<uint32_t> periods;
    if ((switches & (kV4 | kV6)) != 0) periods.push_back(30000);
    if ((switches & kPeer) != 0) periods.push_back(60000);
    return periods;
  };
  for (uint32_t type = 0; type <= 20; ++type) {
    for (const uint32_t before : {0u, kV4, kV6, kPeer, kV4 | kV6 | kPeer}) {
      SCOPED_TRACE(testing::Message() << "type " << type << ", before " << before);
      for (const uint32_t val : {1u, 0u}) {
        Switch(16, before);
        EXPECT_EQ(Timers(), running(before));
        const uint32_t bits = type < 16 ? (before & ~(1u << type)) | val << type : type == 16 ? val : before;
        EXPECT_EQ(Switch(type, val), 0u);
        EXPECT_EQ(g_dhcpVexCfgBitMap, bits);
        EXPECT_EQ(Timers(), running(bits));
      }
    }
  }
}

// The decisions are taken again only for the switches that concern them, whatever the bitmap says.
TEST_F(NotifyTest, OtherSwitchNumbersDecideNothing) {
  for (uint32_t number = 0; number <= 40; ++number) {
    SetSwitches(kV4 | kPeer);
    DhcpVexProcSnpTimer(number), DhcpVexProcPeerLinkTimer(number);
    EXPECT_EQ(g_dhcpVexSnpInfoNotifyTimerId != kNone, number == 4 || number == 12 || number == 16) << number;
    EXPECT_EQ(g_dhcpVexPeerLinkNotifyTimerId != kNone, number == 15 || number == 16) << number;
    SetSwitches(0);
    DhcpVexProcSnpTimer(number), DhcpVexProcPeerLinkTimer(number);
    EXPECT_THAT(Timers(), IsEmpty()) << number;
  }
}

TEST_F(NotifyTest, ARunningTimerIsNotRestarted) {
  Switch(4, 1);
  Switch(15, 1);
  const uint32_t snooping = g_dhcpVexSnpInfoNotifyTimerId, peer = g_dhcpVexPeerLinkNotifyTimerId;
  Faults().StartCounting();
  const LogCapture log;
  for (const uint32_t type : {12, 15, 4}) Switch(type, 1);
  Switch(16, 0xFFFF);
  Switch(4, 0);  // 12 is still on
  EXPECT_EQ(Faults().Calls(Import::OrbSLcoreTimerCreateAndStart), 0u);
  EXPECT_EQ(Faults().Calls(Import::OrbSLcoreTimerDelete), 0u);
  EXPECT_EQ(g_dhcpVexSnpInfoNotifyTimerId, snooping);
  EXPECT_EQ(g_dhcpVexPeerLinkNotifyTimerId, peer);
  EXPECT_THAT(log.Texts(LogOutput::kImAgent), IsEmpty());  // nor are the rates loaded again
  Switch(12, 0);
  Switch(12, 0);
  EXPECT_EQ(Faults().Calls(Import::OrbSLcoreTimerDelete), 1u);
  EXPECT_EQ(g_dhcpVexSnpInfoNotifyTimerId, kNone);
}

TEST_F(NotifyTest, PeerLinkRatesAreThoseOfTheLastStart) {
  const auto rates = [] {
    std::vector<uint32_t> all;
    for (const auto& record : g_dhcpVexPeerLinkInfo) all.push_back(record.pktRate);
    return all;
  };
  const LogCapture log;
  DhcpVexSetDbgSwitch(1);
  SetSpec(DHCP_SPEC_MLAG_IPV4_PKT_RATE, 100);
  SetSpec(DHCP_SPEC_MLAG_IPV6_PKT_RATE, 0x8000'0000);
  Switch(15, 1);
  EXPECT_THAT(rates(), ElementsAre(100u, 100u, 0x8000'0000u, 0x8000'0000u));
  SetSpec(DHCP_SPEC_MLAG_IPV4_PKT_RATE, 50);
  Switch(15, 1);
  EXPECT_EQ(rates()[0], 100u);
  Switch(15, 0);
  EXPECT_EQ(rates()[0], 100u);  // they stay as loaded
  Switch(15, 1);
  EXPECT_EQ(rates()[0], 50u);
  const std::string first = "[VEX-DHCP][M-LAG] Set PeerLink ipv4PktRate=100, ipv6PktRate=-2147483648.";
  const std::string second = "[VEX-DHCP][M-LAG] Set PeerLink ipv4PktRate=50, ipv6PktRate=-2147483648.";
  EXPECT_THAT(log.Texts(LogOutput::kDebugReport), ElementsAre(first, second));
  EXPECT_THAT(log.Texts(LogOutput::kImAgent), ElementsAre("(vex), " + first, "(vex), " + second));
}

TEST_F(NotifyTest, TimersThatFail) {
  const struct {
    uint32_t type;
    uint32_t& id;
    uint32_t createSite, deleteSite;
  } timers[] = {{4, g_dhcpVexSnpInfoNotifyTimerId, 362, 349}, {15, g_dhcpVexPeerLinkNotifyTimerId, 430, 413}};
  for (const auto& t : timers) {
    const LogCapture log;
    for (const FaultForm form : {FaultForm::kFail, FaultForm::kHollow}) {  // hollow: success without an id
      Faults().Arm({.import = Import::OrbSLcoreTimerCreateAndStart, .times = 1, .form = form});
      EXPECT_EQ(Switch(t.type, 1), 0u);
      EXPECT_EQ(t.id, kNone);
    }
    Switch(t.type, 1);  // tried again
    const uint32_t id = t.id;
    EXPECT_NE(id, kNone);
    Faults().FailAlways(Import::OrbSLcoreTimerDelete);
    EXPECT_EQ(Switch(t.type, 0), 0u);
    EXPECT_EQ(t.id, kNone);  // forgotten all the same
    EXPECT_THAT(Sites(log), ElementsAre(t.createSite, t.createSite, t.deleteSite));
    platform::TheClock().DeleteTimer(id);
  }
}

// ---- Reports --------------------------------------------------------------------------------------------

TEST_F(NotifyTest, EveryFlaggedCounterIsReportedInOrder) {
  for (const uint32_t ifIndex : {9u, 7u}) DhcpVexSaveSnpCfg(200, 3, ifIndex);
  DhcpVexSaveSnpCfg(200, 5, 20);
  Switch(4, 1);
  Drop(DhcpVexGetSnpIfInfoByIfIndex(7)->v4Period, 12);
  Drop(DhcpVexGetSnpIfInfoByIfIndex(9)->v6Period, 0xFFFF);
  Drop(DhcpVexGetSnpVlanInfoByVlanId(20)->v4Period, 3);
  Drop(DhcpVexGetSnpVlanInfoByVlanId(20)->v6Period, 0);   // 65536 refusals
  DhcpVexGetSnpIfInfoByIfIndex(9)->v4Period.dropCnt = 5;  // not flagged
  Drop(g_dhcpSnpGblInfo.v4Period, 1);
  Drop(g_dhcpSnpGblInfo.v6Period, 2);
  platform::TheClock().Advance(30 * kSecond - 1);
  EXPECT_THAT(Messages(), IsEmpty());
  Faults().StartCounting();
  platform::TheClock().Advance(1);
  EXPECT_EQ(Faults().Calls(Import::OrbSpinlockLock), 1u);  // held for the whole report
  EXPECT_THAT(Messages(), ElementsAre(Message{4, 9, 0xFFFF, 0}, Message{1, 7, 12, 0}, Message{2, 20, 3, 0},
                                      Message{5, 20, 0, 0}, Message{3, 0, 1, 0}, Message{6, 0, 2, 0}));
  EXPECT_EQ(DhcpVexGetSnpIfInfoByIfIndex(7)->v4Period.dropCnt, 0);
  EXPECT_EQ(g_dhcpSnpGblInfo.v6Period.dropFlag, 0);
  platform::TheClock().Advance(30 * kSecond);
  EXPECT_THAT(Messages(), IsEmpty());
  EXPECT_EQ(Moved(), Stats{});
}

TEST_F(NotifyTest, ACounterWhoseSendFailedIsReportedAgainWithWhatCame) {
  DhcpVexSaveSnpCfg(200, 3, 7);
  DhcpSnpInfo& record = *DhcpVexGetSnpIfInfoByIfIndex(7);
  const struct {
    DhcpSpeedPeriod& period;
    uint32_t kind, index, site;
  } cases[] = {
      {record.v4Period, 1, 7, 289}, {record.v6Period, 4, 7, 308}, {g_dhcpSnpGblInfo.v4Period, 3, 0, 289}};
  for (const auto& c : cases) {
    Drop(c.period, 10);
    Faults().FailAlways(Import::ORB_ChannelDcSend);
    const LogCapture log;
    EXPECT_EQ(DhcpVexSnpInfoNotifyTimerCallBack(), 0u);
    Faults().DisarmAll();
    EXPECT_THAT(Sites(log), ElementsAre(c.site));
    EXPECT_EQ(c.period.dropFlag, 1);
    c.period.dropCnt = static_cast<uint16_t>(c.period.dropCnt + 7);
    DhcpVexSnpInfoNotifyTimerCallBack();
    EXPECT_THAT(Messages(), ElementsAre(Message{c.kind, c.index, 17, 0}));
  }
  EXPECT_EQ(Moved(), (Stats{0, 0, 0, 0, 0, 0, 0, 3}));
}

TEST_F(NotifyTest, PeerLinkKindsAreLoggedAndCleared) {
  SetSpec(DHCP_SPEC_MLAG_IPV4_PKT_RATE, 100);
  SetSpec(DHCP_SPEC_MLAG_IPV6_PKT_RATE, 7);
  Switch(15, 1);
  DhcpVexSetDbgSwitch(1);
  Drop(g_dhcpVexPeerLinkInfo[3].period, 0xFFFF);
  Drop(g_dhcpVexPeerLinkInfo[0].period, 30);
  g_dhcpVexPeerLinkInfo[1].period.dropCnt = 9;  // not flagged
  const LogCapture log;
  platform::TheClock().Advance(60 * kSecond);
  const auto line = [](const std::string& kind, int rate, int count) {
    return "[VEX-DHCP][M-LAG] The rate of " + kind + " packet exceeds the speed limit(" +
           std::to_string(rate) + "/s) and has been discarded. (pktdiscardcnt:" + std::to_string(count) + ")";
  };
  std::vector<std::string> lines = {line("DHCPv4 Request", 100, 30), line("DHCPv6 Reply", 7, 65535)};
  EXPECT_EQ(log.Texts(LogOutput::kDebugReport), lines);
  EXPECT_THAT(log.Texts(LogOutput::kImAgent), ElementsAre("(vex), " + lines[0], "(vex), " + lines[1]));
  for (const size_t kind : {0, 1, 3}) {
    EXPECT_EQ(g_dhcpVexPeerLinkInfo[kind].period.dropCnt, kind == 1 ? 9 : 0);
    EXPECT_EQ(g_dhcpVexPeerLinkInfo[kind].period.dropFlag, 0);
  }
  EXPECT_EQ(DhcpVexPeerLinkNotifyTimerCallBack(), 0u);
  Drop(g_dhcpVexPeerLinkInfo[0].period, 1);
  DhcpVexPeerLinkNotifyInfo(nullptr, 0);
  DhcpVexPeerLinkNotifyInfo(&g_dhcpVexPeerLinkInfo[0], 4);
  DhcpVexPeerLinkNotifyInfo(&g_dhcpVexPeerLinkInfo[0], 2);  // the kind names it, the record holds the rate
  lines.push_back(line("DHCPv6 Request", 100, 1));
  EXPECT_EQ(log.Texts(LogOutput::kDebugReport), lines);
}

}  // namespace
}  // namespace vex::module_test
