// dhcp_vex_api_patch.h - what the framework's hot-patch facility calls.
// In:  its operation codes and patch records. Out: syslog lines; nothing of the module's behaviour changes.
// The facility owns the records; any thread.
#pragma once

#include "dhcp_vex_export.h"

DHCP_VEX_API uint8_t g_dhcpVexPatchDbgSwitch;  // 1: the optional lines are written. Written from outside only
DHCP_VEX_API uint32_t (*const g_dhcpVexPatchTimerProcTbl[1])(void);
DHCP_VEX_API void* g_dhcpVexPatchResPtr;  // reserved for patches, as are the next two
DHCP_VEX_API uint64_t g_dhcpVexPatchTimer;
DHCP_VEX_API uint32_t g_dhcpPatchRes;

DHCP_VEX_API uint32_t DHCP_PatchInit(void);  // always 0
DHCP_VEX_API void DHCP_Vex_PatchTimerCallBack(void);
DHCP_VEX_API uint32_t DHCP_Vex_PatchTimerProcessResved1(void);  // always 0
DHCP_VEX_API void DHCP_ResPatchC2hActivefunc1_vex(void);
DHCP_VEX_API void DHCP_ResPatchC2hActivefunc2_vex(void);
DHCP_VEX_API void DHCP_ResPatchC2hDeactivefunc1_vex(void);
DHCP_VEX_API void DHCP_ResPatchC2hDeactivefunc2_vex(void);
// 0 activates, 1 deactivates; 1 for any other code.
DHCP_VEX_API uint32_t DHCP_VexPatchC2HOperFunc(uint32_t operCode);
// Is the patch meant for this library? Writes 1 or 0 to *match; when it is, carries out the operation. 1 for
// a null pointer. The record holds the NUL-terminated library name at byte 397.
DHCP_VEX_API uint32_t libvex_dhcp_PAT_C2HSyncHookFunc(uint32_t operCode, void* context,
                                                      const void* patchRecord, uint32_t* match);
