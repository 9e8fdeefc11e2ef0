// snoop4_test.cpp - DHCPv4 snooping through the real module: who sees what, and what becomes of leases.
#include "tests/service/service_test.h"

namespace vex::service_test {
namespace {

using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::Pair;
using ::testing::UnorderedElementsAre;

Buffer Discover(uint8_t client = 0x0B) { return Dhcp4Frame({.client = Mac(client)}); }
Buffer Offer(uint8_t client = 0x0B) {
  return Dhcp4Frame({.type = Dhcp4Type::kOffer, .client = Mac(client), .yiaddr = "10.0.0.9"});
}
Buffer Request(uint8_t client = 0x0B, const char* address = "10.0.0.9") {
  return Dhcp4Frame({.type = Dhcp4Type::kRequest, .client = Mac(client), .requested = address});
}
Buffer Ack(uint8_t client = 0x0B, const char* address = "10.0.0.9", uint32_t lease = 3600) {
  return Dhcp4Frame({.type = Dhcp4Type::kAck, .client = Mac(client), .yiaddr = address, .lease = lease});
}

// With each number of instances, tagged and untagged.
class Snoop4 : public ServiceTest, public ::testing::WithParamInterface<std::tuple<uint32_t, uint16_t>> {
 protected:
  void SetUp() override {
    ServiceTest::SetUp();
    Begin(std::get<0>(GetParam()));
  }
  void TearDown() override {
    ExpectEveryMessageHasOneOutcome();
    ServiceTest::TearDown();
  }
  uint16_t Vlan() const { return std::get<1>(GetParam()); }
  Sent In(const Buffer& frame, uint32_t port) { return Arrive(Tagged(frame, Vlan()), port, Vlan()); }
  Buffer T(const Buffer& frame) const { return Tagged(frame, Vlan()); }
  void Lease(uint8_t client = 0x0B, uint32_t port = kClientPort, const char* address = "10.0.0.9") {
    In(Request(client, address), port);
    In(Ack(client, address), kUplink);
  }
  Binding Expected(uint8_t client, uint32_t port, const char* address, uint64_t end) const {
    return {BindingKind::kDhcp4, Ip(address), 32, Vlan(), port, Mac(client), {}, end};
  }
};
INSTANTIATE_TEST_SUITE_P(Instances, Snoop4,
                         ::testing::Values(std::tuple(0u, uint16_t{0}), std::tuple(1u, uint16_t{30}),
                                           std::tuple(2u, uint16_t{0}), std::tuple(4u, uint16_t{30})));

TEST_P(Snoop4, AnExchangeRunsBetweenTheClientAndTheTrustedPortsOnly) {
  EXPECT_THAT(In(Discover(), kClientPort), UnorderedElementsAre(Pair(kUplink, ElementsAre(T(Discover()))),
                                                                Pair(kUplink2, ElementsAre(T(Discover())))));
  EXPECT_THAT(In(Offer(), kUplink), ElementsAre(Pair(kClientPort, ElementsAre(T(Offer())))));
  EXPECT_THAT(Bindings(), IsEmpty()) << "an offer is no lease";
  In(Request(), kClientPort);
  EXPECT_THAT(In(Ack(), kUplink), ElementsAre(Pair(kClientPort, ElementsAre(T(Ack())))));
  EXPECT_THAT(Bindings(), ElementsAre(Expected(0x0B, kClientPort, "10.0.0.9", EndAfter(3600))));
  EXPECT_EQ(CountOn(kClientPort, Counter::kClientForwarded), 2u);
  EXPECT_EQ(CountOn(kUplink, Counter::kServerForwarded), 2u);
  EXPECT_EQ(CountOn(kClientPort, Counter::kMade), 1u);
  EXPECT_EQ(service_->bindings().Stats().made, 1u);
}

TEST_P(Snoop4, ARequestFromATrustedPortGoesToTheOtherOnes) {
  EXPECT_THAT(In(Discover(), kUplink), ElementsAre(Pair(kUplink2, ElementsAre(T(Discover())))));
  EXPECT_THAT(In(Offer(), kUplink2), ElementsAre(Pair(kUplink, ElementsAre(T(Offer())))));
  EXPECT_THAT(In(Offer(), kUplink), IsEmpty()) << "the client's own segment has seen it";
  EXPECT_EQ(Count(Counter::kSamePort), 1u);
}

TEST_P(Snoop4, ABroadcastAnswerReachesTheClientsPortOnly) {
  In(Discover(), kClientPort);
  In(Discover(0x0C), kOtherPort);
  const Buffer offer = Dhcp4Frame({.type = Dhcp4Type::kOffer, .client = Mac(0x0C)}, true);
  EXPECT_THAT(In(offer, kUplink), ElementsAre(Pair(kOtherPort, ElementsAre(T(offer)))));
}

TEST_P(Snoop4, AnswersFollowTheExchangeAndNotWhoeverUsesTheSameAddress) {
  In(Discover(), kClientPort);
  In(Dhcp4Frame({.xid = 0x9999}), kRoguePort);  // the same hardware address, another exchange
  EXPECT_THAT(In(Offer(), kUplink), ElementsAre(Pair(kClientPort, ElementsAre(T(Offer())))));
  const Buffer late = Dhcp4Frame({.type = Dhcp4Type::kOffer, .xid = 0x4444, .client = Mac(0x0B)});
  EXPECT_THAT(In(late, kUplink), ElementsAre(Pair(kRoguePort, ElementsAre(T(late)))))
      << "unknown: where it asked last";
}

TEST_P(Snoop4, ARogueServerIsDroppedCountedAndNamed) {
  In(Discover(), kClientPort);
  EXPECT_THAT(In(Offer(), kRoguePort), IsEmpty());
  EXPECT_THAT(In(Ack(), kRoguePort), IsEmpty());
  EXPECT_THAT(Bindings(), IsEmpty());
  EXPECT_EQ(CountOn(kRoguePort, Counter::kRogueServer), 2u);
  ASSERT_EQ(notices_.size(), 2u) << "each a line";
  for (const char* part : {"port 3", "MAC 02:00:00:00:00:5e", "server 10.0.0.1", "DHCPOFFER"})
    EXPECT_THAT(notices_[0], HasSubstr(part));
  EXPECT_THAT(notices_[0], HasSubstr("VLAN " + std::to_string(Vlan())));
}

TEST_P(Snoop4, AFloodOfARogueServerIsTenLinesASecond) {
  for (int i = 0; i < 25; ++i) In(Offer(), kRoguePort);
  EXPECT_EQ(notices_.size(), 10u);
  Pass(1);
  In(Offer(), kRoguePort);
  ASSERT_EQ(notices_.size(), 11u);
  EXPECT_THAT(notices_[10], HasSubstr("(15 more since the last line)"));
  In(Offer(), kRoguePort);
  EXPECT_THAT(notices_.back(), Not(HasSubstr("more since")));
}

TEST_P(Snoop4, ARenewalExtendsAndASecondClientTakesOver) {
  Lease();
  Pass(1800);
  Lease();
  EXPECT_THAT(Bindings(), ElementsAre(Expected(0x0B, kClientPort, "10.0.0.9", EndAfter(3600))));
  EXPECT_EQ(Count(Counter::kRenewed), 1u);
  Lease(0x0C, kOtherPort);
  EXPECT_THAT(Bindings(), ElementsAre(Expected(0x0C, kOtherPort, "10.0.0.9", EndAfter(3600))));
  EXPECT_EQ(CountOn(kClientPort, Counter::kReplaced), 1u);
}

TEST_P(Snoop4, ALeaseEndsWithItsTime) {
  Lease();
  Pass(3599);
  EXPECT_EQ(Bindings().size(), 1u);
  Pass(1);
  EXPECT_THAT(Bindings(), IsEmpty());
  EXPECT_EQ(CountOn(0, Counter::kExpired) + CountOn(kClientPort, Counter::kExpired), 1u);
  In(Request(), kClientPort);
  In(Ack(0x0B, "10.0.0.9", 0xFFFFFFFF), kUplink);
  Pass(100'000'000);
  EXPECT_THAT(Bindings(), ElementsAre(Expected(0x0B, kClientPort, "10.0.0.9", service::kNoLeaseEnd)));
}

TEST_P(Snoop4, OnlyItsOwnerGivesALeaseUp) {
  const Dhcp4Spec release{.type = Dhcp4Type::kRelease, .ciaddr = "10.0.0.9"};
  const Dhcp4Spec decline{.type = Dhcp4Type::kDecline, .requested = "10.0.0.9"};
  const Dhcp4Spec another{.type = Dhcp4Type::kRelease, .ciaddr = "10.0.0.8"};
  const Dhcp4Spec stranger{.type = Dhcp4Type::kRelease, .client = Mac(0x0C), .ciaddr = "10.0.0.9"};
  const struct {
    const char* what;
    Dhcp4Spec message;
    uint32_t port;
    bool forwarded, removed;
  } kCases[] = {
      {"release", release, kClientPort, true, true},
      {"decline", decline, kClientPort, true, true},
      {"of another address", another, kClientPort, true, false},
      {"from another port", release, kRoguePort, false, false},
      {"by another client", stranger, kClientPort, false, false},
  };
  for (const auto& c : kCases) {
    SCOPED_TRACE(c.what);
    Lease();
    const Sent sent = In(Dhcp4Frame(c.message), c.port);
    EXPECT_EQ(sent.size(), c.forwarded ? 2u : 0u);
    EXPECT_EQ(Bindings().empty(), c.removed);
  }
  EXPECT_EQ(CountOn(kRoguePort, Counter::kWrongPort), 1u);
  EXPECT_EQ(CountOn(kClientPort, Counter::kWrongPort), 1u);
  EXPECT_EQ(Count(Counter::kReleased), 1u);
  EXPECT_EQ(Count(Counter::kDeclined), 1u);
}

TEST_P(Snoop4, ARefusalEndsTheLeaseThatWasAskedFor) {
  Lease(0x0B, kClientPort, "10.0.0.9");
  Lease(0x0B, kClientPort, "10.0.0.10");
  In(Request(0x0B, "10.0.0.9"), kClientPort);
  In(Dhcp4Frame({.type = Dhcp4Type::kNak}, true), kUplink);
  EXPECT_THAT(Bindings(), ElementsAre(Expected(0x0B, kClientPort, "10.0.0.10", EndAfter(3600))));
  EXPECT_EQ(Count(Counter::kRefused), 1u);
}

TEST_P(Snoop4, AnAnswerThatNobodyAskedForGoesNowhere) {
  EXPECT_THAT(In(Ack(), kUplink), IsEmpty());
  EXPECT_EQ(Count(Counter::kUnknownClient), 1u);
  In(Discover(), kClientPort);
  Pass(121);  // longer than an exchange is remembered
  EXPECT_THAT(In(Dhcp4Frame({.type = Dhcp4Type::kOffer}, true), kUplink), IsEmpty());
  EXPECT_THAT(In(Offer(), kUplink), ElementsAre(Pair(kClientPort, ElementsAre(T(Offer())))))
      << "sent to a station that is known";
}

TEST_P(Snoop4, AcksWithoutALeaseMakeNoBinding) {
  In(Request(), kClientPort);
  In(Ack(0x0B, "0.0.0.0"), kUplink);  // to an INFORM
  EXPECT_THAT(Bindings(), IsEmpty());
}

TEST_P(Snoop4, RelayedExchangesPassAndBindNothing) {
  const Buffer request =
      Dhcp4Frame({.type = Dhcp4Type::kRequest, .giaddr = "10.9.0.1", .requested = "10.9.0.5"});
  EXPECT_EQ(In(request, kOtherPort).size(), 2u);
  const Buffer payload = Dhcp4Payload({.type = Dhcp4Type::kAck, .yiaddr = "10.9.0.5", .giaddr = "10.9.0.1"});
  const Buffer ack = BuildFrame({Mac(0x77), kServerMac, Ip("10.0.0.1"), Ip("10.9.0.1"), 67, 67, payload});
  EXPECT_THAT(In(ack, kUplink), ElementsAre(Pair(kOtherPort, ElementsAre(T(ack)))));
  EXPECT_THAT(Bindings(), IsEmpty());
  EXPECT_EQ(Count(Counter::kRelayed), 2u);
  EXPECT_THAT(In(ack, kRoguePort), IsEmpty());
  EXPECT_EQ(Count(Counter::kRogueServer), 1u);
}

TEST_P(Snoop4, WhatCannotBeReadIsDroppedAndCounted) {
  Buffer frame = Discover();
  frame[14 + 28] = 3;  // neither request nor reply
  EXPECT_THAT(In(frame, kClientPort), IsEmpty());
  const Buffer whole = T(Discover());
  EXPECT_EQ(Punt(Buffer(whole.begin(), whole.begin() + 150), AttributesOf(whole, kClientPort, Vlan())),
            0x1000000u);
  Settle();
  EXPECT_THAT(TakeSent(), IsEmpty());
  EXPECT_EQ(Count(Counter::kMalformed), 2u);
}

}  // namespace
}  // namespace vex::service_test
