// rate_limit_test.cpp - the counting step and the two gates over scripted time.
// In:  periods, records and packets; the module time set by hand or by the virtual clock. Out: pass or
// refuse, counts, drops; nothing while the lock is busy.
#include "dhcp_vex_rate_limit.h"

#include <utility>

#include "dhcp_vex_guard.h"
#include "dhcp_vex_rate_limit_notify.h"
#include "dhcp_vex_rate_limit_peerlink.h"
#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

constexpr uint32_t kOff = 0xFFFF'FFFF;
constexpr uint32_t kV4Snooping = 1u << 4;
constexpr uint32_t kPeerLink = 1u << 15;

// ---- Counting step --------------------------------------------------------------------------------------

struct Step {
  uint32_t sec;
  uint64_t milSec;
  uint32_t limit;
  bool opens, passes;
  uint32_t pktCnt;  // afterwards
};

void Script(const char* name, DhcpSpeedPeriod period, const std::vector<Step>& steps) {
  for (const Step& s : steps) {
    SCOPED_TRACE(testing::Message() << name << ", second " << s.sec << ", ms " << s.milSec);
    const DhcpSpeedPeriod before = period;
    g_dhcpVexcurTimeSec = s.sec;
    g_dhcpVexcurTimeMilSec = s.milSec;
    EXPECT_EQ(DhcpVexCheckIsNewSecond(period.periodSec, period.periodMilSec), s.opens ? 1u : 0u);
    EXPECT_EQ(DhcpVexSpeedLimitJudge(&period, s.limit), s.passes ? 0u : 1u);
    EXPECT_EQ(period.pktCnt, s.pktCnt);
    EXPECT_EQ(period.dropCnt, static_cast<uint16_t>(before.dropCnt + (s.passes ? 0 : 1)));
    EXPECT_EQ(period.dropFlag, s.passes ? before.dropFlag : 1);
    EXPECT_EQ(period.periodSec, s.opens ? s.sec : before.periodSec);
    EXPECT_EQ(period.periodMilSec, s.opens ? s.milSec : before.periodMilSec);
  }
}

// Runs of equal seconds and a clock that goes back: budget_proof_test.cpp, over every walk.
TEST(CountingStep, PeriodsOverScriptedTime) {
  constexpr bool kOpens = true, kPasses = true, kSame = false, kRefused = false;
  const auto at = [](uint32_t sec, uint64_t milSec, uint32_t pktCnt, uint16_t drops = 0) {
    return DhcpSpeedPeriod{sec, milSec, pktCnt, drops, static_cast<uint8_t>(drops != 0)};
  };
  Script("one second on, milliseconds below: still the old period", at(50, 100, 2),
         {{51, 99, 2, kSame, kRefused, 2}, {51, 100, 2, kOpens, kPasses, 1}, {53, 0, 2, kOpens, kPasses, 1}});
  Script("the same where the seconds wrap", at(0xFFFF'FFFF, 5, 1),
         {{0, 4, 1, kSame, kRefused, 1}, {0, 5, 1, kOpens, kPasses, 1}, {2, 0, 1, kOpens, kPasses, 1}});
  Script("a module that has no time yet", {}, {{0, 0, 1, kSame, kPasses, 1}, {0, 0, 1, kSame, kRefused, 1}});
  Script("a jump of half the range", {}, {{0x8000'0000, 0, 1, kOpens, kPasses, 1}});
  Script("limit 0 refuses in old and new periods", {},
         {{7, 7, 0, kOpens, kRefused, 0}, {7, 7, 0, kSame, kRefused, 0}, {9, 7, 0, kOpens, kRefused, 0}});
  Script("a limit lowered within the period counts what was admitted", at(7, 7, 3),
         {{7, 7, 2, kSame, kRefused, 3}, {7, 7, 4, kSame, kPasses, 4}});
  Script("the largest limit", at(7, 0, 0xFFFF'FFFE), {{7, 0, kOff, kSame, kPasses, kOff}});
  Script("drops wrap at 16 bits", at(7, 0, 1, 0xFFFF), {{7, 0, 1, kSame, kRefused, 1}});
  EXPECT_EQ(DhcpVexSpeedLimitJudge(nullptr, 0), 0u);
}

// ---- Snooping and degrade gate --------------------------------------------------------------------------

class GateTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    g_cyclePerMs = 0;  // milliseconds stand at 0
    SetSwitches(kV4Snooping);
  }
  void TearDown() override {
    DhcpVexDegradeInfoInit();
    ModuleTest::TearDown();
  }
  static void Limit(uint32_t typeOfRate, uint32_t rate, uint32_t index, uint32_t enable = 1) {
    DhcpVexSaveSnpCfg(rate, typeOfRate, index);
    DhcpVexSaveSnpCfg(enable, typeOfRate - 1, index);
  }
  static size_t Passed(const Frame& frame, size_t count) {
    size_t passed = 0;
    const PacketPtr packet = frame.New();
    for (size_t i = 0; i < count; ++i) passed += DhcpVexPktRateCheck(packet.get()) == 0;
    return passed;
  }
};

TEST_F(GateTest, BudgetsOfEveryScope) {
  constexpr uint32_t kNo = 5000;  // a rate that is no limit
  const Frame v4 = Dhcp4(), v6 = Dhcp6();
  const Frame other = v4.With([](auto& a) { a.appType = 28; });
  const uint32_t s = kV4Snooping;
  const struct {
    const char* name;
    Frame frame;
    uint32_t interface, vlan, global, degrade;  // rates of the packet's version
    uint32_t switches, enable;
    size_t passed;  // of 20 packets within a second
  } cases[] = {
      {"nothing configured", v4, kNo, kNo, kNo, kOff, s, 1, 20},
      {"interface", v4, 10, kNo, kNo, kOff, s, 1, 10},
      {"VLAN", v4, kNo, 6, kNo, kOff, s, 1, 6},
      {"global", v4, kNo, kNo, 3, kOff, s, 1, 3},
      {"the smallest of three", v4, 10, 6, 8, kOff, s, 1, 6},
      {"rate 0", v4, 0, kNo, kNo, kOff, s, 1, 0},
      {"not enabled", v4, 10, 6, 3, kOff, s, 0, 20},
      {"enabled by another value", v4, 10, 6, 3, kOff, s, 2, 20},
      {"switch 4 off", v4, 10, 6, 3, kOff, 0xFFEF, 1, 20},
      {"DHCPv6", v6, 10, 6, 8, kOff, s, 1, 6},
      {"DHCPv6 with switch 12 instead of 4", v6, 10, 6, 8, kOff, 1u << 12, 1, 20},
      {"another application type", other, 10, 6, 8, kOff, s, 1, 20},
      {"degrade alone", v4, kNo, kNo, kNo, 7, 0, 0, 7},
      {"degrade holds other types too", other, 10, 6, 8, 7, s, 1, 7},
      {"degrade below three rates is charged four times", v4, 200, 200, 200, 12, 0, 0, 3},
      {"degrade equal to the interface's rate", v4, 8, kNo, kNo, 8, s, 1, 8},
      {"degrade above a rate that is not enabled", v4, 6, kNo, kNo, 9, s, 0, 9},
  };
  int64_t now = kStart;
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    platform::TheClock().SetTo(now += 10 * kSecond);
    const uint32_t v6Types = c.frame.attr.appType == kAppDhcp6 ? 12 : 0;
    SetSwitches(c.switches);
    Limit(3 + v6Types, c.interface, 7, c.enable);
    Limit(5 + v6Types, c.vlan, 10, c.enable);
    Limit(1 + v6Types, c.global, 0, c.enable);
    DhcpVexSetDegradeCfg(c.degrade);
    EXPECT_EQ(Passed(c.frame, 20), c.passed);
    platform::TheClock().Advance(kSecond);  // a new second, a new budget
    EXPECT_EQ(Passed(c.frame, 20), c.passed);
    ClearStore();
    DhcpVexSnpInfoInit();
  }
}

TEST_F(GateTest, ARefusedPacketIsCountedWhereTheBudgetWasFullAndAdvancesTheOthers) {
  Limit(3, 2, 7);
  Limit(5, 100, 10);
  Limit(1, 3, 0);
  Limit(15, 1, 7);  // DHCPv6 has periods of its own
  EXPECT_EQ(Passed(Dhcp4(), 5), 2u);
  const DhcpSnpInfo& interface = *DhcpVexGetSnpIfInfoByIfIndex(7);
  const DhcpSnpInfo& vlan = *DhcpVexGetSnpVlanInfoByVlanId(10);
  EXPECT_EQ(interface.v4Period.pktCnt, 2u);
  EXPECT_EQ(interface.v4Period.dropCnt, 3);
  EXPECT_EQ(vlan.v4Period.pktCnt, 5u);
  EXPECT_EQ(vlan.v4Period.dropFlag, 0);
  EXPECT_EQ(g_dhcpSnpGblInfo.v4Period.pktCnt, 3u);
  EXPECT_EQ(g_dhcpSnpGblInfo.v4Period.dropCnt, 2);
  EXPECT_EQ(interface.v6Period.pktCnt, 0u);
  EXPECT_EQ(interface.v4Period.periodSec, 1000u);
  EXPECT_EQ(g_dhcpDegradeInfo.period.pktCnt, 0u);
  // With the degrade rate lower than the record's, the record's own period stands still.
  DhcpVexSetDegradeCfg(1);
  Passed(Dhcp4(), 5);
  EXPECT_EQ(interface.v4Period.dropCnt, 3);
  EXPECT_EQ(g_dhcpDegradeInfo.period.dropCnt, 14);  // three charges each but for the first, which passed one
  EXPECT_EQ(g_dhcpDegradeInfo.period.dropFlag, 1);
}

TEST_F(GateTest, VlansThatCountAsNone) {
  const std::pair<uint16_t, uint32_t> tags[] = {
      {0, 0}, {1, 0}, {2, 2}, {0xE002, 2}, {0x1001, 0}, {4093, 4093}, {4094, 0}, {4095, 0}, {0xFFFD, 4093}};
  for (const auto& [tag, vlan] : tags) {
    uint32_t ifIndex = 9, vlanId = 9;
    const PacketPtr packet = Dhcp4().On(0x1'0007, tag).New();
    EXPECT_EQ(DhcpVexGetIfIndexAndVlanFromPkt(packet.get(), &ifIndex, &vlanId), 0u);
    EXPECT_EQ(ifIndex, 0x1'0007u);
    EXPECT_EQ(vlanId, vlan) << tag;
    EXPECT_EQ(DhcpVexGetIfIndexAndVlanFromPkt(packet.get(), nullptr, &vlanId), 1u);
    EXPECT_EQ(DhcpVexGetIfIndexAndVlanFromPkt(packet.get(), &ifIndex, nullptr), 1u);
    EXPECT_EQ(DhcpVexGetIfIndexAndVlanFromPkt(nullptr, &ifIndex, &vlanId), 1u);
  }
  for (const uint32_t vlan : {0u, 1u, 4094u, 4095u}) Limit(5, 0, vlan);
  for (const int tag : {0, 1, 4094, 4095})
    EXPECT_EQ(Passed(Dhcp4().On(7, static_cast<uint16_t>(tag)), 3), 3u);
  Limit(5, 0, 4093);
  EXPECT_EQ(Passed(Dhcp4().On(7, 0xFFFD), 3), 0u);
}

TEST_F(GateTest, ABusyLockLetsPacketsPassUncounted) {
  Limit(1, 1, 0);
  DhcpVexPeerLinkRateInit();
  g_dhcpVexPeerLinkInfo[0].pktRate = 1;
  SetSwitches(kV4Snooping | kPeerLink);
  const PacketPtr packet = Dhcp4().FromPeerLink().New();
  EXPECT_EQ(DhcpVexPktRateCheck(packet.get()) + DhcpVexPeerLinkRateCheck(packet.get()), 0u);
  platform::TheClock().Advance(5 * kSecond);
  {
    const dhcp_vex::LockGuard configuring(g_dhcpVexSnpInfoUseLock);
    for (int i = 0; i < 10; ++i) {
      EXPECT_EQ(DhcpVexPktRateCheck(packet.get()) + DhcpVexPeerLinkRateCheck(packet.get()), 0u);
    }
    SetSwitches(0);  // what arrives over the peer-link while it is off needs no lock
    EXPECT_EQ(DhcpVexPeerLinkRateCheck(packet.get()), 1u);
  }
  EXPECT_EQ(g_dhcpVexcurTimeSec, 1000u);
  EXPECT_EQ(g_dhcpSnpGblInfo.v4Period.pktCnt, 1u);
  EXPECT_EQ(g_dhcpVexPeerLinkInfo[0].period.pktCnt, 1u);
  EXPECT_EQ(g_dhcpVexPeerLinkInfo[0].period.dropCnt, 0);
}

TEST_F(GateTest, ModuleTimeComesFromTheFrameworksClocks) {
  const PacketPtr packet = Dhcp4().New();
  platform::TheClock().SetTo(77 * kSecond + 999'999'999);
  EXPECT_EQ(DhcpVexPktRateCheck(packet.get()), 0u);
  EXPECT_EQ(g_dhcpVexcurTimeSec, 77u);
  EXPECT_EQ(g_dhcpVexcurTimeMilSec, 0u);
  g_cyclePerMs = 1'000'000;
  EXPECT_EQ(DhcpVexPktRateCheck(packet.get()), 0u);
  EXPECT_NE(g_dhcpVexcurTimeMilSec, 0u);
  void* const record =
      std::exchange(g_pstGlobalTimeDate, nullptr);  // a framework without the time of day yet
  EXPECT_EQ(DhcpVexPktRateCheck(packet.get()), 0u);
  EXPECT_EQ(g_dhcpVexcurTimeSec, 0u);
  g_pstGlobalTimeDate = record;
  EXPECT_EQ(DhcpVexPktRateCheck(nullptr), 0u);
  EXPECT_EQ(DhcpVexSnpSpeedLimitJudge(nullptr, 17), 0u);
}

TEST_F(GateTest, TheVersionIsTheLowByteOfTheApplicationType) {
  Limit(1, 0, 0);
  EXPECT_EQ(Passed(Dhcp4().With([](auto& a) { a.appType = 0x111; }), 2), 0u);
  EXPECT_EQ(DhcpVexCheckPktSpeed(7, 0, 17), 1u);
  EXPECT_EQ(DhcpVexCheckPktSpeed(7, 0, 32), 0u);
}

// ---- Peer-link gate -------------------------------------------------------------------------------------

TEST_F(GateTest, PeerLinkKinds) {
  const auto v6 = [](uint8_t type) { return Dhcp6(Message6(type, Option6(1, DuidLl()))); };
  for (uint32_t op = 0; op < 256; ++op) {
    const auto byte = static_cast<uint8_t>(op);
    const bool reply6 = op == 2 || op == 7 || op == 10 || op == 13 || op == 15;
    EXPECT_EQ(DhcpVexGetPktType(Dhcp4(kClientMac, byte).New().get()), op == 2 ? 1u : 0u) << op;
    EXPECT_EQ(DhcpVexGetPktType(v6(byte).New().get()), reply6 ? 3u : 2u) << op;
  }
  const Frame neither = Dhcp4().With([](auto& a) { a.protoType = 2; });
  for (const Frame& frame :
       {Dhcp4().CutL3(28), Dhcp4().CutL3(27), Dhcp6().CutL3(48), Dhcp6().CutL3(39), Nd(136), Arp(), neither})
    EXPECT_EQ(DhcpVexGetPktType(frame.New().get()), 4u);
  EXPECT_EQ(DhcpVexGetPktType(Dhcp4().CutL3(29).Exact().get()), 0u);
}

TEST_F(GateTest, EachPeerLinkKindHasItsBudget) {
  SetSpec(DHCP_SPEC_MLAG_IPV4_PKT_RATE, 3);
  SetSpec(DHCP_SPEC_MLAG_IPV6_PKT_RATE, 5);
  SetSwitches(kPeerLink);
  DhcpVexPeerLinkRateInit();
  const auto passed = [](const Frame& frame) {
    const PacketPtr packet = frame.New();
    size_t count = 0;
    for (int i = 0; i < 8; ++i) count += DhcpVexPeerLinkRateCheck(packet.get()) == 0;
    return count;
  };
  const Frame request = Dhcp4().FromPeerLink(), reply = Dhcp4(kClientMac, 2).FromPeerLink();
  const Frame request6 = Dhcp6().FromPeerLink(), reply6 = Dhcp6(Relayed(Solicit(), 13)).FromPeerLink();
  const auto all = [&] {
    return std::array{passed(request), passed(reply), passed(request6), passed(reply6)};
  };
  EXPECT_EQ(all(), (std::array<size_t, 4>{3, 3, 5, 5}));
  for (const auto& record : g_dhcpVexPeerLinkInfo) {
    EXPECT_EQ(record.period.dropCnt, 8 - record.pktRate);
    EXPECT_EQ(record.period.dropFlag, 1);
  }
  platform::TheClock().Advance(kSecond);
  EXPECT_EQ(passed(request), 3u);
  const auto appPktType = [](uint32_t t) { return [=](auto& a) { a.appPktType = t; }; };
  EXPECT_EQ(passed(Dhcp4()), 8u);                          // not over the peer-link
  EXPECT_EQ(passed(Dhcp4().With(appPktType(0x102))), 0u);  // the low 8 bits say so
  EXPECT_EQ(passed(request.CutL3(28)), 8u);                // no message: no kind
  EXPECT_EQ(passed(Nd(136).FromPeerLink()), 8u);
  SetSwitches(0x7FFF);
  const uint32_t drops = g_dhcpVexPeerLinkInfo[0].period.dropCnt;
  EXPECT_EQ(passed(request), 0u);  // off: none is delivered, nothing is counted
  EXPECT_EQ(passed(Dhcp4()), 8u);
  EXPECT_EQ(g_dhcpVexPeerLinkInfo[0].period.dropCnt, drops);
  SetSwitches(kPeerLink);
  SetSpec(DHCP_SPEC_MLAG_IPV6_PKT_RATE, 0);
  DhcpVexPeerLinkRateInit();
  EXPECT_EQ(passed(request6), 8u);  // rate 0: no limit
  EXPECT_EQ(DhcpVexCheckPeerLinkPktSpeed(4) + DhcpVexCheckPeerLinkPktSpeed(kOff), 0u);
  EXPECT_EQ(DhcpVexPeerLinkRateCheck(nullptr), 0u);
}

}  // namespace
}  // namespace vex::module_test
