// dhcp_vex_egress_db_dynso.h - two libraries that a device may or may not carry.
// In:  "libdb_arp.so" and "libvex_mlag.so", opened by name at start-up. Out: function slots, null while
// unbound, and wrappers that fail softly. Slots are written by the start-up thread only and read by any
// thread; a bound library stays open for the life of the process.
#pragma once

#include "dhcp_vex_export.h"
#include "dhcp_vex_platform.h"

struct DhcpDbFuncRow {
  void** slot;
  const char* symbol;
};
static_assert(sizeof(DhcpDbFuncRow) == 16);

DHCP_VEX_API void* g_dhcp_db_create_arp_obj;  // int32_t (uint32_t, uint32_t, void** handle), 0 for success
DHCP_VEX_API void* g_dhcp_db_release_arp_object;  // void (void* handle)
DHCP_VEX_API void* g_db_get_arp_work_if_index;    // int32_t (void* handle, uint32_t* ifIndex), 0 for success
DHCP_VEX_API void* g_dhcp_mlag_vex_hookEgress;    // uint32_t (OrbMbuf*, uint32_t)
DHCP_VEX_API const DhcpDbFuncRow g_dhcpDbArpFuncTbl[3];

// Bind once, at start-up. The ARP slots are bound all or none.
DHCP_VEX_API void DhcpVexDbArpSymbolInit(void);
DHCP_VEX_API void DhcpVexDbMlagSymbolInit(void);

// 1 while unbound, else 0 whatever the library answered. The packet stays its caller's.
DHCP_VEX_API uint32_t DhcpVexDbMlagHookEgress(OrbMbuf* pkt, uint32_t arg);
// 1 while unbound, else the library's result; the release does nothing while unbound.
DHCP_VEX_API int32_t DHCP_db_create_arp_obj(uint32_t three, uint32_t zero, void** handle);
DHCP_VEX_API void DHCP_db_release_arp_object(void* handle);
DHCP_VEX_API int32_t DHCP_db_get_arp_work_if_index(void* handle, uint32_t* ifIndex);
