// fuzz_hook.cpp - any frame with any attributes through the host hook and every exported predicate.
// In:  4 bytes switches and instances, 12 bytes attributes, the frame. The packet lies in a block of exactly
// its size.
#include "dhcp_vex_pkt.h"
#include "dhcp_vex_pkt_channel.h"
#include "dhcp_vex_pkt_diag.h"
#include "dhcp_vex_rate_limit_peerlink.h"
#include "fuzz/module_fixture.h"

namespace {

using namespace vex;

platform::PacketAttributes ReadAttributes(fuzz::Input& input) {
  constexpr uint8_t kAppTypes[] = {1, 10, 17, 28, 32, 0, 255, 2};
  platform::PacketAttributes attr;
  attr.appType = kAppTypes[input.U8() % 8];
  attr.appPktType = input.U8() % 4;
  attr.l2Length = input.U8();
  attr.protoType = input.U8() % 3;
  const uint8_t flags = input.U8();
  attr.management = flags & 1;
  attr.diagSwitch = flags >> 1 & 1;
  attr.l3Offset =
      (flags & 4) != 0 ? platform::PacketAttributes::kNoL3 : platform::PacketAttributes::kL3BehindL2;
  constexpr uint16_t kPorts[] = {67, 68, 546, 547};
  attr.l4DstPort = kPorts[flags >> 3 & 3];
  attr.l4SrcPort = input.U16();
  attr.vlanTag = input.U16();
  attr.ifIndex = input.U8();
  attr.causeAction = input.U16();
  return attr;
}

void AskEverything(OrbMbuf* pkt) {
  uint32_t take = 0;
  uint32_t length = 0;
  DhcpGetPktType(pkt, &take);
  DhcpIsIcmpv6PktNeed(pkt, &take);
  for (auto* ask :
       {DhcpIsArpPktNeed, DhcpIsIcmpPktNeed, DhcpIsDhcp4PktNeed, DhcpIsDhcp6PktNeed, DhcpIsNdSnpPkt,
        DhcpIsIcmpEhcoReply, DhcpIsIcmpv6EhcoReply, DhcpPktGetDhcpChnID, DhcpPktGetIcmpv6ChnIDNdSnp,
        DhcpPktGetIcmpv6ChnIDDhcpv6Snp, DhcpGetInstFromIcmpPkt, DhcpPktGetIcmpChnID, DhcpVexGetPktType}) {
    ask(pkt);
  }
  DhcpVexGetIpHead(pkt, &length);
  DhcpVexGetUdpHead(pkt, &length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::RunningModule& module = fuzz::RunningModule::Get();
  fuzz::Input input(data, size);
  const uint16_t switches = input.U16();
  const uint8_t instances = input.U8() % 7;
  const uint8_t diagnostics = input.U8();
  module.Configure(switches, instances);
  DhcpVexSetDbgSwitch(diagnostics & 1);
  g_dhcpPktDump = diagnostics >> 1 & 1;
  const platform::PacketAttributes attr = ReadAttributes(input);
  if (input.Rest().size() > 2048) return 0;
  platform::PacketPtr packet = platform::Packets().NewExact(input.Rest(), attr, 24);
  AskEverything(packet.get());
  if (DhcpHostHookCallback(packet.get()) == DHCP_HOOK_TAKEN) packet.release();
  packet.reset();
  module.EmptyChannels();
  module.RequireNoPackets();
  return 0;
}
