// classify_test.cpp - which punted packets are wanted, as what, and whether the packet itself is taken.
// In:  frames of every application type, all 65536 settings of the switches, capability items 1 and 2.
// Out: packet types and take flags against a table of the switch combinations that let a packet through.
#include "dhcp_vex_pkt_classify.h"

#include <utility>

#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

using Combinations = std::vector<uint32_t>;  // a packet is wanted when all bits of one of them are on
const Combinations kNever = {}, kAlways = {0};
const Combinations kReq4 = {0x1}, kReply4 = {0x2, 0x10}, kMngReq4 = {0x400, 0x4000}, kMngReply = {0x40};
const Combinations kArp = {0x22, 0x82}, kNd = {0x2000};

struct Kind {
  const char* name;
  Frame frame;
  uint32_t pktType;  // when wanted
  Combinations ordinary;
  Combinations management;
  uint32_t takenWith;  // taken when one of these bits is on; kTaken: whenever wanted
};
constexpr uint32_t kTaken = 0xFFFF'0000;

// The combinations as the features are sold, one row per kind of packet.
const std::vector<Kind>& Kinds() {
  static const Frame between = Dhcp4().Ports(67, 67), reply = Dhcp4(kClientMac, 2);
  const auto type = [](uint32_t t) { return [=](auto& a) { a.appType = t; }; };
  const auto ignore = [](uint32_t word) { return [=](auto& a) { a.ndHookIgnore = word; }; };
  const auto wide = [](auto& a) { a.l4DstPort = 0x10043; };
  static const std::vector<Kind> kinds = {
      {"ARP reply", Arp(2), 1, kArp, kMngReply, 0},
      {"ARP request", Arp(1), 1, kNever, kNever, 0},
      {"ARP reply with opcode 0x0102", Arp(0x0102), 1, kNever, kNever, 0},
      {"ARP reply behind two tags", Arp(2, 2), 1, kArp, kMngReply, 0},
      {"echo reply", Echo(0, {}), 0, kReq4, kMngReq4, 0},
      {"echo reply behind IPv4 options", Echo(0, {}, 15), 0, kReq4, kMngReq4, 0},
      {"echo request", Echo(8, {}), 0, kNever, kNever, 0},
      {"DHCPv4 request", Dhcp4(), 2, kReq4, kMngReq4, kTaken},
      {"DHCPv4 between servers, to a group", between, 2, kReq4, kMngReq4, kTaken},
      {"DHCPv4 between servers, to one host", between.ToMac(kRouterMac), 2, kReq4, kAlways, kTaken},
      {"DHCPv4 from a client to one host", Dhcp4().ToMac(kRouterMac), 2, kReq4, kMngReq4, kTaken},
      {"DHCPv4 request of cause 30", Dhcp4().Cause(30), 2, kAlways, kMngReq4, kTaken},
      {"cause 124 in a wider word", Dhcp4().Cause(0xABCD'007C), 2, kAlways, kMngReq4, kTaken},
      {"DHCPv4 reply", reply, 2, kReply4, kMngReply, kTaken},
      {"DHCPv4 reply of cause 30", reply.Cause(30), 2, kReply4, kMngReply, kTaken},
      {"DHCPv4 to another port", Dhcp4().Ports(68, 69), 2, kNever, kNever, kTaken},
      {"DHCPv4 with a port of 17 bits", Dhcp4().With(wide), 2, kReq4, kMngReq4, kTaken},
      {"DHCPv6 request", Dhcp6(), 2, {0x100}, kNever, kTaken},
      {"DHCPv6 request of cause 123", Dhcp6().Cause(123), 2, kAlways, kNever, kTaken},
      {"DHCPv6 reply", Dhcp6().Ports(547, 546), 2, {0x200, 0x1000}, {0x800}, kTaken},
      {"DHCPv6 to another port", Dhcp6().Ports(546, 67), 2, kNever, kNever, kTaken},
      {"router solicitation", Nd(133), 12, kNd, kNever, 0x2000},
      {"router advertisement", Nd(134), 12, kNd, kNever, 0x2000},
      {"neighbour solicitation", Nd(135), 12, kNd, kNever, 0x2000},
      {"neighbour advertisement", Nd(136), 12, {0x1000, 0x2000}, kNever, 0x2000},
      {"redirect", Nd(137), 12, kNever, kNever, 0},
      {"ICMPv6 type 132", Nd(132), 12, kNever, kNever, 0},
      {"ICMPv6 type 5, 133 modulo 128", Nd(5), 12, kNever, kNever, 0},
      {"application type 0", Dhcp4().With(type(0)), 2, kNever, kNever, 0},
      {"application type 2", Dhcp4().With(type(2)), 2, kNever, kNever, 0},
      {"application type 33", Dhcp6().With(type(33)), 2, kNever, kNever, 0},
      {"type 17 with bits above the low 8", Dhcp4().With(type(0x511)), 2, kReq4, kMngReq4, kTaken},
      {"a packet that the module uploads itself", Nd(136).With(ignore(0xFFFF'FFFF)), 12, kNever, kNever, 0},
      {"ignore word with bit 0 clear", Nd(136).With(ignore(2)), 12, {0x1000, 0x2000}, kNever, 0x2000},
  };
  return kinds;
}

bool Lets(const Combinations& combinations, uint32_t switches) {
  for (uint32_t needed : combinations) {
    if ((switches & needed) == needed) return true;
  }
  return false;
}

class ClassifyTest : public ModuleTest {
 protected:
  // The first setting of the switches that the module answers differently from the table.
  static void ExpectAllSettings(const Kind& kind, bool management) {
    const PacketPtr packet = (management ? kind.frame.Management() : kind.frame).New();
    for (uint32_t switches = 0; switches < 0x10000; ++switches) {
      SetSwitches(switches | (switches * 0x9E37'0000));  // the upper half plays no part
      const bool wanted = Lets(management ? kind.management : kind.ordinary, switches);
      const bool taken = wanted && (kind.takenWith == kTaken || (kind.takenWith & switches) != 0);
      uint32_t takeFlag = 0x42;  // classification writes the flag or leaves it alone
      const uint32_t type = DhcpGetPktType(packet.get(), &takeFlag);
      if (type == (wanted ? kind.pktType : 13) && takeFlag == (taken ? 0x1000000u : 0x42u)) continue;
      ADD_FAILURE() << kind.name << (management ? " on management" : "") << ", switches 0x" << std::hex
                    << switches << ": type " << std::dec << type << ", flag 0x" << std::hex << takeFlag;
      return;
    }
  }
};

TEST_F(ClassifyTest, EverySettingOfTheSwitches) {
  for (const Kind& kind : Kinds()) ExpectAllSettings(kind, false), ExpectAllSettings(kind, true);
}

// Where an exported rule answers a caller of its own otherwise than it does within the whole.
TEST_F(ClassifyTest, RulesAnswerForThemselves) {
  const PacketPtr request = Dhcp4().New(), request6 = Dhcp6().New(), nd = Nd(135).New();
  const auto wanted = [&] {
    uint32_t takeFlag = 0;
    return DhcpIsDhcp4PktNeed(request.get()) + DhcpIsDhcp6PktNeed(request6.get()) +
           DhcpIsIcmpv6PktNeed(nd.get(), &takeFlag);
  };
  SetSwitches(0x2101);
  EXPECT_EQ(wanted(), 3u);
  SetSwitches(0);
  EXPECT_EQ(wanted(), 0u);
  EXPECT_EQ(DhcpIsReplyPktNeed(request.get()) + DhcpIsV6ReplyPktNeed(request6.get()), 0u);
  EXPECT_EQ(DhcpIsRequestPktNeed(request.get()) + DhcpIsV6RequestPktNeed(request6.get()), 0u);
  SetSwitches(0x1002);  // a reply rule looks at no port
  EXPECT_EQ(DhcpIsReplyPktNeed(request.get()) + DhcpIsV6ReplyPktNeed(request6.get()), 2u);
  SetSwitches(0xFFFF);  // a request rule answers for its own port only
  EXPECT_EQ(DhcpIsRequestPktNeed(request.get()) + DhcpIsV6RequestPktNeed(request6.get()), 2u);
  EXPECT_EQ(DhcpIsRequestPktNeed(Dhcp4(kClientMac, 2).New().get()), 0u);
  EXPECT_EQ(DhcpIsRequestPktNeed(Dhcp4().Ports(68, 69).Cause(30).New().get()), 0u);
  EXPECT_EQ(DhcpIsV6RequestPktNeed(Dhcp6().Ports(547, 546).Cause(30).New().get()), 0u);
}

TEST_F(ClassifyTest, QuestionsThatReadNoSwitch) {
  SetSwitches(0);
  for (uint32_t type = 0; type < 256; ++type) {
    SCOPED_TRACE(type);
    const PacketPtr nd = Nd(static_cast<uint8_t>(type)).New(),
                    echo = Echo(static_cast<uint8_t>(type), {}).New();
    EXPECT_EQ(DhcpIsNdSnpPkt(nd.get()), type >= 133 && type <= 136 ? 1u : 0u);
    EXPECT_EQ(DhcpIsIcmpv6EhcoReply(nd.get()), type == 136 ? 1u : 0u);
    EXPECT_EQ(DhcpIsIcmpEhcoReply(echo.get()), type == 0 ? 1u : 0u);
  }
}

TEST_F(ClassifyTest, NacCausesByScheme) {
  for (uint32_t scheme : {0u, 1u, 2u, 0xFFFF'FFFFu}) {
    SetSpec(DHCP_SPEC_CAUSID_TYPE, scheme);
    for (int32_t id = -200; id < 200; ++id) {
      const bool both = id == 30 || id == 31, first = id == 123 || id == 124;
      const bool qualifies = (both && scheme <= 1) || (first && scheme == 0);
      EXPECT_EQ(DhcpIsNacDhcpCauseId(id), qualifies ? 1u : 0u) << "scheme " << scheme << ", cause " << id;
    }
  }
  EXPECT_EQ(DhcpIsNacDhcpCauseId(0x1001E), 0u);  // the caller has cut the cause to 16 bits
}

TEST_F(ClassifyTest, RepliesNeedNoSwitchOnDevicesThatTakeThemAll) {
  const PacketPtr reply = Dhcp4(kClientMac, 2).New(), onManagement = Dhcp4(kClientMac, 2).Management().New();
  const PacketPtr reply6 = Dhcp6().Ports(547, 546).New();
  for (uint32_t item : {0u, 1u, 2u}) {
    SetSpec(DHCP_SPEC_NO_CHECK_CFG, item);
    uint32_t takeFlag = 0;
    EXPECT_EQ(DhcpGetPktType(reply.get(), &takeFlag), item == 1 ? 2u : 13u);
    EXPECT_EQ(takeFlag, item == 1 ? 0x1000000u : 0u);
    EXPECT_EQ(DhcpIsReplyPktNeed(onManagement.get()), 0u);
    EXPECT_EQ(DhcpIsV6ReplyPktNeed(reply6.get()), 0u);
  }
}

TEST_F(ClassifyTest, AnL3HeaderOutsideThePacketIsNotRead) {
  SetSwitches(0xFFFF);
  uint8_t elsewhere[64] = {0x45};
  elsewhere[40] = 136;
  const auto at = [&](uint8_t* place) { return [=](auto& a) { a.l3Elsewhere = place; }; };
  const auto noL3 = [](auto& a) { a.l3Offset = platform::PacketAttributes::kNoL3; };
  for (const Frame& frame : {Nd(136).With(at(elsewhere)), Echo(0, {}).With(at(elsewhere)), Nd(136).With(noL3),
                             Echo(0, {}).With(noL3)}) {
    const PacketPtr packet = frame.New();
    uint32_t takeFlag = 0;
    EXPECT_EQ(DhcpGetPktType(packet.get(), &takeFlag), 13u);
    EXPECT_EQ(DhcpIsNdSnpPkt(packet.get()) + DhcpIsIcmpEhcoReply(packet.get()) +
                  DhcpIsIcmpv6EhcoReply(packet.get()),
              0u);
  }
}

TEST_F(ClassifyTest, APacketWithoutADataBufferIsWantedOnlyWhereNoByteIsLookedAt) {
  SetSwitches(0xFFFF);
  for (const Frame& frame : {Arp(), Probe("1"), Dhcp4(), Dhcp6(), Nd(136)}) {
    const PacketPtr packet = frame.New();
    uint8_t* const buffer = std::exchange(packet->bufAddr, nullptr);
    uint32_t takeFlag = 0;
    const bool dhcp = frame.attr.appType == kAppDhcp4 || frame.attr.appType == kAppDhcp6;
    EXPECT_EQ(DhcpGetPktType(packet.get(), &takeFlag), dhcp ? 2u : 13u) << frame.attr.appType;
    packet->bufAddr = buffer;
  }
}

// To the trace when the packet is marked, to the debug channel while its switch is on.
TEST_F(ClassifyTest, NdDecisionsAreLoggedAsPairs) {
  using Lines = std::vector<std::string>;
  const std::string off = "ND snooping is not enable.", off6 = "DHCPv6 snooping is not enable.",
                    other = "ND snooping is enable, but not ra,rs,na,ns.",
                    solicitation = "ND snooping is enable, pkt type is 135.",
                    noDispatch = "ND snooping is enable, no continue ND host dispatch.";
  const struct {
    const char* name;
    Frame frame;
    uint32_t switches;
    Lines lines;
  } cases[] = {
      {"both off", Nd(136), 0, {off, off6}},
      {"DHCPv6 snooping alone", Nd(136), 0x1000, {off}},
      {"DHCPv6 snooping alone, not an advertisement", Nd(135), 0x1000, {off}},
      {"ND snooping, solicitation", Nd(135), 0x2000, {solicitation, noDispatch}},
      {"ND snooping, redirect", Nd(137), 0x3000, {other}},
      {"ND snooping, no type byte", Nd(135).CutL3(40), 0x2000, {other}},
      {"management", Nd(135).Management(), 0x3000, {}},
      {"DHCPv4", Dhcp4(), 0, {}},
  };
  for (const auto& c : cases) {
    for (const uint32_t outputs : {0u, 1u, 2u, 3u}) {
      SCOPED_TRACE(c.name);
      const bool marked = (outputs & 1) != 0, debug = (outputs & 2) != 0;
      SetSwitches(c.switches);
      DhcpVexSetDbgSwitch(debug);
      const PacketPtr packet = (marked ? c.frame.Marked() : c.frame).New();
      const LogCapture log;
      uint32_t takeFlag = 0;
      DhcpGetPktType(packet.get(), &takeFlag);
      EXPECT_EQ(log.Texts(LogOutput::kHostDiag), marked ? c.lines : Lines());
      EXPECT_EQ(log.Texts(LogOutput::kDebugReport), debug ? c.lines : Lines());
    }
  }
}

}  // namespace
}  // namespace vex::module_test
