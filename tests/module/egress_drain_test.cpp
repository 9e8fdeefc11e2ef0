// egress_drain_test.cpp - the drain of the return channel: batches, order, re-entry, what is counted.
// In:  queues of messages of every kind, mixed by a seed. Out: an independent account of each drain compared
// with counters, callbacks, published and uploaded packets, and the event.
#include <functional>
#include <map>
#include <random>
#include <thread>

#include "dhcp_vex_egress_db_dynso.h"
#include "test_paths.h"
#include "tests/module/egress_test.h"

namespace vex::module_test {
namespace {

using platform::Egress;

std::vector<uint64_t> g_bodies;  // first byte of each user-binding message body
std::function<void()> g_inCallback;

uint32_t NoteBody(void* body, void* again) {
  EXPECT_EQ(body, again);
  g_bodies.push_back(*static_cast<uint8_t*>(body));
  if (g_inCallback) g_inCallback();
  return 0;
}

class DrainTest : public EgressTest {
 protected:
  void SetUp() override {
    EgressTest::SetUp();
    ASSERT_EQ(DhcpVexEventCallBackReg(DHCP_EVENT_USER_BIND, NoteBody), 0u);
  }
  void TearDown() override {
    DhcpVexEventCallBackUnReg(DHCP_EVENT_USER_BIND, NoteBody);
    EgressTest::TearDown();
  }
};

enum Kind { kBound, kUploaded, kSent, kRefusedByPort, kByMlag, kVplsRefused, kUncut, kNdUncut, kDamaged };
constexpr size_t kKinds = kDamaged + 1;
constexpr bool Counts(Kind kind) { return kind <= kByMlag; }

Message Of(Kind kind, uint64_t cookie) {
  const Message packet = Make(kEthernet).Cookie(cookie);
  if (kind == kBound) return Make(kBind, {static_cast<uint8_t>(cookie)});
  if (kind == kUploaded) return Make(kNd).Cookie(cookie);
  if (kind == kByMlag) return packet.ByMlag();
  if (kind == kVplsRefused) return packet.Vpls(1, 1);     // no such tunnel
  if (kind == kUncut) return packet.Length(kHeader + 5);  // one byte more than there is
  if (kind == kNdUncut) return Make(kNd).Length(65535);
  if (kind == kDamaged) return Make(kBind).Length(kHeader + 4);  // the body starts behind the buffer
  return packet;
}

// What a queue must lead to, message by message.
struct Account {
  Stats moved{};
  std::vector<uint64_t> bodies, uploaded, sent;
  void Add(Kind kind, uint64_t cookie) {
    if (Counts(kind)) ++moved[1];
    if (kind == kRefusedByPort) ++moved[2];
    if (kind == kUncut) ++moved[3];
    if (kind == kBound) bodies.push_back(static_cast<uint8_t>(cookie));
    if (kind == kUploaded) uploaded.push_back(cookie);
    if (kind == kSent || kind == kRefusedByPort) sent.push_back(cookie);
  }
};

TEST_F(DrainTest, HandlesAtMost33CountedMessagesWhateverTheMix) {
  std::vector<uint64_t> sent, refused;
  Egress().SetPublishSink([&](PacketPtr packet, const HostEgressDesc&, uint32_t source) {
    EXPECT_EQ(source, 105u);
    sent.push_back(packet->attr.cookie);
    return std::ranges::count(refused, packet->attr.cookie) != 0 ? 9u : 0u;
  });
  for (uint32_t seed = 0; seed < 300; ++seed) {
    std::mt19937 random(seed);
    std::vector<int> weights(kKinds);
    for (int& weight : weights) weight = static_cast<int>(random() % 4);
    weights[random() % kKinds] = 4;
    std::discrete_distribution<int> pick(weights.begin(), weights.end());
    std::vector<Kind> queue(random() % 130);
    refused.clear();
    for (size_t i = 0; i < queue.size(); ++i) {
      queue[i] = static_cast<Kind>(pick(random));
      if (queue[i] == kRefusedByPort) refused.push_back(i);
      Send(Of(queue[i], i));
    }
    for (size_t next = 0;;) {
      Account account;
      while (next < queue.size() && account.moved[1] < 33) account.Add(queue[next], next), ++next;
      EXPECT_EQ(Drain(), account.moved[1] == 33) << "seed " << seed;
      EXPECT_EQ(channel_->Size(), queue.size() - next) << "seed " << seed;
      EXPECT_EQ(Moved(), account.moved) << "seed " << seed;
      EXPECT_EQ(std::exchange(g_bodies, {}), account.bodies);
      EXPECT_EQ(std::exchange(sent, {}), account.sent);
      EXPECT_EQ(Uploaded(), account.uploaded);
      if (account.moved[1] != 33) break;
    }
  }
}

TEST_F(DrainTest, TheEventIsWrittenAgainOnlyWhenTheBatchIsUsedUp) {
  for (const auto& [messages, calls] :
       std::map<int, size_t>{{0, 1}, {32, 1}, {33, 2}, {34, 2}, {66, 3}, {100, 4}}) {
    for (int i = 0; i < messages; ++i) Send(Make(kEthernet));
    platform::Events().Write(2);
    EXPECT_EQ(platform::Events().RunUntilIdle(), calls) << messages << " messages";
    EXPECT_EQ(Published().size(), static_cast<size_t>(messages));
  }
}

// A second drain from within any step of a running one, on its thread or another, touches nothing.
TEST_F(DrainTest, ASecondDrainLeavesEverythingToTheRunningOne) {
  size_t intrusions = 0;
  const auto intrude = [&] {
    const size_t waiting = channel_->Size();
    const Stats before = ReadStats();
    EXPECT_EQ(g_dhcpPktLogVexBarrier, 1u);
    Dhcp2VexChnEvtCallback();
    std::thread(Dhcp2VexChnEvtCallback).join();
    EXPECT_EQ(channel_->Size(), waiting);
    EXPECT_EQ(ReadStats(), before);
    EXPECT_EQ(g_dhcpPktLogVexBarrier, 1u);
    ++intrusions;
  };
  g_inCallback = intrude;
  Egress().SetPublishSink([&](PacketPtr, const HostEgressDesc&, uint32_t) { return intrude(), 0u; });
  Egress().SetUploadSink([&](PacketPtr) { return intrude(), 0u; });
  for (uint64_t i = 0; i < 39; ++i) Send(Of(std::array{kBound, kSent, kUploaded}[i % 3], i));
  EXPECT_TRUE(Drain());
  EXPECT_FALSE(Drain());
  g_inCallback = {};
  EXPECT_EQ(intrusions, 39u);
  EXPECT_EQ(Moved()[1], 39u);
}

TEST_F(DrainTest, OnlyItsOwnBarrierIsLeft) {
  g_inCallback = [] { g_dhcpPktLogVexBarrier = 7; };
  Send(Make(kBind));
  Drain();
  g_inCallback = {};
  EXPECT_EQ(g_dhcpPktLogVexBarrier, 7u);
  Send(Make(kBind));
  Drain();
  EXPECT_EQ(channel_->Size(), 1u) << "the barrier was not free";
  g_dhcpPktLogVexBarrier = 0;
}

TEST_F(DrainTest, TheBodyStartsBehindTheHeaderAndLivesDuringTheCall) {
  static const uint8_t* header;
  static size_t packetsInCallback;
  const auto look = [](void* body, void*) -> uint32_t {
    EXPECT_EQ(body, header + 7);
    EXPECT_EQ(std::memcmp(body, "body", 4), 0);
    packetsInCallback = platform::Packets().Stats().inUse;
    return 77;
  };
  DhcpVexEventCallBackUnReg(DHCP_EVENT_USER_BIND, NoteBody);
  DhcpVexEventCallBackReg(DHCP_EVENT_USER_BIND, look);
  PacketPtr packet = Make(kBind, BytesOf("body"), 7).New();
  header = packet->Data();
  EXPECT_EQ(DhcpVexProcUserBindMsgFromDhcp(packet.get()), 77u);
  ASSERT_TRUE(channel_->Send(packet));
  Drain();
  EXPECT_EQ(packetsInCallback, 1u);
  EXPECT_EQ(platform::Packets().Stats().inUse, 0u);
  EXPECT_EQ(DhcpVexProcUserBindMsgFromDhcp(nullptr), 0u);
  DhcpVexEventCallBackUnReg(DHCP_EVENT_USER_BIND, look);
}

TEST_F(DrainTest, AnUploadedPacketIsMarkedAndWithoutItsHeader) {
  Send(Make(kNd, BytesOf("nd packet")));
  Drain();
  const auto uploaded = Egress().TakeUploaded();
  ASSERT_EQ(uploaded.size(), 1u);
  EXPECT_EQ(uploaded[0]->attr.ndHookIgnore, 1u);
  EXPECT_EQ(Bytes(uploaded[0]->Bytes().begin(), uploaded[0]->Bytes().end()), BytesOf("nd packet"));
}

// The trace follows marked packets (8 bits count), the debug channel its switch.
TEST_F(DrainTest, NdUploadsAreTracedInPairs) {
  const std::vector<std::string> lines = {"DHCP process ND upload ldm", "DHCP process ND upload ldm",
                                          "DHCP process ND upload ldm, cut head failed. (intfLen=999)"};
  const std::vector<std::string> none;
  for (const uint32_t mark : {0u, 1u, 0x100u, 0x80u}) {
    for (const bool debug : {false, true}) {
      DhcpVexSetDbgSwitch(debug);
      LogCapture logs;
      Send(Make(kNd).Marked(mark));
      Send(Make(kNd).Marked(mark).Length(999));
      Drain();
      EXPECT_EQ(logs.Texts(LogOutput::kHostDiag), (mark & 0xFF) != 0 ? lines : none) << mark;
      EXPECT_EQ(logs.Texts(LogOutput::kDebugReport), debug ? lines : none);
      EXPECT_EQ(logs.Texts(LogOutput::kImAgent), none);
    }
  }
}

TEST_F(DrainTest, AnOutputPacketIsDumpedWithoutItsHeader) {
  g_dhcpPktDump = 1;
  LogCapture logs(platform::MaskOf(LogOutput::kFrameworkLog));
  Send(Make(kEthernet, Bytes(17, 0x5A)));
  Send(Make(kNd));
  Send(Make(kBind));
  Drain();
  g_dhcpPktDump = 0;
  std::string text = "DHCP Send packet:\n";
  for (int i = 0; i < 16; ++i) text += " 5A";
  ASSERT_EQ(logs.Lines().size(), 1u) << "only packets that leave are dumped";
  EXPECT_EQ(logs.Lines()[0].text, text + "\n 5A");
  EXPECT_EQ(logs.Lines()[0].level, 4u);
}

TEST_F(DrainTest, EveryPacketGetsOnlyItsOwnSettings) {
  Send(Make(kEthernet).EgressFlags(0x28000));
  Send(Make(kEthernet));
  Drain();
  const auto published = Egress().TakePublished();
  ASSERT_EQ(published.size(), 2u);
  EXPECT_EQ(platform::EgressView::Decode(published[0].desc).settings.size(), 28u);
  EXPECT_EQ(platform::EgressView::Decode(published[1].desc).settings.size(), 27u) << "without a prune type";
}

// A channel that goes on answering so must not hold the thread; what lies behind is not forgotten either.
TEST_F(DrainTest, AReceiveWithoutAPacketEndsTheBatchAndAsksForAnother) {
  for (int i = 0; i < 3; ++i) Send(Make(kEthernet));
  Faults().Arm({.import = Import::ORB_ChannelDcRecv, .skip = 1, .form = FaultForm::kHollow});
  for (int drain = 0; drain < 3; ++drain) EXPECT_TRUE(Drain());
  EXPECT_EQ(Moved(), (Stats{0, 1}));
  Faults().Disarm(Import::ORB_ChannelDcRecv);
  EXPECT_FALSE(Drain());
  EXPECT_EQ(Moved(), (Stats{0, 2}));
}

class MlagTest : public EgressTest {
 protected:
  MlagTest() : EgressTest({VEX_OPTIONAL_DIR "/libvex_mlag.so"}) {}
};

TEST_F(MlagTest, TheLibraryGetsThePacketWithoutItsHeaderAndAnArgumentOf0) {
  Faults().FailNth(Import::MLAG_VEX_SendPacketPublic, 2);  // its answer is not used
  Send(Make(kEthernet, BytesOf("one")).ByMlag());
  Send(Make(kEthernet, BytesOf("lost")).ByMlag());
  Drain();
  EXPECT_EQ(Moved(), (Stats{0, 2}));
  EXPECT_TRUE(Published().empty());
  const auto sends = platform::Objects().TakeMlagSends();
  ASSERT_EQ(sends.size(), 1u);
  EXPECT_EQ(sends[0].bytes, BytesOf("one"));
  EXPECT_EQ(sends[0].arg, 0u);
}

}  // namespace
}  // namespace vex::module_test
