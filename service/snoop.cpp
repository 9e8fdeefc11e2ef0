// snoop.cpp - what snooping does alike for DHCPv4 and DHCPv6, and neighbour discovery.
// In:  frames by stream. Out: outcomes.
#include "service/snoop.h"

namespace vex::service {
namespace {

// ICMPv6 types of neighbour discovery (RFC 4861).
constexpr uint8_t kRouterSolicitation = 133;
constexpr uint8_t kRouterAdvertisement = 134;
constexpr uint8_t kNeighborAdvertisement = 136;
constexpr uint32_t kNdSnooping = DHCP_CFG_ND_SNOOPING;

}  // namespace

Counter Snooper::Handle(Ingress& in, Stream stream, int64_t now_ns) {
  if (stream == Stream::kArp) return Counter::kObserved;  // a copy; the reply itself is on its way
  const std::optional<Frame> frame = ParseFrame(in.packet->Bytes());
  if (!frame) return Counter::kMalformed;
  const Case c{in, *frame, now_ns};
  if (stream == Stream::kIcmp) return HandleIcmp(c);
  if (frame->protocol != kProtocolUdp) return Counter::kMalformed;
  return frame->ip_src.v6 ? HandleDhcp6(c) : HandleDhcp4(c);
}

// Router solicitations go to trusted ports only, which is where routers are. What passes otherwise is given
// back to the data plane to be forwarded as any frame.
Counter Snooper::HandleIcmp(const Case& c) {
  if (!c.frame.ip_src.v6 || c.frame.protocol != kProtocolIcmp6)
    return Counter::kObserved;  // copy of an echo reply
  if (c.frame.payload.empty()) return Counter::kMalformed;
  const uint8_t type = c.frame.payload[0];
  if (type < kRouterSolicitation || type > kNeighborAdvertisement) return Counter::kObserved;
  if (desk_.context().module.switch_on(kNdSnooping) == 0) return Counter::kObserved;  // a copy as well
  const bool router_message = type == kRouterSolicitation || type == kRouterAdvertisement;
  if (router_message && !acts_on_router_messages_) return Counter::kObserved;
  if (type == kRouterSolicitation)
    return desk_.SendToTrusted(c.in, c.frame.tags, Counter::kNdForwarded, c.now_ns);
  if (type == kRouterAdvertisement && !desk_.Trusted(c.in)) {
    desk_.Report(Notice::Kind::kRaGuard, c.in, c.frame.src, c.frame.ip_src, "", c.now_ns);
    return Counter::kRaGuard;
  }
  desk_.Upload(c.in, c.now_ns);
  return Counter::kNdForwarded;
}

Counter Snooper::Rogue(const Case& c, const IpAddress& server, std::string_view type) {
  desk_.Report(Notice::Kind::kRogueServer, c.in, c.frame.src, server, type, c.now_ns);
  return Counter::kRogueServer;
}

Counter Snooper::NotTheOwner(const Case& c, std::string_view type) {
  desk_.Report(Notice::Kind::kWrongPort, c.in, c.frame.src, c.frame.ip_src, type, c.now_ns);
  return Counter::kWrongPort;
}

void Snooper::Grant(const Case& c, const Binding& binding) {
  if (desk_.context().leases.Set(binding, BindingChange::kMade, c.now_ns, desk_.counters())) return;
  desk_.counters().Count(binding.port, Counter::kBindingFull);
  Ingress client;
  client.port = binding.port;
  client.vlan = binding.vlan;
  desk_.Report(Notice::Kind::kBindingFull, client, binding.mac, binding.address, "", c.now_ns);
}

Snooper::Way Snooper::WayBack(const Case& c, const ClientKey& client, uint32_t xid) {
  Clients& clients = desk_.context().clients;
  if (const std::optional<Asked> asked = clients.Find(client, xid, c.now_ns)) return {asked->port, asked};
  if (IsGroup(c.frame.dst)) return {};
  return {clients.FindStation(c.in.vlan, c.frame.dst, c.now_ns), std::nullopt};
}

Counter Snooper::SendBack(const Case& c, const Way& way) {
  if (!way.port) return Counter::kUnknownClient;
  if (!Passes(c, way)) return Counter::kSamePort;
  desk_.SendTo(c.in, c.frame.tags, *way.port, c.now_ns);
  return Counter::kServerForwarded;
}

uint64_t LeaseEnd(int64_t now_ns, uint32_t seconds) {
  if (seconds == UINT32_MAX) return kNoLeaseEnd;
  return static_cast<uint64_t>(now_ns) / 1'000'000'000 + seconds;
}

}  // namespace vex::service
