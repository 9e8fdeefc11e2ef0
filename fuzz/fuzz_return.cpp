// fuzz_return.cpp - any bytes on the return channel of a device with pseudo-wires and both optional
// libraries. In:  messages, each a byte of flags, a length and its bytes; they lie in blocks of exactly their
// size. Of the tunnels 1 to 6 each gets one step further in its look-ups than the one before. Out: every
// message consumed, no packet or database handle left, or an abort.
#include <algorithm>

#include "dhcp_vex_api_event.h"
#include "dhcp_vex_egress_db_dynso.h"
#include "dhcp_vex_pkt.h"
#include "dhcp_vex_pkt_return.h"
#include "fuzz/module_fixture.h"
#include "platform/channel_events.h"
#include "platform/egress.h"
#include "platform/objects.h"

namespace {

using namespace vex;

enum Flag : uint8_t { kByMlag = 1, kDiagnosed = 2, kNoBuffer = 4, kFault = 8, kDebug = 16 };

// Reads the message's first byte. A drain that starts while this one runs leaves its messages alone.
uint32_t ReadBody(void* body, void* /*again*/) {
  Dhcp2VexChnEvtCallback();
  return *static_cast<const uint8_t*>(body);
}

void FillTables() {
  constexpr uint32_t kVlan = 100;
  platform::ObjectTables& tables = platform::Objects();
  for (uint32_t id = 1; id <= 6; ++id) tables.SetTunnel(id, 0, {10 + id, 0x0A000000 + id});
  tables.SetInterfaceVlan(10 + 2, 4095);
  for (uint32_t id = 3; id <= 6; ++id) tables.SetInterfaceVlan(10 + id, kVlan);
  for (uint32_t id = 4; id <= 6; ++id) tables.SetArp(0x0A000000 + id, 10 + id, 20 + id);
  DhcpVexSaveSnpCfg(20 + 5, 25, kVlan);  // trusted in its VLAN
  DhcpVexSaveSnpCfg(1, 24, 20 + 6);      // trusted everywhere
}

void BindLibraries() {
  g_dhcp_db_create_arp_obj = reinterpret_cast<void*>(VexPlatformArpCreate);
  g_dhcp_db_release_arp_object = reinterpret_cast<void*>(VexPlatformArpRelease);
  g_db_get_arp_work_if_index = reinterpret_cast<void*>(VexPlatformArpGetWorkIfIndex);
  g_dhcp_mlag_vex_hookEgress = reinterpret_cast<void*>(VexPlatformMlagSend);
}

platform::Channel& ReturnChannel() {
  static platform::Channel* const channel = [] {
    fuzz::RunningModule::Get();
    FillTables();
    BindLibraries();
    DhcpVexEventCallBackReg(DHCP_EVENT_USER_BIND, ReadBody);
    platform::Egress().SetPublishSink(
        [](platform::PacketPtr, const HostEgressDesc&, uint32_t) { return 0u; });
    platform::Egress().SetUploadSink([](platform::PacketPtr) { return 0u; });
    return platform::Channels().ById(g_dhcpToVexChn);
  }();
  return *channel;
}

// Answers whether an import was told to fail.
bool SendMessage(platform::Channel& channel, fuzz::Input& input) {
  const uint8_t flags = input.U8();
  if ((flags & kFault) != 0) fuzz::ArmFault(input);
  if ((flags & kDebug) != 0) DhcpVexSetDbgSwitch(1);
  const size_t wanted = input.U16() % 600;
  const size_t length = std::min(wanted, input.Rest().size());
  platform::PacketAttributes attr;
  attr.appPktType = flags & kByMlag;
  attr.diagSwitch = flags & kDiagnosed;
  platform::PacketPtr packet = (flags & kNoBuffer) != 0
                                   ? platform::Packets().NewWithoutBuffer(attr)
                                   : platform::Packets().NewExact(input.Rest().first(length), attr);
  for (size_t i = 0; i < length; ++i) input.U8();
  channel.Send(packet);
  return (flags & kFault) != 0;
}

void Drain() {
  platform::Events().Write(DHCP_RETURN_CHANNEL_EVENT);
  platform::Events().RunUntilIdle();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  platform::Channel& channel = ReturnChannel();
  fuzz::Input input(data, size);
  DhcpVexSetDbgSwitch(0);
  bool faulty = false;
  while (!input.Ended()) faulty |= SendMessage(channel, input);
  Drain();
  platform::Faults().DisarmAll();
  if (faulty) Drain();  // what a failed receive or event left behind
  platform::Objects().TakeMlagSends();
  fuzz::Require(channel.Size() == 0, "the channel is drained");
  fuzz::Require(g_dhcpPktLogVexBarrier == 0, "the barrier is free");
  fuzz::Require(platform::Objects().LiveHandles() == 0, "every database handle is released");
  fuzz::RunningModule::Get().RequireNoPackets();
  return 0;
}
