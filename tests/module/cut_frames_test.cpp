// cut_frames_test.cpp - frames cut at every length, in heap blocks of exactly that size, through everything
// that reads a packet. The address sanitizer sees a read behind the packet; without it the answers still
// tell.
#include "dhcp_vex_pkt.h"
#include "dhcp_vex_pkt_channel.h"
#include "dhcp_vex_pkt_deliver.h"
#include "dhcp_vex_rate_limit_peerlink.h"
#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

constexpr uint32_t kEverySwitch = 0xFFFF;

struct Whole {
  const char* name;
  Frame frame;
  uint32_t pktType;    // of the whole frame
  size_t wantedFrom;   // shortest length with the byte that its rule tests
  uint32_t malformed;  // channel while the frame is too short for its key
};

std::vector<Whole> WholeFrames() {
  const uint32_t none = 0xFFFFFFFF;
  return {
      {"ARP", Arp(2, 1), 1, 18 + 8, 1},
      {"probe", Probe("3"), 0, 14 + 21, none},
      {"probe behind IPv4 options", Echo(0, Bytes(30, 1), 15), 0, 14 + 61, none},
      {"DHCPv4", Dhcp4(), 2, 0, 2},
      {"DHCPv4 behind tags", Dhcp4(kClientMac, 2, 2), 2, 0, 2},
      {"DHCPv6", Dhcp6(), 2, 0, 2},
      {"relayed DHCPv6", Dhcp6(Relayed(Relayed(Solicit()), 13)), 2, 0, 2},
      {"neighbour advertisement", Nd(136), 12, 14 + 41, none},
      {"solicitation from ::", Nd(135, kUnspecified), 12, 14 + 41, none},
      {"router advertisement", Nd(134), 12, 14 + 41, none},
  };
}

class CutFramesTest : public ModuleTest {
 protected:
  void SetUp() override {
    ModuleTest::SetUp();
    ASSERT_TRUE(platform::Packets().Configure({.count = 64, .exactBlocks = true}));  // copies are exact too
    SetInstances(3);
  }
};

// Every export that reads packet bytes; what they answer is of no interest here.
void AskEverything(OrbMbuf* pkt) {
  for (uint32_t switches : {0u, 0x1000u, kEverySwitch}) {
    SetSwitches(switches);
    uint32_t takeFlag = 0, length = 0;
    DhcpGetPktType(pkt, &takeFlag);
    DhcpIsIcmpv6PktNeed(pkt, &takeFlag);
    for (const auto predicate :
         {DhcpIsArpPktNeed, DhcpIsIcmpPktNeed, DhcpIsDhcp4PktNeed, DhcpIsDhcp6PktNeed, DhcpIsNdSnpPkt,
          DhcpIsIcmpEhcoReply, DhcpIsIcmpv6EhcoReply, DhcpPktGetDhcpChnID, DhcpPktGetIcmpv6ChnID,
          DhcpPktGetIcmpv6ChnIDNdSnp, DhcpPktGetIcmpv6ChnIDDhcpv6Snp, DhcpGetInstFromIcmpPkt,
          DhcpPktGetIcmpChnID, DhcpVexGetPktType}) {
      predicate(pkt);
    }
    DhcpVexGetIpHead(pkt, &length);
    DhcpVexGetUdpHead(pkt, &length);
  }
}

TEST_F(CutFramesTest, EveryLengthIsWantedAndRoutedByWhatItHolds) {
  SetSwitches(kEverySwitch);
  for (const Whole& whole : WholeFrames()) {
    const uint32_t channel = DhcpPktGetChnID(whole.frame.New().get(), whole.pktType);
    for (size_t length = 0; length <= whole.frame.bytes.size(); ++length) {
      SCOPED_TRACE(testing::Message() << whole.name << ", " << length);
      const PacketPtr packet = whole.frame.Cut(length).Exact();
      uint32_t takeFlag = 0;
      EXPECT_EQ(DhcpGetPktType(packet.get(), &takeFlag), length < whole.wantedFrom ? 13 : whole.pktType);
      const uint32_t cut = DhcpPktGetChnID(packet.get(), whole.pktType);
      const bool probeWithoutDigit = whole.pktType == 0 && length == 14 + 53 && cut == 0;
      EXPECT_TRUE(cut == channel || cut == whole.malformed || probeWithoutDigit) << cut;
    }
  }
}

TEST_F(CutFramesTest, NothingReadsBehindThePacket) {
  for (const Whole& whole : WholeFrames()) {
    for (size_t length = 0; length <= whole.frame.bytes.size(); ++length) {
      const PacketPtr packet = whole.frame.Cut(length).Exact();
      AskEverything(packet.get());
      for (const uint32_t appType : {kAppArp, kAppIcmp, kAppDhcp4, kAppIcmp6, kAppDhcp6}) {
        packet->attr.appType = appType;  // taken for something else
        AskEverything(packet.get());
      }
      for (const uint32_t claim : {2000u, UINT32_MAX}) {  // longer than its first buffer
        packet->dataLen = claim;
        AskEverything(packet.get());
      }
      packet->dataLen = static_cast<uint32_t>(length);
      // A data offset behind the buffer: nothing of it is read.
      packet->dataOff = static_cast<uint16_t>(packet->bufLen + 1);
      AskEverything(packet.get());
      packet->dataOff = 0;
    }
  }
}

TEST_F(CutFramesTest, TheHookDisposesOfEveryLength) {
  g_dhcpPktDump = 1;
  DhcpVexSetDbgSwitch(1);
  SetSwitches(kEverySwitch);
  DhcpVexPeerLinkRateInit();
  for (const Whole& whole : WholeFrames()) {
    for (const uint16_t headroom : {uint16_t{0}, uint16_t{23}, uint16_t{24}}) {
      for (size_t length = 0; length <= whole.frame.bytes.size(); ++length) {
        PacketPtr packet = whole.frame.Cut(length).FromPeerLink().Exact(headroom);
        const uint32_t verdict = DhcpHostHookCallback(packet.get());
        EXPECT_TRUE(verdict == 0 || verdict == 0x1000000 || verdict == 0x10000000) << verdict;
        if (verdict == 0x1000000) static_cast<void>(packet.release());  // a channel or the fan-out has it
        DrainAll();
      }
    }
  }
  EXPECT_EQ(platform::Packets().Stats().inUse, 0u);
  g_dhcpPktDump = 0;
}

}  // namespace
}  // namespace vex::module_test
