// dhcp_vex_api_snoop.cpp - the snooping store: records come and go as settings leave and regain their
// defaults. In:  (value, type, index) triples under g_dhcpVexSnpInfoUseLock. Out: records, trusted entries,
// the trust test. Memory is the framework's; a record or an entry is freed only after it has left its list.
// Not here: the counting (dhcp_vex_rate_limit), the reports (dhcp_vex_rate_limit_notify).
#include "dhcp_vex_api_snoop.h"

#include <new>

#include "dhcp_vex_api_source.h"
#include "dhcp_vex_guard.h"

using namespace dhcp_vex;

DhcpSnpInfo g_dhcpSnpGblInfo;
DhcpDll g_dhcpVexSnpIfInfo;
DhcpDll g_dhcpVexSnpVlanInfo;
OrbSpinlock g_dhcpVexSnpInfoUseLock;
DhcpDegradeInfo g_dhcpDegradeInfo;

namespace {

// Types 0 to 23 are two runs of twelve, IPv4 then IPv6, of the same pattern: a pair (switch, value) for each
// of the three scopes, first of the rate, then of the auxiliary setting.
constexpr uint32_t kTypesPerVersion = 12;
constexpr uint32_t kTypeIfTrusted = 24;
constexpr uint32_t kTypeAddVlanTrusted = 25;
constexpr uint32_t kTypeDelVlanTrusted = 26;
constexpr uint32_t kNoDefault = 0xFFFFFFFF;

enum class Field { kRateEnable, kPktRate, kAuxEnable, kAuxValue };

constexpr Field FieldOf(uint32_t type) {
  const uint32_t inVersion = type % kTypesPerVersion;
  const bool aux = inVersion >= kTypesPerVersion / 2;
  const bool value = inVersion % 2 != 0;
  if (aux) return value ? Field::kAuxValue : Field::kAuxEnable;
  return value ? Field::kPktRate : Field::kRateEnable;
}
static_assert(FieldOf(0) == Field::kRateEnable && FieldOf(5) == Field::kPktRate &&
              FieldOf(10) == Field::kAuxEnable);
static_assert(FieldOf(16) == Field::kRateEnable && FieldOf(23) == Field::kAuxValue);

constexpr bool IsV6Type(uint32_t type) { return type >= kTypesPerVersion && type < 2 * kTypesPerVersion; }

// Values are stored truncated to the field's width.
void SetField(DhcpSnpIpCfg& cfg, uint32_t type, uint32_t value) {
  switch (FieldOf(type)) {
    case Field::kRateEnable:
      cfg.rateEnable = static_cast<uint8_t>(value);
      break;
    case Field::kPktRate:
      cfg.pktRate = static_cast<uint16_t>(value);
      break;
    case Field::kAuxEnable:
      cfg.auxEnable = static_cast<uint8_t>(value);
      break;
    case Field::kAuxValue:
      cfg.auxValue = static_cast<uint16_t>(value);
      break;
  }
}

void SetDefaults(DhcpSnpIpCfg& cfg) {
  cfg.rateEnable = 0;
  cfg.auxEnable = 0;
  cfg.pktRate = DHCP_SNP_SPEED_UNLIMITED;
  cfg.auxValue = DHCP_SNP_AUX_DEFAULT;
  DllInit(cfg.trustIfList);
}

bool IsDefault(const DhcpSnpIpCfg& cfg) {
  return cfg.rateEnable == 0 && cfg.auxEnable == 0 && cfg.pktRate == DHCP_SNP_SPEED_UNLIMITED &&
         cfg.auxValue == DHCP_SNP_AUX_DEFAULT && DllIsEmpty(cfg.trustIfList);
}

void SetDefaults(DhcpSnpInfo& record, uint32_t key) {
  memset_s(&record, sizeof(record), 0, sizeof(record));
  record.indexId = key;
  SetDefaults(record.v4Cfg);
  SetDefaults(record.v6Cfg);
}

// Leaves a damaged element where it is: freeing it would leave the list pointing at freed memory.
template <class Element>
void UnlinkAndFree(DhcpDll& list, Element& element) {
  if (DllUnlink(list, element.link)) {
    OrbMemFreeInner(&element);
  } else {
    OrbMionAssert(kApiSourcePath, __LINE__, nullptr);
  }
}

bool FlaggedTrusted(const DhcpSnpInfo* record) {
  return record != nullptr && record->v4Cfg.trustIfList.count != 0;
}

}  // namespace

// Row = configuration type.
const DhcpSetSnpCfgRow g_dhcpVexSetSnpCfg[DHCP_SNP_CFG_TYPES] = {
    {DhcpVexSetSnpGblInfo, 0},   {DhcpVexSetSnpGblInfo, 5000},        {DhcpVexSetSnpIfInfo, 0},
    {DhcpVexSetSnpIfInfo, 5000}, {DhcpVexSetSnpVlanInfo, 0},          {DhcpVexSetSnpVlanInfo, 5000},
    {DhcpVexSetSnpGblInfo, 0},   {DhcpVexSetSnpGblInfo, 100},         {DhcpVexSetSnpIfInfo, 0},
    {DhcpVexSetSnpIfInfo, 100},  {DhcpVexSetSnpVlanInfo, 0},          {DhcpVexSetSnpVlanInfo, 100},
    {DhcpVexSetSnpGblInfo, 0},   {DhcpVexSetSnpGblInfo, 5000},        {DhcpVexSetSnpIfInfo, 0},
    {DhcpVexSetSnpIfInfo, 5000}, {DhcpVexSetSnpVlanInfo, 0},          {DhcpVexSetSnpVlanInfo, 5000},
    {DhcpVexSetSnpGblInfo, 0},   {DhcpVexSetSnpGblInfo, 100},         {DhcpVexSetSnpIfInfo, 0},
    {DhcpVexSetSnpIfInfo, 100},  {DhcpVexSetSnpVlanInfo, 0},          {DhcpVexSetSnpVlanInfo, 100},
    {DhcpVexSetSnpIfInfo, 0},    {DhcpVexSetSnpVlanInfo, kNoDefault}, {DhcpVexSetSnpVlanInfo, kNoDefault},
};

uint32_t DhcpVexSnpInfoInit(void) {
  SetDefaults(g_dhcpSnpGblInfo, 0);
  DllInit(g_dhcpVexSnpIfInfo);
  DllInit(g_dhcpVexSnpVlanInfo);
  return OrbSpinlockInit(&g_dhcpVexSnpInfoUseLock);
}

void DhcpVexDegradeInfoInit(void) {
  memset_s(&g_dhcpDegradeInfo, sizeof(g_dhcpDegradeInfo), 0, sizeof(g_dhcpDegradeInfo));
  g_dhcpDegradeInfo.degradeRate = DHCP_DEGRADE_OFF;
}

void DhcpVexSetDegradeCfg(uint32_t rate) { g_dhcpDegradeInfo.degradeRate = rate; }

DhcpDegradeInfo* DhcpVexGetDegradeInfo(void) { return &g_dhcpDegradeInfo; }
DhcpSnpInfo* DhcpVexGetSnpGblInfo(void) { return &g_dhcpSnpGblInfo; }
DhcpDll* DhcpVexGetSnpIfInfoDll(void) { return &g_dhcpVexSnpIfInfo; }
DhcpDll* DhcpVexGetSnpVlanInfoDll(void) { return &g_dhcpVexSnpVlanInfo; }
OrbSpinlock* DhcpVexGetSnpInfoUseLock(void) { return &g_dhcpVexSnpInfoUseLock; }

DhcpSnpInfo* DhcpVexGetSnpIfInfoByIfIndex(uint32_t ifIndex) {
  return DhcpVexGetSnpInfo(&g_dhcpVexSnpIfInfo, ifIndex);
}

DhcpSnpInfo* DhcpVexGetSnpVlanInfoByVlanId(uint32_t vlanId) {
  return DhcpVexGetSnpInfo(&g_dhcpVexSnpVlanInfo, vlanId);
}

DhcpSnpInfo* DhcpVexGetSnpInfo(DhcpDll* list, uint32_t key) {
  if (list == nullptr) return nullptr;
  return DllFind<DhcpSnpInfo>(*list, [key](const DhcpSnpInfo& record) { return record.indexId == key; });
}

DhcpSnpInfo* DhcpVexCreatSnpInfo(DhcpDll* list, uint32_t key) {
  if (list == nullptr) return nullptr;
  void* memory = OrbMemAllocInner(kAllocatorId, 0, sizeof(DhcpSnpInfo), 0, "DhcpVexCreatSnpInfo", __LINE__);
  if (memory == nullptr) return nullptr;
  DhcpSnpInfo* record = new (memory) DhcpSnpInfo{};  // also when the clearing routine refuses
  SetDefaults(*record, key);
  DllAppend(*list, record->link);
  return record;
}

uint32_t DhcpVexCheckIsDftSnpCfg(DhcpSnpInfo* record) {
  return record != nullptr && IsDefault(record->v4Cfg) && IsDefault(record->v6Cfg) ? 1 : 0;
}

void DhcpVexDelSnpInfo(DhcpDll* list, DhcpSnpInfo* record) {
  if (list != nullptr && DhcpVexCheckIsDftSnpCfg(record) == 1) UnlinkAndFree(*list, *record);
}

DhcpTrustIfNode* DhcpVexGetSnpVlanTrustIf(DhcpDll* list, uint32_t ifIndex) {
  if (list == nullptr) return nullptr;
  return DllFind<DhcpTrustIfNode>(*list,
                                  [ifIndex](const DhcpTrustIfNode& node) { return node.ifIndex == ifIndex; });
}

uint32_t DhcpVexAddSnpVlanTrustIf(DhcpDll* list, uint32_t ifIndex) {
  if (list == nullptr) return DHCP_FAIL;
  if (DhcpVexGetSnpVlanTrustIf(list, ifIndex) != nullptr) return DHCP_OK;
  void* memory =
      OrbMemAllocInner(kAllocatorId, 0, sizeof(DhcpTrustIfNode), 0, "DhcpVexAddSnpVlanTrustIf", __LINE__);
  if (memory == nullptr) return DHCP_FAIL;
  DhcpTrustIfNode* node = new (memory) DhcpTrustIfNode{};
  memset_s(node, sizeof(*node), 0, sizeof(*node));
  node->ifIndex = ifIndex;
  DllAppend(*list, node->link);
  return DHCP_OK;
}

uint32_t DhcpVexDelSnpVlanTrustIf(DhcpDll* list, uint32_t ifIndex) {
  DhcpTrustIfNode* node = DhcpVexGetSnpVlanTrustIf(list, ifIndex);
  if (node != nullptr) UnlinkAndFree(*list, *node);
  return DHCP_OK;
}

uint32_t DhcpVexSetV4SnpInfoByType(DhcpSnpInfo* record, uint32_t type, uint32_t value) {
  if (record == nullptr) return DHCP_FAIL;
  if (type < kTypesPerVersion) {
    SetField(record->v4Cfg, type, value);
    return DHCP_OK;
  }
  switch (type) {
    case kTypeIfTrusted:
      record->v4Cfg.trustIfList.count = value;
      return DHCP_OK;
    case kTypeAddVlanTrusted:
      return DhcpVexAddSnpVlanTrustIf(&record->v4Cfg.trustIfList, value);
    case kTypeDelVlanTrusted:
      return DhcpVexDelSnpVlanTrustIf(&record->v4Cfg.trustIfList, value);
    default:
      return DHCP_FAIL;
  }
}

void DhcpVexSetV6SnpInfoByType(DhcpSnpInfo* record, uint32_t type, uint32_t value) {
  if (record != nullptr && IsV6Type(type)) SetField(record->v6Cfg, type, value);
}

uint32_t DhcpVexSetSnpInfoByType(DhcpSnpInfo* record, uint32_t type, uint32_t value) {
  if (record == nullptr || !IsV6Type(type)) return DhcpVexSetV4SnpInfoByType(record, type, value);
  DhcpVexSetV6SnpInfoByType(record, type, value);
  return DHCP_OK;
}

uint32_t DhcpVexSetSnpInfo(DhcpDll* list, uint32_t value, uint32_t type, uint32_t index) {
  if (list == nullptr || type >= DHCP_SNP_CFG_TYPES) return DHCP_FAIL;
  const uint32_t defaultValue = g_dhcpVexSetSnpCfg[type].defaultValue;
  DhcpSnpInfo* record = DhcpVexGetSnpInfo(list, index);
  if (record == nullptr) {
    if (value == defaultValue) return DHCP_OK;
    record = DhcpVexCreatSnpInfo(list, index);
    if (record == nullptr) return DHCP_FAIL;
  }
  DhcpVexSetSnpInfoByType(record, type, value);
  if (value == defaultValue || defaultValue == kNoDefault) DhcpVexDelSnpInfo(list, record);
  return DHCP_OK;
}

uint32_t DhcpVexSetSnpGblInfo(uint32_t value, uint32_t type, uint32_t /*index*/) {
  DhcpVexSetSnpInfoByType(&g_dhcpSnpGblInfo, type, value);
  return DHCP_OK;
}

uint32_t DhcpVexSetSnpIfInfo(uint32_t value, uint32_t type, uint32_t index) {
  return DhcpVexSetSnpInfo(&g_dhcpVexSnpIfInfo, value, type, index);
}

uint32_t DhcpVexSetSnpVlanInfo(uint32_t value, uint32_t type, uint32_t index) {
  return DhcpVexSetSnpInfo(&g_dhcpVexSnpVlanInfo, value, type, index);
}

uint32_t DhcpVexSaveSnpCfg(uint32_t value, uint32_t type, uint32_t index) {
  if (type >= DHCP_SNP_CFG_TYPES || g_dhcpVexSetSnpCfg[type].setter == nullptr) return DHCP_FAIL;
  return g_dhcpVexSetSnpCfg[type].setter(value, type, index);
}

uint32_t DhcpVexCheckIfSnpTrusted(uint32_t ifIndex, uint32_t vlanId) {
  const LockGuard guard(g_dhcpVexSnpInfoUseLock);
  if (FlaggedTrusted(DhcpVexGetSnpIfInfoByIfIndex(ifIndex))) return 1;
  DhcpSnpInfo* vlan = DhcpVexGetSnpVlanInfoByVlanId(vlanId);
  return vlan != nullptr && DhcpVexGetSnpVlanTrustIf(&vlan->v4Cfg.trustIfList, ifIndex) != nullptr ? 1 : 0;
}
