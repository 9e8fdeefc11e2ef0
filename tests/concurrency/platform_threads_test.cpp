// The stand-in among threads: nothing lost, nothing freed twice, no waiter left asleep. Meant for the thread
// sanitizer.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>
#include <vector>

#include "platform/channel.h"
#include "platform/channel_events.h"
#include "platform/clock.h"
#include "platform/event_thread.h"
#include "platform/lcore.h"
#include "platform/logs.h"
#include "platform/memory.h"
#include "platform/packet.h"
#include "platform/platform.h"

namespace vex::platform {
namespace {

using namespace std::chrono_literals;

constexpr uint64_t kPerSender = 20'000;

TEST(PlatformThreads, ManySendersAndReceiversConservePacketsAndOrderPerSender) {
  constexpr uint32_t kSenders = 3;
  ASSERT_TRUE(Packets().Configure({.count = 64}));
  Channel* const channel = Channels().Create("channel/test", 32);
  EventThread* const reader = EventThreads().Create("thread/test");
  std::thread receiver([&] {
    std::vector<uint64_t> next(kSenders, 0);
    for (uint64_t received = 0; received < kSenders * kPerSender;) {
      if (channel->Size() == 0) reader->Wait(1h);  // a lost wake-up would end in the test's time limit
      while (const PacketPtr packet = channel->Receive()) {
        ASSERT_EQ(packet->attr.cookie, next[packet->attr.ingressPort]++);
        ++received;
      }
    }
  });
  LcoreThreads lcores(kSenders);
  for (uint32_t sender = 0; sender < kSenders; ++sender) {
    lcores.Start(sender, [&, sender] {
      for (uint64_t i = 0; i < kPerSender; ++i) {
        PacketPtr packet;
        while ((packet = Packets().New({}, {.ingressPort = sender, .cookie = i})) == nullptr)
          std::this_thread::yield();
        while (!channel->Send(packet)) std::this_thread::yield();
        reader->Write(1u << sender);
      }
    });
  }
  lcores.Wait();
  receiver.join();
  EXPECT_EQ(channel->Stats().sent, kSenders * kPerSender);
  EXPECT_EQ(Packets().Stats().inUse, 0u);
  Reset();
}

TEST(PlatformThreads, APingPongOfEventsLosesNoWakeUp) {
  EventThread* const ping = EventThreads().Create("thread/ping");
  EventThread* const pong = EventThreads().Create("thread/pong");
  constexpr int kRounds = 5'000;
  std::thread other([&] {
    for (int i = 0; i < kRounds; ++i) {
      while (ping->Wait(1h) == 0) {
      }
      pong->Write(2);
    }
  });
  for (int i = 0; i < kRounds; ++i) {
    ping->Write(1);
    ASSERT_EQ(pong->Wait(1h), 2u);
  }
  other.join();
}

TEST(PlatformThreads, OfTwoFreesOfAPacketExactlyOneSucceeds) {
  LcoreThreads lcores(2);
  for (int round = 0; round < 500; ++round) {
    Packet* const packet = Packets().New({}, {}).release();
    std::atomic<int> ready{0}, succeeded{0};
    lcores.RunOnEach([&] {
      for (ready.fetch_add(1); ready.load() < 2;) std::this_thread::yield();
      if (Packets().Free(packet)) succeeded.fetch_add(1);
    });
    ASSERT_EQ(succeeded.load(), 1);
  }
  EXPECT_EQ(Packets().Stats().badFrees, 500u);
  Reset();
}

OrbSpinlock g_lock{};
uint64_t g_guarded = 0;  // plain: the lock is what the thread sanitizer has to see

TEST(PlatformThreads, TheSpinlockExcludes) {
  constexpr uint64_t kRounds = 20'000;
  ASSERT_EQ(OrbSpinlockInit(&g_lock), 0u);
  std::atomic<uint64_t> tried{0};
  LcoreThreads lcores(3);
  lcores.Start(0, [&] {
    for (uint64_t i = 0; i < kRounds; ++i) {
      if (OrbSpinlockTrylock(&g_lock) == 0) continue;
      ++g_guarded;
      OrbSpinlockUnlock(&g_lock);
      tried.fetch_add(1);
    }
  });
  for (const size_t lcore : {1u, 2u}) {
    lcores.Start(lcore, [] {
      for (uint64_t i = 0; i < kRounds; ++i) {
        OrbSpinlockLock(&g_lock);
        ++g_guarded;
        OrbSpinlockUnlock(&g_lock);
      }
    });
  }
  lcores.Wait();
  EXPECT_EQ(g_guarded, 2 * kRounds + tried.load());
  EXPECT_EQ(GetSpinlockStats().busyTries, kRounds - tried.load());
  EXPECT_TRUE(Audit().empty());
}

std::atomic<uint64_t> g_served{0};
std::atomic<uint64_t> g_written{0};

TEST(PlatformThreads, CallbackThreadsServeEveryEventAfterItsLastWrite) {
  static std::atomic<uint64_t> work{0};
  ASSERT_TRUE(Events().Register(2, [] {
    g_served.fetch_add(work.exchange(0));
    g_served.notify_all();
  }));
  Events().StartThreads(2);
  LcoreThreads lcores(2);
  lcores.RunOnEach([] {
    for (int i = 0; i < 5'000; ++i) {
      work.fetch_add(1);
      g_written.fetch_add(1);
      Events().Write(2);
    }
  });
  for (uint64_t seen = g_served; seen < g_written; seen = g_served) g_served.wait(seen);
  Events().StopThreads();
  EXPECT_EQ(g_served.load(), 10'000u);
  Reset();
}

TEST(PlatformThreads, TheMachineClockRunsBesideReadersAndTimerChanges) {
  TheClock().UseMachine();
  const LogCapture log(MaskOf(LogOutput::kFrameworkLog));
  LcoreThreads lcores(2);
  lcores.RunOnEach([] {
    for (int i = 0; i < 300; ++i) {
      uint32_t id = kNoTimer;
      ASSERT_EQ(OrbSLcoreTimerCreateAndStart(
                    1, 1,
                    +[]() -> uint32_t {
                      OrbLog(1, "tick at %u", TheClock().Seconds());
                      return 0;
                    },
                    nullptr, &id),
                0u);
      void* const mem = OrbMemAllocInner(129, 0, 24, 0, "test", 1);
      OrbMemFreeInner(mem);
      if (i % 50 == 0) std::this_thread::sleep_for(2ms);  // lets some timers come due
      ASSERT_EQ(OrbSLcoreTimerDelete(id), 0u);
    }
  });
  TheClock().UseVirtual(0);
  EXPECT_EQ(Logs().Count(LogOutput::kFrameworkLog), log.Lines().size());
  EXPECT_TRUE(Audit().empty());
}

}  // namespace
}  // namespace vex::platform
