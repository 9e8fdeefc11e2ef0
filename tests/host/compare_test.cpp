// compare_test.cpp - fates across a pipe, what changed between two of them, and children that fail.
#include "host/compare.h"

#include <signal.h>

#include "host/compare_report.h"
#include "host/error.h"
#include "host/refused_writer.h"
#include "tests/host/replay_fixture.h"

namespace vex::host::testing {
namespace {

using Job = std::function<void(ReplayProcess::Sender&)>;

FrameOutcome Outcome(uint64_t frame, Verdict verdict, std::initializer_list<uint8_t> channels,
                     std::initializer_list<Scope> refused_by = {}) {
  FrameOutcome outcome;
  outcome.file = "x.pcap";
  outcome.frame = frame;
  outcome.time = {-5, 7};
  outcome.port = 3;
  outcome.vlan = 30;
  outcome.pkt_type = 2;
  outcome.verdict = verdict;
  for (const uint8_t channel : channels) outcome.delivered.Add(channel);
  for (const Scope& scope : refused_by) outcome.refused_by.Add(scope);
  if (refused_by.size() != 0) {
    outcome.refused =
        refused_by.begin()->kind < ScopeKind::kPeerLink ? Refusal::kSnooping : Refusal::kPeerLink;
  }
  return outcome;
}

const FrameOutcome kTo3 = Outcome(1, Verdict::kTaken, {3});
const FrameOutcome kTo5 = Outcome(1, Verdict::kTaken, {5});
const FrameOutcome kLimited =
    Outcome(1, Verdict::kContinue, {}, {{ScopeKind::kInterface, 6, 3}, {ScopeKind::kVlan, 6, 30}});
const FrameOutcome kPeer = Outcome(1, Verdict::kContinue, {}, {{ScopeKind::kPeerLink, 0, 2}});

TEST(FrameFate, DescribesItself) {
  EXPECT_EQ(FateOf(kTo3).Describe(), "delivered to 3");
  EXPECT_EQ(FateOf(Outcome(1, Verdict::kTaken, {7, 8, 9, 10})).Describe(), "delivered to 7 8 9 10");
  EXPECT_EQ(FateOf(kLimited).Describe(), "refused by snooping (interface 3 v6, VLAN 30 v6)");
  EXPECT_EQ(FateOf(kPeer).Describe(), "refused by peer-link (peer-link DHCPv6 request)");
  EXPECT_EQ(FateOf(Outcome(1, Verdict::kTakeFailed, {})).Describe(), "failed");
  EXPECT_EQ(FateOf(Outcome(1, Verdict::kNotPresented, {})).Describe(), "not presented");
  FrameOutcome unwanted = Outcome(1, Verdict::kContinue, {});
  unwanted.pkt_type = kPktTypeNone;
  EXPECT_EQ(FateOf(unwanted).Describe(), "not wanted");
}

TEST(FrameFate, ChangesAreNamed) {
  const auto names = [](const FrameOutcome& a, const FrameOutcome& b) {
    return ChangeNames(Between(FateOf(a), FateOf(b)));
  };
  EXPECT_EQ(names(kTo3, kTo3), "");
  EXPECT_EQ(names(kTo3, kTo5), "instance");
  EXPECT_EQ(names(kTo3, kLimited), "verdict, refused");
  EXPECT_EQ(names(kLimited, kPeer), "refused");
}

Job Sends(const std::vector<FrameOutcome>& outcomes, std::vector<CaptureError> errors = {}) {
  return [=](ReplayProcess::Sender& sender) {
    for (const FrameOutcome& outcome : outcomes) sender.OnFrame(outcome);
    ReplayTotals totals;
    totals.frames = outcomes.size();
    totals.errors = errors;
    sender.Totals(totals, true);
  };
}

Comparison RunBoth(const Job& a, const Job& b, std::vector<std::string>* changed = nullptr) {
  ReplayProcess left("A.toml", a), right("B.toml", b);
  return Compare(left, right,
                 [&](const ChangedFrame& frame) {
                   if (changed != nullptr) changed->push_back(ChangeJson(frame));
                 },
                 {});
}

TEST(Compare, CountsMovesAndListsThem) {
  std::vector<std::string> changed;
  const Comparison sums = RunBoth(Sends({kTo3, kTo3, kTo3}), Sends({kTo3, kTo5, kLimited}), &changed);
  EXPECT_EQ(sums.frames, 3u);
  EXPECT_EQ(sums.changed, 2u);
  EXPECT_EQ(sums.instance, 1u);
  EXPECT_EQ(sums.verdict, 1u);
  EXPECT_EQ(sums.moved[size_t(Fate::kDelivered)][size_t(Fate::kSnooping)], 1u);
  EXPECT_EQ(sums.channels.size(), 1u);
  EXPECT_EQ(sums.b.totals.fates[size_t(Fate::kSnooping)], 1u);
  ASSERT_EQ(changed.size(), 2u);
  EXPECT_EQ(
      changed[0],
      "{\"file\":\"x.pcap\",\"frame\":1,\"time\":\"-5.000000007\",\"port\":3,\"vlan\":30,\"app_type\":0,"
      "\"changed\":[\"instance\"],"
      "\"a\":{\"port\":3,\"pkt_type\":2,\"verdict\":\"taken\",\"refused\":null,\"delivered\":[3]},"
      "\"b\":{\"port\":3,\"pkt_type\":2,\"verdict\":\"taken\",\"refused\":null,\"delivered\":[5]}}\n");
}

TEST(Compare, ManyFramesPassThroughTheBoundedPipe) {
  std::vector<FrameOutcome> outcomes;
  for (uint64_t i = 0; i < 50'000; ++i) outcomes.push_back(Outcome(i, Verdict::kTaken, {3}));
  const Comparison sums = RunBoth(Sends(outcomes), Sends(outcomes));
  EXPECT_EQ(sums.frames, 50'000u);
  EXPECT_EQ(sums.changed, 0u);
}

TEST(Compare, CaptureErrorsComeAcross) {
  const Comparison sums = RunBoth(Sends({}, {{"a b\nc.pcap", 1234, "cut short"}}), Sends({}));
  ASSERT_EQ(sums.a.errors.size(), 1u);
  EXPECT_EQ(sums.a.errors[0].Message(), "a b\nc.pcap: byte 1234: cut short");
}

std::string FailureOf(const Job& b) {
  try {
    RunBoth(Sends({kTo3}), b);
  } catch (const InputError& failure) {
    return failure.what();
  }
  return "no failure";
}

TEST(Compare, FailingSidesAreNamed) {
  EXPECT_EQ(FailureOf([](ReplayProcess::Sender&) { throw InputError("rate 6000 is out of range"); }),
            "with B.toml: rate 6000 is out of range");
  EXPECT_EQ(FailureOf([](ReplayProcess::Sender&) { raise(SIGKILL); }),
            "with B.toml: the replay ended with signal 9");
  EXPECT_EQ(FailureOf([](ReplayProcess::Sender&) {}), "with B.toml: the replay ended without its totals");
  EXPECT_EQ(FailureOf(Sends({kTo3, kTo3})), "the captures changed between the two replays");
}

TEST_F(ReplayTest, RefusedFramesAreWrittenWithTheirReason) {
  settings.interfaces[3].v4 = {.enable = 1, .rate = 1};
  settings.global.v4 = {.enable = 1, .rate = 2};
  PortRecord port;
  port.index = 3;
  port.name = "uplink";
  port.capture_interface = 0;
  options.ports = {port};
  for (int i = 0; i < 3; ++i) Add(9, Dhcp4Request(static_cast<uint8_t>(i)));
  const TempFile out({}, "refused");
  RefusedWriter writer(out.path());
  options.on_refused = std::bind_front(&RefusedWriter::Add, &writer);
  Run();
  writer.Finish();
  CaptureReader reader(out.path());
  Frame frame;
  for (const auto station : {uint8_t{1}, uint8_t{2}}) {
    ASSERT_TRUE(reader.Next(frame));
    EXPECT_EQ(Bytes(frame.bytes.begin(), frame.bytes.end()), Dhcp4Request(station));
    EXPECT_EQ(frame.time, (CaptureTime{9, 0}));
  }
  EXPECT_FALSE(reader.Next(frame));
  std::ifstream file(out.path(), std::ios::binary);
  const std::string bytes{std::istreambuf_iterator<char>(file), {}};
  EXPECT_NE(bytes.find("uplink"), std::string::npos);
  EXPECT_NE(bytes.find("snooping: interface 3 v4 (1/s); "), std::string::npos);
}

}  // namespace
}  // namespace vex::host::testing
