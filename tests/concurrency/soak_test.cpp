// soak_test.cpp - everything that runs at once on the device, at once, for VEX_SOAK_SECONDS (default 5).
// In:  three forwarding threads with every packet kind, two event threads, two service threads that answer on
// the return channel, a thread of timer callbacks, one of configuration. Out: no race (thread sanitizer),
// every packet and block accounted for, every message handled once; how many lock tries failed and what
// passed unpoliced by it. Registrations stay out: the registry is used before and after, as its users must.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <dlfcn.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <cstring>
#include <random>
#include <thread>

#include "dhcp_vex_api.h"
#include "dhcp_vex_api_cfg.h"
#include "dhcp_vex_api_event.h"
#include "dhcp_vex_api_snoop.h"
#include "dhcp_vex_api_switch.h"
#include "dhcp_vex_pkt.h"
#include "dhcp_vex_pkt_return.h"
#include "dhcp_vex_rate_limit_notify.h"
#include "platform/board.h"
#include "platform/channel.h"
#include "platform/channel_events.h"
#include "platform/clock.h"
#include "platform/egress.h"
#include "platform/event_thread.h"
#include "platform/memory.h"
#include "platform/objects.h"
#include "platform/platform.h"
#include "test_paths.h"
#include "tests/module/packet_builder.h"

namespace vex::module_test {
namespace {

using platform::Channel;
using platform::PacketPtr;

constexpr uint32_t kBlockedInterface = 99;  // rate 0: what passes there found the lock busy
constexpr uint32_t kTrusted = 45;

std::atomic<uint64_t> g_bound{0};
uint32_t NoteBinding(void*, void*) { return g_bound.fetch_add(1, std::memory_order_relaxed), 0; }

enum Kind : size_t { kBind, kUpload, kPlain, kPseudoWire, kRefused, kUncut, kKinds };

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

  static void Configure(uint32_t type, uint32_t value, uint32_t index) {
    const DhcpSnpCfgReq request = {type, value, index};
    DhcpSnpCfg(&request);
  }
  static void Switch(uint32_t type, uint32_t value) {
    const DhcpCfgReq request = {value, type, 0};
    DhcpCfg(&request);
  }

  // Offers one frame; true when the module took it.
  bool Offer(const Frame& frame) {
    PacketPtr packet = frame.New();
    if (packet == nullptr) return std::this_thread::yield(), false;  // the pool is bounded
    if (DhcpHostHookCallback(packet.get()) != DHCP_HOOK_TAKEN) return false;
    static_cast<void>(packet.release());
    return true;
  }

  void ForwardEverything(uint32_t seed) {
    std::mt19937 random(seed);
    const Frame frames[] = {Dhcp4(),
                            Dhcp6(),
                            Dhcp6(Relayed(Solicit())),
                            Arp(),
                            Probe("1"),
                            Nd(133),
                            Nd(135),
                            Nd(136),
                            Dhcp4().FromPeerLink(),
                            Dhcp4(kRouterMac, 2)};
    while (!stop_.load(std::memory_order_relaxed)) {
      Frame frame = frames[random() % std::size(frames)];
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

  void Serve(uint32_t seed) {
    std::mt19937 random(seed);
    while (!stop_.load(std::memory_order_relaxed)) {
      bool idle = true;
      for (Channel* channel : ports_.channels) {
        if (channel->Receive() == nullptr) continue;
        idle = false;
        Answer(static_cast<Kind>(random() % kKinds));
      }
      if (idle) std::this_thread::yield();
    }
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
      const DhcpDegradeCfgReq degrade = {random() % 4 == 0 ? 0xFFFFFFFF
                                                           : static_cast<uint32_t>(random() % 200)};
      DhcpDegradeCfg(&degrade);
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
  std::atomic<uint64_t> published_{0}, uploaded_{0};
  std::array<std::atomic<uint64_t>, kKinds> sent_{};
  uint64_t blockedOffered_ = 0, blockedPassed_ = 0;  // of one thread, read after its end
};

TEST_F(Soak, PacketsMessagesAndMemoryAreConserved) {
  const char* const asked = std::getenv("VEX_SOAK_SECONDS");
  const long seconds = asked != nullptr ? std::max(1L, std::strtol(asked, nullptr, 10)) : 5;
  platform::Events().StartThreads(2);
  std::vector<std::thread> threads;
  threads.emplace_back([this] { ForwardEverything(1); });
  threads.emplace_back([this] { ForwardEverything(2); });
  threads.emplace_back([this] { ForwardBlocked(); });
  threads.emplace_back([this] { Serve(3); });
  threads.emplace_back([this] { Serve(4); });
  threads.emplace_back([this] { Report(); });
  threads.emplace_back([this] { Reconfigure(5); });
  std::this_thread::sleep_for(std::chrono::seconds(seconds));
  stop_.store(true);
  for (std::thread& thread : threads) thread.join();
  const platform::SpinlockStats lock = platform::GetSpinlockStats();

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
