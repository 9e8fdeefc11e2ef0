// frames.h - one frame of each kind that the benchmarks punt, built byte by byte.
// Out: Ethernet frames behind one 802.1Q tag, with addresses that vary by client number. Checksums are zero:
// nothing on the way to the service looks at them.
#pragma once

#include <cstdint>
#include <vector>

namespace vex::bench {

using Frame = std::vector<uint8_t>;

// DHCPDISCOVER of the client, 300 bytes of BOOTP (RFC 2131).
Frame Dhcp4Frame(uint16_t vlan, uint32_t client = 0);
// SOLICIT of the client with a DUID of type 1 (RFC 8415).
Frame Dhcp6Frame(uint16_t vlan, uint32_t client = 0);
// TCP over IPv4: nothing that is punted for the service.
Frame TcpFrame(uint16_t vlan = 1, uint32_t client = 0);
// Neighbour solicitation for duplicate address detection (RFC 4862).
Frame SolicitationFrame(uint16_t vlan, uint32_t client = 0);
// ARP reply (RFC 826).
Frame ArpReplyFrame(uint16_t vlan, uint32_t client = 0);

}  // namespace vex::bench
