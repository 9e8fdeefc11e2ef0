// address.h - hardware and IP addresses as values, and their text forms.
// In:  bytes in network byte order, or text. Out: comparable, hashable values; text as people write it.
#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "service/bytes.h"

namespace vex::service {

using MacAddress = std::array<uint8_t, 6>;

constexpr bool IsGroup(const MacAddress& mac) { return (mac[0] & 1) != 0; }

struct IpAddress {
  bool v6 = false;
  std::array<uint8_t, 16> bytes{};  // network byte order; IPv4 in the first four, the rest zero

  static IpAddress V4(uint32_t host_order);
  static std::optional<IpAddress> From4(Bytes four);
  static std::optional<IpAddress> From6(Bytes sixteen);
  bool IsZero() const { return bytes == std::array<uint8_t, 16>{}; }
  friend auto operator<=>(const IpAddress&, const IpAddress&) = default;
};

MacAddress MacFrom(Bytes bytes);  // the first six; missing ones are zero

std::string ToText(const MacAddress& mac);  // "02:00:00:00:00:0b"
std::string ToText(const IpAddress& address);
std::string ToHex(Bytes bytes);  // "00030001...", no separators
std::optional<MacAddress> ParseMac(std::string_view text);
std::optional<IpAddress> ParseIp(std::string_view text);
std::optional<std::vector<uint8_t>> ParseHex(std::string_view text);

}  // namespace vex::service
