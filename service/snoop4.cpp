// snoop4.cpp - snooping of DHCPv4 (RFC 2131).
// In:  frames with UDP to port 67 or 68. Out: outcomes; leases from DHCPACK, ends of leases from DHCPRELEASE,
// DHCPDECLINE and DHCPNAK. The op field tells client from server: relays use port 67 for both.
#include "service/snoop.h"

namespace vex::service {
namespace {

ClientKey KeyOf(const Dhcp4Message& message, uint16_t vlan) {
  return {4, vlan, message.chaddr.empty() ? message.client_id : message.chaddr};
}

Binding LeaseOf(const Dhcp4Message& message, const IpAddress& address, uint16_t vlan, uint32_t port) {
  Binding binding;
  binding.address = address;
  binding.vlan = vlan;
  binding.port = port;
  binding.mac = MacFrom(message.chaddr);
  return binding;
}

bool GivesUpLease(Dhcp4Type type) { return type == Dhcp4Type::kRelease || type == Dhcp4Type::kDecline; }

// The address that a client's message is about.
IpAddress SubjectOf(const Dhcp4Message& message) {
  if (message.type == Dhcp4Type::kRelease || !message.requested) return message.ciaddr;
  return *message.requested;
}

// The whole path of an exchange is on this link: through a relay the client's own port and VLAN are not seen.
bool Direct(const Dhcp4Message& message) { return message.giaddr.IsZero(); }

}  // namespace

Counter Snooper::HandleDhcp4(const Case& c) {
  const std::optional<Dhcp4Message> message = ParseDhcp4(c.frame.payload);
  if (!message) return Counter::kMalformed;
  if (message->op == kBootRequest) return FromClient4(c, *message);
  return message->op == kBootReply ? FromServer4(c, *message) : Counter::kMalformed;
}

Counter Snooper::FromClient4(const Case& c, const Dhcp4Message& message) {
  const uint32_t port = c.in.port;
  const Binding owner = LeaseOf(message, SubjectOf(message), c.in.vlan, port);
  if (GivesUpLease(message.type)) {
    const std::optional<Binding> lease = desk_.context().leases.Find(PlaceOf(owner));
    if (lease && (lease->port != port || lease->mac != owner.mac)) return NotTheOwner(c, Name(message.type));
  } else {
    const Asked asked{port, c.frame.src, owner.address};
    desk_.context().clients.NoteRequest(KeyOf(message, c.in.vlan), c.in.vlan, message.xid, asked, c.now_ns);
  }
  if (!Direct(message)) desk_.counters().Count(port, Counter::kRelayed);
  const Counter outcome = desk_.SendToTrusted(c.in, c.frame.tags, Counter::kClientForwarded, c.now_ns);
  if (outcome == Counter::kClientForwarded && GivesUpLease(message.type)) {
    const bool released = message.type == Dhcp4Type::kRelease;
    desk_.context().leases.Remove(owner, released ? BindingChange::kReleased : BindingChange::kDeclined,
                                  c.now_ns, desk_.counters());
  }
  return outcome;
}

Counter Snooper::FromServer4(const Case& c, const Dhcp4Message& message) {
  if (!desk_.Trusted(c.in)) return Rogue(c, message.server_id.value_or(c.frame.ip_src), Name(message.type));
  if (!Direct(message)) desk_.counters().Count(c.in.port, Counter::kRelayed);
  const Way way = WayBack(c, KeyOf(message, c.in.vlan), message.xid);
  if (Passes(c, way) && way.asked && Direct(message)) Learn4(c, message, *way.asked);
  return SendBack(c, way);
}

void Snooper::Learn4(const Case& c, const Dhcp4Message& message, const Asked& asked) {
  if (message.type == Dhcp4Type::kNak) {
    const Binding refused = LeaseOf(message, asked.address, c.in.vlan, asked.port);
    desk_.context().leases.Remove(refused, BindingChange::kRefused, c.now_ns, desk_.counters());
  }
  if (message.type != Dhcp4Type::kAck || !message.lease_seconds || message.yiaddr.IsZero()) return;
  Binding lease = LeaseOf(message, message.yiaddr, c.in.vlan, asked.port);
  lease.lease_end = LeaseEnd(c.now_ns, *message.lease_seconds);
  Grant(c, lease);
}

}  // namespace vex::service
