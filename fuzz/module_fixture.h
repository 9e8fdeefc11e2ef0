// module_fixture.h - the module on the stand-in framework, started once per fuzzing process.
// In:  nothing. Out: a running module whose channels the target empties; a check that nothing leaked.
#pragma once

#include <cstdint>

#include "dhcp_vex_api.h"
#include "dhcp_vex_api_cfg.h"
#include "dhcp_vex_api_snoop.h"
#include "dhcp_vex_api_switch.h"
#include "dhcp_vex_pkt_diag.h"
#include "fuzz/input.h"
#include "platform/board.h"
#include "platform/channel.h"
#include "platform/clock.h"
#include "platform/event_thread.h"
#include "platform/faults.h"
#include "platform/logs.h"
#include "platform/packet.h"

namespace vex::fuzz {

// Lets one import fail once: two bytes name it and the call.
inline void ArmFault(Input& input) {
  const auto& imports = platform::FallibleImports();
  const uint8_t which = input.U8();
  const uint8_t call = input.U8();
  platform::Faults().Arm({.import = imports[which % imports.size()], .skip = call % 16u, .times = 1});
}

class RunningModule {
 public:
  static RunningModule& Get() {
    static RunningModule module;
    return module;
  }

  void Configure(uint32_t switches, uint32_t instances) {
    const DhcpCfgReq req = {switches, DHCP_CFG_ALL, 0};
    DhcpCfg(&req);
    g_dhcpVexSpecs[DHCP_SPEC_MULTICORE_SVC_NUM].value = instances;
  }

  void EmptyChannels() {
    for (platform::Channel* channel : ports_.channels) channel->Drain();
  }

  void RequireNoPackets() const { Require(platform::Packets().Stats().inUse == 0, "every packet is free"); }

 private:
  RunningModule() {
    platform::TheClock().UseVirtual(1'000'000'000);
    platform::TheBoard().SetType(1);
    Require(DhcpVexInit() == 0, "the module starts");
    ports_ = platform::OpenServicePorts(64);
    platform::Logs().AddSink(platform::kEveryLogOutput,
                             [](const platform::LogRecord&) {});  // so texts are made
  }
  platform::ServicePorts ports_;
};

}  // namespace vex::fuzz
