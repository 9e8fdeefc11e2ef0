// fault_sweep_test.cpp - every import that can fail, failing at every one of its calls.
// In:  the scenarios. Out: per (import, k) a process of its own in which the k-th call fails: no crash,
// nothing leaked or freed twice, the lock free, and exactly the effects that the scenario's rules name. The
// number of pairs is printed; a call that succeeds but delivers nothing is tried too and not counted again.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "dhcp_vex_rate_limit_notify.h"
#include "dhcp_vex_rate_limit_peerlink.h"
#include "test_paths.h"
#include "tests/module/fault_scenarios.h"

namespace vex::module_test {

std::ostream& operator<<(std::ostream& out, const Effects& e) {
#define VEX_EFFECT_TEXT(name) \
  if (e.name != 0) out << #name "=" << e.name << ' ';
  VEX_EFFECTS(VEX_EFFECT_TEXT)
#undef VEX_EFFECT_TEXT
  return out;
}
std::ostream& operator<<(std::ostream& out, const Scenario& scenario) { return out << scenario.name; }

namespace {

constexpr char kPacketSource[] = "orch/src/dhcp_vex/dhcp_vex_pkt";

struct Shared {  // between a run's process and the test's
  Effects effects;
  uint64_t calls[platform::kImportCount];
  bool finished;
  char complaints[2000];
};

// Seen by the process of a run and the test's; given back when the test's ends.
Shared& FreshShared() {
  void* memory = mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  return *static_cast<Shared*>(memory);
}

// ---- One run, in a process of its own -------------------------------------------------------------------

Effects Observe(int64_t result, const Stats& before) {
  Effects e;
  const Stats stats = ReadStats();
  int64_t* const counters[] = {&e.stat0, &e.stat1, &e.stat2, &e.stat3,
                               &e.stat4, &e.stat5, &e.stat6, &e.stat7};
  for (size_t i = 0; i < stats.size(); ++i) *counters[i] = static_cast<int64_t>(stats[i] - before[i]);
  e.result = result;
  const auto size = [](auto&& container) { return static_cast<int64_t>(container.size()); };
  e.hooks = size(platform::Hooks().All());
  e.services = size(platform::TheBoard().RpcServices());
  for (const DhcpVexSpec& spec : g_dhcpVexSpecs) e.capabilities += spec.value == 1;
  for (size_t c = 0; c < platform::kServiceChannelCount; ++c) {
    const auto* channel = platform::Channels().Find(platform::ServiceChannelName(c));
    (c == 11 ? e.inner : e.delivered) += static_cast<int64_t>(channel->Size());
  }
  const auto* back = platform::Channels().Find("channel/dhcp2vex");
  e.queued = back == nullptr ? 0 : static_cast<int64_t>(back->Size());
  e.kept = g_kept, e.called = g_called;
  e.published = size(platform::Egress().TakePublished()),
  e.uploaded = size(platform::Egress().TakeUploaded());
  e.mlag = size(platform::Objects().TakeMlagSends());
  e.event = platform::Events().AnyPending();
  e.wakes = static_cast<int64_t>(Faults().Calls(Import::ORB_EventWrite));
  e.timers = size(platform::TheClock().Timers());
  e.timerIds = (g_dhcpVexSnpInfoNotifyTimerId != DHCP_NONE) + (g_dhcpVexPeerLinkNotifyTimerId != DHCP_NONE);
  e.blocks = static_cast<int64_t>(platform::Memory().LiveBlocks());
  for (const DhcpDll* list : {&g_dhcpVexSnpIfInfo, &g_dhcpVexSnpVlanInfo}) {
    dhcp_vex::DllForEach<DhcpSnpInfo>(
        *list, [&e](DhcpSnpInfo& record) { e.drops += record.v4Period.dropCnt + record.v6Period.dropCnt; });
  }
  e.drops += g_dhcpSnpGblInfo.v4Period.dropCnt + g_dhcpSnpGblInfo.v6Period.dropCnt;
  for (const DhcpPeerLinkRate& record : g_dhcpVexPeerLinkInfo) e.drops += record.period.dropCnt;
  e.asserts = static_cast<int64_t>(platform::Logs().Count(LogOutput::kAssert));
  return e;
}

void StartFramework() {
  platform::Reset();
  platform::Packets().Configure({.exactBlocks = true});
  for (const DhcpVexSpec& spec : g_dhcpVexSpecs) platform::TheBoard().SetCapability(spec.descr, 1);
  for (const char* path : {VEX_OPTIONAL_DIR "/libdb_arp.so", VEX_OPTIONAL_DIR "/libvex_mlag.so"})
    dlopen(path, RTLD_LAZY);
  platform::OpenServicePorts(64);
  platform::TheClock().UseVirtual(1'000'000'000'000);
  g_dhcpVexDebugSwitch = 1;
  g_dhcpPktDump = 1;
}

// Goes on after the failure as the framework would, then gives everything back.
std::string FinishAndAudit() {
  Faults().Reset();
  std::string complaints;
  if (g_dhcpVexSnpInfoUseLock.word != 0) complaints += "the lock is held; ";
  if (g_dhcpPktLogVexBarrier != 0) complaints += "the barrier is held; ";
  Offer(Dhcp4()), Dhcp2VexChnEvtCallback();
  DhcpVexSnpInfoNotifyTimerCallBack(), DhcpVexPeerLinkNotifyTimerCallBack();
  Switch(DHCP_CFG_ALL, 0);
  for (const auto& timer : platform::TheClock().Timers()) platform::TheClock().DeleteTimer(timer.id);
  DhcpVexEventCallBackUnReg(DHCP_EVENT_USER_BIND, NoteCall);
  ClearStore();
  for (auto* channel : platform::Channels().All()) channel->Drain();
  platform::Egress().TakePublished(), platform::Egress().TakeUploaded();
  for (const std::string& line : platform::Audit()) complaints += line + "; ";
  return complaints;
}

// The framework's accounting names who asked for a packet, changed its head or gave it back; every send has
// the same argument.
std::string BadSites(const std::vector<platform::Call>& calls) {
  using I = Import;
  std::string complaints;
  for (const platform::Call& call : calls) {
    const bool byPacket = call.import == I::MbufFree || call.import == I::OrbMbufPktCopyNew;
    const bool byLength = call.import == I::MbufPktNewFromData || call.import == I::MbufPktAddHead ||
                          call.import == I::MbufPktCutHead;
    const size_t path = byPacket ? 1 : 2;
    const bool site = (!byPacket && !byLength) ||
                      (call.args[path] != 0 && call.args[path + 1] != 0 &&
                       std::strcmp(reinterpret_cast<const char*>(call.args[path]), kPacketSource) == 0);
    if (!site) complaints += std::string(ImportName(call.import)) + " names another source; ";
    if (call.import == I::ORB_ChannelDcSend && call.args[2] != 1000) complaints += "another send argument; ";
  }
  return complaints;
}

void RunHere(const Scenario& scenario, const Fault* fault, Shared& shared) {
  alarm(60);
  StartFramework();
  if (scenario.started) DhcpVexInit();
  scenario.prepare();
  const Stats before = ReadStats();
  const uint64_t asserts = platform::Logs().Count(LogOutput::kAssert);
  Faults().Reset();
  if (fault != nullptr) Faults().Arm(*fault);
  Faults().StartRecording();
  const int64_t result = scenario.act();
  for (size_t i = 0; i < platform::kImportCount; ++i)
    shared.calls[i] = Faults().Calls(static_cast<Import>(i));
  shared.effects = Observe(result, before);
  shared.effects.asserts -= static_cast<int64_t>(asserts);
  const std::string sites = BadSites(Faults().TakeRecorded());
  (sites + FinishAndAudit()).copy(shared.complaints, sizeof(shared.complaints) - 1);
  shared.finished = true;
}

// Never returns in the child. A crash, a hang or a sanitizer's report leaves `finished` unset.
void RunApart(const Scenario& scenario, const Fault* fault, Shared& shared) {
  shared = {};
  std::fflush(nullptr);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    RunHere(scenario, fault, shared);
    _exit(0);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_TRUE(shared.finished && status == 0) << "the process ended with status " << status;
  EXPECT_STREQ(shared.complaints, "");
}

class FaultSweep : public ::testing::TestWithParam<Scenario> {
 protected:
  // One pair: the effects must be those without the fault, changed by the import's rules.
  void Fail(const Shared& baseline, const Fault& fault) {
    const uint64_t k = fault.skip + 1;
    const bool hollow = fault.form == FaultForm::kHollow;
    Effects expected = baseline.effects;
    for (const Rule& rule : GetParam().rules) {
      if (std::ranges::count(rule.imports, fault.import) != 0) rule.change(expected, k);
    }
    // A receive without a packet ends the drain as a failed one does, but asks for another.
    if (hollow && fault.import == Import::ORB_ChannelDcRecv) expected.event = 1;
    RunApart(GetParam(), &fault, shared_);
    EXPECT_EQ(shared_.effects, expected)
        << "call " << k << " of " << ImportName(fault.import) << (hollow ? ", hollow" : "");
  }
  // Imports that may also succeed and deliver nothing.
  static bool FailsHollow(Import import) {
    return import == Import::ORB_ChannelDcRecv || import == Import::OrbSLcoreTimerCreateAndStart ||
           import == Import::db_create_if_cfg_obj || import == Import::db_create_arp_obj;
  }

  Shared& shared_ = FreshShared();
};

TEST_P(FaultSweep, EveryCallOfEveryImportFailsOnce) {
  RunApart(GetParam(), nullptr, shared_);
  if (HasFailure()) return;
  const Shared baseline = shared_;
  for (const Import import : platform::FallibleImports()) {
    const uint64_t calls = baseline.calls[static_cast<size_t>(import)];
    for (uint64_t k = 1; k <= calls && !HasFatalFailure(); ++k) {
      Fail(baseline, {.import = import, .skip = k - 1, .times = 1});
      if (FailsHollow(import))
        Fail(baseline, {.import = import, .skip = k - 1, .times = 1, .form = FaultForm::kHollow});
    }
  }
}

INSTANTIATE_TEST_SUITE_P(, FaultSweep, ::testing::ValuesIn(Scenarios()), [](const auto& scenario) {
  std::string name;
  for (const char c : std::string_view(scenario.param.name))
    name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
});

// The scenarios leave no import out; the number of pairs is what the sweep above covers.
TEST(FaultSweepCoverage, EveryFallibleImportIsCalledInSomeScenario) {
  std::array<uint64_t, platform::kImportCount> calls{};
  uint64_t pairs = 0;
  for (const Scenario& scenario : Scenarios()) {
    Shared& shared = FreshShared();
    RunApart(scenario, nullptr, shared);
    uint64_t ofScenario = 0;
    for (const Import import : platform::FallibleImports()) {
      const auto i = static_cast<size_t>(import);
      calls[i] += shared.calls[i], ofScenario += shared.calls[i];
    }
    EXPECT_GT(ofScenario, 0u) << scenario.name;
    std::printf("%-40s %5llu (import, k) pairs\n", scenario.name,
                static_cast<unsigned long long>(ofScenario));
    pairs += ofScenario;
  }
  for (const Import import : platform::FallibleImports())
    EXPECT_GT(calls[static_cast<size_t>(import)], 0u) << ImportName(import);
  std::printf("%-40s %5llu (import, k) pairs of %zu imports\n", "all", static_cast<unsigned long long>(pairs),
              platform::FallibleImports().size());
}

}  // namespace
}  // namespace vex::module_test
