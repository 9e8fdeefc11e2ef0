// snoop6.cpp - snooping of DHCPv6 (RFC 8415).
// In:  frames with UDP to port 546 or 547. Out: outcomes; leases from REPLY, ends of leases from RELEASE,
// DECLINE and lifetimes of 0. The type of the outermost message tells client from server: relays use port 547
// for both.
#include "service/snoop.h"

namespace vex::service {
namespace {

Binding LeaseOf(const Dhcp6Message& message, const Dhcp6Lease& lease, uint16_t vlan, uint32_t port) {
  Binding binding;
  binding.kind = lease.kind;
  binding.address = lease.address;
  binding.prefix_length = lease.prefix_length;
  binding.vlan = vlan;
  binding.port = port;
  binding.duid.assign(message.client_duid.begin(), message.client_duid.end());
  return binding;
}

bool GivesUpLeases(Dhcp6Type type) { return type == Dhcp6Type::kRelease || type == Dhcp6Type::kDecline; }

}  // namespace

Counter Snooper::HandleDhcp6(const Case& c) {
  const std::optional<Dhcp6Message> message = ParseDhcp6(c.frame.payload);
  if (!message) return Counter::kMalformed;
  return IsFromServer(message->outer_type) ? FromServer6(c, *message) : FromClient6(c, *message);
}

Counter Snooper::FromClient6(const Case& c, const Dhcp6Message& message) {
  Leases& leases = desk_.context().leases;
  std::vector<Binding> given_up;
  if (GivesUpLeases(message.type) && !message.relayed())
    for (const Dhcp6Lease& lease : message.leases)
      given_up.push_back(LeaseOf(message, lease, c.in.vlan, c.in.port));
  for (const Binding& owner : given_up) {
    const std::optional<Binding> lease = leases.Find(PlaceOf(owner));
    if (lease && (lease->port != owner.port || lease->duid != owner.duid))
      return NotTheOwner(c, Name(message.type));
  }
  const Asked asked{c.in.port, c.frame.src, {}};
  const ClientKey key(6, c.in.vlan, message.client_duid);
  desk_.context().clients.NoteRequest(key, c.in.vlan, message.xid, asked, c.now_ns);
  if (message.relayed()) desk_.counters().Count(c.in.port, Counter::kRelayed);
  const bool released = message.type == Dhcp6Type::kRelease;
  const Counter outcome = desk_.SendToTrusted(c.in, c.frame.tags, Counter::kClientForwarded, c.now_ns);
  if (outcome != Counter::kClientForwarded) return outcome;
  for (const Binding& owner : given_up)
    leases.Remove(owner, released ? BindingChange::kReleased : BindingChange::kDeclined, c.now_ns,
                  desk_.counters());
  return outcome;
}

Counter Snooper::FromServer6(const Case& c, const Dhcp6Message& message) {
  if (!desk_.Trusted(c.in)) return Rogue(c, c.frame.ip_src, Name(message.type));
  if (message.relayed()) desk_.counters().Count(c.in.port, Counter::kRelayed);
  const Way way = WayBack(c, ClientKey(6, c.in.vlan, message.client_duid), message.xid);
  if (Passes(c, way) && way.asked && !message.relayed()) Learn6(c, message, *way.asked);
  return SendBack(c, way);
}

void Snooper::Learn6(const Case& c, const Dhcp6Message& message, const Asked& asked) {
  if (message.type != Dhcp6Type::kReply || message.status != 0) return;
  for (const Dhcp6Lease& granted : message.leases) {
    if (granted.status != 0) continue;
    Binding lease = LeaseOf(message, granted, c.in.vlan, asked.port);
    lease.mac = asked.mac;
    lease.lease_end = LeaseEnd(c.now_ns, granted.valid_seconds);
    if (granted.valid_seconds == 0)
      desk_.context().leases.Remove(lease, BindingChange::kRefused, c.now_ns, desk_.counters());
    else
      Grant(c, lease);
  }
}

}  // namespace vex::service
