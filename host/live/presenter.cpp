// presenter.cpp - see presenter.h.
#include "host/live/presenter.h"

#include <fmt/format.h>
#include <time.h>

#include <atomic>

#include "host/outcome.h"
#include "host/punt.h"
#include "platform/board.h"
#include "platform/channel.h"
#include "platform/packet.h"

namespace vex::host::live {
namespace {

constexpr uint32_t kHookTaken = 0x1000000, kHookTakeFailed = 0x10000000;
constexpr uint16_t kPriorityBits = 0xF000;

uint64_t NowNs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<uint64_t>(now.tv_sec) * 1'000'000'000 + static_cast<uint64_t>(now.tv_nsec);
}

// What the service must see is not switched past it.
bool MustBeSeen(uint8_t app_type) {
  return app_type == kAppDhcp4 || app_type == kAppDhcp6 || app_type == kAppIcmp6;
}

}  // namespace

Presenter::Result Presenter::Present(std::span<const uint8_t> frame, const ParsedFrame& parsed,
                                     const PortRecord& port) {
  const bool traced = trace_.Follows(port.index, parsed);
  Result result;
  if (parsed.app_type != kAppNone) result = Punt(frame, parsed, port, traced);
  if (traced) Tell(parsed, port, result);
  return result;
}

Presenter::Result Presenter::Punt(std::span<const uint8_t> frame, const ParsedFrame& parsed,
                                  const PortRecord& port, bool traced) {
  platform::PacketAttributes attr = AttributesOf(parsed, port);
  // The module and the service know a frame by the VLAN that the switch has it in, tagged or not.
  attr.vlanTag = static_cast<uint16_t>((parsed.vlan_tag & kPriorityBits) | VlanOf(parsed, port));
  platform::PacketPtr packet = platform::Packets().New(frame, attr);
  if (!packet) return {Fate::kNoBuffer, !MustBeSeen(parsed.app_type)};
  uint32_t take = 0;
  const bool wanted = view_.packet_type(packet.get(), &take) < kPktTypeNone;
  packet->attr.diagSwitch = traced ? 1 : 0;

  const uint32_t drops = attr.appPktType != 0 ? PeerLinkDrops() : 0;
  const uint64_t sent = platform::SendsOfThisThread();
  const uint64_t start = NowNs();
  const uint32_t verdict = platform::Hooks().Call(platform::HookTable::kHostPacketPoint, packet.get());
  latency_.Add(NowNs() - start);

  if (verdict == kHookTaken) {
    static_cast<void>(packet.release());  // a channel owns it, or it has been freed
    return {Fate::kDelivered, false};
  }
  if (verdict == kHookTakeFailed) return {Fate::kTakeFailed, false};
  if (!wanted) return {Fate::kNotWanted, true};
  if (take != 0) {
    // Wanted and not taken: refused, unless it stopped being wanted between the question and the hook.
    packet->attr.diagSwitch = 0;
    if (view_.packet_type(packet.get(), &take) >= kPktTypeNone) return {Fate::kNotWanted, true};
    return {WhyRefused(*packet, drops), false};
  }
  return {platform::SendsOfThisThread() != sent ? Fate::kDelivered : Fate::kCopyFailed, true};
}

uint32_t Presenter::PeerLinkDrops() const {
  uint32_t drops = 0;
  for (size_t kind = 0; kind < DHCP_PEER_KINDS; ++kind) {
    drops += std::atomic_ref(view_.peer_link[kind].period.dropCnt).load(std::memory_order_relaxed);
  }
  return drops;
}

// The gates do not say which of them refused. Only packets from the peer-link meet the second one, which
// counts its refusals, except those of a peer-link that is off.
Fate Presenter::WhyRefused(platform::Packet& packet, uint32_t peer_drops_before) {
  if (packet.attr.appPktType == 0) return Fate::kRefusedSnooping;
  const bool off = view_.switch_on(DHCP_CFG_MLAG_PEERLINK) != 1;
  if (!off && PeerLinkDrops() == peer_drops_before) return Fate::kRefusedSnooping;
  Count(peer_link_[off ? DHCP_PEER_KINDS : view_.peer_link_kind(&packet)]);
  return Fate::kRefusedPeerLink;
}

void Presenter::Tell(const ParsedFrame& parsed, const PortRecord& port, const Result& result) const {
  const FateRow row = RowOf(result.fate);
  log_(fmt::format("trace: port {} vlan {} {:02x} > {:02x} {} {}{}{}{}", port.name, VlanOf(parsed, port),
                   fmt::join(parsed.src_mac, ":"), fmt::join(parsed.dst_mac, ":"),
                   Name(KindOf(parsed.app_type)), Name(row.sum), row.reason.empty() ? "" : " ", row.reason,
                   result.goes_on ? ", switched" : ""));
}

}  // namespace vex::host::live
