// address.cpp - addresses between bytes and text.
// In:  bytes or text of any length. Out: values, or nothing for what is no address.
#include "service/address.h"

#include <arpa/inet.h>
#include <fmt/format.h>

#include <charconv>

namespace vex::service {
namespace {

std::optional<uint8_t> HexByte(std::string_view two) {
  uint8_t value = 0;
  const auto [end, error] = std::from_chars(two.data(), two.data() + two.size(), value, 16);
  if (two.size() != 2 || error != std::errc() || end != two.data() + two.size()) return std::nullopt;
  return value;
}

}  // namespace

IpAddress IpAddress::V4(uint32_t host_order) {
  IpAddress address;
  for (size_t i = 0; i < 4; ++i) address.bytes[i] = static_cast<uint8_t>(host_order >> (24 - 8 * i));
  return address;
}

std::optional<IpAddress> IpAddress::From4(Bytes four) {
  if (four.size() != 4) return std::nullopt;
  IpAddress address;
  std::copy(four.begin(), four.end(), address.bytes.begin());
  return address;
}

std::optional<IpAddress> IpAddress::From6(Bytes sixteen) {
  if (sixteen.size() != 16) return std::nullopt;
  IpAddress address{.v6 = true};
  std::copy(sixteen.begin(), sixteen.end(), address.bytes.begin());
  return address;
}

MacAddress MacFrom(Bytes bytes) {
  MacAddress mac{};
  std::copy_n(bytes.begin(), std::min(bytes.size(), mac.size()), mac.begin());
  return mac;
}

std::string ToText(const MacAddress& mac) { return fmt::format("{:02x}", fmt::join(mac, ":")); }

std::string ToText(const IpAddress& address) {
  char text[INET6_ADDRSTRLEN] = "";
  inet_ntop(address.v6 ? AF_INET6 : AF_INET, address.bytes.data(), text, sizeof(text));
  return text;
}

std::string ToHex(Bytes bytes) { return fmt::format("{:02x}", fmt::join(bytes, "")); }

std::optional<MacAddress> ParseMac(std::string_view text) {
  MacAddress mac;
  if (text.size() != 17) return std::nullopt;
  for (size_t i = 0; i < mac.size(); ++i) {
    const std::optional<uint8_t> byte = HexByte(text.substr(3 * i, 2));
    if (!byte || (i > 0 && text[3 * i - 1] != ':')) return std::nullopt;
    mac[i] = *byte;
  }
  return mac;
}

std::optional<IpAddress> ParseIp(std::string_view text) {
  if (text.find('\0') != std::string_view::npos) return std::nullopt;  // the C library would stop there
  const std::string terminated(text);
  IpAddress address{.v6 = terminated.find(':') != std::string::npos};
  if (inet_pton(address.v6 ? AF_INET6 : AF_INET, terminated.c_str(), address.bytes.data()) != 1)
    return std::nullopt;
  return address;
}

std::optional<std::vector<uint8_t>> ParseHex(std::string_view text) {
  if (text.size() % 2 != 0) return std::nullopt;
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i < text.size(); i += 2) {
    const std::optional<uint8_t> byte = HexByte(text.substr(i, 2));
    if (!byte) return std::nullopt;
    bytes.push_back(*byte);
  }
  return bytes;
}

}  // namespace vex::service
