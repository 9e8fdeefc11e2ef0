// soak_test.cpp - the service on its own threads between clients, a server and an administrator, all at once.
// In:  exchanges of many clients through the real module. Out: each client's binding, every message accounted
// for, and nothing for the thread sanitizer to report.
#include <atomic>
#include <deque>
#include <thread>

#include "tests/service/service_test.h"

namespace vex::service_test {
namespace {

using namespace std::chrono_literals;

class Soak : public ServiceTest, public ::testing::WithParamInterface<uint32_t> {
 protected:
  static constexpr uint8_t kClients = 60, kFeeders = 2;
  static constexpr int kRounds = 3;

  void SetUp() override {
    ServiceTest::SetUp();
    Begin(GetParam(), {.notice = [](const service::Notice&) {}});
    platform::TheClock().UseMachine();
    platform::Egress().SetPublishSink(
        [this](platform::PacketPtr packet, const HostEgressDesc& desc, uint32_t) {
          Deliver(*packet, platform::EgressView::Decode(desc).Value(platform::EgressSetter::kSendIfIndex));
          return 0u;
        });
    platform::Egress().SetUploadSink([this](platform::PacketPtr) { return uploads_++, 0u; });
    service_->Start();
    platform::Events().StartThreads();
  }

  void TearDown() override {
    service_->Stop();
    platform::Events().StopThreads();
    platform::Events().RunUntilIdle();
    ExpectEveryMessageHasOneOutcome();
    ServiceTest::TearDown();
  }

  // What leaves by the uplink is a request to the server; what leaves by the clients' port completes an
  // exchange.
  void Deliver(const platform::Packet& packet, uint32_t port) {
    const auto frame = service::ParseFrame(packet.Bytes());
    const auto message = service::ParseDhcp4(frame->payload);
    if (port == kClientPort && message->type == Dhcp4Type::kAck) ++acks_;
    if (port != kUplink || message->op != service::kBootRequest || message->type != Dhcp4Type::kRequest)
      return;
    const std::lock_guard lock(mutex_);
    requests_.push_back(service::MacFrom(message->chaddr));
  }

  static std::string AddressOf(uint8_t client) { return "10.0.0." + std::to_string(client); }

  void ServeOne() {
    MacAddress client;
    {
      const std::lock_guard lock(mutex_);
      if (requests_.empty()) return std::this_thread::yield();
      client = requests_.front();
      requests_.pop_front();
    }
    const std::string address = AddressOf(client[5]);
    Punt(Dhcp4Frame({.type = Dhcp4Type::kAck, .client = client, .yiaddr = address.c_str()}), kUplink);
  }

  void Feed(uint8_t feeder) {
    for (int round = 0; round < kRounds; ++round) {
      for (uint8_t client = 1; client <= kClients; ++client) {
        if (client % kFeeders != feeder) continue;
        const std::string address = AddressOf(client);
        Punt(Dhcp4Frame({.type = Dhcp4Type::kRequest, .client = Mac(client), .requested = address.c_str()}),
             kClientPort);
        Punt(Dhcp4Frame({.type = Dhcp4Type::kOffer, .client = Mac(client)}), kRoguePort);
        Punt(NdFrame(client % 2 == 0 ? 134 : 135, Mac(client)), kOtherPort);
      }
      std::this_thread::sleep_for(1ms);
    }
  }

  void Administer() {
    service::Settings settings = configured_;
    settings.interfaces[kUplink2].trusted ^= 1;
    Configure(settings);
    service_->SetPorts({kClientPort, kOtherPort, kUplink, kUplink2});
    (void)service_->Stats();
    (void)service_->bindings().Snapshot();
    const Binding known{BindingKind::kDhcp4, Ip("10.1.0.1"), 32, 0,
                        kOtherPort,          Mac(200),       {}, service::kNoLeaseEnd};
    service_->Restore({&known, 1}, platform::TheClock().NowNs());
    std::this_thread::sleep_for(1ms);
  }

  std::atomic<uint32_t> acks_{0}, uploads_{0};
  std::mutex mutex_;
  std::deque<MacAddress> requests_;
};
INSTANTIATE_TEST_SUITE_P(Instances, Soak, ::testing::Values(0u, 1u, 4u));

TEST_P(Soak, EveryClientGetsItsLeaseWhateverElseGoesOn) {
  std::atomic<bool> done{false};
  std::thread server([&] {
    while (!done) ServeOne();
  });
  std::thread administrator([&] {
    while (!done) Administer();
  });
  std::vector<std::thread> feeders;
  for (uint8_t feeder = 0; feeder < kFeeders; ++feeder)
    feeders.emplace_back([this, feeder] { Feed(feeder); });
  for (std::thread& feeder : feeders) feeder.join();
  const auto all = uint32_t{kClients} * kRounds;
  const auto limit = std::chrono::steady_clock::now() + 60s;
  while ((acks_ < all || Bindings().size() < kClients + 1u) && std::chrono::steady_clock::now() < limit)
    std::this_thread::sleep_for(1ms);
  done = true;
  server.join();
  administrator.join();
  EXPECT_EQ(acks_, all);
  EXPECT_EQ(Bindings().size(), kClients + 1u);
  EXPECT_EQ(CountOn(kRoguePort, Counter::kRogueServer), all);
  EXPECT_EQ(CountOn(kOtherPort, Counter::kRaGuard), all / 2);
  EXPECT_EQ(Count(Counter::kSendRefused) + Count(Counter::kNoBuffer) + Count(Counter::kUnannounced), 0u);
}

// Whatever is queued when it stops is freed, and it starts again.
TEST_P(Soak, StopsAndStartsInTheMiddleOfTraffic) {
  for (int i = 0; i < 5; ++i) {
    for (uint8_t client = 1; client <= 20; ++client) Punt(Dhcp4Frame({.client = Mac(client)}), kClientPort);
    service_->Stop();
    service_->Start();
  }
  const uint64_t before = CountOn(kClientPort, Counter::kClientForwarded);
  Punt(Dhcp4Frame({}), kClientPort);
  const auto limit = std::chrono::steady_clock::now() + 60s;
  while (CountOn(kClientPort, Counter::kClientForwarded) == before &&
         std::chrono::steady_clock::now() < limit)
    std::this_thread::sleep_for(1ms);
  EXPECT_EQ(before + Count(Counter::kDiscarded), 100u);
}

}  // namespace
}  // namespace vex::service_test
