// module_view.h - what the host asks the running module, and which of its records it reads.
// In:  the loaded module. Out: its exports as typed pointers, looked up once.
// No rule of the module is repeated here or behind it: questions go to its functions, numbers come from its
// records. The records are guarded by the module's lock; a single-threaded caller between two packets needs
// none.
#pragma once

#include <cstdint>

#include "dhcp_vex_api_snoop.h"
#include "dhcp_vex_rate_limit_peerlink.h"
#include "platform/module_loader.h"

namespace vex::host {

struct ModuleView {
  explicit ModuleView(const platform::Module& module);

  uint32_t (*packet_type)(OrbMbuf*, uint32_t* take_flag);
  uint32_t (*channel)(OrbMbuf*, uint32_t packet_type);
  uint32_t (*interface_and_vlan)(OrbMbuf*, uint32_t* interface, uint32_t* vlan);
  DhcpSnpInfo* (*interface_record)(uint32_t);
  DhcpSnpInfo* (*vlan_record)(uint32_t);
  DhcpSnpInfo* global_record;
  DhcpDegradeInfo* degrade;
  DhcpPeerLinkRate* peer_link;         // one per kind
  const char* const* peer_link_names;  // the same
  const uint64_t* stats;               // eight counters
  const uint32_t* seconds;             // module time of the last gate call
  uint8_t* debug_switch;
};

// Diagnostics off while it lives, so that a question leaves no trace.
class Silence {
 public:
  explicit Silence(uint8_t* debug_switch) : switch_(debug_switch), before_(*debug_switch) {
    if (before_ != 0) *switch_ = 0;
  }
  ~Silence() {
    if (before_ != 0) *switch_ = before_;
  }
  Silence(const Silence&) = delete;
  Silence& operator=(const Silence&) = delete;

 private:
  uint8_t* switch_;
  uint8_t before_;
};

}  // namespace vex::host
