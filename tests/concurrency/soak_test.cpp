// soak_test.cpp - everything that runs at once on the device, at once, for VEX_SOAK_SECONDS (default 5).
// In:  three forwarding threads with every packet kind, two event threads, two service threads that answer on
// the return channel, a thread of timer callbacks, one of configuration. Out: no race (thread sanitizer),
// every packet and block accounted for, every sequence number one packet's, every message handled once; how
// many lock tries failed and what passed unpoliced by it. Registrations stay out: the registry is used before
// and after, as its users must.
#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

#include "dhcp_vex_api_event.h"
#include "dhcp_vex_pkt.h"
#include "dhcp_vex_pkt_return.h"
#include "dhcp_vex_rate_limit_notify.h"
#include "platform/channel_events.h"
#include "platform/egress.h"
#include "platform/objects.h"
#include "test_paths.h"
#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

using platform::Channel;

constexpr uint32_t kBlockedInterface = 99;  // rate 0: what passes there found the lock busy
constexpr uint32_t kTrusted = 45;

std::atomic<uint64_t> g_bound{0};
uint32_t NoteBinding(void*, void*) { return g_bound.fetch_add(1, std::memory_order_relaxed), 0; }

enum Kind : size_t { kBind, kUpload, kPlain, kPseudoWire, kRefused, kUncut, kKinds };

// What the service read: a sequence number belongs to one punted packet, which may reach several channels.
struct Arrival {
  uint64_t sequence;
  uint64_t cookie;  // of the punted packet, kept by its copies
  size_t channel;
  friend auto operator<=>(const Arrival&, const Arrival&) = default;
};

// A message of the service: an egress header of 256 bytes in host byte order, and a body.
Bytes MessageOf(Kind kind) {
  Bytes bytes(300, 0);
  const auto put = [&bytes](size_t at, uint16_t value) {
    std::memcpy(bytes.data() + at, &value, sizeof(value));
  };
  put(0, kind == kBind ? 32 : kind == kUpload ? 33 : 6);
  put(2, kind == kUncut ? 301 : 256);
  put(244, kind == kPseudoWire || kind == kRefused);
  put(108, kind == kRefused ? 2 : 1);  // tunnel
  return bytes;
}

class Soak : public ::testing::Test {
 protected:
  void SetUp() override {
    platform::Reset();
    platform::TheBoard().SetCapability("DHCP_MULTICORE_SVC_NUM", 4);
    platform::TheBoard().SetCapability("DHCP_MLAG_IPV4_PKT_RATE", 50);
    platform::TheClock().UseMachine();
    ASSERT_NE(dlopen(VEX_OPTIONAL_DIR "/libdb_arp.so", RTLD_LAZY), nullptr) << dlerror();
    ASSERT_EQ(DhcpVexInit(), 0u);
    ports_ = platform::OpenServicePorts(256);
    back_ = platform::Channels().Find("channel/dhcp2vex");
    DhcpVexEventCallBackReg(DHCP_EVENT_USER_BIND, NoteBinding);
    platform::Objects().SetTunnel(1, 0, {31, 9});
    platform::Objects().SetInterfaceVlan(31, 100);
    platform::Objects().SetArp(9, 31, kTrusted);
    platform::Egress().SetPublishSink(
        [this](PacketPtr, const HostEgressDesc&, uint32_t) { return published_.fetch_add(1), 0u; });
    platform::Egress().SetUploadSink([this](PacketPtr) { return uploaded_.fetch_add(1), 0u; });
    Configure(2, 1, kBlockedInterface);
    Configure(3, 0, kBlockedInterface);
    Switch(DHCP_CFG_ALL, 0xFFFF);
    platform::ResetSpinlockStats();
  }

  // Offers one frame; true when the module took it.
  bool Offer(const Frame& frame) {
    PacketPtr packet = frame.New();
    if (packet == nullptr) return std::this_thread::yield(), false;  // the pool is bounded
    packet->attr.cookie = cookie_.fetch_add(1, std::memory_order_relaxed);
    const uint32_t verdict = DhcpHostHookCallback(packet.get());
    if (verdict != 0 && verdict != DHCP_HOOK_TAKEN && verdict != DHCP_HOOK_TAKE_FAILED) ++unexpected_;
    if (verdict != DHCP_HOOK_TAKEN) return false;
    static_cast<void>(packet.release());
    return true;
  }

  void ForwardEverything(uint32_t seed) {
    std::mt19937 random(seed);
    const auto client = [](uint8_t last) { return Dhcp4({2, 0, 0, 0, 0, last}); };
    const std::vector<Frame> frames =
        Frames(Dhcp4(), client(1), client(2), Dhcp4(kRouterMac, 2), Dhcp4().FromPeerLink(), Dhcp4().CutL3(30),
               Dhcp6(), Dhcp6(Relayed(Solicit())), Nd(133), Nd(135), Nd(136), Arp(), Probe("1"), Probe("8"),
               Echo(0, Bytes(40, 1)));
    while (!stop_.load(std::memory_order_relaxed)) {
      Frame frame = frames[random() % frames.size()];
      Offer(frame.On(static_cast<uint32_t>(random() % 8), static_cast<uint16_t>(random() % 6)));
    }
  }

  void ForwardBlocked() {
    const Frame frame = Dhcp4().On(kBlockedInterface, 0);
    while (!stop_.load(std::memory_order_relaxed)) {
      blockedOffered_ += 1;
      blockedPassed_ += Offer(frame) ? 1 : 0;
    }
  }

  void Serve(uint32_t seed, std::vector<Arrival>& arrivals) {
    std::mt19937 random(seed);
    while (!stop_.load(std::memory_order_relaxed)) {
      bool idle = true;
      for (size_t c = 0; c < ports_.channels.size(); ++c) {
        const PacketPtr message = ports_.channels[c]->Receive();
        if (message == nullptr) continue;
        idle = false;
        uint64_t sequence = 0;
        std::memcpy(&sequence, message->Data() + 8, sizeof(sequence));
        if (c == 11) {  // the module's own messages
          reports_.fetch_add(1, std::memory_order_relaxed);
        } else {
          arrivals.push_back({sequence, message->attr.cookie, c});
        }
        Answer(static_cast<Kind>(random() % kKinds));
      }
      if (idle) std::this_thread::yield();
    }
  }

  // Numbers that two packets bear, or that reached one channel twice.
  static size_t Shared(std::vector<Arrival> arrivals, const std::vector<Arrival>& more) {
    arrivals.insert(arrivals.end(), more.begin(), more.end());
    std::ranges::sort(arrivals);
    const auto again = [](const Arrival& a, const Arrival& b) {
      return a.sequence == b.sequence && (a.cookie != b.cookie || a.channel == b.channel);
    };
    size_t shared = 0;
    for (size_t i = 1; i < arrivals.size(); ++i) shared += again(arrivals[i - 1], arrivals[i]);
    return shared;
  }

  void Answer(Kind kind) {
    PacketPtr packet = platform::Packets().New(MessageOf(kind), {});
    if (packet == nullptr || !back_->Send(packet)) return;
    sent_[kind].fetch_add(1, std::memory_order_relaxed);
    platform::Events().Write(DHCP_RETURN_CHANNEL_EVENT);
  }

  void Report() {
    while (!stop_.load(std::memory_order_relaxed)) {
      DhcpVexSnpInfoNotifyTimerCallBack();
      DhcpVexPeerLinkNotifyTimerCallBack();
      std::this_thread::sleep_for(std::chrono::microseconds(100));
    }
  }

  // One request at a time, as the service's RPC does it. Switch 4 stays on: the blocked interface needs it.
  void Reconfigure(uint32_t seed) {
    std::mt19937 random(seed);
    while (!stop_.load(std::memory_order_relaxed)) {
      const auto index = static_cast<uint32_t>(random() % 8);
      const auto value = static_cast<uint32_t>(random() % 3 == 0 ? 5000 : random() % 100);
      constexpr uint32_t kRates[] = {1, 3, 5, 13, 15, 17};
      Configure(kRates[random() % std::size(kRates)], value, index);
      Configure(random() % 2 == 0 ? 25 : 26, kTrusted + random() % 4, 100);
      Configure(27, random() % 2, 0);
      Degrade(random() % 4 == 0 ? 0xFFFFFFFF : static_cast<uint32_t>(random() % 200));
      Switch(random() % 2 == 0 ? DHCP_CFG_MLAG_PEERLINK : DHCP_CFG_V6_SNOOPING, random() % 2);
    }
  }

  void GiveEverythingBack() {
    for (uint32_t index = 0; index < 8; ++index) {
      for (const uint32_t type : {3u, 5u, 15u, 17u}) Configure(type, 5000, index);
    }
    for (uint32_t trusted = kTrusted; trusted < kTrusted + 4; ++trusted) Configure(26, trusted, 100);
    Configure(2, 0, kBlockedInterface), Configure(3, 5000, kBlockedInterface);
    Switch(DHCP_CFG_ALL, 0);
    DhcpVexEventCallBackUnReg(DHCP_EVENT_USER_BIND, NoteBinding);
    for (Channel* channel : ports_.channels) channel->Drain();
  }

  platform::ServicePorts ports_;
  Channel* back_ = nullptr;
  std::atomic<bool> stop_{false};
  std::atomic<uint64_t> published_{0}, uploaded_{0}, reports_{0}, cookie_{0}, unexpected_{0};
  std::array<std::atomic<uint64_t>, kKinds> sent_{};
  uint64_t blockedOffered_ = 0, blockedPassed_ = 0;  // of one thread, read after its end
};

TEST_F(Soak, PacketsMessagesAndMemoryAreConserved) {
  const char* const asked = std::getenv("VEX_SOAK_SECONDS");
  const long seconds = asked != nullptr ? std::max(1L, std::strtol(asked, nullptr, 10)) : 5;
  platform::Events().StartThreads(2);
  std::vector<Arrival> arrivals[2];
  std::vector<std::thread> threads;
  threads.emplace_back([this] { ForwardEverything(1); });
  threads.emplace_back([this] { ForwardEverything(2); });
  threads.emplace_back([this] { ForwardBlocked(); });
  threads.emplace_back([&] { Serve(3, arrivals[0]); });
  threads.emplace_back([&] { Serve(4, arrivals[1]); });
  threads.emplace_back([this] { Report(); });
  threads.emplace_back([this] { Reconfigure(5); });
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  stop_.store(true);
  for (std::thread& thread : threads) thread.join();
  const platform::SpinlockStats lock = platform::GetSpinlockStats();
  EXPECT_EQ(Shared(arrivals[0], arrivals[1]), 0u);
  EXPECT_EQ(unexpected_.load(), 0u);
  EXPECT_EQ(g_dhcpStat[4] + g_dhcpStat[5], 0u);
  EXPECT_GT(reports_.load(), 0u);
  uint64_t waiting = 0, received = 0;
  for (const Channel* channel : ports_.channels) {
    waiting += channel->Stats().sent - channel->Stats().received - channel->Size();
    received += channel->Stats().received;
  }
  EXPECT_EQ(waiting, 0u) << "everything that a channel took is received or still there";
  EXPECT_EQ(received, arrivals[0].size() + arrivals[1].size() + reports_.load());

  // Whatever the running drains left behind: one more signal brings all of it out.
  platform::Events().StopThreads();
  platform::Events().Write(DHCP_RETURN_CHANNEL_EVENT);
  platform::Events().RunUntilIdle();
  EXPECT_EQ(back_->Size(), 0u);
  const auto sent = [this](Kind kind) { return sent_[kind].load(); };
  EXPECT_EQ(g_bound.load(), sent(kBind));
  EXPECT_EQ(uploaded_.load(), sent(kUpload));
  EXPECT_GE(published_.load(),
            sent(kPlain));  // and the pseudo-wire packets sent while their port was trusted
  EXPECT_LE(published_.load(), sent(kPlain) + sent(kPseudoWire));
  EXPECT_EQ(g_dhcpStat[1], sent(kBind) + sent(kUpload) + published_.load());
  EXPECT_EQ(g_dhcpStat[3], sent(kUncut));

  GiveEverythingBack();
  EXPECT_EQ(g_dhcpVexSnpInfoUseLock.word, 0u);
  EXPECT_EQ(g_dhcpPktLogVexBarrier, 0u);
  EXPECT_THAT(platform::Audit(), ::testing::IsEmpty());
  EXPECT_LE(blockedPassed_, lock.busyTries);
  EXPECT_GT(blockedOffered_, 0u);
  EXPECT_GT(g_dhcpStat[1], 0u);
  const auto number = [](uint64_t n) { return static_cast<unsigned long long>(n); };
  std::printf("%ld s: %llu packets to the service, %llu messages back\n", seconds, number(g_dhcpStat[0]),
              number(g_dhcpStat[1]));
  std::printf(
      "%llu lock tries failed, each let a packet pass its gate unpoliced; on an interface of rate 0 that "
      "were %llu of %llu packets\n",
      number(lock.busyTries), number(blockedPassed_), number(blockedOffered_));
}

}  // namespace
}  // namespace vex::module_test
