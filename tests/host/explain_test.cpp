// explain_test.cpp - stories of hand-made frames: keys, budgets, experiments that leave nothing behind.
#include "host/explain.h"

#include <gtest/gtest.h>

#include "host/error.h"
#include "host/explain_probe.h"
#include "tests/host/replay_fixture.h"

namespace vex::host::testing {
namespace {

class ExplainTest : public ReplayTest {
 protected:
  Story Tell(uint64_t frame) {
    Capability("DHCP_MULTICORE_SVC_NUM", 4);
    config_.module = settings;
    return ExplainFrame(config_, frame);
  }
  Config config_;
};

TEST_F(ExplainTest, ARefusalShowsTheBudgetAndWhatWouldHaveLiftedIt) {
  settings.interfaces[1].v4 = {1, 2, 0, 100};
  settings.global.v4 = {1, 2, 0, 100};
  for (int i = 0; i < 3; ++i) Add(10, Dhcp4Request(0x0B));
  const Story story = Tell(3);
  EXPECT_EQ(story.outcome.refused, Refusal::kSnooping);
  ASSERT_EQ(story.budgets.size(), 2u);
  for (const BudgetStep& step : story.budgets) {
    EXPECT_EQ(step.used, 2u);
    EXPECT_EQ(step.limit, 2u);
    EXPECT_EQ(step.refusals, 1u) << "the experiments before counted in processes of their own";
  }
  ASSERT_EQ(story.keys.size(), 1u);
  EXPECT_EQ(story.keys[0].bytes, (std::vector<uint8_t>{2, 0, 0, 0, 0, 0x0B}));
  EXPECT_EQ(story.keys[0].hash, 210327058u);
  EXPECT_FALSE(story.sequence);
  std::vector<std::string> passes;
  for (const WhatIf& what : story.what_if)
    if (what.outcome.delivered != 0) passes.push_back(what.setting);
  EXPECT_EQ(passes, (std::vector<std::string>{"switches.v4_snooping", "every limit"}))
      << "no single limit stands alone";
}

TEST_F(ExplainTest, TheSwitchesThatMakeAFrameWantedAreNamed) {
  Add(10, ArpReply());
  const Story story = Tell(1);
  ASSERT_TRUE(story.need);
  EXPECT_FALSE(story.need->without);
  EXPECT_EQ(story.need->alone, 0u) << "two switches together";
  ASSERT_EQ(story.what_if.size(), 1u);
  EXPECT_EQ(story.what_if[0].setting, "switches.v4_reply");
  EXPECT_EQ(story.what_if[0].outcome.pkt_type, kPktTypeNone);
  EXPECT_NE(FormatStory(story, 2).find("not wanted with v4_reply off"), std::string::npos);
}

TEST_F(ExplainTest, AFrameThatCannotBePresentedHasAStoryToo) {
  Add(10, Bytes(9217, 0));
  const Story story = Tell(1);
  EXPECT_EQ(story.obstacle, Obstacle::kSize);
  EXPECT_TRUE(story.what_if.empty());
  EXPECT_NE(FormatStory(story, 3).find("not presented: 9217 bytes do not fit a packet buffer"),
            std::string::npos);
  EXPECT_THROW(Tell(2), InputError);
}

TEST_F(ExplainTest, APriorityTagIsVlanZeroAndAPortWithoutSettings) {
  options.port_by = PortBy::kVlan;
  Add(10, Dhcp4Request(1, {{0x8100, 0x2000}}));
  const Story story = Tell(1);
  EXPECT_EQ(story.port.index, 0u);
  EXPECT_EQ(story.outcome.verdict, Verdict::kTaken);
  EXPECT_NE(story.settings_tried, 0u);
}

TEST(InFork, AnswersWhatTheChildAnsweredAndNoticesADeadOne) {
  int mine = 1;
  EXPECT_EQ(InFork([&] { return std::vector<uint8_t>{static_cast<uint8_t>(++mine)}; }),
            std::vector<uint8_t>{2});
  EXPECT_EQ(mine, 1);
  EXPECT_THROW(InFork([]() -> std::vector<uint8_t> { throw 1; }), InputError);
}

}  // namespace
}  // namespace vex::host::testing
