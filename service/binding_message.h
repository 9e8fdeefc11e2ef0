// binding_message.h - the body of a user-binding message (kind 32 of the return channel).
// In:  a change of a binding, from the service. Out: the same change, at the callback that is registered with
// the module for event type 0 (DHCP_EVENT_USER_BIND), which gets the address of this record and nothing else:
// hence a record of fixed size that names itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <type_traits>

#include "service/binding.h"

namespace vex::service {

// Host byte order; addresses in network byte order. Copied in and out, never cast: a body has any alignment.
struct BindingMessage {
  uint32_t magic;         // kBindingMagic
  uint16_t length;        // sizeof(BindingMessage)
  uint8_t change;         // BindingChange
  uint8_t kind;           // BindingKind
  uint32_t port;          // interface index
  uint16_t vlan;          // 0: untagged
  uint8_t prefix_length;  // 32 and 128 for addresses
  uint8_t duid_length;    // 0 for DHCPv4
  uint64_t lease_end;     // seconds since the epoch; UINT64_MAX: never
  uint64_t time;          // nanoseconds since the epoch at which the change was seen
  uint8_t address[16];    // IPv4 in the first four bytes, the rest zero
  uint8_t mac[6];
  uint8_t duid[kMaxDuid];  // duid_length bytes, the rest zero
};
static_assert(sizeof(BindingMessage) == 184 && std::is_trivially_copyable_v<BindingMessage>);
static_assert(offsetof(BindingMessage, lease_end) == 16 && offsetof(BindingMessage, address) == 32);
static_assert(offsetof(BindingMessage, mac) == 48 && offsetof(BindingMessage, duid) == 54);
inline constexpr uint32_t kBindingMagic = 0x31424E44;  // "DNB1" in memory, little-endian

struct BindingEvent {
  BindingChange change = BindingChange::kMade;
  Binding binding;
  int64_t time_ns = 0;
};

BindingMessage Encode(const BindingEvent& event);
// Nothing when the bytes are too few or are no such record.
std::optional<BindingEvent> DecodeBinding(Bytes body);

}  // namespace vex::service
