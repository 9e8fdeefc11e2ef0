// snoop.h - DHCP snooping: clients reach trusted ports only, servers are believed on trusted ports only.
// In:  one frame at a time. Out: the frame towards trusted ports or back to its client's port, leases made
// and ended, ND messages given back; what must not pass is dropped and reported. One object per service
// thread.
#pragma once

#include "service/context.h"
#include "service/dhcp4.h"
#include "service/dhcp6.h"

namespace vex::service {

class Snooper : public FrameHandler {
 public:
  // Router messages reach every instance as copies; one of them acts on them.
  Snooper(Desk& desk, bool acts_on_router_messages)
      : desk_(desk), acts_on_router_messages_(acts_on_router_messages) {}
  Counter Handle(Ingress& in, Stream stream, int64_t now_ns) override;

 private:
  // A frame under inspection.
  struct Case {
    Ingress& in;
    const Frame& frame;
    int64_t now_ns;
  };
  Counter HandleDhcp4(const Case& c);
  Counter FromClient4(const Case& c, const Dhcp4Message& message);
  Counter FromServer4(const Case& c, const Dhcp4Message& message);
  void Learn4(const Case& c, const Dhcp4Message& message, const Asked& asked);
  Counter HandleDhcp6(const Case& c);
  Counter FromClient6(const Case& c, const Dhcp6Message& message);
  Counter FromServer6(const Case& c, const Dhcp6Message& message);
  void Learn6(const Case& c, const Dhcp6Message& message, const Asked& asked);
  Counter HandleIcmp(const Case& c);

  Counter Rogue(const Case& c, const IpAddress& server, std::string_view type);
  Counter NotTheOwner(const Case& c, std::string_view type);
  void Grant(const Case& c, const Binding& binding);
  // The port behind which the client is, and what is known of its exchange.
  struct Way {
    std::optional<uint32_t> port;
    std::optional<Asked> asked;
  };
  Way WayBack(const Case& c, const ClientKey& client, uint32_t xid);
  // Whether a server's message goes on to that port.
  static bool Passes(const Case& c, const Way& way) { return way.port && *way.port != c.in.port; }
  Counter SendBack(const Case& c, const Way& way);

  Desk& desk_;
  const bool acts_on_router_messages_;
};

// The end of a lease that starts now, in seconds since the epoch; 0xFFFFFFFF seconds never end.
uint64_t LeaseEnd(int64_t now_ns, uint32_t seconds);

}  // namespace vex::service
