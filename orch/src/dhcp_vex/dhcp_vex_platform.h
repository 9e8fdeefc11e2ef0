// dhcp_vex_platform.h - the interfaces of the forwarding framework that the module imports, nothing else.
// In:  nothing. Out: prototypes, resolved by the process that loads libvex_dhcp.so.
// Results are uint32_t and 0 for success unless a comment says otherwise. The data model is LP64,
// little-endian.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

extern "C" {

// ---- Packet buffer -------------------------------------------------------------------------------------
// Owned by the framework; the module reads these four fields and nothing else. A framework may keep fields
// of its own behind these 16 bytes.
struct OrbMbuf {
  uint8_t* bufAddr;  // start of the buffer memory; null: the packet has no data buffer
  uint16_t dataOff;  // offset of the first packet byte from bufAddr
  uint16_t bufLen;   // size of the buffer memory in bytes
  uint32_t dataLen;  // packet length in bytes, counted from dataOff
};
static_assert(sizeof(OrbMbuf) == 16 && offsetof(OrbMbuf, dataLen) == 12);

// ---- Module list, board, capabilities, RPC -------------------------------------------------------------
extern void* g_pluginModRegHead;  // head of the singly linked list of module records
uint32_t OrbCurrentBoard(void);
uint32_t OrbCapabilityQueryItem(const char* descr, void* result, uint32_t size);
uint32_t RegTavriRpcServerToVex(const void* record);  // 48 bytes

// ---- Threads, channels, events -------------------------------------------------------------------------
void* ORB_ThreadInfoGetByName(const char* name);                             // null when unknown
uint32_t ORB_ChannelCreate(const char* name, uint32_t depth);                // id, 0xFFFFFFFF on failure
uint32_t ORB_ChannelGetIdByName(const char* name);                           // id, 0xFFFFFFFF when unknown
uint32_t ORB_ChannelDcSend(uint32_t channelId, OrbMbuf* pkt, uint32_t arg);  // 0: the channel owns pkt
uint32_t ORB_ChannelDcRecv(uint32_t channelId, OrbMbuf** pkt);               // non-zero: empty or failed
uint32_t ORB_EventWrite(void* thread, uint32_t mask);
uint32_t ORB_ChannelEventWritePublic(uint32_t eventId);
uint32_t OrbChnEvtCallbackRegister(uint32_t eventKind, void (*callback)(void));

// ---- Timers --------------------------------------------------------------------------------------------
uint32_t OrbSLcoreTimerCreateAndStart(uint32_t periodMs, uint32_t mode, uint32_t (*callback)(void),
                                      void* callbackArg, uint32_t* timerId);
uint32_t OrbSLcoreTimerDelete(uint32_t timerId);

// ---- Spinlock: one 32-bit word -------------------------------------------------------------------------
struct OrbSpinlock {
  uint32_t word;
};
uint32_t OrbSpinlockInit(OrbSpinlock* lock);
void OrbSpinlockLock(OrbSpinlock* lock);
uint32_t OrbSpinlockTrylock(OrbSpinlock* lock);  // 1 acquired, 0 busy
void OrbSpinlockUnlock(OrbSpinlock* lock);

// ---- Memory, assertions, bounded string routines -------------------------------------------------------
void* OrbMemAllocInner(uint32_t allocatorId, uint32_t zero1, uint32_t size, uint32_t zero2, const char* tag,
                       uint32_t line);  // null when exhausted
void OrbMemFreeInner(void* mem);
void OrbMionAssert(const char* sourcePath, uint32_t line, const char* message);
int32_t memset_s(void* dest, size_t destMax, int32_t c, size_t count);
int32_t memcpy_s(void* dest, size_t destMax, const void* src, size_t count);
int32_t sprintf_s(char* dest, size_t destMax, const char* format, ...);
int32_t vsprintf_s(char* dest, size_t destMax, const char* format, va_list args);
int32_t vsnprintf_truncated_s(char* dest, size_t destMax, const char* format, va_list args);

// ---- Logging -------------------------------------------------------------------------------------------
void OrbLog(uint32_t level, const char* format, ...);
void OrbIMDebugReport(uint32_t id1, uint32_t id2, const char* tag, const char* text);
int32_t HostDiagPrintf(const char* format, ...);
void* ORB_ImAgentMsgCreate(uint32_t kind, uint32_t id);  // null on failure
uint32_t ORB_ImAgentAddPara(void* msg, uint32_t type, uint32_t length, const void* bytes);
uint32_t ORB_ImAgentSend(void* msg);  // takes the message over
void ORB_ImAgentMsgFree(void* msg);

// ---- Host-packet path ----------------------------------------------------------------------------------
uint64_t HostHookRegister(uint32_t hookPoint, uint32_t value, uint32_t (*callback)(OrbMbuf*),
                          const char* name);
uint32_t HostMbufIsNdHookIgnore(OrbMbuf* pkt);
void HostMbufSetNdHookIgnore(OrbMbuf* pkt);
uint32_t HostMbufGetPktAppType(OrbMbuf* pkt);
uint32_t HostMbufGetAppPktType(OrbMbuf* pkt);
uint8_t* HostMbufGetL3Hdr(OrbMbuf* pkt);
uint32_t HostMbufGetL2HeadLength(OrbMbuf* pkt);
uint32_t HostMbufGetProtoType(OrbMbuf* pkt);  // 0 IPv4, 1 IPv6
uint32_t HostMbufGetMngIfFlag(OrbMbuf* pkt);
uint32_t HostMbufGetL4DstPort(OrbMbuf* pkt);
uint32_t HostMbufGetL4SrcPort(OrbMbuf* pkt);
uint8_t* HostMbufGetDstMac(OrbMbuf* pkt);  // 6 bytes
uint32_t HostMbufGetCauseAction(OrbMbuf* pkt);
uint32_t HostMbufGetHostDiagSwitch(OrbMbuf* pkt);
uint32_t HostMbufGetOectrlIfIndex(OrbMbuf* pkt);
uint16_t* HostMbufGetVlanTag(OrbMbuf* pkt);  // host byte order
uint32_t HostMbufGetOutIfByL2vpnTnl(OrbMbuf* pkt, uint32_t tunnelId, uint32_t tunnelType,
                                    uint32_t* outIfIndex, uint32_t* nextHop);
uint32_t HostUploadLdmByHook(OrbMbuf* pkt);  // takes the packet over

// ---- Packet buffers ------------------------------------------------------------------------------------
OrbMbuf* MbufPktNewFromData(const void* bytes, uint32_t length, const char* sourcePath, uint32_t line);
OrbMbuf* OrbMbufPktCopyNew(OrbMbuf* pkt, const char* sourcePath, uint32_t line);
uint32_t MbufPktAddHead(OrbMbuf* pkt, uint32_t length, const char* sourcePath, uint32_t line);
uint32_t MbufPktCutHead(OrbMbuf* pkt, uint32_t length, const char* sourcePath, uint32_t line);
extern uint32_t (*g_mbufFreeCb)(OrbMbuf* pkt, const char* sourcePath, uint32_t line);

// ---- Egress descriptor (opaque to the module) and output -----------------------------------------------
struct HostEgressDesc {
  alignas(8) uint8_t opaque[256];
};
static_assert(sizeof(HostEgressDesc) == 256 && alignof(HostEgressDesc) == 8);
struct HostEgressPruneType {
  uint32_t type;
  uint8_t zero[16];
};
static_assert(sizeof(HostEgressPruneType) == 20);
uint32_t HostSetEgressOePriority(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressIntfType(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressSendIfIndex(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressProtoType(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressBdId(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressBsNoLinkEncap(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressBsVlanNum(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressVlanBaseInfo(HostEgressDesc* desc, const void* value);
uint32_t HostSetEgressPruneIf(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressBsSpecifyIpat(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressVxlanEncodeVlan(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressBsOeSMAC(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressBsOeDMAC(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressSrcMac(HostEgressDesc* desc, const void* value);
uint32_t HostSetEgressDstMac(HostEgressDesc* desc, const void* value);
uint32_t HostSetEgressDstAddr(HostEgressDesc* desc, const void* value);
uint32_t HostSetEgressNextHop(HostEgressDesc* desc, const void* value);
uint32_t HostSetEgressSvp(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressTunnelID(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressTunnelType(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressVrfIndex(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressSendPhyIfIndex(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressIntfLen(HostEgressDesc* desc);
uint32_t HostSetEgressVxlanHubSpkV2(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressVxlanVpeerlink(HostEgressDesc* desc, uint32_t value);
uint32_t HostSetEgressUint32InfoByType(HostEgressDesc* desc, uint32_t value, uint32_t type);
uint32_t HostSetEgressPruneType(HostEgressDesc* desc, const HostEgressPruneType* prune);
uint32_t HostSetEgressAppendTlv(HostEgressDesc* desc, uint32_t tlvType, const void* value);
uint32_t HostEgressPktPubWithSource(OrbMbuf* pkt, HostEgressDesc* desc, uint32_t sourceId);  // takes pkt over

// ---- Time ----------------------------------------------------------------------------------------------
extern void* g_pstGlobalTimeDate;  // record of the time of day; 32-bit seconds at byte offset 16
extern uint64_t g_cyclePerMs;      // virtual-counter ticks per millisecond

// ---- Object database; the three ARP functions of libdb_arp.so have the same shapes ----------------------
int32_t db_create_if_cfg_obj(uint32_t three, uint32_t zero, void** handle);
int32_t db_read_obj(void* handle, const void* keyDescriptor, const void* key);
int32_t db_get_if_cfg_vlan_id(void* handle, uint32_t* vlanId);
void db_release_if_cfg_object(void* handle);

}  // extern "C"
