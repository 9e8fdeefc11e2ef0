// traffic.h - a capture of any size with the mix that a punt path sees.
// In:  number of frames and seconds. Out: a pcapng file; the same numbers give the same bytes.
// Eight ports, three VLANs, a thousand clients: DHCPv4 and DHCPv6 requests, ARP replies, neighbour
// solicitations, and TCP that nobody wants.
#pragma once

#include <cstdint>
#include <string>

namespace vex::bench {

struct Traffic {
  uint64_t frames = 1'000'000;
  uint64_t seconds = 100;  // spread evenly over this time
};

// Throws vex::host::InputError when the file cannot be written.
void WriteTraffic(const std::string& path, const Traffic& traffic);

}  // namespace vex::bench
