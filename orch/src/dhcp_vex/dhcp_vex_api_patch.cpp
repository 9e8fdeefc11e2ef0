// dhcp_vex_api_patch.cpp - the hot-patch entry points: reserved stubs that only log.
// In:  calls of the patch facility. Out: syslog lines, most of them only while the patch debug switch is 1.
#include "dhcp_vex_api_patch.h"

#include <cstddef>
#include <cstring>

#include "dhcp_vex_shared_word.h"
#include "dhcp_vex_syslog.h"

using namespace dhcp_vex;

uint8_t g_dhcpVexPatchDbgSwitch = 0;
uint32_t (*const g_dhcpVexPatchTimerProcTbl[1])(void) = {DHCP_Vex_PatchTimerProcessResved1};
void* g_dhcpVexPatchResPtr = nullptr;
uint64_t g_dhcpVexPatchTimer = 0;
uint32_t g_dhcpPatchRes = 0;

namespace {

constexpr size_t kLibraryNameAt = 397;
constexpr char kLibraryName[] = "libvex_dhcp.so";

enum Operation : uint32_t { kActivate = 0, kDeactivate = 1 };

void LogIfDebugging(const char* line) {
  if (Load(g_dhcpVexPatchDbgSwitch) == 1) syslog(LOG_INFO, "%s", line);
}

bool NamesThisLibrary(const void* patchRecord) {
  const char* name = static_cast<const char*>(patchRecord) + kLibraryNameAt;
  return std::strncmp(name, kLibraryName, sizeof(kLibraryName)) == 0;
}

}  // namespace

uint32_t DHCP_PatchInit(void) {
  syslog(LOG_INFO, "DHCP patch init ok.");
  return 0;
}

void DHCP_Vex_PatchTimerCallBack(void) {
  LogIfDebugging("DHCP patch Timer prcoess start");
  uint32_t i = 0;
  for (const auto procedure : g_dhcpVexPatchTimerProcTbl) {
    const uint32_t ret = procedure();
    if (ret != 0) syslog(LOG_INFO, "DHCP patch Timer prcoess error, i %u, ret %u", i, ret);
    ++i;
  }
  LogIfDebugging("DHCP patch Timer prcoess end");
}

uint32_t DHCP_Vex_PatchTimerProcessResved1(void) {
  LogIfDebugging("Enter dhcp stub reserved 1.");
  return 0;
}

void DHCP_ResPatchC2hActivefunc1_vex(void) {
  LogIfDebugging("[DHCP-HA] dhcp vex reserved1 patch c2h active.");
}
void DHCP_ResPatchC2hActivefunc2_vex(void) {
  LogIfDebugging("[DHCP-HA] dhcp vex reserved2 patch c2h active.");
}
void DHCP_ResPatchC2hDeactivefunc1_vex(void) {
  LogIfDebugging("[DHCP-HA] dhcp vex reserved1 patch c2h deactive.");
}
void DHCP_ResPatchC2hDeactivefunc2_vex(void) {
  LogIfDebugging("[DHCP-HA] dhcp vex reserved2 patch c2h deactive.");
}

uint32_t DHCP_VexPatchC2HOperFunc(uint32_t operCode) {
  switch (operCode) {
    case kActivate:
      DHCP_ResPatchC2hActivefunc1_vex();
      DHCP_ResPatchC2hActivefunc2_vex();
      return DHCP_OK;
    case kDeactivate:
      DHCP_ResPatchC2hDeactivefunc1_vex();
      DHCP_ResPatchC2hDeactivefunc2_vex();
      return DHCP_OK;
    default:
      syslog(LOG_INFO, "dhcp vex c2h active or deactive oper failed, operCode %u", operCode);
      return DHCP_FAIL;
  }
}

uint32_t libvex_dhcp_PAT_C2HSyncHookFunc(uint32_t operCode, void* context, const void* patchRecord,
                                         uint32_t* match) {
  if (context == nullptr || patchRecord == nullptr || match == nullptr) return DHCP_FAIL;
  if (!NamesThisLibrary(patchRecord)) {
    *match = 0;
    return DHCP_OK;
  }
  *match = 1;
  return DHCP_VexPatchC2HOperFunc(operCode);
}
