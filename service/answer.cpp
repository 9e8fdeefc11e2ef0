// answer.cpp - replies of the answer mode.
// In:  requests. Out: replies that a client can parse.
#include "service/answer.h"

#include "service/snoop.h"

namespace vex::service {
namespace {

constexpr uint32_t kLeaseSeconds = 3600;
constexpr MacAddress kServerMac = {0x02, 0, 0x5E, 0, 0, 0x67};  // locally administered
constexpr uint8_t kServerDuid[] = {0, 3, 0, 1, 0x02, 0, 0x5E, 0, 0, 0x67};
const IpAddress kServer4 = IpAddress::V4(0x0A000001);
const IpAddress kServer6 = {true, {0xFE, 0x80, 0, 0, 0, 0, 0, 0, 0, 0, 0x5E, 0xFF, 0xFE, 0, 0, 0x67}};
constexpr uint32_t kBroadcast = 0xFFFFFFFF;

uint64_t Hash(Bytes bytes) {  // FNV-1a
  uint64_t hash = 0xCBF29CE484222325;
  for (const uint8_t byte : bytes) hash = (hash ^ byte) * 0x100000001B3;
  return hash;
}

// In 10.0.0.0/8, never 10.0.0.x.
IpAddress AddressFor(Bytes client) {
  return IpAddress::V4(0x0A000100 + static_cast<uint32_t>(Hash(client) % 0xFFFE00));
}

// A /64 of its own for each client, in the documentation prefix (RFC 3849).
IpAddress PrefixFor(uint64_t client) {
  IpAddress prefix{true, {0x20, 0x01, 0x0D, 0xB8}};
  for (size_t i = 0; i < 4; ++i) prefix.bytes[4 + i] = static_cast<uint8_t>(client >> (8 * i));
  return prefix;
}

std::optional<Dhcp4Type> ReplyTo(Dhcp4Type request) {
  if (request == Dhcp4Type::kDiscover) return Dhcp4Type::kOffer;
  if (request == Dhcp4Type::kRequest || request == Dhcp4Type::kInform) return Dhcp4Type::kAck;
  return std::nullopt;
}

Dhcp6Type ReplyTo(const Dhcp6Message& request) {
  const bool two_steps = request.type == Dhcp6Type::kSolicit && !request.rapid_commit;
  return two_steps ? Dhcp6Type::kAdvertise : Dhcp6Type::kReply;
}

platform::PacketAttributes AttributesOf(const Ingress& in) {
  platform::PacketAttributes attr;
  attr.appType = in.packet->attr.appType;
  attr.protoType = in.packet->attr.protoType;
  return attr;
}

}  // namespace

Counter Answerer::Handle(Ingress& in, Stream stream, int64_t now_ns) {
  if (stream == Stream::kArp) return Counter::kObserved;
  const std::optional<Frame> frame = ParseFrame(in.packet->Bytes());
  if (!frame) return Counter::kMalformed;
  if (stream == Stream::kIcmp) return HandleIcmp(in, *frame, now_ns);
  if (frame->protocol != kProtocolUdp) return Counter::kMalformed;
  return frame->ip_src.v6 ? Answer6(in, *frame, now_ns) : Answer4(in, *frame, now_ns);
}

Counter Answerer::HandleIcmp(Ingress& in, const Frame& frame, int64_t now_ns) {
  if (frame.protocol != kProtocolIcmp6 || frame.payload.empty()) return Counter::kObserved;
  const bool router_message = frame.payload[0] == 133 || frame.payload[0] == 134;
  const bool taken = desk_.context().module.switch_on(DHCP_CFG_ND_SNOOPING) != 0;
  if (!taken || (router_message && !acts_on_router_messages_)) return Counter::kObserved;
  desk_.Upload(in, now_ns);
  return Counter::kNdForwarded;
}

void Answerer::Record(const Ingress& in, Binding binding, bool given_up, int64_t now_ns) {
  binding.vlan = in.vlan;
  binding.port = in.port;
  binding.lease_end = LeaseEnd(now_ns, kLeaseSeconds);
  Leases& leases = desk_.context().leases;
  if (given_up)
    leases.Remove(binding, BindingChange::kReleased, now_ns, desk_.counters());
  else if (!leases.Set(binding, BindingChange::kMade, now_ns, desk_.counters()))
    desk_.counters().Count(in.port, Counter::kBindingFull);
}

Counter Answerer::Answer4(Ingress& in, const Frame& frame, int64_t now_ns) {
  const std::optional<Dhcp4Message> request = ParseDhcp4(frame.payload);
  if (!request) return Counter::kMalformed;
  if (request->op != kBootRequest) return Counter::kObserved;
  Binding binding;
  binding.address = AddressFor(request->chaddr);
  binding.mac = MacFrom(request->chaddr);
  const std::optional<Dhcp4Type> type = ReplyTo(request->type);
  if (!type) {
    Record(in, binding, true, now_ns);
    return Counter::kAnswered;  // RELEASE and DECLINE want no reply
  }
  if (request->type == Dhcp4Type::kRequest) Record(in, binding, false, now_ns);
  const bool relayed = !request->giaddr.IsZero();
  const bool inform = request->type == Dhcp4Type::kInform;
  const std::vector<uint8_t> reply = BuildDhcp4Reply(
      frame.payload, {*type, inform ? IpAddress() : binding.address, kServer4, inform ? 0 : kLeaseSeconds});
  const Datagram datagram{frame.src,
                          kServerMac,
                          kServer4,
                          relayed ? request->giaddr : IpAddress::V4(kBroadcast),
                          kDhcp4ServerPort,
                          relayed ? kDhcp4ServerPort : kDhcp4ClientPort,
                          reply};
  desk_.SendOwn(BuildFrame(datagram, in.packet->Bytes()), AttributesOf(in), in, frame.tags, now_ns);
  return Counter::kAnswered;
}

Counter Answerer::Answer6(Ingress& in, const Frame& frame, int64_t now_ns) {
  const std::optional<Dhcp6Message> request = ParseDhcp6(frame.payload);
  if (!request) return Counter::kMalformed;
  if (IsFromServer(request->outer_type)) return Counter::kObserved;
  const uint64_t client = Hash(request->client_duid);
  const Dhcp6Reply reply{ReplyTo(*request), kServerDuid, PrefixFor(client), client, kLeaseSeconds};
  const std::vector<uint8_t> message = WrapLike(frame.payload, BuildDhcp6Reply(*request, reply));
  const Datagram datagram{frame.src,        kServerMac,
                          kServer6,         frame.ip_src,
                          kDhcp6ServerPort, request->relayed() ? kDhcp6ServerPort : kDhcp6ClientPort,
                          message};
  desk_.SendOwn(BuildFrame(datagram, in.packet->Bytes()), AttributesOf(in), in, frame.tags, now_ns);
  if (reply.type == Dhcp6Type::kAdvertise) return Counter::kAnswered;
  const bool given_up = request->type == Dhcp6Type::kRelease || request->type == Dhcp6Type::kDecline;
  const std::optional<Dhcp6Message> granted = ParseDhcp6(message);
  for (const Dhcp6Lease& lease : granted->leases) {
    Binding binding;
    binding.kind = lease.kind;
    binding.address = lease.address;
    binding.prefix_length = lease.prefix_length;
    binding.mac = frame.src;
    binding.duid.assign(request->client_duid.begin(), request->client_duid.end());
    Record(in, std::move(binding), given_up, now_ns);
  }
  return Counter::kAnswered;
}

}  // namespace vex::service
