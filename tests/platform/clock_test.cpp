// Virtual time and the timers on it; the machine's clock at the end.
#include "platform/clock.h"

#include <chrono>
#include <ctime>

#include "dhcp_vex_platform.h"
#include "platform/faults.h"
#include "tests/platform/platform_fixture.h"

namespace vex::platform {
namespace {

constexpr int64_t kSecond = 1'000'000'000;

uint32_t ModuleSeconds() {
  return *reinterpret_cast<const uint32_t*>(static_cast<const uint8_t*>(g_pstGlobalTimeDate) + 16);
}

std::vector<std::pair<char, uint32_t>> g_fired;  // which timer, and the seconds the callback saw

template <char kName>
uint32_t Note() {
  g_fired.emplace_back(kName, ModuleSeconds());
  return 0;
}

class ClockTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    g_fired.clear();
  }
  void TearDown() override {
    for (const auto& timer : TheClock().Timers()) OrbSLcoreTimerDelete(timer.id);
    PlatformTest::TearDown();
  }
  static uint32_t Start(uint32_t periodMs, uint32_t (*callback)()) {
    uint32_t id = kNoTimer;
    EXPECT_EQ(OrbSLcoreTimerCreateAndStart(periodMs, 1, callback, nullptr, &id), 0u);
    return id;
  }
};

TEST_F(ClockTest, SecondsFollowVirtualTimeInBothDirections) {
  const std::pair<int64_t, uint32_t> steps[] = {{5 * kSecond + 999'999'999, 5},
                                                {6 * kSecond, 6},
                                                {2 * kSecond, 2},
                                                {-1, 0xFFFFFFFF},
                                                {(1LL << 32) * kSecond, 0}};
  for (const auto& [time, seconds] : steps) {
    TheClock().SetTo(time);
    EXPECT_EQ(ModuleSeconds(), seconds) << time;
    EXPECT_EQ(TheClock().NowNs(), time);
  }
}

TEST_F(ClockTest, TimersFireOncePerStepAndCountOnFromTheirOwnTime) {
  TheClock().UseVirtual(100 * kSecond);
  Start(30'000, Note<'a'>);
  const struct {
    const char* name;
    double time;
    bool fires;
  } steps[] = {
      {"just before", 129.9, false},
      {"due", 130.5, true},
      {"not yet, the period counts from 130", 159.9, false},
      {"exactly due", 160, true},
      {"a gap of several periods fires once", 300, true},
      {"and counts from the end of the gap", 329.9, false},
      {"due after the gap", 330, true},
      {"a step back fires nothing", 50, false},
      {"and counts from there", 79.9, false},
      {"due after the step back", 80, true},
      {"standing still", 80, false},
  };
  size_t fired = 0;
  for (const auto& step : steps) {
    TheClock().SetTo(static_cast<int64_t>(step.time * 1e9));
    fired += step.fires ? 1 : 0;
    EXPECT_EQ(g_fired.size(), fired) << step.name;
    g_fired.resize(fired, {'?', 0});
  }
}

TEST_F(ClockTest, TimersFireInTheOrderOfTheirTimesBeforeTheSecondsMove) {
  TheClock().UseVirtual(10 * kSecond);
  Start(60'000, Note<'b'>);
  Start(30'000, Note<'a'>);
  TheClock().SetTo(75 * kSecond);
  TheClock().SetTo(75 * kSecond);
  EXPECT_THAT(g_fired, testing::ElementsAre(std::pair{'a', 10u}, std::pair{'b', 10u}));
}

uint32_t g_other = kNoTimer;

TEST_F(ClockTest, ACallbackMayDeleteAndCreateTimers) {
  Start(
      1'000, +[]() -> uint32_t {
        OrbSLcoreTimerDelete(g_other);
        uint32_t id = kNoTimer;
        return OrbSLcoreTimerCreateAndStart(1'000, 1, Note<'n'>, nullptr, &id);
      });
  g_other = Start(1'000, Note<'o'>);
  TheClock().SetTo(kSecond);
  EXPECT_THAT(g_fired, testing::IsEmpty());
  TheClock().SetTo(2 * kSecond);
  EXPECT_THAT(g_fired, testing::ElementsAre(testing::Pair('n', 1u)));
}

TEST_F(ClockTest, RefusesTimersItCannotRun) {
  uint32_t id = kNoTimer;
  EXPECT_NE(OrbSLcoreTimerCreateAndStart(0, 1, Note<'x'>, nullptr, &id), 0u);
  EXPECT_NE(OrbSLcoreTimerCreateAndStart(10, 2, Note<'x'>, nullptr, &id), 0u);
  EXPECT_NE(OrbSLcoreTimerCreateAndStart(10, 1, nullptr, nullptr, &id), 0u);
  Faults().Arm({.import = Import::OrbSLcoreTimerCreateAndStart, .times = 1, .form = FaultForm::kHollow});
  EXPECT_EQ(OrbSLcoreTimerCreateAndStart(10, 1, Note<'x'>, nullptr, &id), 0u);
  EXPECT_EQ(id, kNoTimer) << "success without an id";
  EXPECT_NE(OrbSLcoreTimerDelete(kNoTimer), 0u);
  const uint32_t running = Start(10, Note<'x'>);
  EXPECT_EQ(OrbSLcoreTimerDelete(running), 0u);
  EXPECT_NE(OrbSLcoreTimerDelete(running), 0u);
  TheClock().SetTo(kSecond);
  EXPECT_THAT(g_fired, testing::IsEmpty());
}

std::atomic<int> g_ticks{0};

TEST_F(ClockTest, MachineModeRunsTimersOnItsOwnThreadAndFollowsTheSystemClock) {
  g_ticks = 0;
  TheClock().UseMachine();
  Start(
      5, +[]() -> uint32_t {
        g_ticks.fetch_add(1);
        g_ticks.notify_all();
        return 0;
      });
  for (int seen = g_ticks; seen < 3; seen = g_ticks) g_ticks.wait(seen);
  const auto difference =
      static_cast<int64_t>(TheClock().Seconds()) - static_cast<int64_t>(std::time(nullptr));
  EXPECT_LE(std::abs(difference), 1);
  TheClock().UseVirtual(0);
  EXPECT_EQ(TheClock().Timers().size(), 1u) << "timers survive a change of mode";
  EXPECT_EQ(TheClock().Timers()[0].dueNs, 5'000'000);
}

TEST_F(ClockTest, TheAuditNamesTimersThatStillRun) {
  Start(60'000, Note<'x'>);
  EXPECT_THAT(Audit(), testing::ElementsAre(testing::HasSubstr("60000 ms is still running")));
}

}  // namespace
}  // namespace vex::platform
