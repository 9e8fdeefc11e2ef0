// fuzz_hook.cpp - any frame with any attributes through the host hook and every exported predicate.
// In:  4 bytes switches, capabilities and options, 12 bytes attributes, what the options ask for, the frame.
// The packet lies in a block of exactly its size. Out: channels and probe digits within their ranges, every
// packet freed; or an abort.
#include <algorithm>
#include <string_view>
#include <vector>

#include "dhcp_vex_pkt.h"
#include "dhcp_vex_pkt_channel.h"
#include "dhcp_vex_pkt_classify.h"
#include "dhcp_vex_pkt_deliver.h"
#include "dhcp_vex_rate_limit_peerlink.h"
#include "fuzz/module_fixture.h"

namespace {

using namespace vex;
using fuzz::Require;

enum Option : uint8_t {
  kDebug = 1,
  kDump = 2,
  kFault = 4,      // 2 bytes follow: which import fails, and when
  kNoBuffer = 8,   // the packet has no data buffer
  kLimited = 16,   // no packet is within its budget
  kMarker = 32,    // a byte follows: how much of the link-probe marker lies in the payload
  kNdIgnored = 64  // the classification passes the packet by
};

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

void Configure(fuzz::RunningModule& module, uint16_t switches, uint8_t capabilities, uint8_t options) {
  module.Configure(switches, capabilities % 7);
  g_dhcpVexSpecs[DHCP_SPEC_NO_CHECK_CFG].value = capabilities / 7 % 2;
  g_dhcpVexSpecs[DHCP_SPEC_CAUSID_TYPE].value = capabilities / 14 % 3;
  DhcpVexSetDbgSwitch(options & kDebug);
  g_dhcpPktDump = options & kDump;
  const bool limited = (options & kLimited) != 0;
  for (const uint32_t version : {0u, 12u}) {
    DhcpVexSaveSnpCfg(limited ? 1 : 0, version, 0);
    DhcpVexSaveSnpCfg(limited ? 0 : DHCP_SNP_SPEED_UNLIMITED, version + 1, 0);
  }
}

// An echo reply's payload starts 28 bytes into L3, where the marker of the link probe is searched.
void PutMarker(std::vector<uint8_t>& frame, size_t l3At, uint8_t length) {
  constexpr std::string_view kMarker = "Quor DHCP lnkprobemarkerz";
  const size_t at = l3At + 28;
  const size_t wanted = length % (kMarker.size() + 1);
  if (at < frame.size())
    std::copy_n(kMarker.begin(), std::min(wanted, frame.size() - at), frame.begin() + static_cast<long>(at));
}

// The two exports that other modules spread clients with.
void RequireHash(std::vector<uint8_t>& datagram) {
  constexpr uint32_t kChaddrEnd = 42;  // 8 bytes of UDP header, 28 of fixed fields, the six (RFC 2131)
  if (datagram.size() < kChaddrEnd) return;
  uint8_t* key = nullptr;
  uint32_t length = 0;
  DhcpGetChaddr(datagram.data(), &key, &length);
  Require(key + length == datagram.data() + kChaddrEnd, "a hardware address lies in its datagram");
  Require(DhcpPktDistributeHashCal(key, length) <= 0x7FFFFFFF, "a hash has 31 bits");
}

void RequireChannels(OrbMbuf* pkt) {
  const uint32_t digit = DhcpGetInstFromIcmpPkt(pkt);
  Require(digit <= 9 || digit == DHCP_NONE, "a digit or none");
  for (const uint32_t channel :
       {DhcpPktGetIcmpChnID(pkt), DhcpPktGetDhcpChnID(pkt), DhcpPktGetIcmpv6ChnID(pkt),
        DhcpPktGetIcmpv6ChnIDNdSnp(pkt), DhcpPktGetIcmpv6ChnIDDhcpv6Snp(pkt)}) {
    Require(channel <= 15 || channel == DHCP_CHN_ALL_ICMP || channel == DHCP_NONE, "a channel, all or none");
  }
}

void AskEverything(OrbMbuf* pkt) {
  uint32_t take = 0;
  uint32_t length = 0;
  DhcpGetPktType(pkt, &take);
  DhcpIsIcmpv6PktNeed(pkt, &take);
  for (auto* ask : {DhcpIsArpPktNeed, DhcpIsIcmpPktNeed, DhcpIsDhcp4PktNeed, DhcpIsRequestPktNeed,
                    DhcpIsReplyPktNeed, DhcpIsDhcp6PktNeed, DhcpIsV6RequestPktNeed, DhcpIsV6ReplyPktNeed,
                    DhcpIsNdSnpPkt, DhcpIsIcmpEhcoReply, DhcpIsIcmpv6EhcoReply}) {
    Require(ask(pkt) <= 1, "wanted or not");
  }
  DhcpVexGetPktType(pkt);
  RequireChannels(pkt);
  DhcpVexGetIpHead(pkt, &length);
  DhcpVexGetUdpHead(pkt, &length);
  DhcpDiagDumpPacket(pkt, 14, DHCP_DIAG_SEND);
}

// What the module's timers send takes the same way to the service.
void SendInner(std::span<const uint8_t> bytes) {
  const auto length = static_cast<uint32_t>(std::min<size_t>(bytes.size(), 64));
  DhcpVexSendInnerMsgToDhcp(bytes.data(), length);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  fuzz::RunningModule& module = fuzz::RunningModule::Get();
  fuzz::Input input(data, size);
  const uint16_t switches = input.U16();
  const uint8_t capabilities = input.U8();
  const uint8_t options = input.U8();
  Configure(module, switches, capabilities, options);
  platform::PacketAttributes attr = ReadAttributes(input);
  attr.ndHookIgnore = (options & kNdIgnored) != 0 ? 1 : 0;
  if ((options & kFault) != 0) fuzz::ArmFault(input);
  const uint8_t marker = (options & kMarker) != 0 ? input.U8() : 0;
  if (input.Rest().size() > 2048) return 0;
  std::vector<uint8_t> frame(input.Rest().begin(), input.Rest().end());
  PutMarker(frame, attr.l2Length, marker);
  platform::PacketPtr packet = (options & kNoBuffer) != 0 ? platform::Packets().NewWithoutBuffer(attr)
                                                          : platform::Packets().NewExact(frame, attr, 24);
  AskEverything(packet.get());
  RequireHash(frame);
  if (DhcpHostHookCallback(packet.get()) == DHCP_HOOK_TAKEN) static_cast<void>(packet.release());
  SendInner(frame);
  platform::Faults().DisarmAll();
  packet.reset();
  module.EmptyChannels();
  module.RequireNoPackets();
  return 0;
}
