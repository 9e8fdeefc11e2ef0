// dhcp_vex_pkt_duid.h - the DHCPv6 client's identity inside a datagram (RFC 8415).
// In:  a UDP datagram or a DHCPv6 message as a bounded view. Out: views into it. Pure functions; every walk
// moves forward and ends where the view ends.
#pragma once

#include <optional>

#include "dhcp_vex_bytes.h"

namespace dhcp_vex {

// The innermost message: through the Relay Message options of nested relay messages, as far as they go.
// `message` reaches from its type byte to the end of the datagram, and so does the answer.
Bytes InnermostMessage(Bytes message);

// The data of the Client Identifier option of the innermost message. `datagram` starts at the UDP header and
// is as long as its length field says, or as the buffer holds of that.
std::optional<Bytes> FindDuid(Bytes datagram);

// The bytes of a DUID that identify the client's hardware, so that one client hashes alike in DHCPv4, DHCPv6
// and neighbour discovery.
std::optional<Bytes> DuidKey(Bytes duid);

}  // namespace dhcp_vex
