// module_view.cpp - the look-ups, by the names of the module's surface.
#include "host/module_view.h"

namespace vex::host {

ModuleView::ModuleView(const platform::Module& module)
    : packet_type(module.Fn<uint32_t(OrbMbuf*, uint32_t*)>("DhcpGetPktType")),
      channel(module.Fn<uint32_t(OrbMbuf*, uint32_t)>("DhcpPktGetChnID")),
      interface_and_vlan(
          module.Fn<uint32_t(OrbMbuf*, uint32_t*, uint32_t*)>("DhcpVexGetIfIndexAndVlanFromPkt")),
      interface_record(module.Fn<DhcpSnpInfo*(uint32_t)>("DhcpVexGetSnpIfInfoByIfIndex")),
      vlan_record(module.Fn<DhcpSnpInfo*(uint32_t)>("DhcpVexGetSnpVlanInfoByVlanId")),
      global_record(module.Var<DhcpSnpInfo>("g_dhcpSnpGblInfo")),
      degrade(module.Var<DhcpDegradeInfo>("g_dhcpDegradeInfo")),
      peer_link(module.Var<DhcpPeerLinkRate>("g_dhcpVexPeerLinkInfo")),
      peer_link_names(module.Var<const char*>("g_dhcpPktTypeStr")),
      stats(module.Var<uint64_t>("g_dhcpStat")),
      seconds(module.Var<uint32_t>("g_dhcpVexcurTimeSec")),
      debug_switch(module.Var<uint8_t>("g_dhcpVexDebugSwitch")) {}

}  // namespace vex::host
