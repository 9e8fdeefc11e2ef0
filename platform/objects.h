// objects.h - the device's object database, tunnels and M-LAG link as tables that the host fills.
// In:  rows from the host; look-ups from the module through db_*, HostMbufGetOutIfByL2vpnTnl and, from the
//      optional libraries, the VexPlatform... functions below.
// Out: values, or a failure for what has no row; handles that were created and not released.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "dhcp_vex_platform.h"

namespace vex::platform {

struct Tunnel {
  uint32_t outIfIndex;
  uint32_t nextHop;  // IPv4 address as a number
};

struct MlagSend {
  std::vector<uint8_t> bytes;  // the packet as the library saw it
  uint32_t arg;
};

class ObjectTables {
 public:
  void SetTunnel(uint32_t tunnelId, uint32_t tunnelType, Tunnel tunnel);
  std::optional<Tunnel> FindTunnel(uint32_t tunnelId, uint32_t tunnelType) const;
  void SetInterfaceVlan(uint32_t ifIndex, uint32_t vlanId);
  void SetArp(uint32_t nextHop, uint32_t outIfIndex, uint32_t workIfIndex);
  void ClearRows();

  std::vector<MlagSend> TakeMlagSends();

  // The look-ups behind the imports; 0 or an error code.
  enum class Kind : uint32_t { kInterface = 0x10004, kArp = 0x10008 };  // as the key descriptors name them
  int32_t Create(Kind kind, uint32_t three, uint32_t zero, void** handle);
  int32_t Read(void* handle, const void* keyDescriptor, const void* key);
  int32_t Get(Kind kind, void* handle, uint32_t* value);
  void Release(Kind kind, void* handle);
  void NoteMlagSend(OrbMbuf* packet, uint32_t arg);

  size_t LiveHandles() const;
  std::vector<std::string> Leaks() const;
  void Reset();

 private:
  struct Handle {
    Kind kind;
    std::optional<uint32_t> value;  // set by a successful read
  };
  mutable std::mutex mutex_;
  std::map<std::pair<uint32_t, uint32_t>, Tunnel> tunnels_;
  std::map<uint32_t, uint32_t> interfaceVlans_;
  std::map<std::pair<uint32_t, uint32_t>, uint32_t> arp_;
  std::set<Handle*> handles_;
  std::vector<MlagSend> mlagSends_;
};
ObjectTables& Objects();

}  // namespace vex::platform

// What libdb_arp.so and libvex_mlag.so of this project call.
extern "C" {
int32_t VexPlatformArpCreate(uint32_t three, uint32_t zero, void** handle);
void VexPlatformArpRelease(void* handle);
int32_t VexPlatformArpGetWorkIfIndex(void* handle, uint32_t* workIfIndex);
uint32_t VexPlatformMlagSend(OrbMbuf* packet, uint32_t arg);
}
