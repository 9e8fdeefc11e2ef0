// binding_message.cpp - binding changes to and from the record of the user-binding message.
// In:  events, or the untrusted bytes of a body. Out: records, or events whose every field is in range.
#include "service/binding_message.h"

#include <cstring>

namespace vex::service {
namespace {

bool InRange(const BindingMessage& m) {
  const bool known_kind = m.kind >= static_cast<uint8_t>(BindingKind::kDhcp4) &&
                          m.kind <= static_cast<uint8_t>(BindingKind::kPrefix);
  const bool known_change = m.change >= static_cast<uint8_t>(BindingChange::kMade) &&
                            m.change <= static_cast<uint8_t>(BindingChange::kReplaced);
  return m.magic == kBindingMagic && m.length == sizeof(m) && known_kind && known_change &&
         m.duid_length <= kMaxDuid && m.prefix_length <= 128;
}

}  // namespace

BindingMessage Encode(const BindingEvent& event) {
  const Binding& binding = event.binding;
  BindingMessage message{};
  message.magic = kBindingMagic;
  message.length = sizeof(message);
  message.change = static_cast<uint8_t>(event.change);
  message.kind = static_cast<uint8_t>(binding.kind);
  message.port = binding.port;
  message.vlan = binding.vlan;
  message.prefix_length = binding.prefix_length;
  const size_t duid_length = std::min(binding.duid.size(), kMaxDuid);
  message.duid_length = static_cast<uint8_t>(duid_length);
  message.lease_end = binding.lease_end;
  message.time = static_cast<uint64_t>(event.time_ns);
  std::copy(binding.address.bytes.begin(), binding.address.bytes.end(), message.address);
  std::copy(binding.mac.begin(), binding.mac.end(), message.mac);
  std::copy_n(binding.duid.begin(), duid_length, message.duid);
  return message;
}

std::optional<BindingEvent> DecodeBinding(Bytes body) {
  BindingMessage message;
  if (body.size() < sizeof(message)) return std::nullopt;
  std::memcpy(&message, body.data(), sizeof(message));
  if (!InRange(message)) return std::nullopt;
  BindingEvent event{BindingChange{message.change}, {}, static_cast<int64_t>(message.time)};
  Binding& binding = event.binding;
  binding.kind = BindingKind{message.kind};
  binding.address = {.v6 = binding.kind != BindingKind::kDhcp4};
  std::copy(std::begin(message.address), std::end(message.address), binding.address.bytes.begin());
  binding.prefix_length = message.prefix_length;
  binding.vlan = message.vlan;
  binding.port = message.port;
  binding.mac = MacFrom(message.mac);
  binding.duid.assign(message.duid, message.duid + message.duid_length);
  binding.lease_end = message.lease_end;
  return event;
}

}  // namespace vex::service
