// service_test.cpp - the service as a whole: limits, restart, answer mode, foreign messages, threads.
#include "service/service.h"

#include "platform/channel.h"
#include "service/channel_plan.h"
#include "tests/service/service_test.h"

namespace vex::service_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;

class ServiceAsAWhole : public ServiceTest {
 protected:
  void TearDown() override {
    if (service_) ExpectEveryMessageHasOneOutcome();
    ServiceTest::TearDown();
  }
  void Lease(uint8_t client, const char* address) {
    Arrive(Dhcp4Frame({.type = Dhcp4Type::kRequest, .client = Mac(client), .requested = address}),
           kClientPort);
    Arrive(Dhcp4Frame({.type = Dhcp4Type::kAck, .client = Mac(client), .yiaddr = address}), kUplink);
  }
  void Inject(uint32_t channel, const Buffer& bytes) {
    auto packet = platform::Packets().New(bytes, {});
    ASSERT_TRUE(platform::Channels().Find(service::kChannels[channel].name)->Send(packet));
  }
};

TEST_F(ServiceAsAWhole, WithoutATrustedPortARequestGoesNowhere) {
  Begin(0, {.ports = {kClientPort, kOtherPort}});
  EXPECT_THAT(Arrive(Dhcp4Frame({}), kClientPort), IsEmpty());
  EXPECT_EQ(CountOn(kClientPort, Counter::kNoTrustedPort), 1u);
  service_->SetPorts({kClientPort, kUplink});
  EXPECT_EQ(Arrive(Dhcp4Frame({}), kClientPort).count(kUplink), 1u);
}

// The server has not heard of it, so the lease goes on.
TEST_F(ServiceAsAWhole, AReleaseThatGoesNowhereEndsNothing) {
  Begin(0);
  Lease(1, "10.0.0.1");
  service_->SetPorts({kClientPort});
  Arrive(Dhcp4Frame({.type = Dhcp4Type::kRelease, .client = Mac(1), .ciaddr = "10.0.0.1"}), kClientPort);
  EXPECT_EQ(Bindings().size(), 1u);
  EXPECT_EQ(Count(Counter::kNoTrustedPort), 1u);
}

// The module's word counts from one message to the next.
TEST_F(ServiceAsAWhole, TrustIsTheModulesAndPerVlan) {
  Begin(0, {}, false);
  const Buffer offer = Tagged(Dhcp4Frame({.type = Dhcp4Type::kOffer}), 30);
  Arrive(Tagged(Dhcp4Frame({}), 30), kClientPort, 30);
  EXPECT_THAT(Arrive(offer, kUplink2, 30), IsEmpty());
  service::Settings settings = configured_;
  settings.vlans[30].trusted = {kUplink2};
  Configure(settings);
  EXPECT_THAT(Arrive(offer, kUplink2, 30), ElementsAre(Pair(kClientPort, ElementsAre(offer))));
  EXPECT_EQ(CountOn(kUplink2, Counter::kRogueServer), 1u);
  EXPECT_EQ(Arrive(Dhcp4Frame({}), kClientPort).count(kUplink2), 0u) << "trusted in VLAN 30 only";
}

TEST_F(ServiceAsAWhole, AFullReturnChannelCostsPacketsButNoBinding) {
  ASSERT_TRUE(platform::Packets().Configure({.count = 8192}));
  Begin(0);
  Arrive(Dhcp4Frame({.type = Dhcp4Type::kRequest, .requested = "10.0.0.9"}), kClientPort);
  auto* channel = platform::Channels().Find("channel/dhcp2vex");
  while (channel->Size() < channel->Depth())
    ASSERT_TRUE(channel->Send(platform::Packets().New(Buffer(1), {}).release()));
  Punt(Dhcp4Frame({.type = Dhcp4Type::kAck, .yiaddr = "10.0.0.9"}), kUplink);
  service_->Poll(platform::TheClock().NowNs());
  EXPECT_EQ(CountOn(kUplink, Counter::kSendRefused), 1u);
  EXPECT_THAT(notices_, ElementsAre(HasSubstr("return channel is full")));
  EXPECT_EQ(service_->Stats().waiting_announcements, 1u);
  channel->Drain();
  Settle();
  EXPECT_EQ(Bindings().size(), 1u);
  EXPECT_EQ(service_->Stats().waiting_announcements, 0u);
}

TEST_F(ServiceAsAWhole, BindingsAreBoundedAndTheClientIsServedAllTheSame) {
  Begin(0, {.max_bindings = 2});
  Lease(1, "10.0.0.1");
  Lease(2, "10.0.0.2");
  Lease(3, "10.0.0.3");
  EXPECT_EQ(Bindings().size(), 2u);
  EXPECT_EQ(CountOn(kUplink, Counter::kServerForwarded), 3u);
  EXPECT_EQ(CountOn(kClientPort, Counter::kBindingFull), 1u);
  Arrive(Dhcp4Frame({.type = Dhcp4Type::kRelease, .client = Mac(1), .ciaddr = "10.0.0.1"}), kClientPort);
  Lease(3, "10.0.0.3");
  EXPECT_EQ(Bindings().size(), 2u);
}

// A flood of other clients makes the table forget the oldest, and the one under way is not among them.
TEST_F(ServiceAsAWhole, ClientsAreBoundedAndTheOldestGivesWay) {
  Begin(0, {.max_clients = 64});
  for (uint32_t i = 0; i < 1000; ++i) {
    Dhcp4Spec spec{.xid = i};
    spec.client = {2, 9, 9, 9, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
    Arrive(Dhcp4Frame(spec), kRoguePort);
  }
  Arrive(Dhcp4Frame({}), kClientPort);
  EXPECT_LE(service_->Stats().clients, 64u);
  EXPECT_EQ(Arrive(Dhcp4Frame({.type = Dhcp4Type::kOffer}, true), kUplink).count(kClientPort), 1u);
}

TEST_F(ServiceAsAWhole, BindingsSurviveARestart) {
  Begin(2);
  std::vector<Binding> many;
  for (uint32_t i = 0; i < 10'000; ++i) {
    const MacAddress mac = {2, 1, 1, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)};
    many.push_back(
        {BindingKind::kDhcp4, IpAddress::V4(0x0A000000 + i), 32, 0, kClientPort, mac, {}, EndAfter(100 + i)});
  }
  many[5].lease_end = EndAfter(0);  // has ended meanwhile
  service_->Restore(many, platform::TheClock().NowNs());
  for (int i = 0; i < 100; ++i) Settle();
  EXPECT_EQ(Bindings().size(), 9'999u);
  EXPECT_EQ(Count(Counter::kRestored), 9'999u);
  Pass(200);
  for (int i = 0; i < 10; ++i) Settle();
  EXPECT_EQ(Bindings().size(), 10'000u - 101u);
  // A restored lease is its owner's to give up, and nobody else's.
  const Dhcp4Spec release{.type = Dhcp4Type::kRelease, .client = many[900].mac, .ciaddr = "10.0.3.132"};
  Arrive(Dhcp4Frame(release), kRoguePort);
  EXPECT_EQ(CountOn(kRoguePort, Counter::kWrongPort), 1u);
  Arrive(Dhcp4Frame(release), kClientPort);
  EXPECT_EQ(Bindings().size(), 10'000u - 102u);
}

TEST_F(ServiceAsAWhole, MessagesThatTheModuleDidNotWriteAreDropped) {
  std::vector<DhcpSpeedInfoMsg> reports;
  Begin(4, {.speed_info = [&reports](const DhcpSpeedInfoMsg& message) { reports.push_back(message); }});
  ByteWriter header;
  header.U8(24).Zeros(23);  // as the module writes it on a little-endian machine
  struct {
    const char* what;
    uint32_t channel;
    Buffer bytes;
    Counter outcome;
  } const kCases[] = {
      {"no header", 2, Buffer(23, 0), Counter::kBadHeader},
      {"wrong length", 3, Buffer(60, 1), Counter::kBadHeader},
      {"header only", 3, Buffer(header.View().begin(), header.View().end()), Counter::kMalformed},
      {"ARP", 1, Buffer(header.View().begin(), header.View().end()), Counter::kObserved},
      {"cut inner message", 11, {32, 0, 8, 1, 0, 0}, Counter::kBadHeader},
      {"other inner message", 11, Buffer(276, 0), Counter::kBadHeader},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    const uint64_t before = Count(c.outcome);
    Inject(c.channel, c.bytes);
    Settle();
    EXPECT_EQ(Count(c.outcome), before + 1);
  }
  Buffer reserved(header.View().begin(), header.View().end());
  reserved[4] = 1;
  Inject(2, reserved);
  Settle();
  EXPECT_EQ(Count(Counter::kBadHeader), 5u);
  EXPECT_THAT(reports, IsEmpty());
}

TEST_F(ServiceAsAWhole, ReportsOfRefusedPacketsArrive) {
  std::vector<DhcpSpeedInfoMsg> reports;
  Begin(4, {.speed_info = [&reports](const DhcpSpeedInfoMsg& message) { reports.push_back(message); }});
  service::Settings settings = configured_;
  settings.interfaces[kClientPort].v4 = {.enable = 1, .rate = 2};
  Configure(settings);
  for (int i = 0; i < 10; ++i) Punt(Dhcp4Frame({}), kClientPort);
  Settle();
  EXPECT_EQ(CountOn(kClientPort, Counter::kClientForwarded), 2u);
  Pass(30);
  ASSERT_EQ(reports.size(), 1u);
  EXPECT_EQ(reports[0].msgKind, 1u);
  EXPECT_EQ(reports[0].indexId, kClientPort);
  EXPECT_EQ(reports[0].dropCnt, 8);
  EXPECT_THAT(service_->Stats().reported_drops, ElementsAre(Pair(uint64_t{1} << 32 | kClientPort, 8u)));
  EXPECT_EQ(Count(Counter::kInner), 1u);
}

TEST_F(ServiceAsAWhole, TwoFeedsAndAMissingModuleAreRefused) {
  EXPECT_THROW(Service({}), std::runtime_error);
  Begin(0);
  service::Options options;
  options.module = service::ModuleApi::Of(*module_);
  EXPECT_THROW(Service(std::move(options)), std::runtime_error);
}

// What the host reads beside the port: tags, VLAN, the port it came in by.
TEST_F(ServiceAsAWhole, TheDescriptorNamesVlanTagsAndIngressPort) {
  Begin(0, {}, false);
  Punt(Tagged(Dhcp4Frame({}), 0x201E), kClientPort, 0x201E);  // priority 1, VLAN 30
  Settle();
  const auto published = platform::Egress().TakePublished();
  ASSERT_EQ(published.size(), 1u);
  const auto view = platform::EgressView::Decode(published[0].desc);
  using Setter = platform::EgressSetter;
  EXPECT_EQ(view.Value(Setter::kSendPhyIfIndex), kUplink);
  EXPECT_EQ(view.Value(Setter::kBsVlanNum), 1u);
  EXPECT_EQ(view.Value(Setter::kBsNoLinkEncap), 1u);
  EXPECT_THAT(view.Find(Setter::kVlanBaseInfo)->bytes, ElementsAre(30, 0, 0, 0));
  EXPECT_THAT(view.Find(Setter::kAppendTlv)->bytes, ElementsAre(kClientPort, 0, 0, 0));
  EXPECT_THAT(view.Find(Setter::kDstMac)->bytes, ::testing::ElementsAreArray(kBroadcastMac));
}

// What is announced reaches the callback in a body that the callback cannot read beyond.
TEST_F(ServiceAsAWhole, ADamagedAnnouncementIsCountedAndChangesNothing) {
  Begin(0);
  Buffer message(256 + 40, 0);
  message[0] = 32;
  message[3] = 1;  // intfLen 256
  auto* channel = platform::Channels().Find("channel/dhcp2vex");
  ASSERT_TRUE(channel->Send(platform::Packets().NewExact(message, {}).release()));
  platform::Events().Write(2);
  Settle();
  EXPECT_EQ(service_->bindings().Stats().damaged, 1u);
  EXPECT_THAT(Bindings(), IsEmpty());
}

class AnswerMode : public ServiceAsAWhole, public ::testing::WithParamInterface<uint32_t> {};
INSTANTIATE_TEST_SUITE_P(Instances, AnswerMode, ::testing::Values(0u, 1u, 4u));

TEST_P(AnswerMode, EveryRequestGetsAReplyThatAClientCanRead) {
  Begin(GetParam(), {.mode = service::Mode::kAnswer});
  const auto reply4 = [this](const Dhcp4Spec& spec, uint16_t vlan) {
    const Sent sent = Arrive(Tagged(Dhcp4Frame(spec), vlan), kClientPort, vlan);
    EXPECT_EQ(sent.size(), 1u);
    const auto frame = service::ParseFrame(sent.at(kClientPort).at(0));
    EXPECT_EQ(frame->tags, vlan == 0 ? 0 : 1);
    EXPECT_EQ(frame->dst, spec.client);
    const auto message = service::ParseDhcp4(frame->payload);
    EXPECT_EQ(message->xid, spec.xid);
    return std::pair(message->type, message->yiaddr);
  };
  const auto [offer, address] = reply4({}, 30);
  EXPECT_EQ(offer, Dhcp4Type::kOffer);
  EXPECT_EQ(reply4({.type = Dhcp4Type::kRequest}, 30), std::pair(Dhcp4Type::kAck, address));
  ASSERT_EQ(Bindings().size(), 1u);
  EXPECT_EQ(Bindings()[0].address, address);
  EXPECT_THAT(Arrive(Tagged(Dhcp4Frame({.type = Dhcp4Type::kRelease}), 30), kClientPort, 30), IsEmpty());
  EXPECT_THAT(Bindings(), IsEmpty());

  const auto reply6 = [this](const Buffer& request) {
    const Sent sent = Arrive(request, kClientPort);
    const auto frame = service::ParseFrame(sent.at(kClientPort).at(0));
    const auto message = service::ParseDhcp6(frame->payload);
    return std::tuple(message->type, message->relayed(), message->leases.size());
  };
  const std::vector<Lease6> asked = {{"::"}, {"::", 0, 64}};
  EXPECT_EQ(reply6(Dhcp6Frame({.leases = asked})), std::tuple(Dhcp6Type::kAdvertise, false, 2u));
  EXPECT_EQ(reply6(Dhcp6Frame({.type = Dhcp6Type::kRequest, .leases = asked})),
            std::tuple(Dhcp6Type::kReply, false, 2u));
  EXPECT_EQ(Bindings().size(), 2u);
  const Buffer relayed = RelayPayload(12, RelayPayload(12, Dhcp6Payload({.leases = asked})));
  EXPECT_EQ(reply6(BuildFrame({kServerMac, Mac(7), Ip("fe80::7"), Ip("fe80::1"), 547, 547, relayed})),
            std::tuple(Dhcp6Type::kAdvertise, true, 2u));

  Punt(NdFrame(133, Mac(1)), kClientPort);
  Punt(NdFrame(135, Mac(1)), kClientPort);
  Settle();
  EXPECT_EQ(platform::Egress().TakeUploaded().size(), 2u);
}

}  // namespace
}  // namespace vex::service_test
