// configure_test.cpp - the requests between two states of the settings, and what the module then holds.
#include "service/configure.h"

#include <gtest/gtest.h>

#include "dhcp_vex_api_cfg.h"

namespace vex::service {
namespace {

using Requests = std::vector<Request>;
constexpr Handler S = Handler::kSnooping;

TEST(Requests, NothingChangedIsNothingSent) {
  EXPECT_TRUE(RequestsBetween({}, {}).empty());
  Settings same = WithSwitches(0x7FFF);
  same.interfaces[1].trusted = 1;
  EXPECT_TRUE(RequestsBetween(same, same).empty());
  Settings defaults_named;
  defaults_named.vlans[7] = {};
  EXPECT_TRUE(RequestsBetween({}, defaults_named).empty());
}

TEST(Requests, LimitsComeBeforeTheSwitchesAndARateBeforeItsEnable) {
  Settings to = WithSwitches(0x7FFF);
  to.degrade_rate = 900;
  to.global.v6 = {1, 10, 0, 100};
  to.interfaces[3] = {{1, 200, 1, 7}, {}, 1};
  to.vlans[30] = {{}, {1, 5, 0, 100}, {7, 8}};
  EXPECT_EQ(RequestsBetween({}, to), (Requests{{S, 13, 10, 0},
                                               {S, 12, 1, 0},
                                               {S, 3, 200, 3},
                                               {S, 9, 7, 3},
                                               {S, 8, 1, 3},
                                               {S, 2, 1, 3},
                                               {S, 24, 1, 3},
                                               {S, 17, 5, 30},
                                               {S, 16, 1, 30},
                                               {S, 25, 7, 30},
                                               {S, 25, 8, 30},
                                               {Handler::kDegrade, 0, 900, 0},
                                               {Handler::kSwitch, 16, 0x7FFF, 0}}));
}

TEST(Requests, OneSwitchIsSentAsItselfAndSeveralAsABitmap) {
  EXPECT_EQ(RequestsBetween(WithSwitches(1), WithSwitches(0x11)), (Requests{{Handler::kSwitch, 4, 1, 0}}));
  EXPECT_EQ(RequestsBetween(WithSwitches(0x11), WithSwitches(1)), (Requests{{Handler::kSwitch, 4, 0, 0}}));
  EXPECT_EQ(RequestsBetween(WithSwitches(0x11), WithSwitches(2)), (Requests{{Handler::kSwitch, 16, 2, 0}}));
  EXPECT_EQ(RequestsBetween(WithSwitches(0), WithSwitches(0x10000)),
            (Requests{{Handler::kSwitch, 16, 0x10000, 0}}))
      << "no switch has this bit";
}

// A record that is at its defaults for a moment is deleted, and its counters with it.
TEST(Requests, ARecordIsNeverAtItsDefaultsOnTheWay) {
  Settings from, to;
  from.interfaces[1].v4.rate = 200;
  from.vlans[2].trusted = {7};
  to.interfaces[1].v4.aux = 9;
  to.vlans[2].trusted = {8};
  EXPECT_EQ(RequestsBetween(from, to),
            (Requests{{S, 9, 9, 1}, {S, 3, 5000, 1}, {S, 25, 8, 2}, {S, 26, 7, 2}}));
  EXPECT_EQ(RequestsBetween(to, {}), (Requests{{S, 9, 100, 1}, {S, 26, 8, 2}}));
}

std::vector<std::string> g_calls;
uint32_t g_refuse_snooping = 0;

TEST(Requests, EachHandlerGetsItsOwnRecordUntilOneRefuses) {
  const Handlers handlers{
      [](const DhcpCfgReq* r) -> uint32_t {
        g_calls.push_back("switch " + std::to_string(r->type) + "=" + std::to_string(r->val));
        return 0;
      },
      [](const DhcpSnpCfgReq* r) -> uint32_t {
        g_calls.push_back("snooping " + std::to_string(r->type) + "=" + std::to_string(r->val) + "@" +
                          std::to_string(r->indexId));
        return g_refuse_snooping;
      },
      [](const DhcpDegradeCfgReq* r) -> uint32_t {
        g_calls.push_back("degrade " + std::to_string(r->rate));
        return 0;
      }};
  const Requests requests = {
      {Handler::kSwitch, 4, 1, 0}, {Handler::kDegrade, 0, 5, 0}, {S, 5, 300, 10}, {S, 24, 1, 1}};
  EXPECT_EQ(Send(handlers, requests), 4u);
  EXPECT_EQ(g_calls,
            (std::vector<std::string>{"switch 4=1", "degrade 5", "snooping 5=300@10", "snooping 24=1@1"}));
  g_refuse_snooping = 1;
  EXPECT_EQ(Send(handlers, requests), 2u) << "stops at the refused one";
  EXPECT_EQ(g_calls.size(), 7u);
}

}  // namespace
}  // namespace vex::service
