// fuzz_return.cpp - any bytes on the return channel.
// In:  messages, each a length byte pair and its bytes; they lie in blocks of exactly their size.
// Out: every message consumed, no packet left, or an abort.
#include <algorithm>

#include "dhcp_vex_api_event.h"
#include "dhcp_vex_pkt.h"
#include "dhcp_vex_pkt_return.h"
#include "fuzz/module_fixture.h"
#include "platform/channel_events.h"
#include "platform/egress.h"

namespace {

using namespace vex;

uint32_t ReadBody(void* body, void* /*again*/) { return *static_cast<const uint8_t*>(body); }

platform::Channel& ReturnChannel() {
  static platform::Channel* const channel = [] {
    fuzz::RunningModule::Get();
    DhcpVexEventCallBackReg(DHCP_EVENT_USER_BIND, ReadBody);
    platform::Egress().SetPublishSink(
        [](platform::PacketPtr, const HostEgressDesc&, uint32_t) { return 0u; });
    platform::Egress().SetUploadSink([](platform::PacketPtr) { return 0u; });
    return platform::Channels().ById(g_dhcpToVexChn);
  }();
  return *channel;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  platform::Channel& channel = ReturnChannel();
  fuzz::Input input(data, size);
  while (!input.Ended()) {
    const uint8_t flags = input.U8();
    const size_t wanted = input.U16() % 600;
    const size_t length = std::min(wanted, input.Rest().size());
    platform::PacketAttributes attr;
    attr.appPktType = flags & 1;
    attr.diagSwitch = flags >> 1 & 1;
    platform::PacketPtr packet = (flags & 4) != 0
                                     ? platform::Packets().NewWithoutBuffer(attr)
                                     : platform::Packets().NewExact(input.Rest().first(length), attr);
    for (size_t i = 0; i < length; ++i) input.U8();
    channel.Send(packet);
  }
  platform::Events().Write(DHCP_RETURN_CHANNEL_EVENT);
  platform::Events().RunUntilIdle();
  fuzz::Require(channel.Size() == 0, "the channel is drained");
  fuzz::Require(g_dhcpPktLogVexBarrier == 0, "the barrier is free");
  fuzz::RunningModule::Get().RequireNoPackets();
  return 0;
}
