// fuzz_dhcp6.cpp - any UDP datagram through the DHCPv6 relay and option walks (RFC 8415).
// In:  the datagram from its UDP header on; its length field is set to its size, as the contract of the
// exports asks. Out: keys that lie inside the datagram, or an abort.
#include <vector>

#include "dhcp_vex_pkt_channel.h"
#include "fuzz/module_fixture.h"

namespace {

void RequireInside(const std::vector<uint8_t>& datagram, const uint8_t* at, uint32_t length) {
  if (at == nullptr) return;
  vex::fuzz::Require(at >= datagram.data() && length <= datagram.size() &&
                         at - datagram.data() <= static_cast<ptrdiff_t>(datagram.size() - length),
                     "a key lies inside its datagram");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size < 8 || size > 0xFFFF) return 0;
  std::vector<uint8_t> datagram(data, data + size);
  datagram[4] = static_cast<uint8_t>(size >> 8);
  datagram[5] = static_cast<uint8_t>(size);
  uint8_t* found = nullptr;
  uint32_t length = 0;
  DhcpPktGetDUID(datagram.data(), &found, &length);
  RequireInside(datagram, found, length);
  found = nullptr;
  Dhcpv6PktGetHashKey(datagram.data(), &found, &length);
  RequireInside(datagram, found, length);
  if (found != nullptr) DhcpPktDistributeHashCal(found, length);
  uint8_t* innermost = DhcpPktGetDhcpv6HeadFromRelayMsgOpt(datagram.data() + 4, datagram.data() + size);
  RequireInside(datagram, innermost, 0);
  return 0;
}
