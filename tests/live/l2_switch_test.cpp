// l2_switch_test.cpp - where frames go, how tags change on the way, and what the station table forgets.
#include "host/live/l2_switch.h"

#include <gtest/gtest.h>

#include <string>

namespace vex::host::live {
namespace {

constexpr MacAddress kA{2, 0, 0, 0, 0, 0xA}, kB{2, 0, 0, 0, 0, 0xB};
constexpr MacAddress kBroadcast{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
constexpr MacAddress kBridgeGroup{1, 0x80, 0xC2, 0, 0, 0};
enum At : uint16_t { kAccess, kTrunk, kAccess30, kManagement };

std::vector<PortRecord> Ports() {
  std::vector<PortRecord> ports(4);
  for (uint32_t i = 0; i < ports.size(); ++i) ports[i].index = i + 1;
  ports[kAccess30].vlan = 30;
  ports[kManagement].management = true;
  return ports;
}

ParsedFrame FrameOf(MacAddress from, MacAddress to, std::optional<uint16_t> tag = {}) {
  ParsedFrame frame;
  frame.src_mac = from;
  frame.dst_mac = to;
  frame.tags = tag ? 1 : 0;
  frame.vlan_tag = tag.value_or(0);
  return frame;
}

class L2SwitchTest : public ::testing::Test {
 protected:
  L2Switch::Route Find(const ParsedFrame& frame, uint16_t port, uint32_t now = 0) const {
    L2Switch::Route route;
    switch_.Find(frame, port, now, route);
    return route;
  }
  L2Switch switch_{Ports(), {.stations = 64, .age_seconds = 300}, 1};
};

TEST_F(L2SwitchTest, AnUnknownDestinationIsFloodedToAllButItsOwnAndManagementPorts) {
  const auto route = Find(FrameOf(kA, kB), kTrunk);
  EXPECT_EQ(route.fate, SwitchFate::kFlooded);
  EXPECT_EQ(route.ports, (std::vector<uint16_t>{kAccess, kAccess30}));
}

TEST_F(L2SwitchTest, ALearnedDestinationGetsTheFrameAloneUntilItIsForgotten) {
  switch_.Learn(FrameOf(kB, kA), kAccess, 100);
  EXPECT_EQ(Find(FrameOf(kA, kB), kTrunk, 399).ports, (std::vector<uint16_t>{kAccess}));
  EXPECT_EQ(Find(FrameOf(kA, kB), kAccess, 399).fate, SwitchFate::kSamePort);
  EXPECT_EQ(Find(FrameOf(kA, kB), kTrunk, 400).fate, SwitchFate::kFlooded) << "300 s without a word";
}

TEST_F(L2SwitchTest, AStationIsKnownInItsVlanOnlyAndMovesWithItsLastFrame) {
  switch_.Learn(FrameOf(kB, kA), kAccess30, 0);
  EXPECT_EQ(Find(FrameOf(kA, kB), kTrunk).fate, SwitchFate::kFlooded) << "untagged is VLAN 1";
  EXPECT_EQ(Find(FrameOf(kA, kB, 30), kTrunk).ports, (std::vector<uint16_t>{kAccess30}));
  switch_.Learn(FrameOf(kB, kA, 30), kAccess, 1);
  EXPECT_EQ(Find(FrameOf(kA, kB, 30), kTrunk, 1).ports, (std::vector<uint16_t>{kAccess}));
}

TEST_F(L2SwitchTest, GroupSourcesTeachNothingAndLinkGroupsGoNowhere) {
  switch_.Learn(FrameOf(kBroadcast, kA), kAccess, 0);
  EXPECT_EQ(switch_.stations().Stations(0).size(), 0u);
  EXPECT_EQ(Find(FrameOf(kA, kBridgeGroup), kTrunk).fate, SwitchFate::kReserved);
  EXPECT_EQ(Find(FrameOf(kA, kBroadcast), kManagement).fate, SwitchFate::kManagement);
}

TEST(TagEditTest, AFrameLeavesUntaggedExactlyInThePortsOwnVlan) {
  const auto ports = Ports();
  struct Case {
    const char* what;
    uint16_t vlan;
    std::optional<uint16_t> outer;
    At out;
    TagEdit::Kind kind;
    uint16_t tag;
  };
  const Case cases[] = {
      {"untagged to untagged", 1, {}, kAccess, TagEdit::Kind::kKeep, 0},
      {"tagged to the access port", 30, 30, kAccess30, TagEdit::Kind::kRemove, 0},
      {"access port to trunk", 30, {}, kTrunk, TagEdit::Kind::kInsert, 30},
      {"VLAN 1 to an access port of another VLAN", 1, {}, kAccess30, TagEdit::Kind::kInsert, 1},
      {"tagged through, priority kept", 7, 0xA007, kTrunk, TagEdit::Kind::kKeep, 0},
      {"a priority tag becomes the VLAN, priority kept", 30, 0xA000, kTrunk, TagEdit::Kind::kReplace, 0xA01E},
      {"a priority tag vanishes", 1, 0xA000, kAccess, TagEdit::Kind::kRemove, 0},
  };
  for (const Case& c : cases) {
    const TagEdit edit = EditFor(c.vlan, c.outer, ports[c.out]);
    EXPECT_EQ(edit.kind, c.kind) << c.what;
    const bool tagged = edit.kind == TagEdit::Kind::kInsert || edit.kind == TagEdit::Kind::kReplace;
    EXPECT_EQ(tagged ? edit.tag : 0, c.tag) << c.what;
  }
}

TEST(MacTableTest, AFloodOfAddressesCostsNoMemoryAndSparesRecentStations) {
  MacTable table(1024, 300, 12345);
  table.Learn(kA, 1, 7, 0);
  for (uint32_t i = 0; i < 100'000; ++i) {
    const MacAddress invented{
        2, 1, 0, static_cast<uint8_t>(i >> 16), static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
    const uint32_t now = i / 1000;
    table.Learn(kA, 1, 7, now);
    table.Learn(invented, 1, 9, now);
    ASSERT_EQ(table.Find(kA, 1, now), 7) << "after " << i << ": it is the youngest of its bucket";
  }
  EXPECT_EQ(table.capacity(), 1024u);
  EXPECT_EQ(table.Stations(99).size(), 1024u);
  EXPECT_GT(table.evicted(), 90'000u);
}

}  // namespace
}  // namespace vex::host::live
