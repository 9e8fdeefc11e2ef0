// egress_vpls_test.cpp - which packets may leave through a VPLS pseudo-wire.
// In:  tunnels, interface objects, ARP entries, trust; each look-up failing. Out: verdict, the look-ups in
// their order with their releases, and each line at the outputs it belongs to.
#include <functional>

#include "dhcp_vex_egress_db.h"
#include "dhcp_vex_egress_db_dynso.h"
#include "test_paths.h"
#include "tests/module/egress_test.h"

namespace vex::module_test {
namespace {

using platform::Objects;

constexpr uint32_t kTunnel = 0x11223344, kOutIf = 31, kNextHop = 0x0A000001, kWorkIf = 45, kVlan = 100;
constexpr uint8_t kTunnelType = 9;
const std::string kPassing = "[INFO][VEX-DHCP] Snp over vpls, packet send pw.(ifIndex:45, vlanId:100)";
const std::string kNoTrust = "[ERR][VEX-DHCP] No need to send pkt to pw for no trust port.";
const std::string kNoTunnel = "[ERR][VEX-DHCP] Failed to Get out-interface by l2vpn tunnel info. ret:7";

std::string NoNeed(uint32_t vlan) {
  return "[ERR][VEX-DHCP] No need to send vpls pkt to pw.(vlanId:" + std::to_string(vlan) + ")";
}

// The look-ups by one letter each, in the order of the calls.
std::string Steps(const std::vector<platform::Call>& calls) {
  constexpr std::pair<Import, char> kLetters[] = {{Import::HostMbufGetOutIfByL2vpnTnl, 'T'},
                                                  {Import::db_create_if_cfg_obj, 'C'},
                                                  {Import::db_read_obj, 'R'},
                                                  {Import::db_get_if_cfg_vlan_id, 'V'},
                                                  {Import::db_release_if_cfg_object, 'F'},
                                                  {Import::db_create_arp_obj, 'c'},
                                                  {Import::db_get_arp_work_if_index, 'w'},
                                                  {Import::db_release_arp_object, 'f'},
                                                  {Import::OrbSpinlockLock, 'L'},
                                                  {Import::OrbSpinlockUnlock, 'U'}};
  std::string steps;
  for (const auto& call : calls) {
    for (const auto& [import, letter] : kLetters) {
      if (call.import == import) steps += letter;
    }
  }
  return steps;
}

// A device on which the tunnel resolves and the work interface is trusted in its VLAN.
class VplsTest : public EgressTest {
 protected:
  explicit VplsTest(std::vector<std::string> libraries = {VEX_OPTIONAL_DIR "/libdb_arp.so"})
      : EgressTest(std::move(libraries)) {}
  void SetUp() override {
    EgressTest::SetUp();
    DhcpVexSetDbgSwitch(1);
    Prepare();
  }
  void TearDown() override {
    DhcpVexSetDbgSwitch(0);
    EgressTest::TearDown();
  }
  static void Prepare() {
    Faults().Reset();
    ClearStore();
    Objects().ClearRows();
    Objects().SetTunnel(kTunnel, kTunnelType, {kOutIf, kNextHop});
    Objects().SetInterfaceVlan(kOutIf, kVlan);
    Objects().SetArp(kNextHop, kOutIf, kWorkIf);
    DhcpVexSaveSnpCfg(kWorkIf, 25, kVlan);
  }
  static uint32_t Check() { return DhcpVexCheckVplsPktSendPw(nullptr, 1, kTunnel, kTunnelType); }
};

struct Case {
  const char* what;
  std::function<void()> change;
  uint32_t verdict;
  std::vector<std::string> debug;
  std::vector<std::string> rare;  // the lines of `debug` that the diagnostic log gets too
  std::string steps;
};

std::function<void()> Fail(Import import, uint64_t nth = 1, uint64_t code = 7) {
  return [=] { Faults().Arm({.import = import, .skip = nth - 1, .times = 1, .code = code}); };
}
std::function<void()> Vlan(uint32_t vlan) {
  return [=] { Objects().SetInterfaceVlan(kOutIf, vlan), DhcpVexSaveSnpCfg(kWorkIf, 25, vlan); };
}
std::function<void()> Untrust(uint32_t vlanTrusted, uint32_t workIfTrusted) {
  return [=] {
    ClearStore();
    if (vlanTrusted != 0) DhcpVexSaveSnpCfg(kWorkIf, 25, vlanTrusted);
    if (workIfTrusted != 0) DhcpVexSaveSnpCfg(1, 24, workIfTrusted);
  };
}

TEST_F(VplsTest, EveryPathReleasesWhatItCreatedAndSaysWhy) {
  const std::string noCreate = "[ERR][VEX-DHCP] Failed to create if cfg object. ret:-7";
  const std::string noRead = "[ERR][VEX-DHCP] Failed to read if_cfg. ret:-7, ifindex:31";
  const std::string noVlan = "[ERR][VEX-DHCP]Failed to get vlanIdf. ret:-7, ifindex:31";
  const std::string noArp =
      "[ERR][VEX-DHCP] Failed to read arp.(ret:-7, nextHopIpAddr:167772161, outIfIndex:31)";
  const std::string noWorkIf = "[ERR][VEX-DHCP] Failed to get work_if_index";
  const uint64_t minus7 = static_cast<uint32_t>(-7);
  const std::string all = "TCRVFcRwfLU";
  const Case kCases[] = {
      {"trusted in its VLAN", [] {}, 0, {kPassing}, {}, all},
      {"trusted by its own flag", Untrust(0, kWorkIf), 0, {kPassing}, {}, all},
      {"trusted in another VLAN", Untrust(kVlan + 1, 0), 1, {kPassing, kNoTrust}, {}, all},
      {"another interface trusted", Untrust(0, kOutIf), 1, {kPassing, kNoTrust}, {}, all},
      {"no tunnel", Fail(Import::HostMbufGetOutIfByL2vpnTnl), 1, {kNoTunnel}, {kNoTunnel}, "T"},
      {"no interface object",
       Fail(Import::db_create_if_cfg_obj, 1, minus7),
       1,
       {noCreate, NoNeed(0)},
       {noCreate},
       "TC"},
      {"interface not read", Fail(Import::db_read_obj, 1, minus7), 1, {noRead, NoNeed(0)}, {noRead}, "TCRF"},
      {"no VLAN id",
       Fail(Import::db_get_if_cfg_vlan_id, 1, minus7),
       1,
       {noVlan, NoNeed(0)},
       {noVlan},
       "TCRVF"},
      {"VLAN 0", Vlan(0), 1, {NoNeed(0)}, {}, "TCRVF"},
      {"VLAN 1",
       Vlan(1),
       0,
       {"[INFO][VEX-DHCP] Snp over vpls, packet send pw.(ifIndex:45, vlanId:1)"},
       {},
       all},
      {"VLAN 4094",
       Vlan(4094),
       0,
       {"[INFO][VEX-DHCP] Snp over vpls, packet send pw.(ifIndex:45, vlanId:4094)"},
       {},
       all},
      {"VLAN 4095", Vlan(4095), 1, {NoNeed(4095)}, {}, "TCRVF"},
      {"VLAN of 32 bits", Vlan(0x10064), 1, {NoNeed(0x10064)}, {}, "TCRVF"},
      {"no ARP object", Fail(Import::db_create_arp_obj), 1, {}, {}, "TCRVFc"},
      {"ARP not read", Fail(Import::db_read_obj, 2, minus7), 1, {noArp}, {}, "TCRVFcRf"},
      {"no work interface", Fail(Import::db_get_arp_work_if_index), 1, {noWorkIf}, {}, "TCRVFcRwf"},
      {"create slot empty", [] { g_dhcp_db_create_arp_obj = nullptr; }, 1, {}, {}, "TCRVF"},
      {"get slot empty", [] { g_db_get_arp_work_if_index = nullptr; }, 1, {noWorkIf}, {}, "TCRVFcRf"},
  };
  for (const Case& c : kCases) {
    SCOPED_TRACE(c.what);
    Prepare();
    const auto create = g_dhcp_db_create_arp_obj, get = g_db_get_arp_work_if_index;
    c.change();
    LogCapture logs;
    Faults().StartRecording();
    EXPECT_EQ(Check(), c.verdict);
    EXPECT_EQ(Steps(Faults().TakeRecorded()), c.steps);
    EXPECT_EQ(logs.Texts(LogOutput::kDebugReport), c.debug);
    std::vector<std::string> rare;
    for (const std::string& line : c.rare) rare.push_back("(vex), " + line);
    EXPECT_EQ(logs.Texts(LogOutput::kImAgent), rare);
    EXPECT_EQ(logs.Lines().size(), c.debug.size() + rare.size()) << "a line went elsewhere";
    EXPECT_EQ(Objects().LiveHandles(), 0u);
    g_dhcp_db_create_arp_obj = create, g_db_get_arp_work_if_index = get;
  }
}

TEST_F(VplsTest, WithoutAReleaseFunctionTheHandleIsKept) {
  void* const release = std::exchange(g_dhcp_db_release_arp_object, nullptr);
  EXPECT_EQ(Check(), 0u);
  EXPECT_EQ(Objects().LiveHandles(), 1u);
  Objects().Reset();
  g_dhcp_db_release_arp_object = release;
}

TEST_F(VplsTest, AFlagOf0IsNoPseudoWire) {
  Faults().StartRecording();
  EXPECT_EQ(DhcpVexCheckVplsPktSendPw(nullptr, 0, kTunnel, kTunnelType), 0u);
  EXPECT_TRUE(Faults().TakeRecorded().empty());
}

// What every look-up is asked for, through the exports that other modules call.
TEST_F(VplsTest, LookUpsPassTheirArgumentsOn) {
  PacketPtr packet = Make(kEthernet).New();
  uint32_t outIf = 1, nextHop = 2, vlan = 3, workIf = 4;
  Faults().StartRecording();
  EXPECT_EQ(DhcpVexGetOutInterfaceAndNextHop(packet.get(), kTunnel, kTunnelType, &outIf, &nextHop), 0u);
  const auto calls = Faults().TakeRecorded();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].args[0], reinterpret_cast<uintptr_t>(packet.get()));
  EXPECT_EQ(calls[0].args[1], kTunnel);
  EXPECT_EQ(calls[0].args[2], kTunnelType);
  EXPECT_EQ(std::pair(outIf, nextHop), std::pair(kOutIf, kNextHop));
  EXPECT_EQ(DhcpVexGetVlanId(outIf, &vlan), 0u);
  EXPECT_EQ(vlan, kVlan);
  EXPECT_EQ(DhcpVexGetWorkIfIndex(nextHop, outIf, &workIf), 0u);
  EXPECT_EQ(workIf, kWorkIf);
  EXPECT_EQ(DhcpVexGetVlanId(outIf + 1, &vlan), 1u);
  EXPECT_EQ(DhcpVexGetWorkIfIndex(nextHop, outIf + 1, &workIf), 1u);
  EXPECT_EQ(workIf, 0u) << "set to 0 before the look-up";
  LogCapture logs;
  Fail(Import::HostMbufGetOutIfByL2vpnTnl)();
  EXPECT_EQ(DhcpVexGetOutInterfaceAndNextHop(packet.get(), kTunnel, kTunnelType, &outIf, &nextHop), 1u);
  EXPECT_EQ(logs.Texts(LogOutput::kDebugReport), std::vector{kNoTunnel});
  EXPECT_EQ(logs.Texts(LogOutput::kImAgent), std::vector{"(vex), " + kNoTunnel});
}

// The header's fields reach the check, before the header is cut.
TEST_F(VplsTest, TheDrainAdmitsByTheHeader) {
  const Message sent = Make(kEthernet).Vpls(kTunnel, kTunnelType, 0x8000);
  for (const auto& [message, admitted] :
       {std::pair(sent, true), std::pair(sent.Vpls(kTunnel + 1, kTunnelType), false),
        std::pair(sent.Vpls(kTunnel, kTunnelType + 1), false), std::pair(sent.Vpls(1, 1, 0), true)}) {
    Send(message);
    Drain();
    EXPECT_EQ(Moved(), (Stats{0, admitted}));
    EXPECT_EQ(Published().size(), admitted ? 1u : 0u);
  }
  Faults().StartRecording();
  Send(sent);
  Drain();
  Import last{};
  for (const auto& call : Faults().TakeRecorded()) {
    if (call.import == Import::MbufPktCutHead) {
      EXPECT_EQ(last, Import::OrbSpinlockUnlock);
    }
    if (call.import != Import::OrbIMDebugReport && call.import != Import::vsprintf_s) last = call.import;
  }
}

class VplsWithoutArpTest : public VplsTest {
 protected:
  VplsWithoutArpTest() : VplsTest({}) {}
};

TEST_F(VplsWithoutArpTest, WithoutTheLibraryPseudoWirePacketsAreDroppedSilently) {
  LogCapture logs;
  EXPECT_EQ(Check(), 1u);
  EXPECT_TRUE(logs.Lines().empty());
  EXPECT_EQ(DhcpVexCheckVplsPktSendPw(nullptr, 0, kTunnel, kTunnelType), 0u);
}

}  // namespace
}  // namespace vex::module_test
