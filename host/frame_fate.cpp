// frame_fate.cpp - packing, naming and comparing.
#include "host/frame_fate.h"

#include <fmt/format.h>

#include <vector>

namespace vex::host {
namespace {

// The scopes of a refusal in 16 bits: their indexes are the frame's own port and VLAN, and a peer-link kind.
constexpr unsigned kPeerKindShift = 8, kVersion6Bit = 10;

uint16_t PackScopes(const ScopeList& scopes) {
  uint32_t packed = 0;
  for (const Scope& scope : scopes) {
    packed |= 1u << static_cast<uint32_t>(scope.kind);
    if (scope.kind == ScopeKind::kPeerLink) packed |= (scope.index & 3) << kPeerKindShift;
    if (scope.version == 6) packed |= 1u << kVersion6Bit;
  }
  return static_cast<uint16_t>(packed);
}

std::string ScopeNames(const FrameFate& fate) {
  std::string names;
  for (uint32_t kind = 0; kind <= static_cast<uint32_t>(ScopeKind::kPeerLinkOff); ++kind) {
    if ((fate.refused_by & 1u << kind) == 0) continue;
    Scope scope{static_cast<ScopeKind>(kind), 0, 0};
    if (scope.kind == ScopeKind::kInterface) scope.index = fate.port;
    if (scope.kind == ScopeKind::kVlan) scope.index = fate.vlan;
    if (scope.kind == ScopeKind::kPeerLink) scope.index = fate.refused_by >> kPeerKindShift & 3;
    if (!names.empty()) names += ", ";
    names += ScopeName(scope);
    if (scope.kind < ScopeKind::kDegrade)
      names += (fate.refused_by & 1u << kVersion6Bit) != 0 ? " v6" : " v4";
  }
  return names;
}

}  // namespace

Fate FrameFate::fate() const {
  if (verdict == Verdict::kNotPresented) return Fate::kNotPresented;
  if (delivered != 0) return Fate::kDelivered;
  if (refused == Refusal::kSnooping) return Fate::kSnooping;
  if (refused == Refusal::kPeerLink) return Fate::kPeerLink;
  return pkt_type == kPktTypeNone ? Fate::kNotWanted : Fate::kFailed;
}

std::string FrameFate::Describe() const {
  const std::string_view name = kFateNames[static_cast<size_t>(fate())];
  if (refused != Refusal::kNone) return fmt::format("{} ({})", name, ScopeNames(*this));
  if (delivered == 0) return std::string(name);
  return fmt::format("delivered to {}", ChannelNames(delivered));
}

std::string ChannelNames(uint16_t mask, std::string_view separator) {
  std::vector<uint32_t> channels;
  for (uint32_t channel = 0; channel < kServiceChannels; ++channel) {
    if ((mask & 1u << channel) != 0) channels.push_back(channel);
  }
  return fmt::format("{}", fmt::join(channels, separator));
}

FrameFate FateOf(const FrameOutcome& outcome) {
  FrameFate fate;
  fate.frame = outcome.frame;
  fate.seconds = outcome.time.seconds;
  fate.nanoseconds = outcome.time.nanoseconds;
  fate.port = outcome.port;
  fate.vlan = outcome.vlan;
  fate.app_type = outcome.app_type;
  fate.pkt_type = static_cast<uint8_t>(outcome.pkt_type);
  fate.verdict = outcome.verdict;
  fate.refused = outcome.refused;
  fate.refused_by = PackScopes(outcome.refused_by);
  uint32_t delivered = 0;
  for (const uint8_t channel : outcome.delivered) delivered |= 1u << channel;
  fate.delivered = static_cast<uint16_t>(delivered);
  return fate;
}

FateChange Between(const FrameFate& a, const FrameFate& b) {
  return {.verdict = a.verdict != b.verdict,
          .refused = a.refused != b.refused,
          .instance = a.refused == b.refused && a.delivered != b.delivered,
          .wanted = (a.pkt_type == kPktTypeNone) != (b.pkt_type == kPktTypeNone)};
}

}  // namespace vex::host
