// budget_proof_test.cpp - the per-second budgets, exhaustively over a bounded domain.
// In:  every walk of kSteps packets whose seconds move by -1, 0, 1 or 2, under every combination of IP
// version, small rates and switches of an interface and a VLAN record, the switch of the feature, and the
// degrade rate. Out: each verdict against a model that knows no counting step, only how many packets of a run
// of equal seconds pass.
//
// The model: packet n of a run (from 1) passes exactly when n is within every limit that binds. A record's
// own limit R binds with R. The degrade rate D binds with floor(D / (1 + c)), where c is the number of
// records that charge the degrade period too: those with a rate above D.
#include <algorithm>
#include <limits>

#include "dhcp_vex_rate_limit.h"
#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

constexpr uint32_t kIf = 7, kVlan = 10, kUnlimited = 5000, kOff = 0xFFFFFFFF;
constexpr int kSteps = 6;

struct Scenario {
  uint32_t appType;
  uint32_t rates[2];    // of the interface and the VLAN record; 5000: none
  uint32_t enables[2];  // the records' own switches: only 1 is on
  bool snooping;        // the feature's switch, one for both IP versions
  uint32_t degrade;
};

uint32_t PassedPerRun(const Scenario& s) {
  uint32_t passed = std::numeric_limits<uint32_t>::max();
  uint32_t charges = 1;
  for (int i = 0; i < 2; ++i) {
    if (s.rates[i] == kUnlimited) continue;
    if (s.degrade != kOff && s.degrade < s.rates[i]) {
      ++charges;
    } else if (s.snooping && s.enables[i] == 1) {
      passed = std::min(passed, s.rates[i]);
    }
  }
  return s.degrade == kOff ? passed : std::min(passed, s.degrade / charges);
}

class BudgetProof : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    // Records that stay: an auxiliary value keeps them when a rate returns to its default.
    DhcpVexSaveSnpCfg(1, 9, kIf);
    DhcpVexSaveSnpCfg(1, 11, kVlan);
    records_[0] = DhcpVexGetSnpIfInfoByIfIndex(kIf);
    records_[1] = DhcpVexGetSnpVlanInfoByVlanId(kVlan);
    ASSERT_TRUE(records_[0] != nullptr && records_[1] != nullptr);
  }

  DhcpSpeedPeriod& Period(const Scenario& s, int record) {
    return s.appType == 17 ? records_[record]->v4Period : records_[record]->v6Period;
  }

  void Apply(const Scenario& s) {
    SetSwitches(s.snooping ? 1u << DHCP_CFG_V4_SNOOPING : 0);
    const uint32_t version = s.appType == 17 ? 0 : 12;
    const uint32_t keys[2] = {kIf, kVlan};
    for (uint32_t i = 0; i < 2; ++i) {
      DhcpVexSaveSnpCfg(s.enables[i], version + 2 + 2 * i, keys[i]);
      DhcpVexSaveSnpCfg(s.rates[i], version + 3 + 2 * i, keys[i]);
    }
    DhcpVexSetDegradeCfg(s.degrade);
  }

  // Offers one more packet in the run that has had `offered` so far, and walks on from there with every step
  // of the seconds. Milliseconds are monotonic. The periods are put back before each alternative.
  void Walk(const Scenario& s, int step, uint32_t offered) {
    g_dhcpVexcurTimeMilSec += 1;
    const bool passes = DhcpVexCheckPktSpeed(kIf, kVlan, s.appType) == 0;
    ++offered;
    ++checked_;
    if (passes != (offered <= passedPerRun_)) ++wrong_;
    if (step == kSteps) return;
    const DhcpSpeedPeriod saved[3] = {Period(s, 0), Period(s, 1), g_dhcpDegradeInfo.period};
    const uint32_t seconds = g_dhcpVexcurTimeSec;
    const uint64_t milliseconds = g_dhcpVexcurTimeMilSec;
    for (const int move : {-1, 0, 1, 2}) {
      Period(s, 0) = saved[0];
      Period(s, 1) = saved[1];
      g_dhcpDegradeInfo.period = saved[2];
      g_dhcpVexcurTimeSec = seconds + static_cast<uint32_t>(move);
      g_dhcpVexcurTimeMilSec = milliseconds;
      Walk(s, step + 1, move == 0 ? offered : 0);
    }
  }

  void Prove(const Scenario& s) {
    Apply(s);
    passedPerRun_ = PassedPerRun(s);
    for (const uint32_t startSeconds : {1000u, 0xFFFFFFFEu}) {  // the wrap of the 32 bits lies in the domain
      g_dhcpVexcurTimeSec = startSeconds;
      Period(s, 0) = Period(s, 1) = g_dhcpDegradeInfo.period = DhcpSpeedPeriod{};
      Walk(s, 1, 0);
      EXPECT_EQ(std::exchange(wrong_, 0), 0u)
          << "type " << s.appType << ", rates " << s.rates[0] << ' ' << s.rates[1] << ", switches "
          << s.enables[0] << ' ' << s.enables[1] << (s.snooping ? " on" : " off") << ", degrade " << s.degrade
          << ", from second " << startSeconds;
    }
  }

  DhcpSnpInfo* records_[2] = {};
  uint32_t passedPerRun_ = 0;
  uint64_t checked_ = 0, wrong_ = 0;
};

TEST_F(BudgetProof, EveryRunOfEqualSecondsPassesWhatTheBindingLimitAllows) {
  const std::vector<std::vector<uint32_t>> axes = {
      {17, 32},                  // application type
      {0, 1, 2, 4, kUnlimited},  // rate of the interface record
      {0, 1, 3, kUnlimited},     // and of the VLAN record
      {0, 1, 2},                 // their switches
      {0, 1, 2},
      {0, 1},                 // the feature's switch
      {0, 1, 2, 3, 5, kOff},  // degrade rate
  };
  size_t scenarios = 1;
  for (const auto& values : axes) scenarios *= values.size();
  for (size_t scenario = 0; scenario < scenarios; ++scenario) {
    size_t digits = scenario;
    auto axis = axes.begin();
    const auto next = [&] {
      const auto& values = *axis++;
      const uint32_t value = values[digits % values.size()];
      digits /= values.size();
      return value;
    };
    Prove({next(), {next(), next()}, {next(), next()}, next() != 0, next()});
  }
  std::printf("%zu scenarios, %llu verdicts checked\n", scenarios, static_cast<unsigned long long>(checked_));
}

// The binding limit named in words, for runs longer than the walks: D / 2 where a record charges the period
// too.
TEST_F(BudgetProof, LongRuns) {
  for (uint32_t rate = 0; rate <= 12; ++rate) {
    for (uint32_t degrade = 0; degrade <= 12; ++degrade) {
      Apply({17, {rate, kUnlimited}, {1, 1}, true, degrade});
      uint32_t passed = 0;
      ++g_dhcpVexcurTimeSec;
      for (int offered = 0; offered < 20; ++offered) passed += DhcpVexCheckPktSpeed(kIf, kVlan, 17) == 0;
      EXPECT_EQ(passed, degrade < rate ? degrade / 2 : rate) << "rate " << rate << ", degrade " << degrade;
    }
  }
}

// The counting step alone, over every limit and walk: what passes, and what is counted as refused.
TEST_F(BudgetProof, TheCountingStepCountsEveryRefusal) {
  for (uint32_t limit = 0; limit <= 3; ++limit) {
    for (uint32_t walk = 0; walk < 4096; ++walk) {  // six moves of two bits
      DhcpSpeedPeriod period = {};
      g_dhcpVexcurTimeSec = 50;
      uint32_t offered = 0, refused = 0;
      for (int step = 0; step <= 6; ++step) {
        const int move = step == 0 ? 0 : static_cast<int>(walk >> 2 * (step - 1) & 3) - 1;
        g_dhcpVexcurTimeSec += static_cast<uint32_t>(move);
        offered = move == 0 ? offered + 1 : 1;
        ASSERT_EQ(DhcpVexSpeedLimitJudge(&period, limit), offered > limit ? 1u : 0u) << "walk " << walk;
        refused += offered > limit;
        ASSERT_EQ(period.dropCnt, refused);
        ASSERT_EQ(period.dropFlag, refused != 0);
      }
    }
  }
}

}  // namespace
}  // namespace vex::module_test
