// dhcp6.cpp - reads and builds DHCPv6 messages.
// In:  untrusted bytes; relays are peeled off one by one, each a narrower span. Out: Dhcp6Message, replies.
#include "service/dhcp6.h"

namespace vex::service {
namespace {

constexpr size_t kRelayHeader = 34;  // type, hop count, link and peer address
constexpr size_t kMessageHeader = 4;
constexpr int kMaxRelays = 8;
constexpr size_t kMaxLeases = 64;

enum Option : uint16_t {
  kClientId = 1,
  kServerId = 2,
  kIaNa = 3,
  kIaTa = 4,
  kIaAddress = 5,
  kRelayMessage = 9,
  kStatusCode = 13,
  kRapidCommit = 14,
  kInterfaceId = 18,
  kIaPd = 25,
  kIaPrefix = 26,
};

// Calls `visit(code, data)` for each whole option.
template <class Visit>
void WalkOptions(Bytes options, Visit visit) {
  while (true) {
    const auto code = U16(options, 0), length = U16(options, 2);
    if (!code || !length || *length > options.size() - 4) return;
    visit(*code, options.subspan(4, *length));
    options = options.subspan(4u + *length);
  }
}

constexpr bool IsRelay(uint8_t type) {
  return type == static_cast<uint8_t>(Dhcp6Type::kRelayForward) ||
         type == static_cast<uint8_t>(Dhcp6Type::kRelayReply);
}

// The first option of a relay message with that code, or nothing.
std::optional<Bytes> RelayOption(Bytes message, uint16_t wanted) {
  std::optional<Bytes> found;
  if (message.size() < kRelayHeader) return found;
  WalkOptions(message.subspan(kRelayHeader), [&found, wanted](uint16_t code, Bytes data) {
    if (code == wanted && !found) found = data;
  });
  return found;
}

// The message that the relays carry, or nothing.
std::optional<Bytes> Innermost(Bytes message) {
  for (int relays = 0; !message.empty() && IsRelay(message[0]); ++relays) {
    const std::optional<Bytes> inner = RelayOption(message, kRelayMessage);
    if (!inner || relays == kMaxRelays) return std::nullopt;
    message = *inner;
  }
  if (message.size() < kMessageHeader) return std::nullopt;
  return message;
}

uint16_t StatusIn(Bytes options) {
  uint16_t status = 0;
  WalkOptions(options, [&status](uint16_t code, Bytes data) {
    if (code == kStatusCode) status = U16(data, 0).value_or(status);
  });
  return status;
}

// IA Address: address, preferred and valid lifetime. IA Prefix: both lifetimes, length, prefix.
std::optional<Dhcp6Lease> ReadLease(uint16_t code, Bytes data) {
  const bool prefix = code == kIaPrefix;
  const size_t fixed = prefix ? 25 : 24;
  if (data.size() < fixed) return std::nullopt;
  Dhcp6Lease lease;
  lease.valid_seconds = *U32(data, prefix ? 4 : 20);
  lease.prefix_length = prefix ? data[8] : 128;
  lease.address = *IpAddress::From6(data.subspan(prefix ? 9 : 0, 16));
  lease.status = StatusIn(data.subspan(fixed));
  if (lease.prefix_length > 128) return std::nullopt;
  return lease;
}

BindingKind KindOf(uint16_t code) {
  if (code == kIaPd) return BindingKind::kPrefix;
  return code == kIaTa ? BindingKind::kTemporary : BindingKind::kNonTemporary;
}

void ReadAssociation(uint16_t code, Bytes data, Dhcp6Message& message) {
  const size_t fixed = code == kIaTa ? 4 : 12;  // IAID, and T1 and T2 but for temporary addresses
  if (data.size() < fixed || message.associations.size() == kMaxLeases) return;
  const BindingKind kind = KindOf(code);
  const uint32_t iaid = *U32(data, 0);
  message.associations.emplace_back(kind, iaid);
  const Bytes options = data.subspan(fixed);
  const uint16_t status = StatusIn(options);
  const uint16_t wanted = code == kIaPd ? kIaPrefix : kIaAddress;
  WalkOptions(options, [&](uint16_t inner, Bytes inner_data) {
    if (inner != wanted || message.leases.size() == kMaxLeases) return;
    std::optional<Dhcp6Lease> lease = ReadLease(inner, inner_data);
    if (!lease) return;
    lease->kind = kind;
    lease->iaid = iaid;
    if (lease->status == 0) lease->status = status;
    message.leases.push_back(*lease);
  });
}

void Apply(uint16_t code, Bytes data, Dhcp6Message& message) {
  switch (code) {
    case kClientId:
      if (message.client_duid.empty() && data.size() <= kMaxDuid) message.client_duid = data;
      break;
    case kServerId:
      if (message.server_duid.empty() && data.size() <= kMaxDuid) message.server_duid = data;
      break;
    case kStatusCode:
      message.status = U16(data, 0).value_or(0);
      break;
    case kRapidCommit:
      message.rapid_commit = true;
      break;
    case kIaNa:
    case kIaTa:
    case kIaPd:
      ReadAssociation(code, data, message);
      break;
    default:
      break;
  }
}

void AddOption(ByteWriter& out, uint16_t code, Bytes data) {
  if (!data.empty()) out.U16(code).U16(static_cast<uint16_t>(data.size())).Add(data);
}

void AddLease(ByteWriter& out, BindingKind kind, const Dhcp6Reply& reply) {
  const Bytes network = Bytes(reply.prefix.bytes).first(8);
  if (kind == BindingKind::kPrefix) {
    out.U16(kIaPrefix).U16(25).U32(reply.valid_seconds).U32(reply.valid_seconds).U8(64).Add(network).Zeros(8);
    return;
  }
  out.U16(kIaAddress).U16(24).Add(network);
  out.U32(static_cast<uint32_t>(reply.host >> 32)).U32(static_cast<uint32_t>(reply.host));
  out.U32(reply.valid_seconds).U32(reply.valid_seconds);
}

void AddAssociation(ByteWriter& out, BindingKind kind, uint32_t iaid, const Dhcp6Reply& reply) {
  const bool temporary = kind == BindingKind::kTemporary;
  out.U16(kind == BindingKind::kPrefix ? kIaPd : temporary ? kIaTa : kIaNa);
  const size_t length_at = out.size();
  out.U16(0).U32(iaid);
  if (!temporary) out.U32(reply.valid_seconds / 2).U32(reply.valid_seconds / 5 * 4);
  AddLease(out, kind, reply);
  out.PutU16(length_at, static_cast<uint16_t>(out.size() - length_at - 2));
}

}  // namespace

std::string_view Name(Dhcp6Type type) {
  constexpr std::string_view kNames[] = {"",
                                         "SOLICIT",
                                         "ADVERTISE",
                                         "REQUEST",
                                         "CONFIRM",
                                         "RENEW",
                                         "REBIND",
                                         "REPLY",
                                         "RELEASE",
                                         "DECLINE",
                                         "RECONFIGURE",
                                         "INFORMATION-REQUEST",
                                         "RELAY-FORWARD",
                                         "RELAY-REPLY"};
  const auto index = static_cast<size_t>(type);
  return index > 0 && index < std::size(kNames) ? kNames[index] : "DHCPv6 message";
}

bool IsFromServer(uint8_t type) {
  // ADVERTISE, REPLY, RECONFIGURE, RELAY-REPL, LEASEQUERY-REPLY, -DONE, -DATA, RECONFIGURE-REPLY,
  // DHCPV4-RESPONSE
  constexpr uint8_t kTypes[] = {2, 7, 10, 13, 15, 16, 17, 19, 21};
  return std::find(std::begin(kTypes), std::end(kTypes), type) != std::end(kTypes);
}

std::optional<Dhcp6Message> ParseDhcp6(Bytes payload) {
  const std::optional<Bytes> inner = Innermost(payload);
  if (!inner) return std::nullopt;
  Dhcp6Message message;
  message.outer_type = payload[0];
  message.type = Dhcp6Type{(*inner)[0]};
  message.xid = *U32(*inner, 0) & 0xFFFFFF;
  WalkOptions(inner->subspan(kMessageHeader),
              [&message](uint16_t code, Bytes data) { Apply(code, data, message); });
  return message;
}

std::vector<uint8_t> BuildDhcp6Reply(const Dhcp6Message& request, const Dhcp6Reply& reply) {
  ByteWriter out;
  out.U32(uint32_t{static_cast<uint8_t>(reply.type)} << 24 | request.xid);
  AddOption(out, kClientId, request.client_duid);
  AddOption(out, kServerId, reply.server_duid);
  if (request.rapid_commit && reply.type == Dhcp6Type::kReply) out.U16(kRapidCommit).U16(0);
  for (const auto& [kind, iaid] : request.associations) AddAssociation(out, kind, iaid, reply);
  return out.Take();
}

std::vector<uint8_t> WrapLike(Bytes request, std::vector<uint8_t> reply) {
  const std::optional<Bytes> inner = IsRelay(request[0]) ? RelayOption(request, kRelayMessage) : std::nullopt;
  if (!inner) return reply;
  const std::vector<uint8_t> wrapped = WrapLike(*inner, std::move(reply));
  ByteWriter out;
  out.U8(static_cast<uint8_t>(Dhcp6Type::kRelayReply)).Add(request.subspan(1, kRelayHeader - 1));
  if (const auto interface_id = RelayOption(request, kInterfaceId))
    AddOption(out, kInterfaceId, *interface_id);
  AddOption(out, kRelayMessage, wrapped);
  return out.Take();
}

}  // namespace vex::service
