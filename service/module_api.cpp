// module_api.cpp - looks the exports up by name. In: the loaded module. Out: ModuleApi.
#include "service/module_api.h"

#include "platform/module_loader.h"

namespace vex::service {

ModuleApi ModuleApi::Of(const platform::Module& module) {
  ModuleApi api;
  api.is_trusted = module.Fn<decltype(DhcpVexCheckIfSnpTrusted)>("DhcpVexCheckIfSnpTrusted");
  api.switch_on = module.Fn<decltype(DhcpVexGetCfg)>("DhcpVexGetCfg");
  api.register_callback = module.Fn<decltype(DhcpVexEventCallBackReg)>("DhcpVexEventCallBackReg");
  api.remove_callback = module.Fn<decltype(DhcpVexEventCallBackUnReg)>("DhcpVexEventCallBackUnReg");
  return api;
}

}  // namespace vex::service
