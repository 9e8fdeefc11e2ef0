// dhcp_vex_egress_db_dynso.cpp - binds the optional ARP database and M-LAG libraries.
// In:  the dynamic loader. Out: filled or empty slots, one syslog line or two per library.
#include "dhcp_vex_egress_db_dynso.h"

#include <dlfcn.h>

#include "dhcp_vex_shared_word.h"
#include "dhcp_vex_syslog.h"

using namespace dhcp_vex;

void* g_dhcp_db_create_arp_obj = nullptr;
void* g_dhcp_db_release_arp_object = nullptr;
void* g_db_get_arp_work_if_index = nullptr;
void* g_dhcp_mlag_vex_hookEgress = nullptr;

const DhcpDbFuncRow g_dhcpDbArpFuncTbl[3] = {{&g_dhcp_db_create_arp_obj, "db_create_arp_obj"},
                                             {&g_dhcp_db_release_arp_object, "db_release_arp_object"},
                                             {&g_db_get_arp_work_if_index, "db_get_arp_work_if_index"}};

namespace {

constexpr int32_t kUnbound = 1;

const char* LoaderError() {
  const char* text = dlerror();
  return text != nullptr ? text : "no error text";
}

template <class Function>
Function* Bound(void*& slot) {
  return reinterpret_cast<Function*>(Load(slot));
}

// The first row whose symbol the library lacks; null when all are bound.
const DhcpDbFuncRow* BindArpRows(void* library) {
  for (const DhcpDbFuncRow& row : g_dhcpDbArpFuncTbl) {
    Store(*row.slot, dlsym(library, row.symbol));
    if (Load(*row.slot) == nullptr) return &row;
  }
  return nullptr;
}

}  // namespace

void DhcpVexDbArpSymbolInit(void) {
  void* library = dlopen("libdb_arp.so", RTLD_LAZY);
  if (library == nullptr) {
    syslog(LOG_ERR, "[VEX-DHCP-DYNSO]dlopen libdb_arp.so error.(%s)", LoaderError());
    return;
  }
  const DhcpDbFuncRow* missing = BindArpRows(library);
  if (missing != nullptr) {
    syslog(LOG_ERR, "[VEX-DHCP-DYNSO] dlsym %s failed.(%s)", missing->symbol, LoaderError());
    dlclose(library);
    for (const DhcpDbFuncRow& row : g_dhcpDbArpFuncTbl) Store<void*>(*row.slot, nullptr);
  }
  syslog(LOG_INFO, "[VEX-DHCP-DYNSO] db arp symbol init.(ret:%u)", missing != nullptr ? 1u : 0u);
}

void DhcpVexDbMlagSymbolInit(void) {
  void* library = dlopen("libvex_mlag.so", RTLD_LAZY);
  if (library == nullptr) {
    syslog(LOG_ERR, "[VEX-DHCP-DYNSO]dlopen libvex_mlag.so error.(%s)", LoaderError());
    return;
  }
  void* const send = dlsym(library, "MLAG_VEX_SendPacketPublic");
  Store(g_dhcp_mlag_vex_hookEgress, send);
  if (send == nullptr) {
    syslog(LOG_ERR, "[VEX-DHCP-DYNSO] dlsym mlag failed.(%s)", LoaderError());
    dlclose(library);
    return;
  }
  syslog(LOG_INFO, "[VEX-DHCP-DYNSO] db mlag symbol init ok.");
}

uint32_t DhcpVexDbMlagHookEgress(OrbMbuf* pkt, uint32_t arg) {
  auto* const send = Bound<uint32_t(OrbMbuf*, uint32_t)>(g_dhcp_mlag_vex_hookEgress);
  if (send == nullptr) return DHCP_FAIL;
  send(pkt, arg);
  return DHCP_OK;
}

int32_t DHCP_db_create_arp_obj(uint32_t three, uint32_t zero, void** handle) {
  auto* const create = Bound<int32_t(uint32_t, uint32_t, void**)>(g_dhcp_db_create_arp_obj);
  return create == nullptr ? kUnbound : create(three, zero, handle);
}

void DHCP_db_release_arp_object(void* handle) {
  auto* const release = Bound<void(void*)>(g_dhcp_db_release_arp_object);
  if (release != nullptr) release(handle);
}

int32_t DHCP_db_get_arp_work_if_index(void* handle, uint32_t* ifIndex) {
  auto* const get = Bound<int32_t(void*, uint32_t*)>(g_db_get_arp_work_if_index);
  return get == nullptr ? kUnbound : get(handle, ifIndex);
}
