// dhcp_vex_api_event.cpp - the registry of event callbacks.
// In:  registrations, removals, notifications. Out: at most one callback called per notification.
// Nodes are the framework's memory, owned by the list from registration to removal.
#include "dhcp_vex_api_event.h"

#include <new>

#include "dhcp_vex_api_source.h"
#include "dhcp_vex_pkt_diag.h"
#include "dhcp_vex_pkt_egress.h"

using namespace dhcp_vex;

DhcpDll g_dhcpVexEvtCallBacklist;
uint32_t g_evtCallBacklistInit = 0;

namespace {

DhcpVexEvtNode* Find(uint32_t eventType, DhcpVexEvtCallBack callback) {
  return DllFind<DhcpVexEvtNode>(g_dhcpVexEvtCallBacklist, [eventType, callback](const DhcpVexEvtNode& node) {
    return node.eventType == eventType && node.callback == callback;
  });
}

}  // namespace

void DhcpVexEvtCallBackListInit(void) {
  if (g_evtCallBacklistInit == 1) return;
  g_evtCallBacklistInit = 1;
  DllInit(g_dhcpVexEvtCallBacklist);
}

uint32_t DhcpVexEventCallBackReg(uint32_t eventType, DhcpVexEvtCallBack callback) {
  DhcpVexEvtCallBackListInit();
  if (Find(eventType, callback) != nullptr) return DHCP_OK;
  void* memory =
      OrbMemAllocInner(kAllocatorId, 0, sizeof(DhcpVexEvtNode), 0, "DhcpVexEventCallBackReg", __LINE__);
  if (memory == nullptr) {
    OrbMionAssert(kApiSourcePath, __LINE__, nullptr);
    return DHCP_FAIL;
  }
  auto* node = new (memory) DhcpVexEvtNode{{nullptr, nullptr}, eventType, callback};
  DllAppend(g_dhcpVexEvtCallBacklist, node->link);
  return DHCP_OK;
}

uint32_t DhcpVexEventCallBackUnReg(uint32_t eventType, DhcpVexEvtCallBack callback) {
  DhcpVexEvtNode* node = Find(eventType, callback);
  if (node == nullptr) return DHCP_OK;
  if (DllUnlink(g_dhcpVexEvtCallBacklist, node->link)) {
    OrbMemFreeInner(node);
  } else {
    OrbMionAssert(kApiSourcePath, __LINE__, nullptr);  // damaged: still linked, so not freed
  }
  return DHCP_OK;
}

uint32_t DhcpVexEventCallBackNotify(uint32_t eventType, void* messageBody) {
  const DhcpVexEvtNode* node =
      DllFind<DhcpVexEvtNode>(g_dhcpVexEvtCallBacklist, [eventType](const DhcpVexEvtNode& candidate) {
        return candidate.eventType == eventType && candidate.callback != nullptr;
      });
  return node == nullptr ? 0 : node->callback(messageBody, messageBody);
}

uint32_t DhcpVexProcUserBindMsgFromDhcp(OrbMbuf* pkt) {
  const std::optional<Bytes> body = UserBindBody(BufferBytes(pkt));
  if (!body) {
    DhcpVexDebugOut(0, "[ERR][VEX-DHCP] User binding message does not fit its buffer.");
    return 0;
  }
  return DhcpVexEventCallBackNotify(DHCP_EVENT_USER_BIND, body->data());
}
