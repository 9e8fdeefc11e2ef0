// fault_scenarios.cpp - start-up, each packet kind, each message kind, both timers and every handler.
// In:  the started module. Out: per scenario what it leads to when a call of an import fails; an import
// without a rule changes nothing.
#include "tests/module/fault_scenarios.h"

#include <numeric>

#include "dhcp_vex_pkt.h"
#include "dhcp_vex_rate_limit_notify.h"
#include "dhcp_vex_rate_limit_peerlink.h"

namespace vex::module_test {

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

namespace {

using I = Import;

// ---- Preparations and acts ------------------------------------------------------------------------------

std::function<void()> Switched(uint32_t bits, uint32_t instances = 4) {
  return [=] { SetSwitches(bits), SetInstances(instances); };
}

void LimitInterface(uint32_t rate) {
  Switched(0x11)();
  Configure(3, rate, 7), Configure(2, 1, 7);
}

void LimitEverything() {
  LimitInterface(5);
  Configure(5, 5, 10), Configure(4, 1, 10);  // VLAN
  Configure(1, 5, 0), Configure(0, 1, 0);    // global
  Degrade(10);
}

constexpr int64_t kReported[] = {12, 3, 5, 1};  // refusals in the order of the reports

void RefuseSome() {
  Switched(0x1010)();
  Configure(3, 1, 7), Configure(5, 1, 10);
  DhcpSnpInfo &interface = *DhcpVexGetSnpIfInfoByIfIndex(7), &vlan = *DhcpVexGetSnpVlanInfoByVlanId(10);
  const int64_t* count = kReported;
  for (DhcpSpeedPeriod* period :
       {&interface.v4Period, &interface.v6Period, &vlan.v4Period, &g_dhcpSnpGblInfo.v6Period})
    period->dropCnt = static_cast<uint16_t>(*count++), period->dropFlag = 1;
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
  for (const uint32_t tunnel : {1u, 2u}) {
    Objects().SetTunnel(tunnel, 1, {30 + tunnel, 9});
    Objects().SetInterfaceVlan(30 + tunnel, 100 * tunnel);
    Objects().SetArp(9, 30 + tunnel, 45);
  }
  Configure(25, 45, 100);  // trusted in VLAN 100 only
  QueueMessages({Make(kBind), Make(kNd), Make(kEthernet).EgressFlags(0x28000), Make(kEthernet).ByMlag(),
                 Make(kEthernet).Vpls(1, 1), Make(kEthernet).Vpls(2, 1), Make(kEthernet).Length(999)});
}

int64_t Drain() { return Dhcp2VexChnEvtCallback(), 0; }

// The calls in their order, which the operands of a sum do not have.
int64_t Sum(std::initializer_list<uint32_t> results) {
  return std::accumulate(results.begin(), results.end(), int64_t{0});
}

int64_t ConfigureAll() {
  return Sum({Switch(DHCP_CFG_V4_SNOOPING, 1), Switch(DHCP_CFG_MLAG_PEERLINK, 1), Configure(3, 10, 7),
              Configure(25, 45, 100), Configure(27, 1, 0), Degrade(50), DhcpSnpDelMac(nullptr),
              DhcpPktCtrlCfg(nullptr), DhcpPktCtrlCfgSync(nullptr), DhcpCfg(nullptr)});  // only the last: 1
}

int64_t ConfigureNothing() {
  return Sum(
      {Configure(3, 5000, 7), Configure(26, 45, 100), Degrade(DHCP_DEGRADE_OFF), Switch(DHCP_CFG_ALL, 0)});
}

int64_t UseRegistry() {
  const auto other = [](void*, void*) -> uint32_t { return 100; };
  return Sum({DhcpVexEventCallBackReg(0, NoteCall), DhcpVexEventCallBackReg(0, other),
              DhcpVexEventCallBackUnReg(0, NoteCall), DhcpVexEventCallBackNotify(0, nullptr),
              DhcpVexEventCallBackUnReg(0, other)});
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

// A change of the effects `e` by the k-th call.
#define VEX_DO(...) [=]([[maybe_unused]] Effects& e, [[maybe_unused]] uint64_t k) { __VA_ARGS__; }

// Forgets what the act led to; what start-up and preparation left is still there.
void Undo(Effects& e) {
  Effects before;
  before.hooks = e.hooks, before.services = e.services, before.capabilities = e.capabilities;
  before.blocks = e.blocks, before.timers = e.timers, before.timerIds = e.timerIds;
  e = before;
}

// Without a byte to test the packet is not wanted.
const Rule kNoByteToTest = {{I::HostMbufGetL3Hdr}, [](Effects& e, uint64_t) { Undo(e), e.kept = 1; }};

// A packet that the service did not get: `taken` tells whose it is then. Its reader is woken only after a
// send.
std::vector<Rule> DeliveryRules(bool taken) {
  const auto lost = [taken](Effects& e) {
    --e.delivered;
    if (taken) e.result = DHCP_HOOK_TAKE_FAILED, ++e.kept;
  };
  const auto unsent = [lost](Effects& e) { lost(e), --e.wakes; };
  return {{{I::MbufPktAddHead, I::memcpy_s}, VEX_DO(unsent(e))},
          {{I::ORB_ThreadInfoGetByName}, VEX_DO(unsent(e), ++e.stat4)},
          {{I::ORB_ChannelGetIdByName}, VEX_DO(unsent(e), ++e.stat5)},
          {{I::ORB_ChannelDcSend}, VEX_DO(lost(e), ++e.stat6)},
          {{I::OrbMbufPktCopyNew}, VEX_DO(unsent(e), --e.stat0)},
          kNoByteToTest};
}

std::vector<Rule> FanOutRules() {
  const auto unsent = [](Effects& e) { --e.delivered, --e.wakes; };
  return {{{I::MbufPktAddHead, I::memcpy_s},
           VEX_DO(e.delivered = e.wakes = 0, e.kept = 1, e.result = DHCP_HOOK_TAKE_FAILED)},
          {{I::OrbMbufPktCopyNew}, VEX_DO(unsent(e))},
          {{I::ORB_ThreadInfoGetByName}, VEX_DO(unsent(e), ++e.stat4)},
          {{I::ORB_ChannelGetIdByName}, VEX_DO(unsent(e), ++e.stat5)},
          {{I::ORB_ChannelDcSend}, VEX_DO(--e.delivered, ++e.stat6)},
          kNoByteToTest};
}

std::vector<Rule> StartUpRules() {
  return {{{I::RegTavriRpcServerToVex}, VEX_DO(e.result = 1, e.hooks = e.services = e.capabilities = 0)},
          {{I::OrbCapabilityQueryItem}, VEX_DO(--e.capabilities)},
          {{I::OrbChnEvtCallbackRegister, I::ORB_ChannelCreate, I::HostHookRegister},
           VEX_DO(e.result = 1, e.hooks = 0)}};
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
    --(k == 1 ? e.uploaded : k == 3 ? e.mlag : e.published);
    if (k != 1) ++e.stat3;
  };
  const auto refused = [](Effects& e) { --e.stat1, --e.published; };
  return {{{I::ORB_ChannelDcRecv}, receive},
          {{I::MbufPktCutHead}, cut},
          // The admitted packet is the first to be looked up, the second one is refused in any case.
          {{I::HostMbufGetOutIfByL2vpnTnl, I::db_create_if_cfg_obj, I::db_get_if_cfg_vlan_id,
            I::db_create_arp_obj, I::db_get_arp_work_if_index},
           VEX_DO(if (k <= 1) refused(e))},
          {{I::db_read_obj}, VEX_DO(if (k <= 2) refused(e))},
          {{I::HostEgressPktPubWithSource}, VEX_DO(--e.published, ++e.stat2)},
          {{I::HostUploadLdmByHook}, VEX_DO(--e.uploaded)},
          {{I::MLAG_VEX_SendPacketPublic}, VEX_DO(--e.mlag)}};
}

std::vector<Rule> BatchRules() {
  return {{{I::ORB_ChannelEventWritePublic}, VEX_DO(e.event = 0)},
          {{I::ORB_ChannelDcRecv},
           VEX_DO(e.event = 0, e.stat1 = static_cast<int64_t>(k) - 1, e.queued = 34 - e.stat1)}};
}

std::vector<Rule> ReportRules() {
  const auto kept = [](Effects& e, uint64_t k) { --e.inner, e.drops += kReported[k - 1], ++e.asserts; };
  const auto unsent = [kept](Effects& e, uint64_t k) { kept(e, k), --e.wakes; };
  return {{{I::MbufPktNewFromData, I::MbufPktAddHead, I::memcpy_s}, VEX_DO(unsent(e, k), ++e.asserts)},
          {{I::ORB_ThreadInfoGetByName}, VEX_DO(unsent(e, k), ++e.stat4)},
          {{I::ORB_ChannelGetIdByName}, VEX_DO(unsent(e, k), ++e.stat5)},
          {{I::ORB_ChannelDcSend}, VEX_DO(kept(e, k), ++e.stat7)}};
}

}  // namespace

std::vector<Scenario> Scenarios() {
  const auto offer = [](Frame frame) { return [frame] { return Offer(frame); }; };
  const auto nothing = [] {};
  const auto above = [] { LimitInterface(0); };
  const auto fromPeer = [] { RefusePeerLink(), Switched(0x8001)(); };
  const auto fromPeer6 = [=] { fromPeer(), SetSwitches(0x8000 | 1u << DHCP_CFG_V6_REQ); };
  const auto fromFullPeer = [=] {
    fromPeer();
    g_dhcpVexPeerLinkInfo[DHCP_PEER_KIND_V4_REQUEST].pktRate = 1;
    DhcpVexPeerLinkRateCheck(Dhcp4().FromPeerLink().New().get());
  };
  const auto batch = [] { QueueMessages(std::vector<Message>(34, Make(kBind))); };
  const auto everyOther = Switched(0xFFFF7FFF), every = Switched(0xFFFF);
  const auto ndSnooping = Switched(1u << DHCP_CFG_ND_SNOOPING),
             v6Snooping = Switched(1u << DHCP_CFG_V6_SNOOPING);
  const auto taken = DeliveryRules(true), copied = DeliveryRules(false);
  const Frame betweenServers = Dhcp4().Management().Ports(67, 67).ToMac(kRouterMac);
  auto between = taken;  // to one host, as far as that can be seen
  between.push_back({{I::HostMbufGetDstMac}, [](Effects& e, uint64_t) { Undo(e), e.kept = 1; }});
  const Rule asked = {{I::OrbCapabilityQueryItem}, VEX_DO(e.result = 1077)};
  // A gate that finds the lock taken lets its packet pass; that of the peer-link is the second one.
  const auto busy = [](uint64_t gate) {
    return Rule{{I::OrbSpinlockTrylock}, [gate](Effects& e, uint64_t k) {
                  if (k != gate) return;
                  e.result = DHCP_HOOK_TAKEN, e.kept = 0, --e.drops;
                  e.stat0 = e.delivered = e.wakes = 1;
                }};
  };
  const std::vector<Rule> handlers = {
      {{I::OrbSLcoreTimerCreateAndStart}, VEX_DO(--e.timers, --e.timerIds, ++e.asserts)},
      // interface record; VLAN record and so its entry; the entry, without which the record is all-default
      {{I::OrbMemAllocInner}, VEX_DO(e.blocks -= k == 1 ? 1 : 2)}};
  const Rule undeleted = {{I::OrbSLcoreTimerDelete}, VEX_DO(++e.timers, ++e.asserts)};
  // Without the second callback nobody is left to notify.
  const Rule registry = {{I::OrbMemAllocInner}, VEX_DO(e.result += k == 2 ? 1 - 100 : 1, ++e.asserts)};
  const Rule untold = {{I::vsnprintf_truncated_s, I::HostDiagPrintf}, VEX_DO(e.result = -1)};
  return {
      {"start-up", nothing, [] { return DhcpVexInit(); }, StartUpRules(), false},
      {"capability query", nothing, AskCapability, {asked}},
      {"DHCPv4 request", Switched(1), offer(Dhcp4()), taken},
      {"DHCPv4 reply", every, offer(Dhcp4(kClientMac, 2)), taken},
      {"DHCPv4 between servers", nothing, offer(betweenServers), between},
      {"DHCPv4 within every limit", LimitEverything, offer(Dhcp4()), taken},
      {"DHCPv4 above its limit", above, offer(Dhcp4()), {busy(1)}},
      {"DHCPv4 from the peer-link", fromPeer, offer(Dhcp4().FromPeerLink()), taken},
      {"DHCPv4 from the peer-link above its limit", fromFullPeer, offer(Dhcp4().FromPeerLink()), {busy(2)}},
      {"DHCPv6 from the peer-link", fromPeer6, offer(Dhcp6().FromPeerLink()), taken},
      {"DHCPv6 solicit", everyOther, offer(Dhcp6()), taken},
      {"DHCPv6 relayed", everyOther, offer(Dhcp6(Relayed(Solicit()))), taken},
      {"DHCPv6 reply", every, offer(Dhcp6(Relayed(Solicit(), 13))), taken},
      {"ARP reply", every, offer(Arp()), copied},
      {"ICMP echo reply", every, offer(Probe("2")), copied},
      {"ND solicitation", ndSnooping, offer(Nd(135)), taken},
      {"ND advertisement under DHCPv6 snooping", v6Snooping, offer(Nd(136)), copied},
      {"ND router solicitation", ndSnooping, offer(Nd(133)), FanOutRules()},
      {"ND router advertisement", ndSnooping, offer(Nd(134)), FanOutRules()},
      {"one message of each kind", QueueEveryKind, Drain, DrainRules()},
      {"a used-up batch", batch, Drain, BatchRules()},
      {"snooping timer", RefuseSome, [] { return DhcpVexSnpInfoNotifyTimerCallBack(); }, ReportRules()},
      {"peer-link timer", RefusePeerLink, [] { return DhcpVexPeerLinkNotifyTimerCallBack(); }, {}},
      {"every handler, on", Switched(0), ConfigureAll, handlers},
      {"every handler, off", ConfigureAll, ConfigureNothing, {undeleted}},
      {"registry", nothing, UseRegistry, {registry}},
      {"diagnostics", nothing, Diagnose, {untold}},
  };
}

}  // namespace vex::module_test
