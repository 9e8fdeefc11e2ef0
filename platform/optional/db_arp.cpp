// db_arp.cpp - libdb_arp.so, the optional ARP object database, as a front of the stand-in's tables.
// In:  calls through the symbols that the module looks up. Out: the answers of the program that loaded both.
// VEX_WITHOUT_... leaves one symbol out, for devices whose library is too old to have it.
#include "platform/objects.h"

#define VEX_OPTIONAL_EXPORT extern "C" __attribute__((visibility("default")))

#ifndef VEX_WITHOUT_CREATE
VEX_OPTIONAL_EXPORT int32_t db_create_arp_obj(uint32_t three, uint32_t zero, void** handle) {
  return VexPlatformArpCreate(three, zero, handle);
}
#endif

#ifndef VEX_WITHOUT_RELEASE
VEX_OPTIONAL_EXPORT void db_release_arp_object(void* handle) { VexPlatformArpRelease(handle); }
#endif

#ifndef VEX_WITHOUT_GET
VEX_OPTIONAL_EXPORT int32_t db_get_arp_work_if_index(void* handle, uint32_t* workIfIndex) {
  return VexPlatformArpGetWorkIfIndex(handle, workIfIndex);
}
#endif
