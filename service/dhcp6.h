// dhcp6.h - DHCPv6 messages (RFC 8415): what snooping reads of them, and building replies.
// In:  the payload of a UDP datagram. Out: the innermost message as a view into it, or nothing when the
// message's own header, or a relay's on the way to it, is not whole.
#pragma once

#include <optional>
#include <string_view>

#include "service/binding.h"

namespace vex::service {

inline constexpr uint16_t kDhcp6ClientPort = 546;
inline constexpr uint16_t kDhcp6ServerPort = 547;

enum class Dhcp6Type : uint8_t {
  kSolicit = 1,
  kAdvertise = 2,
  kRequest = 3,
  kConfirm = 4,
  kRenew = 5,
  kRebind = 6,
  kReply = 7,
  kRelease = 8,
  kDecline = 9,
  kReconfigure = 10,
  kInformationRequest = 11,
  kRelayForward = 12,
  kRelayReply = 13,
};
std::string_view Name(Dhcp6Type type);  // "SOLICIT"; "DHCPv6 message" for types beyond these
bool IsFromServer(uint8_t type);        // by the IANA registry of message types

// An address or a prefix in an identity association.
struct Dhcp6Lease {
  BindingKind kind{};
  uint32_t iaid = 0;
  IpAddress address;
  uint8_t prefix_length = 128;
  uint32_t valid_seconds = 0;  // 0xFFFFFFFF: never ends
  uint16_t status = 0;         // of the lease, else of its association; 0: success
};

struct Dhcp6Message {
  uint8_t outer_type = 0;  // differs from the message's own when it is relayed
  Dhcp6Type type{};
  uint32_t xid = 0;   // 24 bits
  Bytes client_duid;  // empty: none
  Bytes server_duid;
  uint16_t status = 0;  // of the whole message; 0: success or none
  bool rapid_commit = false;
  std::vector<Dhcp6Lease> leases;
  std::vector<std::pair<BindingKind, uint32_t>> associations;  // kind and IAID, with or without leases
  bool relayed() const { return outer_type != static_cast<uint8_t>(type); }
};

// An option that does not lie whole inside its message or association ends the walk. At most 64 leases and
// associations are read, and 8 relays are followed (RFC 8415 HOP_COUNT_LIMIT).
std::optional<Dhcp6Message> ParseDhcp6(Bytes payload);

struct Dhcp6Reply {
  Dhcp6Type type{};
  Bytes server_duid;
  IpAddress prefix;   // what the leases of the answer are made from: its first eight bytes
  uint64_t host = 0;  // and their last eight
  uint32_t valid_seconds = 0;
};
// One lease per association of the request.
std::vector<uint8_t> BuildDhcp6Reply(const Dhcp6Message& request, const Dhcp6Reply& reply);
// The reply inside the relay headers that the request came in (RFC 8415 section 19.3), or as it is. `request`
// is a payload that ParseDhcp6 accepted.
std::vector<uint8_t> WrapLike(Bytes request, std::vector<uint8_t> reply);

}  // namespace vex::service
