// replay_test.cpp - the built module on hand-made captures: limits on capture time, reports, fates, bad
// input.
#include "host/replay.h"

#include "host/error.h"
#include "platform/faults.h"
#include "test_paths.h"
#include "tests/host/replay_fixture.h"

namespace vex::host::testing {
namespace {

using Lines = std::vector<std::string>;

constexpr char kTaken[] = "taken [2]";  // what the only instance gets

TEST_F(ReplayTest, EveryFateOfAFrameIsSeenOnItsChannels) {
  Capability("DHCP_MULTICORE_SVC_NUM", 3);
  settings.switches = 0x7FFF;
  Add(1, Dhcp4Request(0x0B, {{0x8100, 30}}));
  Add(1, ArpReply());
  Add(1, RouterSolicit());
  Add(1, Ethernet(0x0800, Ipv4({.protocol = 1}, Bytes(60, 0))));  // echo reply that no instance asked for
  Add(1, Ethernet(0x0800, Ipv4({.protocol = 6}, Bytes(60, 0))), 4);
  Add(1, Bytes(9217, 0));  // larger than a packet buffer
  Add(1, {});
  const ReplayTotals totals = Run();
  EXPECT_EQ(sink.lines, (Lines{"1 port 1 vlan 30 app 17 type 2 take 1 channel 4 taken [4]",
                               "2 port 1 vlan 0 app 1 type 1 take 0 channel 1 continue [1]",
                               "3 port 1 vlan 0 app 28 type 12 take 1 channel 14 taken [7,8,9]",
                               "4 port 1 vlan 0 app 10 type 0 take 0 channel -1 continue []",
                               "5 port 2 vlan 0 app 0 type 13 take 0 channel -1 continue []",
                               "6 port 1 vlan 0 app 0 type 13 take 0 channel -1 not_presented []",
                               "7 port 1 vlan 0 app 0 type 13 take 0 channel -1 continue []"}));
  EXPECT_EQ(totals.frames, 7u);
  EXPECT_EQ(totals.delivered, 3u);
  EXPECT_EQ(totals.failed, 1u);
  EXPECT_EQ(totals.not_wanted, 2u);
  EXPECT_EQ(totals.not_presented, 1u);
  EXPECT_EQ(totals.by_channel, (std::array<uint64_t, 12>{0, 1, 0, 0, 1, 0, 0, 1, 1, 1, 0, 0}));
  EXPECT_EQ(totals.stats[0], 4u);
}

TEST_F(ReplayTest, LimitsFollowTheSecondsOfTheCaptureAlsoBackwards) {
  settings.interfaces[1].v4 = {.enable = 1, .rate = 2};
  for (const int64_t second : {100, 100, 100, 101, 100, 100, 100}) Add(second, Dhcp4Request());
  Add(100, Dhcp6Solicit());
  const std::string refused = "continue snooping [] 0/4/1";
  const ReplayTotals totals = Run();
  EXPECT_EQ(sink.short_lines, (Lines{kTaken, kTaken, refused, kTaken, kTaken, kTaken, refused, kTaken}));
  EXPECT_EQ(totals.by_refusal[size_t(Refusal::kSnooping)], 2u);
  ASSERT_EQ(totals.scopes.size(), 1u);
  const ScopeTally& tally = totals.scopes[0];
  EXPECT_EQ(tally.limit, 2u);
  EXPECT_EQ(tally.offered, 7u);
  EXPECT_EQ(tally.passed, 5u);
  EXPECT_EQ(tally.refused, 2u);
  EXPECT_EQ(tally.pending, 2u);
  EXPECT_EQ(tally.worst_refused, 1u);
  EXPECT_EQ(tally.worst_second, 100);
}

TEST_F(ReplayTest, EveryScopeThatRefusesIsNamed) {
  settings.interfaces[1].v6 = {.enable = 1, .rate = 0};
  settings.vlans[30].v4 = {.enable = 1, .rate = 0};
  settings.global.v4 = {.enable = 1, .rate = 1};
  settings.degrade_rate = 2;
  Add(5, Dhcp6Solicit());
  Add(5, Dhcp4Request(1, {{0x8100, 30}}));
  Add(5, Dhcp4Request(1, {{0x8100, 30}}));
  Add(5, Dhcp4Request(1));
  for (int i = 0; i < 3; ++i) Add(5, Dhcp6Solicit(), 2);  // no limit of their own: the degrade rate's
  const ReplayTotals totals = Run();
  EXPECT_EQ(sink.short_lines[0], "continue snooping [] 0/6/1");
  EXPECT_EQ(sink.short_lines[1], "continue snooping [] 1/4/30");
  EXPECT_EQ(sink.short_lines[2], "continue snooping [] 1/4/30 2/4/0");
  EXPECT_EQ(sink.short_lines[3], "continue snooping [] 2/4/0");
  EXPECT_EQ(sink.short_lines[5], kTaken);
  EXPECT_EQ(sink.short_lines[6], "continue snooping [] 3/0/0");
  ASSERT_EQ(totals.scopes.size(), 4u);
  EXPECT_EQ(totals.scopes[3].scope.kind, ScopeKind::kDegrade);
  EXPECT_EQ(totals.scopes[3].offered, 3u);
}

TEST_F(ReplayTest, ReportsAppearInFrontOfTheFrameWhoseTimeLetsThemGo) {
  settings.global.v4 = {.enable = 1, .rate = 0};
  for (const int64_t second : {1000, 1001, 1029, 1030, 1031, 1200, 1201, 1100, 1129, 1130}) {
    Add(second, Dhcp4Request());
  }
  const ReplayTotals totals = Run();
  std::erase(sink.short_lines, "continue snooping [] 2/4/0");
  EXPECT_EQ(sink.short_lines,
            (Lines{"event before 4: kind 3 index 0 dropped 3",
                   "event before 6: kind 3 index 0 dropped 2",      // one only for the whole gap
                   "event before 10: kind 3 index 0 dropped 4"}));  // the step back starts anew
  EXPECT_EQ(totals.refused, 10u);
  EXPECT_EQ(totals.speed_info_events, 3u);
  ASSERT_EQ(totals.scopes.size(), 1u);
  EXPECT_EQ(totals.scopes[0].reported, 9u);
  EXPECT_EQ(totals.scopes[0].pending, 1u);
}

TEST_F(ReplayTest, PeerLinkRefusalsAreToldFromSnoopingOnes) {
  Capability("DHCP_MLAG_IPV4_PKT_RATE", 1);
  settings.switches = 0xFFFF;
  settings.global.v6 = {.enable = 1, .rate = 0};
  PortRecord peer;
  peer.index = 1;
  peer.peer_link = true;
  options.ports = {peer};
  Add(10, Dhcp4Request());
  Add(10, Dhcp4Request());
  Add(10, Dhcp6Solicit());
  Add(70, Dhcp4Request());
  const ReplayTotals totals = Run();
  ASSERT_EQ(sink.short_lines.size(), 6u);
  EXPECT_EQ(sink.short_lines[1], "continue peer-link [] 4/0/0");
  EXPECT_EQ(sink.short_lines[2], "continue snooping [] 2/6/0");
  EXPECT_EQ(sink.short_lines[3], "event before 4: kind 6 index 0 dropped 1");
  EXPECT_NE(
      sink.short_lines[4].find("The rate of DHCPv4 Request packet exceeds the speed limit(1/s) and has been "
                               "discarded. (pktdiscardcnt:1)"),
      std::string::npos);
  EXPECT_EQ(sink.short_lines[5], kTaken);
  EXPECT_EQ(totals.peer_link_events, 1u);
}

TEST_F(ReplayTest, PeerLinkWithItsSwitchOffRefusesWithoutABudget) {
  PortRecord peer;
  peer.index = 1;
  peer.peer_link = true;
  options.ports = {peer};
  Add(10, Dhcp4Request());
  const ReplayTotals totals = Run();
  EXPECT_EQ(sink.short_lines, Lines{"continue peer-link [] 5/0/0"});
  EXPECT_EQ(totals.by_refusal[size_t(Refusal::kPeerLink)], 1u);
}

TEST_F(ReplayTest, DeliveryThatFailsIsNeitherRefusedNorLost) {
  using platform::Import;
  Add(1, Dhcp4Request());
  Add(1, ArpReply());
  platform::Faults().FailAlways(Import::ORB_ChannelDcSend);
  const ReplayTotals totals = Run();
  EXPECT_EQ(sink.short_lines, (Lines{"take_failed []", "continue []"}));
  EXPECT_EQ(totals.failed, 2u);
}

TEST_F(ReplayTest, CopyThatCannotBeMadeIsAFailure) {
  Add(1, ArpReply());
  platform::Faults().FailAlways(platform::Import::OrbMbufPktCopyNew);
  EXPECT_EQ(Run().failed, 1u);
}

TEST_F(ReplayTest, ForeignBoardLeavesEveryFrameUnpresented) {
  platform::TheBoard().SetType(2);
  settings = {};
  Add(1, Dhcp4Request());
  EXPECT_EQ(Run().not_presented, 1u);
}

TEST_F(ReplayTest, FilterKeepsTheNumbersOfTheFile) {
  options.filter = "arp";
  Add(1, Dhcp4Request());
  Add(2, ArpReply());
  const ReplayTotals totals = Run();
  EXPECT_EQ(totals.frames, 1u);
  EXPECT_EQ(totals.filtered_out, 1u);
  ASSERT_EQ(sink.lines.size(), 1u);
  EXPECT_EQ(sink.lines[0].substr(0, 2), "2 ");
}

TEST_F(ReplayTest, FilterThatCannotBeCompiledIsBadInput) {
  options.filter = "udp prot 67";
  EXPECT_THROW(Run(), InputError);
}

TEST_F(ReplayTest, OtherLinkTypesAreCountedAndTheBadFileDoesNotStopTheRest) {
  FileBytes other;
  other.Section()
      .Interface(101)
      .Interface()
      .Enhanced(0, 1'000'000, Dhcp4Request())
      .Enhanced(1, 2'000'000, ArpReply());
  other.Block(6, Bytes(4, 0));
  FileBytes last;
  last.Section().Interface().Simple(60, Dhcp4Request());
  const TempFile first_file(other.bytes, "a"), last_file(last.bytes, "b");
  const ReplayTotals totals = Run({first_file.path(), "/nonexistent", last_file.path()});
  EXPECT_EQ(sink.short_lines, (Lines{"not_presented []", "continue [1]", kTaken}));
  ASSERT_EQ(totals.errors.size(), 2u);
  EXPECT_EQ(totals.errors[0].file, first_file.path());
  EXPECT_EQ(totals.errors[1].file, "/nonexistent");
}

std::string Summary(const std::string& name, const ReplayTotals& t) {
  std::string types;
  for (size_t i = 0; i < t.by_app_type.size(); ++i) {
    if (t.by_app_type[i] != 0) types += fmt::format(" {}:{}", i, t.by_app_type[i]);
  }
  return fmt::format("{} = {} + {} + {} + {} + {}, app types{}, channels {}, reports {}\n", name,
                     t.not_presented, t.not_wanted, t.refused, t.delivered, t.failed, types,
                     fmt::join(t.by_channel, " "), t.speed_info_events);
}

// All recordings one after the other, on four instances. The numbers were checked against a second
// implementation of the rules; tests/host/captures.golden says what they are.
TEST_F(ReplayTest, RecordingsGiveTheCommittedSummary) {
  Capability("DHCP_MULTICORE_SVC_NUM", 4);
  settings.interfaces[1].v4 = {.enable = 1, .rate = 50};
  settings.interfaces[1].v6 = {.enable = 1, .rate = 50};
  std::string summary;
  for (const char* name :
       {"access-ports", "flood-and-client", "rogue-server", "vlan-30", "qinq-100-200", "relayed"}) {
    if (module_) Reload();
    summary += Summary(name, Run({fmt::format("{}/captures/{}.pcapng", VEX_SOURCE_DIR, name)}));
  }
  std::ifstream golden(VEX_SOURCE_DIR "/tests/host/captures.golden");
  EXPECT_EQ(summary, std::string(std::istreambuf_iterator<char>(golden), {}));
}

TEST_F(ReplayTest, TwoReplaysGiveTheSameLines) {
  settings.global.v4 = {.enable = 1, .rate = 20};
  const std::string capture = VEX_SOURCE_DIR "/captures/flood-and-client.pcapng";
  Run({capture});
  const Lines first = std::exchange(sink.lines, {});
  Reload();
  Run({capture});
  EXPECT_EQ(first.size(), sink.lines.size());
  EXPECT_TRUE(first == sink.lines);
}

}  // namespace
}  // namespace vex::host::testing
