// dhcp_vex_api.cpp - the frame by which the framework finds, identifies and starts the module.
// In:  library load, the framework's constructors, DhcpVexInit on the start-up thread.
// Out: the linked record, the id copies, the started module; statistics and capabilities for every other
// unit. Start-up is the only writer of the capability table. Nothing is undone when a step fails.
#include "dhcp_vex_api.h"

#include <iterator>

#include "dhcp_vex_api_snoop.h"
#include "dhcp_vex_egress_db_dynso.h"
#include "dhcp_vex_pkt.h"
#include "dhcp_vex_platform.h"
#include "dhcp_vex_shared_word.h"
#include "dhcp_vex_syslog.h"

using namespace dhcp_vex;

DhcpModRecord mod_vex_dhcp = {.frameworkOwned = {},
                              .next = nullptr,
                              .name = "vex_dhcp",
                              .zero32 = 0,
                              .init = DhcpVexInit,
                              .zero48 = {},
                              .fixed72 = 2,
                              .zero80 = 0,
                              .id = 0,
                              .zero92 = {},
                              .fixed120 = 0,
                              .zero124 = 0,
                              .globalCtor = nullptr,
                              .lcoreCtor = nullptr,
                              .globalDtor = nullptr,
                              .lcoreDtor = nullptr,
                              .zero160 = {}};
uint32_t mod_vex_dhcp_id = 0;
__thread uint32_t per_lcore_mod_vex_dhcp_usrid = 0;
uint32_t mod_vex_dhcp_usrctx_len = 0;
void* mod_vex_dhcp_usrctx = nullptr;

uint64_t g_dhcpStat[static_cast<uint32_t>(DhcpStat::kCount)] = {};

DhcpVexSpec g_dhcpVexSpecs[5] = {{"DHCP_MULTICORE_SVC_NUM", 0},
                                 {"DHCP_CAUSID_TYPE", 0},
                                 {"DHCP_FEATURE_SUPP_NO_CHECK_CFG_PROC_PKT", 0},
                                 {"DHCP_MLAG_IPV4_PKT_RATE", 0},
                                 {"DHCP_MLAG_IPV6_PKT_RATE", 0}};

namespace {

constexpr uint32_t kSupportedBoards = 0x612;  // bit n: board type n
constexpr uint32_t kHighestBoard = 10;
constexpr uint16_t kRpcServerNumber = 20013;

constexpr bool BoardSupported(uint32_t board) {
  return board <= kHighestBoard && (kSupportedBoards >> board & 1) != 0;
}
static_assert(BoardSupported(1) && BoardSupported(4) && BoardSupported(9) && BoardSupported(10));
static_assert(!BoardSupported(0) && !BoardSupported(5) && !BoardSupported(11) && !BoardSupported(33));

}  // namespace

void dhcp_vex::Count(DhcpStat counter) { Add(g_dhcpStat[static_cast<uint32_t>(counter)], 1); }

void orb_modregfn_mod_vex_dhcp(void) {
  mod_vex_dhcp.fixed120 = 720;
  mod_vex_dhcp.globalCtor = orb_mod_ctr_mod_vex_dhcp;
  mod_vex_dhcp.lcoreCtor = orb_mod_localctr_mod_vex_dhcp;
  mod_vex_dhcp.globalDtor = orb_mod_dtr_mod_vex_dhcp;
  mod_vex_dhcp.lcoreDtor = orb_mod_localdtr_mod_vex_dhcp;
  mod_vex_dhcp.next = g_pluginModRegHead;
  g_pluginModRegHead = &mod_vex_dhcp;
}

void* mod_plugin_register(void) { return &mod_vex_dhcp; }

void orb_mod_ctr_mod_vex_dhcp(void) { mod_vex_dhcp_id = mod_vex_dhcp.id; }
void orb_mod_localctr_mod_vex_dhcp(void) { per_lcore_mod_vex_dhcp_usrid = mod_vex_dhcp.id; }
void orb_mod_dtr_mod_vex_dhcp(void) { mod_vex_dhcp_id = 0; }
void orb_mod_localdtr_mod_vex_dhcp(void) { per_lcore_mod_vex_dhcp_usrid = 0; }

uint32_t DhcpCheckBoardType(void) { return BoardSupported(OrbCurrentBoard()) ? 0 : 1; }

uint32_t DhcpVexTavriRpcServersCreate(void) {
  DhcpRpcServerRecord record = {};
  sprintf_s(record.name, sizeof(record.name), "%s", "DhcpCfgService");
  record.number = kRpcServerNumber;
  const uint32_t ret = RegTavriRpcServerToVex(&record);
  if (ret != 0) {
    syslog(LOG_ERR, "Vex dhcp tavri rpc server create failed, ret:%u.", ret);
    return DHCP_FAIL;
  }
  syslog(LOG_INFO, "[DHCP] VEX lumo server init ok.");
  return DHCP_OK;
}

uint32_t DhcpVexInit(void) {
  if (!BoardSupported(OrbCurrentBoard())) {
    OrbLog(3, "DhcpCheckBoardType not ok.");
    return DHCP_OK;
  }
  if (DhcpVexTavriRpcServersCreate() != 0) {
    OrbLog(3, "DhcpVexTavriRpcServersCreate not ok.");
    return DHCP_FAIL;
  }
  DhcpVexCapsetCfg();
  if (DhcpVexStart() != 0) {
    OrbLog(3, "DhcpVexStart not ok.");
    return DHCP_FAIL;
  }
  DhcpVexDegradeInfoInit();
  DhcpVexSnpInfoInit();
  DhcpVexDbArpSymbolInit();
  DhcpVexDbMlagSymbolInit();
  OrbLog(3, "DHCP vex module init ok.");
  return DHCP_OK;
}

void DhcpVexCapsetCfg(void) {
  for (DhcpVexSpec& spec : g_dhcpVexSpecs) {
    uint32_t value = 0;
    if (OrbCapabilityQueryItem(spec.descr, &value, sizeof(value)) == 0) Store(spec.value, value);
    syslog(LOG_INFO, "[DHCP] vex capset %s value: %u", spec.descr, Load(spec.value));
  }
}

uint32_t DhcpVexGetSpecs(uint32_t index) {
  return index < std::size(g_dhcpVexSpecs) ? Load(g_dhcpVexSpecs[index].value) : 0;
}

uint32_t DhcpVexGetSpecsByDescr(const char* descr, uint32_t* value) {
  uint32_t answer = 0;
  const uint32_t ret = OrbCapabilityQueryItem(descr, &answer, sizeof(answer));
  if (ret == 0 && value != nullptr) *value = answer;
  return ret;
}
