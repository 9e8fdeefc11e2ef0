// report_test.cpp - report, JSON lines and progress line on made-up totals.
#include "host/report.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <nlohmann/json.hpp>
#include <sstream>

#include "host/error.h"
#include "host/json_lines.h"
#include "host/progress.h"

namespace vex::host::testing {
namespace {

ReplayTotals SomeTotals() {
  ReplayTotals t;
  t.frames = 100;
  t.not_presented = 1;
  t.not_wanted = 9;
  t.refused = 30;
  t.delivered = 55;
  t.failed = 5;
  t.by_app_type[0] = 9;
  t.by_app_type[17] = 90;
  t.by_pkt_type[2] = {35, 55, 0, 0};
  t.by_pkt_type[13] = {9, 0, 0, 1};
  t.by_channel[3] = 50;
  t.by_channel[4] = 5;
  t.by_channel[11] = 2;
  t.by_refusal = {69, 28, 2};
  t.stats = {60, 0, 0, 0, 0, 0, 5, 0};
  t.speed_info_events = 2;
  t.scopes = {{{ScopeKind::kInterface, 4, 1}, 100, 80, 52, 28, 20, 1700000000, 20, 8, 0},
              {{ScopeKind::kPeerLink, 0, 0}, 5, 4, 2, 2, 2, 1700000001, 0, 2, 0}};
  return t;
}

TEST(Report, FitsOneScreenAndSaysWhatHappened) {
  const std::string want = R"(a.pcap: 100 frames, 2 instances, configuration x.toml

by application type               by packet type and verdict
                 frames  share                     continue  taken  take_failed  not_presented
  other               9   9.0%      2 DHCP               35     55            0              0
  DHCPv4             90  90.0%      13 not wanted         9      0            0              1
  not presented       1   1.0%

by channel                               by instance
      carries         messages  share                  DHCP  ICMP/ND/ARP  all  share
   3  DHCP                  50  90.9%      instance 0    50            0   50  90.9%
   4  DHCP                   5   9.1%      instance 1     5            0    5   9.1%
   7  ICMP/ND                0   0.0%
   8  ICMP/ND                0   0.0%
  11  inner messages         2

refused by gate                         statistics of the module
                       frames  share      hookPktCnt            60  getThreadInfoFailCnt  0
  snooping                 28  28.0%      svcMsgCnt              0  getChnIdFailCnt       0
  peer-link                 2   2.0%      egressPubFailCnt       0  pktSendFailCnt        5
  speed-info messages       2             egressCutHeadFailCnt   0  innerMsgSendFailCnt   0
  peer-link lines           0

budgets
                            limit/s  offered  passed  refused      worst second  reported  pending
  interface 1 v4                100       80      52       28  20 at 1700000000        20        8
  peer-link DHCPv4 request        5        4       2        2   2 at 1700000001         0        2

100 frames = 1 not presented + 9 not wanted + 30 refused + 55 delivered + 5 failed: holds
)";
  EXPECT_EQ(FormatReport({"a.pcap", "x.toml", 2}, SomeTotals()), want);
}

TEST(Report, ShowsWhatDoesNotAddUp) {
  ReplayTotals t = SomeTotals();
  t.delivered = 54;
  t.scopes[0].pending = 7;
  const std::string text = FormatReport({"a.pcap", "", 4}, t);
  EXPECT_NE(text.find("DOES NOT HOLD"), std::string::npos);
  EXPECT_NE(text.find("interface 1 v4: 28 refused, but 20 reported + 7 pending + 0 lost do not add up"),
            std::string::npos);
  t.scopes.resize(200, t.scopes[1]);
  t.scopes[150] = {.scope = {ScopeKind::kGlobal, 6, 0}, .refused = 70000, .pending = 70000 - 65536};
  const std::string crowded = FormatReport({"a.pcap", "", 5}, t);
  for (const char* part :
       {"global v6", "and 184 more, none refused more", "modulo 65536", "5 instances (as if one"})
    EXPECT_NE(crowded.find(part), std::string::npos) << part << "\n" << crowded;
  std::istringstream lines(crowded);
  size_t count = 0;
  for (std::string line; std::getline(lines, line); ++count) EXPECT_LE(line.size(), 100u) << line;
  EXPECT_LE(count, 60u);
}

std::vector<nlohmann::json> LinesOf(const std::function<void(JsonLines&)>& write) {
  char* text = nullptr;
  size_t size = 0;
  std::FILE* file = open_memstream(&text, &size);
  {
    JsonLines json(file);
    write(json);
    json.Finish();
  }
  std::fclose(file);
  std::istringstream lines(std::string(text, size));
  std::free(text);
  std::vector<nlohmann::json> objects;
  for (std::string line; std::getline(lines, line);) objects.push_back(nlohmann::json::parse(line));
  return objects;
}

TEST(JsonLines, AFrameHasEveryKeyWhateverItsFileIsCalled) {
  FrameOutcome o;
  o.frame = 7;
  o.time = {-1, 5};
  o.port = 3;
  o.vlan = 30;
  o.app_type = 17;
  o.pkt_type = 2;
  o.verdict = Verdict::kContinue;
  o.refused = Refusal::kSnooping;
  o.refused_by.Add({ScopeKind::kInterface, 4, 1});
  o.refused_by.Add({ScopeKind::kGlobal, 4, 0});
  for (const std::string name : {"a.pcap", "a\"\\\n\t\x01.pcap", "\xff\xfe", "\xe2\x82\xac.pcap"}) {
    const auto lines = LinesOf([&](JsonLines& json) {
      o.file = name;
      json.OnFrame(o);
    });
    ASSERT_EQ(lines.size(), 1u);
    nlohmann::json want = nlohmann::json::parse(
        R"({"frame":7,"time":"-1.000000005","port":3,"vlan":30,"app_type":17,"pkt_type":2,"taken":false,
            "channel":null,"verdict":"continue","refused":"snooping","refused_by":["interface 1","global"],
            "delivered":[]})");
    want["file"] = name == "\xff\xfe" ? "\xef\xbf\xbd\xef\xbf\xbd" : name;
    EXPECT_EQ(lines[0], want);
  }
}

TEST(JsonLines, ReportsAreObjectsOfTheirOwnAndTheSummaryIsLast) {
  const auto lines = LinesOf([](JsonLines& json) {
    FrameOutcome o;
    o.file = "a";
    o.verdict = Verdict::kTaken;
    o.taken = true;
    o.channel = 14;
    for (const auto channel : {uint8_t{7}, uint8_t{8}}) o.delivered.Add(channel);
    ReplayEvent e;
    e.file = "b";
    e.frame = 9;
    e.speed_info = {5, 30, 65535};
    json.OnEvent(e);
    json.OnFrame(o);
    e.kind = ReplayEvent::Kind::kPeerLink;
    e.text =
        "(vex), [VEX-DHCP][M-LAG] The rate of DHCPv4 Request packet exceeds the speed limit(100/s) and has "
        "been discarded. "
        "(pktdiscardcnt:30)";
    json.OnEvent(e);
    e.text = "The rate of \" packet exceeds the speed limit(01/s) (pktdiscardcnt:x)";
    json.OnEvent(e);
    ReplayTotals totals = SomeTotals();
    totals.scopes.resize(1);
    json.Summary(totals);
  });
  ASSERT_EQ(lines.size(), 6u);
  EXPECT_EQ(lines[0],
            nlohmann::json::parse(
                R"({"event":"speed-info","file":"b","frame":9,"time":"0.000000000","kind":5,"scope":"VLAN 30",
                                               "version":6,"index":30,"refused":65535})"));
  EXPECT_EQ(lines[1]["channel"], 14);
  EXPECT_EQ(lines[1]["delivered"], nlohmann::json::parse("[7,8]"));
  EXPECT_EQ(lines[2]["kind"], "DHCPv4 Request");
  EXPECT_EQ(lines[2]["limit"], 100);
  EXPECT_EQ(lines[2]["refused"], 30);
  EXPECT_FALSE(lines[3].contains("limit")) << "a line of another form is passed on as text";
  EXPECT_EQ(lines[4]["event"], "scope");
  EXPECT_EQ(lines[4]["balanced"], true);
  EXPECT_EQ(lines[5],
            nlohmann::json::parse(
                R"({"summary":{"frames":100,"not_presented":1,"not_wanted":9,"refused":30,"delivered":55,
                                               "failed":5,"stats":[60,0,0,0,0,0,5,0]}})"));
}

TEST(JsonLines, AFullDiskIsReported) {
  std::FILE* full = std::fopen("/dev/full", "w");
  ASSERT_NE(full, nullptr);
  JsonLines json(full);
  json.Summary(SomeTotals());
  EXPECT_THROW(json.Finish(), InputError);
  std::fclose(full);
}

TEST(Progress, TellsShareRateAndRemainingTime) {
  EXPECT_EQ(ProgressLine(25, 100, 3'000'000, 2),
            "[=======                       ]  25%  1.5M frames/s  ETA 0:06");
  EXPECT_EQ(ProgressLine(100, 100, 500, 1), "[==============================] 100%  500 frames/s  ETA 0:00");
  EXPECT_EQ(ProgressLine(200, 100, 500, 1), "[==============================] 100%  500 frames/s  ETA 0:00");
  EXPECT_EQ(ProgressLine(5, 0, 12'000, 3), "12000 frames  4.0k frames/s");
  EXPECT_LE(ProgressLine(1, UINT64_MAX, UINT64_MAX, 1e9).size(), 78u);
}

}  // namespace
}  // namespace vex::host::testing
