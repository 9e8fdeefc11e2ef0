// punt.cpp - packet attributes from the parse, the questions to the module, the hook, the channels behind it.
#include "host/punt.h"

#include "platform/board.h"
#include "platform/channel.h"
#include "service/channel_plan.h"

namespace vex::host {
namespace {

constexpr uint32_t kAppPktTypePeerLink = 2;
constexpr uint32_t kNoChannel = 0xFFFFFFFF;
constexpr uint32_t kHookTaken = 0x1000000, kHookTakeFailed = 0x10000000;
constexpr size_t kAcceptedPackets = 0;  // the counter of packets that the hook hands on

}  // namespace

platform::PacketAttributes AttributesOf(const ParsedFrame& parsed, const PortRecord& port) {
  platform::PacketAttributes attr;
  attr.appType = parsed.app_type;
  attr.appPktType = port.peer_link ? kAppPktTypePeerLink : 0;
  attr.ifIndex = port.index;
  attr.causeAction = port.cause;
  attr.l2Length = parsed.l2_length;
  attr.protoType = parsed.proto_type;
  attr.management = port.management ? 1 : 0;
  attr.l4SrcPort = parsed.l4_src_port;
  attr.l4DstPort = parsed.l4_dst_port;
  attr.vlanTag = parsed.vlan_tag;
  attr.dstMac = parsed.dst_mac;
  attr.ingressPort = port.index;
  return attr;
}

Question Ask(const ModuleView& view, OrbMbuf* packet, bool want_channel) {
  const Silence silence(view.debug_switch);
  Question answer;
  uint32_t take = 0;
  answer.pkt_type = view.packet_type(packet, &take);
  answer.take = take != 0;
  if (!want_channel || answer.pkt_type >= kPktTypeNone) return answer;
  const uint32_t channel = view.channel(packet, answer.pkt_type);
  if (channel != kNoChannel) answer.channel = channel;
  return answer;
}

Punted Punt(const ModuleView& view, platform::PacketPtr packet) {
  Punted result;
  const uint64_t before = view.stats[kAcceptedPackets];
  const uint32_t verdict = platform::Hooks().Call(platform::HookTable::kHostPacketPoint, packet.get());
  result.accepted = view.stats[kAcceptedPackets] != before;
  if (verdict == kHookTaken) {
    static_cast<void>(packet.release());  // a channel owns it, or it has been freed
    result.verdict = Verdict::kTaken;
  } else if (verdict == kHookTakeFailed) {
    result.verdict = Verdict::kTakeFailed;
  }
  return result;
}

ServiceEnd::ServiceEnd(InnerMessage on_inner)
    : ports_(platform::OpenServicePorts()), on_inner_(std::move(on_inner)) {}

void ServiceEnd::Collect(DeliveredList& delivered) {
  if (platform::SendsOfThisThread() == sends_seen_) return;
  for (uint8_t number = 0; number < service::kInnerChannel; ++number) {
    platform::Channel& channel = *ports_.channels[number];
    if (channel.Size() == 0) continue;
    if (tap_) Show(number);
    received_[number] += channel.Drain();
    delivered.Add(number);
  }
  CollectInner();
  sends_seen_ = platform::SendsOfThisThread();
}

void ServiceEnd::Show(uint8_t number) {
  while (const platform::PacketPtr message = ports_.channels[number]->Receive()) {
    ++received_[number];
    tap_(number, message->Bytes());
  }
}

void ServiceEnd::CollectInner() {
  platform::Channel& channel = *ports_.channels[service::kInnerChannel];
  while (channel.Size() != 0) {
    const platform::PacketPtr message = channel.Receive();
    if (!message) break;
    ++received_[service::kInnerChannel];
    on_inner_(message->Bytes());
  }
}

}  // namespace vex::host
