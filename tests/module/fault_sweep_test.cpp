// fault_sweep_test.cpp - every import that can fail, failing at every one of its calls.
// In:  scenarios that cover start-up, each packet kind, each message kind, both timers and every handler.
// Out: per (import, k) a process of its own in which the k-th call fails: no crash, nothing leaked or freed
// twice, the lock free, and exactly the effects that the scenario's rules name; an import without a rule
// changes nothing. The number of pairs is printed.
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <functional>
#include <string>

#include "dhcp_vex_egress_db.h"
#include "dhcp_vex_pkt.h"
#include "dhcp_vex_rate_limit_notify.h"
#include "dhcp_vex_rate_limit_peerlink.h"
#include "test_paths.h"
#include "tests/module/egress_test.h"

namespace vex::module_test {
namespace {

using platform::FallibleImports;

// What a scenario leads to, as numbers that two runs can be compared by.
// The formatter does not settle on a layout for this list.
// clang-format off
#define VEX_EFFECTS(X)                                                                                   \
  X(result)                                                                                              \
  X(hooks)                                                                                               \
  X(services)                                                                                            \
  X(capabilities)                                                                                        \
  X(stat0)                                                                                               \
  X(stat1) X(stat2) X(stat3) X(stat4) X(stat5) X(stat6) X(stat7) X(delivered) X(inner) X(kept) X(queued) \
      X(published) X(uploaded) X(mlag) X(called) X(event) X(timers) X(blocks) X(drops) X(asserts)
// clang-format on
struct Effects {
#define VEX_EFFECT_FIELD(name) int64_t name = 0;
  VEX_EFFECTS(VEX_EFFECT_FIELD)
#undef VEX_EFFECT_FIELD
  friend bool operator==(const Effects&, const Effects&) = default;
};
std::ostream& operator<<(std::ostream& out, const Effects& e) {
#define VEX_EFFECT_TEXT(name) \
  if (e.name != 0) out << #name "=" << e.name << ' ';
  VEX_EFFECTS(VEX_EFFECT_TEXT)
#undef VEX_EFFECT_TEXT
  return out;
}

// What the k-th failing call of an import changes of the effects.
struct Rule {
  std::vector<Import> imports;
  std::function<void(Effects&, uint64_t k)> change;
};

struct Scenario {
  const char* name;
  bool started;                   // DhcpVexInit is part of the preparation, not of the act
  std::function<void()> prepare;  // nothing fails here
  std::function<int64_t()> act;   // one call fails here
  std::vector<Rule> rules;
};

std::ostream& operator<<(std::ostream& out, const Scenario& scenario) { return out << scenario.name; }

struct Shared {  // between a run's process and the test's
  Effects effects;
  uint64_t calls[platform::kImportCount];
  bool finished;
  char complaints[2000];
};

int64_t g_kept = 0, g_called = 0;

uint32_t NoteCall(void*, void*) { return ++g_called, 0; }

// ---- Acts and their preparations ------------------------------------------------------------------------

void Configure(uint32_t type, uint32_t value, uint32_t index) {
  const DhcpSnpCfgReq request = {type, value, index};
  DhcpSnpCfg(&request);
}

uint32_t Switch(uint32_t type, uint32_t value) {
  const DhcpCfgReq request = {value, type, 0};
  return DhcpCfg(&request);
}

// Offers a packet as the framework does: what is not taken stays its own.
int64_t Offer(const Frame& frame) {
  PacketPtr packet = frame.Marked().Exact(64);
  const uint32_t verdict = DhcpHostHookCallback(packet.get());
  if (verdict == DHCP_HOOK_TAKEN) {
    static_cast<void>(packet.release());
  } else {
    ++g_kept;
  }
  return verdict;
}

std::function<void()> Switched(uint32_t bits, uint32_t instances = 4) {
  return [=] { SetSwitches(bits), SetInstances(instances); };
}

void LimitEverything(uint32_t rate) {
  Switched(0x11)();
  Configure(3, rate, 7), Configure(2, 1, 7);    // interface
  Configure(5, rate, 10), Configure(4, 1, 10);  // VLAN
  Configure(1, rate, 0), Configure(0, 1, 0);    // global
  const DhcpDegradeCfgReq degrade = {2 * rate};
  DhcpDegradeCfg(&degrade);
}

constexpr int64_t kReported[] = {12, 3, 5, 1};  // refusals in the order of the reports

void RefuseSome() {
  Switched(0x1010)();
  Configure(3, 1, 7), Configure(5, 1, 10);
  DhcpSpeedPeriod* const periods[] = {
      &DhcpVexGetSnpIfInfoByIfIndex(7)->v4Period, &DhcpVexGetSnpIfInfoByIfIndex(7)->v6Period,
      &DhcpVexGetSnpVlanInfoByVlanId(10)->v4Period, &g_dhcpSnpGblInfo.v6Period};
  for (size_t i = 0; i < 4; ++i)
    periods[i]->dropCnt = static_cast<uint16_t>(kReported[i]), periods[i]->dropFlag = 1;
}

void RefusePeerLink() {
  SetSpec(3, 10), SetSpec(4, 20);
  Switch(DHCP_CFG_MLAG_PEERLINK, 1);
  for (DhcpPeerLinkRate& record : g_dhcpVexPeerLinkInfo)
    record.period.dropCnt = 3, record.period.dropFlag = 1;
}

void QueueMessages(const std::vector<Message>& messages) {
  for (const Message& message : messages) {
    PacketPtr packet = message.Marked().New();
    platform::Channels().Find("channel/dhcp2vex")->Send(packet);
  }
}

void QueueEveryKind() {
  using platform::Objects;
  DhcpVexEventCallBackReg(DHCP_EVENT_USER_BIND, NoteCall);
  Objects().SetTunnel(1, 1, {31, 9});
  Objects().SetTunnel(2, 1, {32, 9});
  Objects().SetInterfaceVlan(31, 100), Objects().SetInterfaceVlan(32, 200);
  Objects().SetArp(9, 31, 45), Objects().SetArp(9, 32, 45);
  Configure(25, 45, 100);  // trusted in VLAN 100 only
  QueueMessages({Make(kBind), Make(kNd), Make(kEthernet).EgressFlags(0x28000), Make(kEthernet).ByMlag(),
                 Make(kEthernet).Vpls(1, 1), Make(kEthernet).Vpls(2, 1), Make(kEthernet).Length(999)});
}

int64_t Drain() { return Dhcp2VexChnEvtCallback(), 0; }

int64_t ConfigureAll() {
  int64_t sum = Switch(DHCP_CFG_V4_SNOOPING, 1) + Switch(DHCP_CFG_MLAG_PEERLINK, 1);
  for (const auto& [type, value, index] :
       {std::tuple(3u, 10u, 7u), std::tuple(25u, 45u, 100u), std::tuple(27u, 1u, 0u)}) {
    const DhcpSnpCfgReq request = {type, value, index};
    sum += DhcpSnpCfg(&request);
  }
  const DhcpDegradeCfgReq degrade = {50};
  sum += DhcpDegradeCfg(&degrade) + DhcpSnpDelMac(nullptr) + DhcpPktCtrlCfg(nullptr) +
         DhcpPktCtrlCfgSync(nullptr);
  return sum + DhcpCfg(nullptr);  // 1, the only one
}

int64_t ConfigureNothing() {
  Configure(3, 5000, 7), Configure(26, 45, 100);
  return Switch(DHCP_CFG_ALL, 0);
}

int64_t UseRegistry() {
  const auto other = [](void*, void*) -> uint32_t { return 100; };
  int64_t sum = DhcpVexEventCallBackReg(0, NoteCall);
  sum += DhcpVexEventCallBackReg(0, other);
  DhcpVexEventCallBackUnReg(0, NoteCall);
  sum += DhcpVexEventCallBackNotify(0, nullptr);
  DhcpVexEventCallBackUnReg(0, other);
  return sum;
}

int64_t Diagnose() {
  const PacketPtr packet = Make(kEthernet).New();
  DhcpDiagDumpPacket(packet.get(), 0, DHCP_DIAG_RECEIVE);
  DhcpVexDebugOut(0, "debug %d", 1);
  DhcpVexDiagLog(0, "rare %d", 1);
  return DHCPDiagPrintf("trace %d", 1);
}

int64_t AskCapability() {
  uint32_t value = 77;
  const uint32_t result = DhcpVexGetSpecsByDescr("DHCP_CAUSID_TYPE", &value);
  return result * 1000 + value;
}

// ---- Rules ----------------------------------------------------------------------------------------------

using I = Import;

// Forgets what the act led to; what start-up and preparation left is still there.
void Undo(Effects& e) {
  Effects before;
  before.hooks = e.hooks, before.services = e.services, before.capabilities = e.capabilities;
  before.blocks = e.blocks;
  e = before;
}

// A packet that the service did not get: `taken` tells whose it is then.
std::vector<Rule> DeliveryRules(bool taken) {
  const auto lost = [taken](Effects& e) {
    --e.delivered;
    if (taken) e.result = DHCP_HOOK_TAKE_FAILED, ++e.kept;
  };
  std::vector<Rule> rules = {
      {{I::MbufPktAddHead, I::memcpy_s}, [=](Effects& e, uint64_t) { lost(e); }},
      {{I::ORB_ThreadInfoGetByName}, [=](Effects& e, uint64_t) { lost(e), ++e.stat4; }},
      {{I::ORB_ChannelGetIdByName}, [=](Effects& e, uint64_t) { lost(e), ++e.stat5; }},
      {{I::ORB_ChannelDcSend}, [=](Effects& e, uint64_t) { lost(e), ++e.stat6; }},
      {{I::HostMbufGetL3Hdr},
       [](Effects& e, uint64_t) { Undo(e), e.kept = 1; }},  // no byte to test: not wanted
  };
  if (!taken) rules.push_back({{I::OrbMbufPktCopyNew}, [=](Effects& e, uint64_t) { lost(e), --e.stat0; }});
  return rules;
}

std::vector<Rule> FanOutRules() {
  return {{{I::MbufPktAddHead, I::memcpy_s},
           [](Effects& e, uint64_t) { e.delivered = 0, e.kept = 1, e.result = DHCP_HOOK_TAKE_FAILED; }},
          {{I::OrbMbufPktCopyNew}, [](Effects& e, uint64_t) { --e.delivered; }},
          {{I::ORB_ThreadInfoGetByName}, [](Effects& e, uint64_t) { --e.delivered, ++e.stat4; }},
          {{I::ORB_ChannelGetIdByName}, [](Effects& e, uint64_t) { --e.delivered, ++e.stat5; }},
          {{I::ORB_ChannelDcSend}, [](Effects& e, uint64_t) { --e.delivered, ++e.stat6; }},
          {{I::HostMbufGetL3Hdr}, [](Effects& e, uint64_t) { Undo(e), e.kept = 1; }}};
}

std::vector<Rule> StartUpRules() {
  const auto unopened = [](Effects& e, uint64_t) { e.result = 1, e.hooks = 0; };
  return {{{I::RegTavriRpcServerToVex},
           [](Effects& e, uint64_t) { e.result = 1, e.hooks = e.services = e.capabilities = 0; }},
          {{I::OrbCapabilityQueryItem}, [](Effects& e, uint64_t) { --e.capabilities; }},
          {{I::OrbChnEvtCallbackRegister, I::ORB_ChannelCreate, I::HostHookRegister}, unopened}};
}

// The messages of QueueEveryKind, in their order.
std::vector<Rule> DrainRules() {
  const auto receive = [](Effects& e, uint64_t k) {
    Undo(e);
    e.queued = 8 - static_cast<int64_t>(k);
    if (k > 1) e.called = 1, ++e.stat1;
    if (k > 2) e.uploaded = 1, ++e.stat1;
    if (k > 3) ++e.published, ++e.stat1;
    if (k > 4) e.mlag = 1, ++e.stat1;
    if (k > 5) ++e.published, ++e.stat1;
    if (k > 7) e.stat3 = 1;
  };
  const auto cut = [](Effects& e, uint64_t k) {
    if (k == 5) return;  // cannot be cut anyway
    --e.stat1;
    if (k == 1) {
      --e.uploaded;
    } else {
      ++e.stat3;
      --(k == 3 ? e.mlag : e.published);
    }
  };
  // The admitted packet is the first to be looked up, the second one is refused in any case.
  const auto refused = [](uint64_t lookUps) {
    return [lookUps](Effects& e, uint64_t k) {
      if (k <= lookUps) --e.stat1, --e.published;
    };
  };
  return {{{I::ORB_ChannelDcRecv}, receive},
          {{I::MbufPktCutHead}, cut},
          {{I::HostMbufGetOutIfByL2vpnTnl, I::db_create_if_cfg_obj, I::db_get_if_cfg_vlan_id,
            I::db_create_arp_obj, I::db_get_arp_work_if_index},
           refused(1)},
          {{I::db_read_obj}, refused(2)},
          {{I::HostEgressPktPubWithSource}, [](Effects& e, uint64_t) { --e.published, ++e.stat2; }},
          {{I::HostUploadLdmByHook}, [](Effects& e, uint64_t) { --e.uploaded; }},
          {{I::MLAG_VEX_SendPacketPublic}, [](Effects& e, uint64_t) { --e.mlag; }}};
}

std::vector<Rule> ReportRules() {
  const auto kept = [](Effects& e, uint64_t k) { --e.inner, e.drops += kReported[k - 1], ++e.asserts; };
  return {{{I::MbufPktNewFromData, I::MbufPktAddHead, I::memcpy_s},
           [=](Effects& e, uint64_t k) { kept(e, k), ++e.asserts; }},
          {{I::ORB_ThreadInfoGetByName}, [=](Effects& e, uint64_t k) { kept(e, k), ++e.stat4; }},
          {{I::ORB_ChannelGetIdByName}, [=](Effects& e, uint64_t k) { kept(e, k), ++e.stat5; }},
          {{I::ORB_ChannelDcSend}, [=](Effects& e, uint64_t k) { kept(e, k), ++e.stat7; }}};
}

std::vector<Rule> ConfigurationRules() {
  return {
      {{I::OrbSLcoreTimerCreateAndStart}, [](Effects& e, uint64_t) { --e.timers, ++e.asserts; }},
      // interface record; VLAN record and so its entry; the entry, without which the record is all-default
      {{I::OrbMemAllocInner}, [](Effects& e, uint64_t k) { e.blocks -= k == 1 ? 1 : 2; }}};
}

std::vector<Rule> RegistryRules() {
  return {{{I::OrbMemAllocInner}, [](Effects& e, uint64_t k) {
             ++e.result, ++e.asserts;
             if (k == 2) e.result -= 100;  // nobody left to notify
           }}};
}

std::vector<Scenario> Scenarios() {
  const auto offer = [](Frame frame) { return [frame] { return Offer(frame); }; };
  const auto policed = DeliveryRules(true);
  std::vector<Rule> refused = {{{I::OrbSpinlockTrylock}, [](Effects& e, uint64_t) {
                                  e.result = DHCP_HOOK_TAKEN, e.kept = 0, e.stat0 = e.delivered = 1,
                                  --e.drops;
                                }}};
  return {
      {"start-up", false, [] {}, [] { return DhcpVexInit(); }, StartUpRules()},
      {"capability query",
       true,
       [] {},
       AskCapability,
       {{{I::OrbCapabilityQueryItem}, [](Effects& e, uint64_t) { e.result = 1077; }}}},
      {"DHCPv4 request", true, Switched(1), offer(Dhcp4()), DeliveryRules(true)},
      {"DHCPv4 within every limit", true, [] { LimitEverything(5); }, offer(Dhcp4()), policed},
      {"DHCPv4 above its limit", true, [] { Switched(0x11)(), Configure(3, 0, 7), Configure(2, 1, 7); },
       offer(Dhcp4()), refused},
      {"DHCPv4 from the peer-link", true,
       [] {
         Switched(0x8001)(), RefusePeerLink();
         SetSwitches(0x8001);
       },
       offer(Dhcp4().FromPeerLink()), policed},
      {"DHCPv6 solicit", true, Switched(0xFFFF7FFF), offer(Dhcp6()), DeliveryRules(true)},
      {"DHCPv6 relayed", true, Switched(0xFFFF7FFF), offer(Dhcp6(Relayed(Solicit()))), DeliveryRules(true)},
      {"ARP reply", true, Switched(0xFFFF), offer(Arp()), DeliveryRules(false)},
      {"ICMP echo reply", true, Switched(0xFFFF), offer(Probe("2")), DeliveryRules(false)},
      {"ND solicitation", true, Switched(1u << DHCP_CFG_ND_SNOOPING), offer(Nd(135)), DeliveryRules(true)},
      {"ND advertisement under DHCPv6 snooping", true, Switched(1u << DHCP_CFG_V6_SNOOPING), offer(Nd(136)),
       DeliveryRules(false)},
      {"ND router solicitation", true, Switched(1u << DHCP_CFG_ND_SNOOPING), offer(Nd(133)), FanOutRules()},
      {"one message of each kind", true, QueueEveryKind, Drain, DrainRules()},
      {"a used-up batch",
       true,
       [] { QueueMessages(std::vector<Message>(34, Make(kBind))); },
       Drain,
       {{{I::ORB_ChannelEventWritePublic}, [](Effects& e, uint64_t) { e.event = 0; }},
        {{I::ORB_ChannelDcRecv},
         [](Effects& e, uint64_t k) {
           e.event = 0, e.stat1 = static_cast<int64_t>(k) - 1, e.queued = 35 - static_cast<int64_t>(k);
         }}}},
      {"snooping timer", true, RefuseSome, [] { return DhcpVexSnpInfoNotifyTimerCallBack(); }, ReportRules()},
      {"peer-link timer", true, RefusePeerLink, [] { return DhcpVexPeerLinkNotifyTimerCallBack(); }, {}},
      {"every handler, on", true, Switched(0), ConfigureAll, ConfigurationRules()},
      {"every handler, off",
       true,
       [] { ConfigureAll(); },
       ConfigureNothing,
       {{{I::OrbSLcoreTimerDelete}, [](Effects& e, uint64_t) { ++e.timers, ++e.asserts; }}}},
      {"registry", true, [] {}, UseRegistry, RegistryRules()},
      {"diagnostics",
       true,
       [] {},
       Diagnose,
       {{{I::vsnprintf_truncated_s, I::HostDiagPrintf}, [](Effects& e, uint64_t) { e.result = -1; }}}},
  };
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
  e.timers = size(platform::TheClock().Timers());
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
  Offer(Dhcp4()), Drain(), DhcpVexSnpInfoNotifyTimerCallBack(), DhcpVexPeerLinkNotifyTimerCallBack();
  Switch(DHCP_CFG_ALL, 0);
  for (const auto& timer : platform::TheClock().Timers()) platform::TheClock().DeleteTimer(timer.id);
  DhcpVexEventCallBackUnReg(DHCP_EVENT_USER_BIND, NoteCall);
  ClearStore();
  for (auto* channel : platform::Channels().All()) channel->Drain();
  platform::Egress().TakePublished(), platform::Egress().TakeUploaded();
  for (const std::string& line : platform::Audit()) complaints += line + "; ";
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
  fault != nullptr ? Faults().Arm(*fault) : Faults().StartCounting();
  const int64_t result = scenario.act();
  for (size_t i = 0; i < platform::kImportCount; ++i)
    shared.calls[i] = Faults().Calls(static_cast<Import>(i));
  shared.effects = Observe(result, before);
  shared.effects.asserts -= static_cast<int64_t>(asserts);
  FinishAndAudit().copy(shared.complaints, sizeof(shared.complaints) - 1);
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
  FaultSweep()
      : memory_(mmap(nullptr, sizeof(Shared), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0)) {}
  ~FaultSweep() override { munmap(memory_, sizeof(Shared)); }

  // Meaningful when one process runs every scenario; ctest gives each its own.
  static void TearDownTestSuite() {
    std::printf("%zu (import, k) pairs in all; imports not called by any scenario run here:", total_);
    for (const Import import : FallibleImports()) {
      if (!called_[static_cast<size_t>(import)]) std::printf(" %s", std::string(ImportName(import)).c_str());
    }
    std::printf("\n");
  }

  static Effects Expected(Effects effects, Import import, uint64_t k) {
    for (const Rule& rule : GetParam().rules) {
      if (std::ranges::count(rule.imports, import) != 0) rule.change(effects, k);
    }
    return effects;
  }
  // An empty receive without a packet is skipped; every other hollow success amounts to a failure.
  static bool FailsHollow(Import import) {
    return import == I::ORB_ChannelDcRecv || import == I::OrbSLcoreTimerCreateAndStart ||
           import == I::db_create_if_cfg_obj || import == I::db_create_arp_obj;
  }

  void* const memory_;
  static inline size_t total_ = 0;
  static inline std::array<bool, platform::kImportCount> called_{};
};

TEST_P(FaultSweep, EveryCallOfEveryImportFailsOnce) {
  Shared& shared = *static_cast<Shared*>(memory_);
  RunApart(GetParam(), nullptr, shared);
  if (HasFailure()) return;
  const Shared baseline = shared;
  size_t pairs = 0;
  for (const Import import : FallibleImports()) {
    const uint64_t calls = baseline.calls[static_cast<size_t>(import)];
    called_[static_cast<size_t>(import)] |= calls != 0;
    for (uint64_t k = 1; k <= calls; ++k) {
      for (const FaultForm form : {FaultForm::kFail, FaultForm::kHollow}) {
        if (form == FaultForm::kHollow && !FailsHollow(import)) continue;
        const Fault fault{.import = import, .skip = k - 1, .times = 1, .form = form};
        RunApart(GetParam(), &fault, shared);
        const bool skipped = form == FaultForm::kHollow && import == I::ORB_ChannelDcRecv;
        EXPECT_EQ(shared.effects, skipped ? baseline.effects : Expected(baseline.effects, import, k))
            << "call " << k << " of " << ImportName(import) << (form == FaultForm::kHollow ? ", hollow" : "");
        ++pairs;
        if (HasFatalFailure()) return;
      }
    }
  }
  std::printf("%s: %zu (import, k) pairs\n", GetParam().name, pairs);
  total_ += pairs;
  EXPECT_GT(pairs, 0u);
}

INSTANTIATE_TEST_SUITE_P(, FaultSweep, ::testing::ValuesIn(Scenarios()), [](const auto& scenario) {
  std::string name;
  for (const char c : std::string_view(scenario.param.name))
    name += std::isalnum(static_cast<unsigned char>(c)) ? c : '_';
  return name;
});

}  // namespace
}  // namespace vex::module_test
