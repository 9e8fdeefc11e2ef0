// live_module.h - the exports of the module that the live path asks beyond what a replay does.
// In:  the loaded module. Out: function pointers, good until it is unloaded.
#pragma once

#include "dhcp_vex_api_switch.h"
#include "host/module_view.h"

namespace vex::host::live {

struct LiveModule : ModuleView {
  explicit LiveModule(const platform::Module& module)
      : ModuleView(module),
        switch_on(module.Fn<uint32_t(uint32_t)>("DhcpVexGetCfg")),
        peer_link_kind(module.Fn<uint32_t(OrbMbuf*)>("DhcpVexGetPktType")),
        store_lock(module.Var<OrbSpinlock>("g_dhcpVexSnpInfoUseLock")) {}
  uint32_t (*switch_on)(uint32_t number);
  uint32_t (*peer_link_kind)(OrbMbuf* packet);  // DHCP_PEER_KINDS: none of them
  OrbSpinlock* store_lock;                      // guards the records; the gates only try it
};

}  // namespace vex::host::live
