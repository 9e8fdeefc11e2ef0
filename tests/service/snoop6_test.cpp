// snoop6_test.cpp - DHCPv6 and neighbour discovery through the real module.
#include "tests/service/service_test.h"

namespace vex::service_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

class Snoop6 : public ServiceTest, public ::testing::WithParamInterface<uint32_t> {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    Begin(GetParam());
  }
  void TearDown() override {
    ExpectEveryMessageHasOneOutcome();
    ServiceTest::TearDown();
  }
  static constexpr const char* kAddress = "2001:db8::9";
  static constexpr const char* kPrefix = "2001:db8:5::";
  void Lease(std::vector<Lease6> leases, uint8_t client = 0x0B, uint32_t port = kClientPort) {
    Arrive(Dhcp6Frame({.type = Dhcp6Type::kRequest, .client = client}), port);
    Arrive(Dhcp6Frame({.type = Dhcp6Type::kReply, .client = client, .leases = std::move(leases)}), kUplink);
  }
  Binding Expected(BindingKind kind, const char* address, uint8_t length, uint64_t seconds) const {
    return {kind, Ip(address), length, 0, kClientPort, Mac(0x0B), Duid(0x0B), EndAfter(seconds)};
  }
};
INSTANTIATE_TEST_SUITE_P(Instances, Snoop6, ::testing::Values(0u, 1u, 2u, 4u));

TEST_P(Snoop6, AnExchangeRunsBetweenTheClientAndTheTrustedPortsOnly) {
  const Buffer solicit = Dhcp6Frame({}),
               advertise = Dhcp6Frame({.type = Dhcp6Type::kAdvertise, .leases = {{kAddress}}});
  EXPECT_THAT(Arrive(solicit, kClientPort), UnorderedElementsAre(Pair(kUplink, ElementsAre(solicit)),
                                                                 Pair(kUplink2, ElementsAre(solicit))));
  EXPECT_THAT(Arrive(advertise, kUplink2), ElementsAre(Pair(kClientPort, ElementsAre(advertise))));
  EXPECT_THAT(Bindings(), IsEmpty());
  Lease({{kAddress}, {kPrefix, 7200, 56}});
  EXPECT_THAT(Bindings(), ElementsAre(Expected(BindingKind::kNonTemporary, kAddress, 128, 3600),
                                      Expected(BindingKind::kPrefix, kPrefix, 56, 7200)));
  Pass(3600);
  EXPECT_THAT(Bindings(), ElementsAre(Expected(BindingKind::kPrefix, kPrefix, 56, 3600)));
}

TEST_P(Snoop6, ARogueServerIsDroppedCountedAndNamed) {
  Arrive(Dhcp6Frame({}), kClientPort);
  for (const Dhcp6Type type : {Dhcp6Type::kAdvertise, Dhcp6Type::kReply, Dhcp6Type::kReconfigure})
    EXPECT_THAT(Arrive(Dhcp6Frame({.type = type, .leases = {{kAddress}}}), kRoguePort), IsEmpty());
  EXPECT_THAT(Bindings(), IsEmpty());
  EXPECT_EQ(CountOn(kRoguePort, Counter::kRogueServer), 3u);
  EXPECT_THAT(notices_, ElementsAre(HasSubstr("server fe80::1: ADVERTISE"), HasSubstr("fe80::1: REPLY"),
                                    HasSubstr("fe80::1: RECONFIGURE")));
}

TEST_P(Snoop6, LeasesEndByReleaseOfTheOwnerAndByALifetimeOfZero) {
  const Dhcp6Spec stranger{.type = Dhcp6Type::kRelease, .client = 0x0C, .leases = {{kAddress}}};
  const Dhcp6Spec prefix{.type = Dhcp6Type::kRelease, .leases = {{kAddress, 0, 64}}};
  const struct {
    const char* what;
    Dhcp6Spec message;
    uint32_t port;
    bool removed;
  } kCases[] = {
      {"release", {.type = Dhcp6Type::kRelease, .leases = {{kAddress}}}, kClientPort, true},
      {"decline", {.type = Dhcp6Type::kDecline, .leases = {{kAddress}}}, kClientPort, true},
      {"a lifetime of 0", {.type = Dhcp6Type::kReply, .leases = {{kAddress, 0}}}, kUplink, true},
      {"from another port", {.type = Dhcp6Type::kRelease, .leases = {{kAddress}}}, kRoguePort, false},
      {"by another client", stranger, kClientPort, false},
      {"of a prefix of the same bits", prefix, kClientPort, false},
      {"a failed association", {.type = Dhcp6Type::kReply, .leases = {{kAddress, 0, 0, 3}}}, kUplink, false},
      {"a failed reply", {.type = Dhcp6Type::kReply, .leases = {{kAddress, 0}}, .status = 1}, kUplink, false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    Lease({{kAddress}});
    Arrive(Dhcp6Frame(c.message), c.port);
    EXPECT_EQ(Bindings().empty(), c.removed);
  }
  EXPECT_EQ(Count(Counter::kWrongPort), 2u);
}

TEST_P(Snoop6, RelayedExchangesPassAndBindNothing) {
  const auto frame = [](uint8_t outer, const Buffer& inner, bool from_server) {
    const Buffer payload = RelayPayload(outer, inner);
    const MacAddress relay = Mac(0x77);
    return BuildFrame({from_server ? relay : kServerMac, from_server ? kServerMac : relay, Ip("2001:db8::1"),
                       Ip("2001:db8::2"), 547, 547, payload});
  };
  const Buffer forward = frame(12, Dhcp6Payload({.type = Dhcp6Type::kRequest}), false);
  const Buffer reply = frame(13, Dhcp6Payload({.type = Dhcp6Type::kReply, .leases = {{kAddress}}}), true);
  EXPECT_EQ(Arrive(forward, kOtherPort).size(), 2u);
  EXPECT_THAT(Arrive(reply, kUplink), ElementsAre(Pair(kOtherPort, ElementsAre(reply))));
  EXPECT_THAT(Arrive(reply, kRoguePort), IsEmpty());
  EXPECT_THAT(Bindings(), IsEmpty());
  EXPECT_EQ(Count(Counter::kRelayed), 2u);
}

// Which frames are given back for forwarding, which are sent, and which are gone.
TEST_P(Snoop6, NeighbourDiscoveryPassesButForRouterAdvertisementsFromUntrustedPorts) {
  struct {
    const char* what;
    uint8_t type;
    uint32_t port;
    size_t uploads, sent;
  } const kCases[] = {
      {"a solicitation goes to the routers", 133, kClientPort, 0, 2},
      {"an advertisement of a trusted port", 134, kUplink, 1, 0},
      {"an advertisement of an untrusted port", 134, kRoguePort, 0, 0},
      {"a neighbour solicitation", 135, kClientPort, 1, 0},
      {"a neighbour advertisement", 136, kRoguePort, 1, 0},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    const Buffer frame = NdFrame(c.type, Mac(0x0B));
    EXPECT_EQ(Arrive(frame, c.port).size(), c.sent);
    const auto uploaded = platform::Egress().TakeUploaded();
    EXPECT_EQ(uploaded.size(), c.uploads) << "router messages reach every instance, one of them forwards";
    for (const auto& packet : uploaded) {
      EXPECT_THAT(packet->Bytes(), ::testing::ElementsAreArray(frame));
      EXPECT_EQ(packet->attr.ndHookIgnore, 1u);
      EXPECT_EQ(packet->attr.ifIndex, c.port);
    }
  }
  EXPECT_EQ(CountOn(kRoguePort, Counter::kRaGuard), 1u);
  EXPECT_THAT(notices_, ElementsAre(HasSubstr("router advertisement from an untrusted port: port 3")));
}

// Without ND snooping an advertisement reaches the service as a copy: forwarding it would double it.
TEST_P(Snoop6, CopiesAreObservedOnly) {
  service::Settings settings = configured_;
  settings.switches &= ~(1u << 13);
  Configure(settings);
  EXPECT_EQ(Punt(NdFrame(136, Mac(0x0B)), kClientPort), 0u);
  Settle();
  EXPECT_THAT(TakeSent(), IsEmpty());
  EXPECT_THAT(platform::Egress().TakeUploaded(), IsEmpty());
  EXPECT_EQ(Count(Counter::kObserved), 1u);
}

}  // namespace
}  // namespace vex::service_test
