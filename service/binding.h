// binding.h - one binding: who may use which address or prefix, on which port and VLAN, until when.
// In:  completed DHCP exchanges, saved files. Out: a value that is announced, listed and saved.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "service/address.h"

namespace vex::service {

enum class BindingKind : uint8_t { kDhcp4 = 1, kNonTemporary = 2, kTemporary = 3, kPrefix = 4 };
std::string_view Name(BindingKind kind);  // "v4", "ia_na", "ia_ta", "ia_pd"
std::optional<BindingKind> ParseBindingKind(std::string_view name);

enum class BindingChange : uint8_t {
  kMade = 1,
  kRenewed = 2,   // a new lease end, possibly another port
  kRestored = 3,  // known from before a restart
  kReleased = 4,  // this and the following remove it
  kDeclined = 5,
  kRefused = 6,  // the server said NAK, or gave the address a lifetime of 0
  kExpired = 7,
  kReplaced = 8,  // another client was given the address
};
std::string_view Name(BindingChange change);
constexpr bool Removes(BindingChange change) { return change >= BindingChange::kReleased; }

inline constexpr uint64_t kNoLeaseEnd = UINT64_MAX;
inline constexpr size_t kMaxDuid = 130;  // RFC 8415 section 11.1: two bytes of type and at most 128 more

struct Binding {
  BindingKind kind = BindingKind::kDhcp4;
  IpAddress address;
  uint8_t prefix_length = 32;  // 32 and 128 for addresses
  uint16_t vlan = 0;           // 0: untagged
  uint32_t port = 0;           // interface index
  MacAddress mac{};            // DHCPv4: the client hardware address; DHCPv6: source of the client's frames
  std::vector<uint8_t> duid;   // DHCPv6 only, at most kMaxDuid bytes
  uint64_t lease_end = 0;      // seconds since the epoch; kNoLeaseEnd: never
  friend bool operator==(const Binding&, const Binding&) = default;
};

// Whether both name the same lease: address or prefix, VLAN and client.
bool SameLease(const Binding& a, const Binding& b);
constexpr bool HasEnded(uint64_t lease_end, int64_t now_ns) {
  return lease_end != kNoLeaseEnd && now_ns >= 0 &&
         static_cast<uint64_t>(now_ns) / 1'000'000'000 >= lease_end;
}

}  // namespace vex::service
