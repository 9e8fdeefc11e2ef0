// answer.h - closes the loop without a server: every request gets a reply made here.
// In:  one frame at a time. Out: OFFER and ACK, ADVERTISE and REPLY back to the port they were asked from,
// leases of an hour, ND messages uploaded. Addresses come from a hash of the client's identity: stable, and
// not unique by design.
#pragma once

#include "service/context.h"
#include "service/dhcp4.h"
#include "service/dhcp6.h"

namespace vex::service {

class Answerer : public FrameHandler {
 public:
  Answerer(Desk& desk, bool acts_on_router_messages)
      : desk_(desk), acts_on_router_messages_(acts_on_router_messages) {}
  Counter Handle(Ingress& in, Stream stream, int64_t now_ns) override;

 private:
  Counter HandleIcmp(Ingress& in, const Frame& frame, int64_t now_ns);
  Counter Answer4(Ingress& in, const Frame& frame, int64_t now_ns);
  Counter Answer6(Ingress& in, const Frame& frame, int64_t now_ns);
  void Record(const Ingress& in, Binding binding, bool given_up, int64_t now_ns);
  Desk& desk_;
  const bool acts_on_router_messages_;
};

}  // namespace vex::service
