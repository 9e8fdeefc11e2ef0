// data_plane.h - what the forwarding hardware already knows of a frame when it punts it.
// In:  the bytes of one Ethernet frame. Out: application type, header lengths, ports, outer tag, MAC
// addresses. A pure function over the bytes given: it keeps nothing, allocates nothing and reads nothing
// outside them. It does not know whether the frame came from a file or from a live port.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

namespace vex::host {

using MacAddress = std::array<uint8_t, 6>;

// The framework's application types; every other value means "none of ours".
inline constexpr uint8_t kAppNone = 0;
inline constexpr uint8_t kAppArp = 1;
inline constexpr uint8_t kAppIcmp = 10;
inline constexpr uint8_t kAppDhcp4 = 17;
inline constexpr uint8_t kAppIcmp6 = 28;
inline constexpr uint8_t kAppDhcp6 = 32;
std::string_view AppTypeName(size_t type);  // "other" for kAppNone and what else is not punted

// The framework's protocol types.
inline constexpr uint32_t kProtoIpv4 = 0;
inline constexpr uint32_t kProtoIpv6 = 1;
inline constexpr uint32_t kProtoOther = 2;

struct ParsedFrame {
  uint8_t app_type = kAppNone;
  uint8_t l2_length = 0;              // 14, 18 or 22, or the frame's length when that is less than 14
  uint8_t tags = 0;                   // 0 to 2
  uint32_t proto_type = kProtoOther;  // from the ethertype alone
  uint16_t ethertype = 0;             // behind the tags, host byte order
  uint16_t vlan_tag = 0;              // outer tag control word, host byte order; 0 when untagged
  uint16_t l4_src_port = 0;           // host byte order; 0 unless UDP ports were read
  uint16_t l4_dst_port = 0;
  MacAddress dst_mac{};
  MacAddress src_mac{};

  uint16_t vlan_id() const { return vlan_tag & 0x0FFF; }
  size_t l3_offset() const { return l2_length; }
};

ParsedFrame ParseFrame(std::span<const uint8_t> frame);

}  // namespace vex::host
