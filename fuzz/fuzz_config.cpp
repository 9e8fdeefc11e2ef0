// fuzz_config.cpp - any sequence of configuration requests.
// In:  requests: handler, type, index, value. Out: a store whose lists are whole and hold no record that is
// all default, timers that follow the switches, a free lock, answers as the store has them; or an abort. A
// value too wide for its field may be cut to the default without being it: its record then stays.
#include "dhcp_vex_api_snoop.h"
#include "dhcp_vex_rate_limit_notify.h"
#include "fuzz/module_fixture.h"

namespace {

using vex::fuzz::Require;

void RequireWhole(const DhcpDll& list) {
  uint32_t count = 0;
  const DhcpDllNode* previous = &list.link;
  for (const DhcpDllNode* node = list.link.next; node != &list.link; node = node->next) {
    Require(node != nullptr && node->prev == previous, "neighbours point at each other");
    previous = node;
    ++count;
  }
  Require(list.link.prev == previous && list.count == count, "the head knows its last element and the count");
}

bool TooWide(const DhcpSnpCfgReq& req) {
  constexpr uint32_t kTypesWithFields = 24;  // alternating an 8-bit switch and a 16-bit value
  return req.type < kTypesWithFields && req.val > (req.type % 2 == 0 ? UINT8_MAX : UINT16_MAX);
}

void RequireRecords(const DhcpDll& list, bool trustedList, bool defaultsStay) {
  RequireWhole(list);
  for (DhcpDllNode* node = list.link.next; node != &list.link; node = node->next) {
    auto* record = reinterpret_cast<DhcpSnpInfo*>(node);
    Require(defaultsStay || DhcpVexCheckIsDftSnpCfg(record) == 0,
            "a record holds something other than defaults");
    Require(DhcpVexGetSnpInfo(const_cast<DhcpDll*>(&list), record->indexId) == record, "one record per key");
    if (trustedList) RequireWhole(record->v4Cfg.trustIfList);
  }
}

void RequireTimers() {
  const bool snooping = DhcpVexGetCfg(DHCP_CFG_V4_SNOOPING) == 1 || DhcpVexGetCfg(DHCP_CFG_V6_SNOOPING) == 1;
  Require((g_dhcpVexSnpInfoNotifyTimerId != DHCP_NONE) == snooping,
          "the snooping timer follows switches 4 and 12");
  Require((g_dhcpVexPeerLinkNotifyTimerId != DHCP_NONE) == (DhcpVexGetCfg(DHCP_CFG_MLAG_PEERLINK) == 1),
          "the peer-link timer follows switch 15");
}

void Set(uint32_t type, uint32_t value, uint32_t index) {
  const DhcpSnpCfgReq req = {type, value, index};
  DhcpSnpCfg(&req);
}

void ClearTrusted(const DhcpSnpInfo& vlan) {
  const DhcpDll& list = vlan.v4Cfg.trustIfList;
  const uint32_t key = vlan.indexId;
  for (uint32_t left = list.count; left > 0; --left) {  // the last removal may take the record along
    Set(26, static_cast<uint32_t>(reinterpret_cast<DhcpTrustIfNode*>(list.link.next)->ifIndex), key);
  }
}

// Every input starts from the same store, so that a finding repeats alone.
void ClearStore() {
  const DhcpCfgReq allOff = {0, DHCP_CFG_ALL, 0};
  DhcpCfg(&allOff);
  for (uint32_t type = 0; type <= 24; ++type) {
    for (uint32_t index = 0; index < 16; ++index) Set(type, g_dhcpVexSetSnpCfg[type].defaultValue, index);
  }
  while (g_dhcpVexSnpVlanInfo.count > 0) {
    ClearTrusted(*reinterpret_cast<DhcpSnpInfo*>(g_dhcpVexSnpVlanInfo.link.next));
  }
  Require(g_dhcpVexSnpIfInfo.count == 0, "defaults empty the store");
}

// Trusted by its own flag, or in the VLAN.
void RequireTrust(uint32_t ifIndex, uint32_t vlanId) {
  const DhcpSnpInfo* own = DhcpVexGetSnpIfInfoByIfIndex(ifIndex);
  DhcpSnpInfo* vlan = DhcpVexGetSnpVlanInfoByVlanId(vlanId);
  const bool trusted =
      (own != nullptr && own->v4Cfg.trustIfList.count != 0) ||
      (vlan != nullptr && DhcpVexGetSnpVlanTrustIf(&vlan->v4Cfg.trustIfList, ifIndex) != nullptr);
  Require(DhcpVexCheckIfSnpTrusted(ifIndex, vlanId) == (trusted ? 1 : 0), "trust is as the store has it");
}

void RequireNothingOfNothing() {
  Require(DhcpCfg(nullptr) == DHCP_FAIL && DhcpSnpCfg(nullptr) == DHCP_FAIL &&
              DhcpDegradeCfg(nullptr) == DHCP_FAIL,
          "no request is refused");
  Require(DhcpSnpDelMac(nullptr) == 0 && DhcpPktCtrlCfg(nullptr) == 0 && DhcpPktCtrlCfgSync(nullptr) == 0,
          "what does nothing takes anything");
}

enum Special : uint8_t { kNoMemory = 0xF0, kTrust = 0xF1, kNothing = 0xF2 };

// Answers whether a value was too wide.
bool Request(vex::fuzz::Input& input) {
  const uint8_t handler = input.U8();
  if (handler == kNothing) return RequireNothingOfNothing(), false;
  const uint8_t rawType = input.U8();
  if (handler == kNoMemory) {
    vex::platform::Faults().FailNth(vex::platform::Import::OrbMemAllocInner, rawType % 4u + 1);
    return false;
  }
  if (handler == kTrust) return RequireTrust(rawType % 16u, input.U8() % 16u), false;
  const uint32_t index = input.U8() % 16;
  constexpr uint32_t kValues[] = {0, 1, 100, 5000, 0xFFFFFFFF, 70000};
  const uint8_t choice = input.U8();
  const uint32_t value = choice < 6 ? kValues[choice] : input.U32();
  if (handler % 4 == 0) {
    const DhcpCfgReq req = {value, rawType % 20u, index};
    Require(DhcpCfg(&req) == 0, "a request is accepted");
  } else if (handler % 16 == 1) {
    const DhcpDegradeCfgReq req = {value};
    Require(DhcpDegradeCfg(&req) == 0, "a request is accepted");
    Require(DhcpVexGetDegradeInfo()->degradeRate == value, "the degrade rate is the one set");
  } else {
    const DhcpSnpCfgReq req = {rawType % 30u, value, index};
    Require(DhcpSnpCfg(&req) == 0, "a request is accepted");
    return TooWide(req);
  }
  return false;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  vex::fuzz::RunningModule::Get();
  ClearStore();
  vex::fuzz::Input input(data, size);
  bool tooWide = false;
  while (!input.Ended()) tooWide |= Request(input);
  vex::platform::Faults().DisarmAll();
  Require(DhcpVexGetSnpInfoUseLock()->word == 0, "the lock is free");
  RequireRecords(*DhcpVexGetSnpIfInfoDll(), false, tooWide);
  RequireRecords(*DhcpVexGetSnpVlanInfoDll(), true, tooWide);
  Require(DhcpVexGetSnpGblInfo()->indexId == 0, "the global record stays the global one");
  RequireTimers();
  return 0;
}
