// dhcp_vex_api_event.h - callbacks of other modules for what the DHCP service announces.
// In:  registrations of (event type, callback). Out: one call per notification. No lock: registrations and
// removals must not overlap each other or a notification, which runs on the return channel's thread.
#pragma once

#include <cstddef>

#include "dhcp_vex_dll.h"
#include "dhcp_vex_export.h"
#include "dhcp_vex_platform.h"

inline constexpr uint32_t DHCP_EVENT_USER_BIND = 0;  // the only type that the module itself raises

// Both arguments are the message body's address; a callback that declares only the first works too. The body
// lives only during the call.
typedef uint32_t (*DhcpVexEvtCallBack)(void* messageBody, void* messageBodyAgain);

struct DhcpVexEvtNode {
  DhcpDllNode link;
  uint32_t eventType;
  DhcpVexEvtCallBack callback;  // null is stored and skipped by notifications
};
static_assert(sizeof(DhcpVexEvtNode) == 32 && offsetof(DhcpVexEvtNode, callback) == 24);

DHCP_VEX_API DhcpDll g_dhcpVexEvtCallBacklist;
DHCP_VEX_API uint32_t g_evtCallBacklistInit;  // 1 once the list's head is initialised

DHCP_VEX_API void DhcpVexEvtCallBackListInit(void);
// 0 registered, now or before; 1 out of memory.
DHCP_VEX_API uint32_t DhcpVexEventCallBackReg(uint32_t eventType, DhcpVexEvtCallBack callback);
// Always 0, also when nothing matched.
DHCP_VEX_API uint32_t DhcpVexEventCallBackUnReg(uint32_t eventType, DhcpVexEvtCallBack callback);
// Calls the earliest registered callback for the type and answers its result; 0 when there is none.
DHCP_VEX_API uint32_t DhcpVexEventCallBackNotify(uint32_t eventType, void* messageBody);
// Notifies of the user-binding message behind the packet's egress header; the packet stays its caller's.
DHCP_VEX_API uint32_t DhcpVexProcUserBindMsgFromDhcp(OrbMbuf* pkt);
