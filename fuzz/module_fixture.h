// module_fixture.h - the module on the stand-in framework, started once per fuzzing process.
// In:  nothing. Out: a running module whose channels the target empties; a check that nothing leaked.
#pragma once

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <span>

#include "dhcp_vex_api.h"
#include "dhcp_vex_api_cfg.h"
#include "dhcp_vex_api_switch.h"
#include "platform/board.h"
#include "platform/channel.h"
#include "platform/clock.h"
#include "platform/event_thread.h"
#include "platform/packet.h"

namespace vex::fuzz {

// Ends the process as a sanitizer would, with what did not hold.
inline void Require(bool holds, const char* what) {
  if (holds) return;
  std::fprintf(stderr, "does not hold: %s\n", what);
  std::abort();
}

// Takes numbers off the front of an input; zeros when it has ended.
class Input {
 public:
  Input(const uint8_t* data, size_t size) : rest_(data, size) {}
  uint8_t U8() {
    if (rest_.empty()) return 0;
    const uint8_t value = rest_.front();
    rest_ = rest_.subspan(1);
    return value;
  }
  uint16_t U16() { return static_cast<uint16_t>(U8() | U8() << 8); }
  uint32_t U32() { return U16() | static_cast<uint32_t>(U16()) << 16; }
  std::span<const uint8_t> Rest() const { return rest_; }
  bool Ended() const { return rest_.empty(); }

 private:
  std::span<const uint8_t> rest_;
};

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
  }
  platform::ServicePorts ports_;
};

}  // namespace vex::fuzz
