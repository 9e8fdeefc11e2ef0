// fault_scenarios.h - what the fault sweep lets the module do, and what each failing call may change of it.
// In:  nothing. Out: scenarios, each with its preparation, its act and its rules; the effects as numbers by
// which two runs are compared.
#pragma once

#include <functional>

#include "tests/module/egress_test.h"

namespace vex::module_test {

// What a scenario leads to. The formatter does not settle on a layout for this list.
// clang-format off
#define VEX_EFFECTS(X) \
  X(result) X(hooks) X(services) X(capabilities) X(stat0) X(stat1) X(stat2) X(stat3) X(stat4) X(stat5) \
  X(stat6) X(stat7) X(delivered) X(inner) X(kept) X(queued) X(published) X(uploaded) X(mlag) X(called) \
  X(event) X(wakes) X(timers) X(timerIds) X(blocks) X(drops) X(asserts)
// clang-format on
struct Effects {
#define VEX_EFFECT_FIELD(name) int64_t name = 0;
  VEX_EFFECTS(VEX_EFFECT_FIELD)
#undef VEX_EFFECT_FIELD
  friend bool operator==(const Effects&, const Effects&) = default;
};

// What the k-th failing call of an import changes of the effects.
struct Rule {
  std::vector<Import> imports;
  std::function<void(Effects&, uint64_t k)> change;
};

struct Scenario {
  const char* name;
  std::function<void()> prepare;  // the module is started; nothing fails here
  std::function<int64_t()> act;   // one call fails here
  std::vector<Rule> rules;
  bool started = true;  // false: DhcpVexInit is the act
};
std::vector<Scenario> Scenarios();

inline int64_t g_kept = 0;    // packets that the module left to the framework
inline int64_t g_called = 0;  // callbacks
inline uint32_t NoteCall(void*, void*) { return ++g_called, 0; }

// Offers a packet as the framework does: what is not taken stays its own. Answers the verdict.
int64_t Offer(const Frame& frame);

}  // namespace vex::module_test
