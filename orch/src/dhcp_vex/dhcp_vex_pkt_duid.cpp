// dhcp_vex_pkt_duid.cpp - walks DHCPv6 options to the client's DUID and cuts the hash key out of it (RFC
// 8415). In:  bounded views of a datagram. Out: narrower views. No state, no framework. All bounds are the
// datagram's: an inner message ends where the datagram ends, not where the option that carries it does.
#include "dhcp_vex_pkt_duid.h"

#include "dhcp_vex_pkt_channel.h"

using namespace dhcp_vex;

namespace {

constexpr size_t kUdpHeader = 8;
constexpr size_t kOptionHeader = 4;
constexpr size_t kOptionsOfMessage = 4;   // behind the type and the transaction id
constexpr size_t kOptionsOfRelay = 34;    // behind type, hop count, link and peer address
constexpr size_t kMinRelayDatagram = 47;  // anything shorter has no room for an option with data
constexpr size_t kMinMessage = 9;         // a message with less has no option with data
constexpr uint16_t kOptClientId = 1;
constexpr uint16_t kOptRelayMsg = 9;
constexpr uint8_t kRelayForward = 12;
constexpr uint8_t kRelayReply = 13;
constexpr uint16_t kDuidLinkLayerTime = 1;
constexpr uint16_t kDuidEnterprise = 2;
constexpr uint16_t kDuidLinkLayer = 3;
constexpr size_t kDuidTypeSize = 2;
constexpr size_t kMacSize = 6;
constexpr size_t kUdpLengthAt = 4;  // RFC 768

// A bare UDP header becomes a span at once, by its own length field.
Bytes UdpDatagram(uint8_t* udp) {
  if (udp == nullptr) return {};
  return {udp, *U16(Bytes(udp, kUdpHeader), kUdpLengthAt)};
}

bool IsRelay(Bytes message) {
  const std::optional<uint8_t> type = U8(message, 0);
  return type == kRelayForward || type == kRelayReply;
}

// The first option with this code: `data` is what the option holds, `rest` reaches from there to the end of
// the view. An option that does not lie whole inside the view ends the walk.
struct FoundOption {
  Bytes data;
  Bytes rest;
};

std::optional<FoundOption> FindOption(Bytes options, uint16_t wanted) {
  while (const std::optional<uint16_t> code = U16(options, 0)) {
    const std::optional<uint16_t> length = U16(options, 2);
    if (!length || *length > options.size() - kOptionHeader) return std::nullopt;
    const Bytes rest = options.subspan(kOptionHeader);
    if (*code == wanted) return FoundOption{rest.first(*length), rest};
    options = rest.subspan(*length);
  }
  return std::nullopt;
}

std::optional<Bytes> RelayedMessage(Bytes relay) {
  const auto option = FindOption(From(relay, kOptionsOfRelay), kOptRelayMsg);
  return option ? std::optional(option->rest) : std::nullopt;
}

}  // namespace

Bytes dhcp_vex::InnermostMessage(Bytes message) {
  while (IsRelay(message)) {
    const std::optional<Bytes> inner = RelayedMessage(message);
    if (!inner) break;
    message = *inner;
  }
  return message;
}

std::optional<Bytes> dhcp_vex::FindDuid(Bytes datagram) {
  Bytes message = From(datagram, kUdpHeader);
  if (IsRelay(message)) {
    if (datagram.size() < kMinRelayDatagram) return std::nullopt;
    const std::optional<Bytes> inner = RelayedMessage(message);
    if (!inner) return std::nullopt;  // only the outermost relay message must carry one
    message = InnermostMessage(*inner);
  }
  if (message.size() < kMinMessage) return std::nullopt;
  const auto option = FindOption(message.subspan(kOptionsOfMessage), kOptClientId);
  return option ? std::optional(option->data) : std::nullopt;
}

std::optional<Bytes> dhcp_vex::DuidKey(Bytes duid) {
  if (duid.empty()) return std::nullopt;
  if (duid.size() <= kDuidTypeSize) return duid;  // nothing behind the type to choose from
  switch (*U16(duid, 0)) {
    case kDuidLinkLayerTime:
      return Part(duid, 8, kMacSize);
    case kDuidEnterprise:
      return duid.size() > 6 ? std::optional(duid.subspan(6)) : std::nullopt;
    case kDuidLinkLayer:
      return Part(duid, 4, kMacSize);
    default:
      return duid;
  }
}

void DhcpPktGetDUID(uint8_t* udp, uint8_t** duid, uint32_t* duidLength) {
  const std::optional<Bytes> found = FindDuid(UdpDatagram(udp));
  if (!found) return;
  *duid = found->data();
  *duidLength = static_cast<uint32_t>(found->size());
}

void Dhcpv6PktGetHashKey(uint8_t* udp, uint8_t** key, uint32_t* keyLength) {
  const std::optional<Bytes> duid = FindDuid(UdpDatagram(udp));
  if (duid) DhcpGetDistributeHashKeyByDUID(duid->data(), static_cast<uint32_t>(duid->size()), key, keyLength);
}

void DhcpGetDistributeHashKeyByDUID(uint8_t* duid, uint32_t duidLength, uint8_t** key, uint32_t* keyLength) {
  const std::optional<Bytes> found = DuidKey(duid == nullptr ? Bytes() : Bytes(duid, duidLength));
  if (!found) return;
  *key = found->data();
  *keyLength = static_cast<uint32_t>(found->size());
}

uint8_t* DhcpPktGetDhcpv6HeadFromRelayMsgOpt(uint8_t* optionHeader, uint8_t* end) {
  if (optionHeader == nullptr) return nullptr;
  uint8_t* message = optionHeader + kOptionHeader;
  if (end == nullptr || message >= end) return message;
  return InnermostMessage(Bytes(message, end)).data();
}
