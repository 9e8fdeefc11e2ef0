// fuzz_probe.cpp - any echo reply through the link-probe marker's search.
// In:  a byte that says how much of the marker to put in, then the L3 bytes.
#include <algorithm>
#include <string_view>
#include <vector>

#include "dhcp_vex_pkt_channel.h"
#include "fuzz/module_fixture.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using namespace vex;
  constexpr std::string_view kMarker = "Quor DHCP lnkprobemarkerz";
  constexpr size_t kPayloadAt = 28;
  fuzz::RunningModule::Get();
  fuzz::Input input(data, size);
  const size_t marker = input.U8() % (kMarker.size() + 1);
  std::vector<uint8_t> l3(input.Rest().begin(), input.Rest().end());
  if (l3.size() > 2048) return 0;
  for (size_t i = 0; i < marker && kPayloadAt + i < l3.size(); ++i) {
    l3[kPayloadAt + i] = static_cast<uint8_t>(kMarker[i]);
  }
  const platform::PacketPtr packet = platform::Packets().NewExact(l3, {.appType = 10});
  const uint32_t digit = DhcpGetInstFromIcmpPkt(packet.get());
  fuzz::Require(digit <= 9 || digit == DHCP_NONE, "a digit or none");
  const uint32_t channel = DhcpPktGetIcmpChnID(packet.get());
  fuzz::Require(channel <= 15 || channel == DHCP_NONE, "a channel or none");
  return 0;
}
