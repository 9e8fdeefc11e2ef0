// dhcp4.cpp - reads and builds DHCPv4 messages.
// In:  untrusted bytes. Out: Dhcp4Message; replies for the answer mode.
#include "service/dhcp4.h"

namespace vex::service {
namespace {

// Offsets in the fixed part (RFC 2131 section 2).
constexpr size_t kXidAt = 4;
constexpr size_t kChaddrAt = 28;
constexpr size_t kChaddrLength = 16;
constexpr size_t kSnameAt = 44;
constexpr size_t kSnameLength = 64;
constexpr size_t kFileAt = 108;
constexpr size_t kFileLength = 128;
constexpr size_t kCookieAt = 236;
constexpr uint32_t kCookie = 0x63825363;
constexpr size_t kBootpMinimum = 300;

enum Option : uint8_t {
  kPad = 0,
  kNetmask = 1,
  kRequestedAddress = 50,
  kLeaseTime = 51,
  kOverload = 52,
  kMessageType = 53,
  kServerId = 54,
  kClientId = 61,
  kEnd = 255,
};

// Calls `visit(code, data)` for each whole option of one field.
template <class Visit>
void WalkOptions(Bytes field, Visit visit) {
  while (!field.empty()) {
    const uint8_t code = field[0];
    if (code == kEnd) return;
    if (code == kPad) {
      field = field.subspan(1);
      continue;
    }
    if (field.size() < 2 || field[1] > field.size() - 2) return;
    visit(code, field.subspan(2, field[1]));
    field = field.subspan(2u + field[1]);
  }
}

template <class T>
void SetOnce(std::optional<T>& target, std::optional<T> value) {
  if (!target) target = value;
}

void Apply(uint8_t code, Bytes data, Dhcp4Message& message) {
  switch (code) {
    case kMessageType:
      if (message.type == Dhcp4Type::kNone && data.size() == 1) message.type = Dhcp4Type{data[0]};
      break;
    case kLeaseTime:
      if (data.size() == 4) SetOnce(message.lease_seconds, U32(data, 0));
      break;
    case kServerId:
      SetOnce(message.server_id, IpAddress::From4(data));
      break;
    case kRequestedAddress:
      SetOnce(message.requested, IpAddress::From4(data));
      break;
    case kClientId:
      if (message.client_id.empty()) message.client_id = data;
      break;
    default:
      break;
  }
}

void ReadOptions(Bytes payload, Dhcp4Message& message) {
  if (U32(payload, kCookieAt) != kCookie) return;
  uint8_t overload = 0;
  const auto apply = [&message](uint8_t code, Bytes data) { Apply(code, data, message); };
  WalkOptions(payload.subspan(kCookieAt + 4), [&](uint8_t code, Bytes data) {
    if (code == kOverload && data.size() == 1) overload = data[0];
    apply(code, data);
  });
  if ((overload & 1) != 0) WalkOptions(payload.subspan(kFileAt, kFileLength), apply);
  if ((overload & 2) != 0) WalkOptions(payload.subspan(kSnameAt, kSnameLength), apply);
}

}  // namespace

std::string_view Name(Dhcp4Type type) {
  constexpr std::string_view kNames[] = {"BOOTP message", "DHCPDISCOVER", "DHCPOFFER",
                                         "DHCPREQUEST",   "DHCPDECLINE",  "DHCPACK",
                                         "DHCPNAK",       "DHCPRELEASE",  "DHCPINFORM"};
  const auto index = static_cast<size_t>(type);
  return index < std::size(kNames) ? kNames[index] : "DHCP message";
}

std::optional<Dhcp4Message> ParseDhcp4(Bytes payload) {
  if (payload.size() < kCookieAt) return std::nullopt;
  const size_t hardware_length = payload[2];
  if (hardware_length > kChaddrLength) return std::nullopt;
  Dhcp4Message message;
  message.op = payload[0];
  message.xid = *U32(payload, kXidAt);
  message.chaddr = payload.subspan(kChaddrAt, hardware_length);
  message.ciaddr = *IpAddress::From4(payload.subspan(12, 4));
  message.yiaddr = *IpAddress::From4(payload.subspan(16, 4));
  message.siaddr = *IpAddress::From4(payload.subspan(20, 4));
  message.giaddr = *IpAddress::From4(payload.subspan(24, 4));
  ReadOptions(payload, message);
  return message;
}

std::vector<uint8_t> BuildDhcp4Reply(Bytes request, const Dhcp4Reply& reply) {
  constexpr size_t kYiaddrAt = 16, kGiaddrAt = 24;
  ByteWriter out;
  out.U8(kBootReply).Add(request.subspan(1, kYiaddrAt - 1));
  out.Add(Bytes(reply.yiaddr.bytes).first(4)).Add(Bytes(reply.server.bytes).first(4));
  out.Add(request.subspan(kGiaddrAt, kSnameAt - kGiaddrAt)).Zeros(kCookieAt - kSnameAt).U32(kCookie);
  out.U8(kMessageType).U8(1).U8(static_cast<uint8_t>(reply.type));
  out.U8(kServerId).U8(4).Add(Bytes(reply.server.bytes).first(4));
  out.U8(kLeaseTime).U8(4).U32(reply.lease_seconds).U8(kNetmask).U8(4).U32(reply.netmask).U8(kEnd);
  out.Zeros(kBootpMinimum - out.size());
  return out.Take();
}

}  // namespace vex::service
