// ingress_test.cpp - the hook on several forwarding threads while configuration changes and timers fire.
// In:  packets of every class from each thread; switches, store, degrade and debug requests; expiring timers.
// Out: nothing lost, freed twice or raced: every packet and block accounted for, sequence numbers unique.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "dhcp_vex_api.h"
#include "dhcp_vex_api_cfg.h"
#include "dhcp_vex_api_snoop.h"
#include "dhcp_vex_pkt.h"
#include "dhcp_vex_rate_limit_notify.h"
#include "platform/board.h"
#include "platform/channel.h"
#include "platform/clock.h"
#include "platform/event_thread.h"
#include "platform/platform.h"
#include "tests/module/packet_builder.h"

namespace vex::module_test {
namespace {

using platform::PacketPtr;
using namespace std::chrono_literals;

constexpr size_t kForwarders = 3;
constexpr uint32_t kInstances = 3;
constexpr uint32_t kTaken = 0x1000000;
constexpr auto kDuration = 1500ms;

// What one forwarding thread saw: the hook's verdicts.
struct Verdicts {
  uint64_t taken = 0, kept = 0, failed = 0, unexpected = 0;
};

// What the service read: a sequence number belongs to one punted packet, which may reach several channels.
struct Arrival {
  uint64_t sequence;
  uint64_t cookie;  // of the punted packet, kept by its copies
  size_t channel;
  friend auto operator<=>(const Arrival&, const Arrival&) = default;
};

class IngressConcurrency : public ::testing::Test {
 protected:
  void SetUp() override {
    platform::TheBoard().SetCapability("DHCP_MULTICORE_SVC_NUM", kInstances);
    platform::TheBoard().SetCapability("DHCP_MLAG_IPV4_PKT_RATE", 50);
    ASSERT_EQ(DhcpVexInit(), 0u);
    ports_ = platform::OpenServicePorts(256);
  }

  // Punts frames until told to stop; the framework goes on with what was not taken, that is, frees it.
  Verdicts Forward(uint32_t lcore) {
    std::vector<Frame> frames = {Arp(),
                                 Probe("2"),
                                 Probe("8"),
                                 Nd(133),
                                 Nd(136),
                                 Dhcp6(Relayed(Solicit())),
                                 Dhcp4().FromPeerLink(),
                                 Dhcp4().CutL3(30),
                                 Echo(0, Bytes(40, 1))};
    for (uint8_t client = 0; client < 8; ++client) {
      const Mac mac = {2, 0, 0, static_cast<uint8_t>(lcore), 0, client};
      frames.push_back(Dhcp4(mac).On(client, client));
    }
    Verdicts verdicts;
    uint64_t cookie = uint64_t{lcore} << 32;
    while (!stop_.load(std::memory_order_relaxed)) {
      for (const Frame& frame : frames) {
        PacketPtr packet = frame.New();
        if (packet == nullptr) continue;  // the pool is empty for the moment
        packet->attr.cookie = ++cookie;
        const uint32_t verdict = DhcpHostHookCallback(packet.get());
        if (verdict == kTaken) static_cast<void>(packet.release());
        (verdict == kTaken                  ? verdicts.taken
         : verdict == 0                     ? verdicts.kept
         : verdict == DHCP_HOOK_TAKE_FAILED ? verdicts.failed
                                            : verdicts.unexpected) += 1;
      }
    }
    return verdicts;
  }

  // The service: reads every channel.
  void Read() {
    const auto pass = [this] {
      for (size_t c = 0; c < ports_.channels.size(); ++c) {
        while (const PacketPtr message = ports_.channels[c]->Receive()) {
          if (c == 11) {
            ++inner_;
            continue;
          }
          uint64_t sequence = 0;
          std::memcpy(&sequence, message->Data() + 8, sizeof(sequence));
          arrivals_.push_back({sequence, message->attr.cookie, c});
        }
      }
    };
    while (!readerStop_.load(std::memory_order_acquire)) {
      pass();
      std::this_thread::yield();
    }
    pass();
  }

  // The configuration service: one request at a time, each of them a change.
  void Configure() {
    for (uint32_t round = 0; !stop_.load(std::memory_order_relaxed); ++round) {
      const DhcpCfgReq bitmap = {round % 3 == 0 ? 0xFFFFu : 0xDFFFu, 16, 0}, one = {round & 1, 4, 0};
      DhcpCfg(&bitmap);
      DhcpCfg(&one);
      for (uint32_t type : {2u, 3u, 4u, 5u, 14u, 24u, 25u, 26u}) {
        const DhcpSnpCfgReq setting = {type, round & 1 ? 1 : type == 3 || type == 5 ? 5000u : 0u, round % 8};
        DhcpSnpCfg(&setting);
      }
      const DhcpDegradeCfgReq degrade = {round % 4 == 0 ? 20u : 0xFFFF'FFFFu};
      DhcpDegradeCfg(&degrade);
      const DhcpSnpCfgReq debug = {27, round & 1, 0};
      DhcpSnpCfg(&debug);
      trusted_ += DhcpVexCheckIfSnpTrusted(round % 8, round % 8);
      std::this_thread::sleep_for(200us);
    }
  }

  // The timer service: time runs forty times as fast, and the expiries come from a thread of their own.
  void Tick() {
    int64_t now = 0;
    while (!stop_.load(std::memory_order_relaxed)) {
      platform::TheClock().SetTo(now += 40'000'000);
      DhcpVexSnpInfoNotifyTimerCallBack();
      DhcpVexPeerLinkNotifyTimerCallBack();
      std::this_thread::sleep_for(1ms);
    }
  }

  platform::ServicePorts ports_;
  std::atomic<bool> stop_{false};
  std::atomic<bool> readerStop_{false};
  std::vector<Arrival> arrivals_;  // reader's
  uint64_t inner_ = 0;             // reader's
  uint64_t trusted_ = 0;           // configuration's
};

TEST_F(IngressConcurrency, NothingIsLostWhileEverythingChanges) {
  std::vector<Verdicts> verdicts(kForwarders);
  {
    std::jthread reader([this] { Read(); });
    {
      std::vector<std::jthread> threads;
      for (uint32_t lcore = 0; lcore < kForwarders; ++lcore) {
        threads.emplace_back([this, lcore, &verdicts] { verdicts[lcore] = Forward(lcore); });
      }
      threads.emplace_back([this] { Configure(); });
      threads.emplace_back([this] { Tick(); });
      std::this_thread::sleep_for(kDuration);
      stop_.store(true, std::memory_order_relaxed);
    }
    readerStop_.store(true, std::memory_order_release);
  }
  Verdicts sum;
  for (const Verdicts& v : verdicts) {
    sum.taken += v.taken, sum.kept += v.kept, sum.failed += v.failed, sum.unexpected += v.unexpected;
  }
  EXPECT_GT(sum.taken, 0u);
  EXPECT_GT(sum.kept, 0u);
  EXPECT_EQ(sum.unexpected, 0u);
  EXPECT_GT(inner_, 0u);  // refusals were reported

  EXPECT_GT(trusted_, 0u);

  ASSERT_FALSE(arrivals_.empty());
  std::sort(arrivals_.begin(), arrivals_.end());
  size_t shared = 0;  // numbers that two packets bear, or that reached one channel twice
  for (size_t i = 1; i < arrivals_.size(); ++i) {
    const Arrival &before = arrivals_[i - 1], &now = arrivals_[i];
    shared +=
        now.sequence == before.sequence && (now.cookie != before.cookie || now.channel == before.channel);
  }
  EXPECT_EQ(shared, 0u);

  // Everything that the channels did not refuse arrived; nothing else failed.
  uint64_t sent = 0, received = 0;
  for (auto* channel : ports_.channels) {
    sent += channel->Stats().sent, received += channel->Stats().received;
  }
  EXPECT_EQ(sent, received);
  EXPECT_EQ(received, arrivals_.size() + inner_);
  EXPECT_EQ(g_dhcpStat[4] + g_dhcpStat[5], 0u);
  EXPECT_GE(g_dhcpStat[0], sum.taken);

  const DhcpCfgReq off = {0, 16, 0};
  DhcpCfg(&off);
  for (uint32_t index = 0; index < 8; ++index) {
    for (const uint32_t type : {2u, 3u, 4u, 5u, 14u, 24u}) {
      DhcpVexSaveSnpCfg(type == 3 || type == 5 ? 5000 : 0, type, index);
    }
    for (const uint32_t trusted : {0u, 1u}) DhcpVexSaveSnpCfg(trusted, 26, index);
  }
  EXPECT_THAT(platform::Audit(), ::testing::IsEmpty());
}

}  // namespace
}  // namespace vex::module_test
