// dhcp_vex_api.h - the module frame: record, start-up, statistics, capabilities.
// In:  the framework's start-up calls. Out: the linked module record, the registered service, channel and
// hook, the capability values by index, the statistics.
#pragma once

#include <cstddef>

#include "dhcp_vex_export.h"

// The framework's module record; it defines and reads the layout. Little-endian.
struct DhcpModRecord {
  uint8_t frameworkOwned[16];
  void* next;        // the record that was the list's head before this one was linked in
  const char* name;  // "vex_dhcp"
  uint64_t zero32;
  uint32_t (*init)(void);  // DhcpVexInit
  uint8_t zero48[24];
  uint64_t fixed72;  // 2; the module never reads it
  uint64_t zero80;
  uint32_t id;  // written by the framework before it calls the constructors
  uint8_t zero92[28];
  uint32_t fixed120;  // 720, stored by the registration function; the module never reads it
  uint32_t zero124;
  void (*globalCtor)(void);
  void (*lcoreCtor)(void);
  void (*globalDtor)(void);
  void (*lcoreDtor)(void);
  uint8_t zero160[16];
};
static_assert(sizeof(DhcpModRecord) == 176);
static_assert(offsetof(DhcpModRecord, next) == 16 && offsetof(DhcpModRecord, name) == 24);
static_assert(offsetof(DhcpModRecord, init) == 40 && offsetof(DhcpModRecord, fixed72) == 72);
static_assert(offsetof(DhcpModRecord, id) == 88 && offsetof(DhcpModRecord, fixed120) == 120);
static_assert(offsetof(DhcpModRecord, globalCtor) == 128 && offsetof(DhcpModRecord, lcoreDtor) == 152);

// What RegTavriRpcServerToVex is given.
struct DhcpRpcServerRecord {
  uint8_t zero0[12];
  uint16_t number;
  char name[32];
  uint8_t zero46[2];
};
static_assert(sizeof(DhcpRpcServerRecord) == 48 && offsetof(DhcpRpcServerRecord, name) == 14);

DHCP_VEX_API DhcpModRecord mod_vex_dhcp;
DHCP_VEX_API uint32_t mod_vex_dhcp_id;                        // module id while constructed, else 0
DHCP_VEX_API __thread uint32_t per_lcore_mod_vex_dhcp_usrid;  // the same for each lcore thread
DHCP_VEX_API uint32_t mod_vex_dhcp_usrctx_len;                // 0, never written
DHCP_VEX_API void* mod_vex_dhcp_usrctx;                       // null, never written

// Load-time initialiser: links the record. 101 is the earliest priority left to users: no other initialiser
// of the library runs before it. The compiler heeds a priority on the first declaration only.
DHCP_VEX_API __attribute__((constructor(101))) void orb_modregfn_mod_vex_dhcp(void);
DHCP_VEX_API void* mod_plugin_register(void);  // address of the record
DHCP_VEX_API void orb_mod_ctr_mod_vex_dhcp(void);
DHCP_VEX_API void orb_mod_localctr_mod_vex_dhcp(void);
DHCP_VEX_API void orb_mod_dtr_mod_vex_dhcp(void);
DHCP_VEX_API void orb_mod_localdtr_mod_vex_dhcp(void);

// Runs once, on the framework's start-up thread. 0: started, or the board is not supported; 1: a step failed.
// A failed step is logged and not undone.
DHCP_VEX_API uint32_t DhcpVexInit(void);
// 0 for the supported boards 1, 4, 9 and 10, else 1.
DHCP_VEX_API uint32_t DhcpCheckBoardType(void);
// Registers the configuration service "DhcpCfgService". 0 or 1.
DHCP_VEX_API uint32_t DhcpVexTavriRpcServersCreate(void);

// ---- Statistics ----------------------------------------------------------------------------------------
// Only incremented, by any thread; read only from outside.
enum class DhcpStat : uint32_t {
  kHookPkt,            // the hook hands a packet to the send path
  kSvcMsg,             // a return-channel message was handled to its end
  kEgressPubFail,      // the data plane refused an output packet
  kEgressCutHeadFail,  // an output packet's header could not be cut off
  kGetThreadInfoFail,  // a service thread's name is not known
  kGetChnIdFail,       // a service channel's name is not known
  kPktSendFail,        // a service channel refused a packet
  kInnerMsgSendFail,   // channel 11 refused an inner message
  kCount
};
DHCP_VEX_API uint64_t g_dhcpStat[static_cast<uint32_t>(DhcpStat::kCount)];
static_assert(sizeof(g_dhcpStat) == 8 * sizeof(uint64_t));

namespace dhcp_vex {
void Count(DhcpStat counter);
}  // namespace dhcp_vex

// ---- Capabilities --------------------------------------------------------------------------------------
inline constexpr uint32_t DHCP_SPEC_MULTICORE_SVC_NUM = 0;  // number of service instances
inline constexpr uint32_t DHCP_SPEC_CAUSID_TYPE = 1;        // which cause ids mark NAC traffic
inline constexpr uint32_t DHCP_SPEC_NO_CHECK_CFG =
    2;  // 1: DHCPv4 replies are taken whatever the switches say
inline constexpr uint32_t DHCP_SPEC_MLAG_IPV4_PKT_RATE = 3;  // packets per second
inline constexpr uint32_t DHCP_SPEC_MLAG_IPV6_PKT_RATE = 4;  // packets per second

struct DhcpVexSpec {
  char descr[64];  // NUL-terminated, padded with zeros
  uint32_t value;
};
static_assert(sizeof(DhcpVexSpec) == 68);
DHCP_VEX_API DhcpVexSpec g_dhcpVexSpecs[5];  // writer: start-up only; readers: any thread

// Queries the five items once and logs each as it then stands.
DHCP_VEX_API void DhcpVexCapsetCfg(void);
// The item's value, 0 for an index above 4. Any thread, no lock.
DHCP_VEX_API uint32_t DhcpVexGetSpecs(uint32_t index);
// Asks the platform for any capability by name; the table is neither read nor changed. Writes *value only on
// success, else answers the platform's code.
DHCP_VEX_API uint32_t DhcpVexGetSpecsByDescr(const char* descr, uint32_t* value);
