// dhcp4.h - DHCPv4 messages (RFC 2131, options RFC 2132): what snooping reads of them, and building replies.
// In:  the payload of a UDP datagram. Out: a view into it, or nothing when its fixed part is not whole.
#pragma once

#include <optional>
#include <string_view>

#include "service/address.h"

namespace vex::service {

inline constexpr uint16_t kDhcp4ServerPort = 67;
inline constexpr uint16_t kDhcp4ClientPort = 68;
inline constexpr uint8_t kBootRequest = 1;
inline constexpr uint8_t kBootReply = 2;

enum class Dhcp4Type : uint8_t {
  kNone = 0,  // plain BOOTP, or an unreadable option field
  kDiscover = 1,
  kOffer = 2,
  kRequest = 3,
  kDecline = 4,
  kAck = 5,
  kNak = 6,
  kRelease = 7,
  kInform = 8,
};
std::string_view Name(Dhcp4Type type);  // "DHCPOFFER"; "DHCP message" for types beyond these

struct Dhcp4Message {
  uint8_t op = 0;
  uint32_t xid = 0;
  Bytes chaddr;  // client hardware address: hlen bytes, 0 to 16
  IpAddress ciaddr, yiaddr, siaddr, giaddr;
  Dhcp4Type type = Dhcp4Type::kNone;      // option 53
  std::optional<uint32_t> lease_seconds;  // option 51; 0xFFFFFFFF: never ends
  std::optional<IpAddress> server_id;     // option 54
  std::optional<IpAddress> requested;     // option 50
  Bytes client_id;                        // option 61; empty: none
};

// The options are those of the option field and, as option 52 says, of the file and sname fields; the first
// of several with one code counts. An option that does not lie whole inside its field ends that field.
std::optional<Dhcp4Message> ParseDhcp4(Bytes payload);

struct Dhcp4Reply {
  Dhcp4Type type{};
  IpAddress yiaddr, server;
  uint32_t lease_seconds = 0;
  uint32_t netmask = 0xFFFFFF00;
};
// `request` is a payload that ParseDhcp4 accepted; its fixed fields are repeated. At least 300 bytes, as RFC
// 1542 asks for.
std::vector<uint8_t> BuildDhcp4Reply(Bytes request, const Dhcp4Reply& reply);

}  // namespace vex::service
