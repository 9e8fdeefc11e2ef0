// dhcp_vex_api_snoop.h - the snooping store: records per interface, VLAN and globally, trusted interfaces,
// degrade rate. In:  triples (value, type, index) of the configuration service. Out: records that the rate
// gates step, the timers report and the egress path asks for trust. g_dhcpVexSnpInfoUseLock guards all of it:
// its callers hold the lock around every call that touches records, except DhcpVexCheckIfSnpTrusted, which
// takes it itself. Records and trusted entries belong to the store and live only while the lock is held by
// whoever looked them up. All integers in host byte order. Results are 0 or 1 unless said otherwise.
#pragma once

#include <cstddef>

#include "dhcp_vex_dll.h"
#include "dhcp_vex_export.h"
#include "dhcp_vex_platform.h"

inline constexpr uint16_t DHCP_SNP_SPEED_UNLIMITED = 5000;  // packets per second; this rate limits nothing
inline constexpr uint16_t DHCP_SNP_AUX_DEFAULT = 100;
inline constexpr uint32_t DHCP_DEGRADE_OFF = 0xFFFFFFFF;

// Settings of one IP version.
struct DhcpSnpIpCfg {
  uint8_t rateEnable;   // 1: the record's own limit applies
  uint8_t auxEnable;    // stored and compared with its default only
  uint16_t pktRate;     // packets per second
  uint16_t auxValue;    // stored and compared with its default only
  DhcpDll trustIfList;  // VLAN: trusted interfaces. Interface: no elements, count is the trusted flag
};
static_assert(sizeof(DhcpSnpIpCfg) == 40 && offsetof(DhcpSnpIpCfg, trustIfList) == 8);

// One per-second budget.
struct DhcpSpeedPeriod {
  uint32_t periodSec;     // module seconds when the period opened
  uint64_t periodMilSec;  // module milliseconds when it opened
  uint32_t pktCnt;        // packets admitted in the period
  uint16_t dropCnt;       // packets refused since the last report, modulo 65536
  uint8_t dropFlag;       // 1: something was refused since the last report
};
static_assert(sizeof(DhcpSpeedPeriod) == 24 && offsetof(DhcpSpeedPeriod, pktCnt) == 16);
static_assert(offsetof(DhcpSpeedPeriod, dropCnt) == 20 && offsetof(DhcpSpeedPeriod, dropFlag) == 22);

struct DhcpSnpInfo {
  DhcpDllNode link;   // null links in the global record
  uint64_t reserved;  // always zero
  uint32_t indexId;   // interface index, VLAN id, or 0
  DhcpSnpIpCfg v4Cfg;
  DhcpSnpIpCfg v6Cfg;
  DhcpSpeedPeriod v4Period;
  DhcpSpeedPeriod v6Period;
};
static_assert(sizeof(DhcpSnpInfo) == 160 && offsetof(DhcpSnpInfo, indexId) == 24);
static_assert(offsetof(DhcpSnpInfo, v4Cfg) == 32 && offsetof(DhcpSnpInfo, v4Period) == 112);

struct DhcpTrustIfNode {
  DhcpDllNode link;
  uint64_t ifIndex;  // a 32-bit interface index, zero-extended
};
static_assert(sizeof(DhcpTrustIfNode) == 24);

struct DhcpDegradeInfo {
  uint32_t reserved;     // always zero
  uint32_t degradeRate;  // packets per second, DHCP_DEGRADE_OFF for none
  DhcpSpeedPeriod period;
};
static_assert(sizeof(DhcpDegradeInfo) == 32 && offsetof(DhcpDegradeInfo, period) == 8);

// A row per configuration type: who applies it, and the value that it has by default.
struct DhcpSetSnpCfgRow {
  uint32_t (*setter)(uint32_t value, uint32_t type, uint32_t index);
  uint32_t defaultValue;
};
static_assert(sizeof(DhcpSetSnpCfgRow) == 16);
inline constexpr uint32_t DHCP_SNP_CFG_TYPES = 27;

DHCP_VEX_API DhcpSnpInfo g_dhcpSnpGblInfo;
DHCP_VEX_API DhcpDll g_dhcpVexSnpIfInfo;
DHCP_VEX_API DhcpDll g_dhcpVexSnpVlanInfo;
DHCP_VEX_API OrbSpinlock g_dhcpVexSnpInfoUseLock;
DHCP_VEX_API DhcpDegradeInfo g_dhcpDegradeInfo;
DHCP_VEX_API const DhcpSetSnpCfgRow g_dhcpVexSetSnpCfg[DHCP_SNP_CFG_TYPES];

// Global record to its defaults, both lists empty, lock initialised; the initialiser's result.
DHCP_VEX_API uint32_t DhcpVexSnpInfoInit(void);
DHCP_VEX_API void DhcpVexDegradeInfoInit(void);
DHCP_VEX_API void DhcpVexSetDegradeCfg(uint32_t rate);  // the period in progress goes on
DHCP_VEX_API DhcpDegradeInfo* DhcpVexGetDegradeInfo(void);
DHCP_VEX_API DhcpSnpInfo* DhcpVexGetSnpGblInfo(void);
DHCP_VEX_API DhcpDll* DhcpVexGetSnpIfInfoDll(void);
DHCP_VEX_API DhcpDll* DhcpVexGetSnpVlanInfoDll(void);
DHCP_VEX_API OrbSpinlock* DhcpVexGetSnpInfoUseLock(void);

// Look-ups answer null when there is no such record.
DHCP_VEX_API DhcpSnpInfo* DhcpVexGetSnpIfInfoByIfIndex(uint32_t ifIndex);
DHCP_VEX_API DhcpSnpInfo* DhcpVexGetSnpVlanInfoByVlanId(uint32_t vlanId);
DHCP_VEX_API DhcpSnpInfo* DhcpVexGetSnpInfo(DhcpDll* list, uint32_t key);
// A new record with default settings at the list's tail; null when memory is exhausted.
DHCP_VEX_API DhcpSnpInfo* DhcpVexCreatSnpInfo(DhcpDll* list, uint32_t key);
// 1 when every setting has its default; periods and counters are not looked at.
DHCP_VEX_API uint32_t DhcpVexCheckIsDftSnpCfg(DhcpSnpInfo* record);
// Unlinks and frees the record if it is all-default; its unreported counters go with it.
DHCP_VEX_API void DhcpVexDelSnpInfo(DhcpDll* list, DhcpSnpInfo* record);

DHCP_VEX_API DhcpTrustIfNode* DhcpVexGetSnpVlanTrustIf(DhcpDll* list, uint32_t ifIndex);
DHCP_VEX_API uint32_t DhcpVexAddSnpVlanTrustIf(DhcpDll* list, uint32_t ifIndex);  // 1: memory is exhausted
DHCP_VEX_API uint32_t DhcpVexDelSnpVlanTrustIf(DhcpDll* list, uint32_t ifIndex);  // always 0

// One field of one record. The first answers 1 for a type that is not an IPv4 one, the last for a type
// above 26.
DHCP_VEX_API uint32_t DhcpVexSetV4SnpInfoByType(DhcpSnpInfo* record, uint32_t type, uint32_t value);
DHCP_VEX_API void DhcpVexSetV6SnpInfoByType(DhcpSnpInfo* record, uint32_t type, uint32_t value);
DHCP_VEX_API uint32_t DhcpVexSetSnpInfoByType(DhcpSnpInfo* record, uint32_t type, uint32_t value);

// Apply a type to the record of one key: created by the first value that is not the default, deleted by the
// write that leaves every setting at its default.
DHCP_VEX_API uint32_t DhcpVexSetSnpInfo(DhcpDll* list, uint32_t value, uint32_t type, uint32_t index);
DHCP_VEX_API uint32_t DhcpVexSetSnpGblInfo(uint32_t value, uint32_t type,
                                           uint32_t index);  // index is ignored
DHCP_VEX_API uint32_t DhcpVexSetSnpIfInfo(uint32_t value, uint32_t type, uint32_t index);
DHCP_VEX_API uint32_t DhcpVexSetSnpVlanInfo(uint32_t value, uint32_t type, uint32_t index);
// The configuration service's way in: dispatches to the setter of the type's scope.
DHCP_VEX_API uint32_t DhcpVexSaveSnpCfg(uint32_t value, uint32_t type, uint32_t index);

// 1 when the interface is trusted, by its own flag or by the VLAN's list. Takes the lock and waits for it.
DHCP_VEX_API uint32_t DhcpVexCheckIfSnpTrusted(uint32_t ifIndex, uint32_t vlanId);
