// module_api.h - the exports of the module that the service asks or uses, looked up once.
// In:  the loaded module. Out: function pointers, good until it is unloaded. The service keeps no copy of
// what they answer: trust and switches are the module's.
#pragma once

#include "dhcp_vex_api_event.h"
#include "dhcp_vex_api_snoop.h"
#include "dhcp_vex_api_switch.h"

namespace vex::platform {
class Module;
}

namespace vex::service {

struct ModuleApi {
  decltype(&DhcpVexCheckIfSnpTrusted) is_trusted = nullptr;  // waits for the store's lock
  decltype(&DhcpVexGetCfg) switch_on = nullptr;
  decltype(&DhcpVexEventCallBackReg) register_callback = nullptr;
  decltype(&DhcpVexEventCallBackUnReg) remove_callback = nullptr;

  static ModuleApi Of(
      const platform::Module& module);  // throws platform::ModuleError naming a missing export
};

}  // namespace vex::service
