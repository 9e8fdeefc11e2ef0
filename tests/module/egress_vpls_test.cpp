// egress_vpls_test.cpp - which packets may leave through a VPLS pseudo-wire.
// In:  tunnels, interface objects, ARP entries, trust; each look-up failing. Out: verdict, the look-ups in
// their order with their releases, and each line at the outputs it belongs to.
#include <functional>
#include <map>

#include "dhcp_vex_egress_db.h"
#include "dhcp_vex_egress_db_dynso.h"
#include "test_paths.h"
#include "tests/module/egress_test.h"

namespace vex::module_test {
namespace {

using platform::Objects;
using I = Import;

constexpr uint32_t kTunnel = 0x11223344, kOutIf = 31, kNextHop = 0x0A000001, kWorkIf = 45, kVlan = 100;
constexpr uint8_t kTunnelType = 9;
const std::string kNoTrust = "[ERR][VEX-DHCP] No need to send pkt to pw for no trust port.";
const std::string kNoTunnel = "[ERR][VEX-DHCP] Failed to Get out-interface by l2vpn tunnel info. ret:7";

std::string Passing(uint32_t vlan) {
  return "[INFO][VEX-DHCP] Snp over vpls, packet send pw.(ifIndex:45, vlanId:" + std::to_string(vlan) + ")";
}
std::string NoNeed(uint32_t vlan) {
  return "[ERR][VEX-DHCP] No need to send vpls pkt to pw.(vlanId:" + std::to_string(vlan) + ")";
}

// The look-ups by one letter each, in the order of the calls.
std::string Steps(const std::vector<platform::Call>& calls) {
  // clang-format off
  const std::map<Import, char> letters = {
      {I::HostMbufGetOutIfByL2vpnTnl, 'T'}, {I::db_create_if_cfg_obj, 'C'}, {I::db_read_obj, 'R'},
      {I::db_get_if_cfg_vlan_id, 'V'}, {I::db_release_if_cfg_object, 'F'}, {I::db_create_arp_obj, 'c'},
      {I::db_get_arp_work_if_index, 'w'}, {I::db_release_arp_object, 'f'}, {I::OrbSpinlockLock, 'L'},
      {I::OrbSpinlockUnlock, 'U'}, {I::MbufPktCutHead, '|'}};
  // clang-format on
  std::string steps;
  for (const auto& call : calls) {
    if (const auto letter = letters.find(call.import); letter != letters.end()) steps += letter->second;
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
  bool rare;  // the first line goes to the diagnostic log too
  std::string steps;
};

std::function<void()> Fail(Import import, int code = 7, uint64_t nth = 1) {
  return [=] {
    Faults().Arm({.import = import, .skip = nth - 1, .times = 1, .code = static_cast<uint32_t>(code)});
  };
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
  const std::string all = "TCRVFcRwfLU";
  const Case kCases[] = {
      {"trusted in its VLAN", [] {}, 0, {Passing(kVlan)}, false, all},
      {"trusted by its own flag", Untrust(0, kWorkIf), 0, {Passing(kVlan)}, false, all},
      {"trusted in another VLAN", Untrust(kVlan + 1, 0), 1, {Passing(kVlan), kNoTrust}, false, all},
      {"another interface trusted", Untrust(0, kOutIf), 1, {Passing(kVlan), kNoTrust}, false, all},
      {"no tunnel", Fail(I::HostMbufGetOutIfByL2vpnTnl), 1, {kNoTunnel}, true, "T"},
      {"no interface object", Fail(I::db_create_if_cfg_obj, -7), 1, {noCreate, NoNeed(0)}, true, "TC"},
      {"interface not read", Fail(I::db_read_obj, -7), 1, {noRead, NoNeed(0)}, true, "TCRF"},
      {"no VLAN id", Fail(I::db_get_if_cfg_vlan_id, -7), 1, {noVlan, NoNeed(0)}, true, "TCRVF"},
      {"VLAN 0", Vlan(0), 1, {NoNeed(0)}, false, "TCRVF"},
      {"VLAN 1", Vlan(1), 0, {Passing(1)}, false, all},
      {"VLAN 4094", Vlan(4094), 0, {Passing(4094)}, false, all},
      {"VLAN 4095", Vlan(4095), 1, {NoNeed(4095)}, false, "TCRVF"},
      {"VLAN of 32 bits", Vlan(0x10064), 1, {NoNeed(0x10064)}, false, "TCRVF"},
      {"no ARP object", Fail(I::db_create_arp_obj), 1, {}, false, "TCRVFc"},
      {"ARP not read", Fail(I::db_read_obj, -7, 2), 1, {noArp}, false, "TCRVFcRf"},
      {"no work interface", Fail(I::db_get_arp_work_if_index), 1, {noWorkIf}, false, "TCRVFcRwf"},
      {"create slot empty", [] { g_dhcp_db_create_arp_obj = nullptr; }, 1, {}, false, "TCRVF"},
      {"get slot empty", [] { g_db_get_arp_work_if_index = nullptr; }, 1, {noWorkIf}, false, "TCRVFcRf"},
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
    if (c.rare) rare.push_back("(vex), " + c.debug[0]);
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

// What every look-up is asked for, through the exports that other modules call.
TEST_F(VplsTest, LookUpsPassTheirArgumentsOn) {
  PacketPtr packet = Make(kEthernet).New();
  uint32_t outIf = 1, nextHop = 2, vlan = 3, workIf = 4;
  Faults().StartRecording();
  EXPECT_EQ(DhcpVexGetOutInterfaceAndNextHop(packet.get(), kTunnel, kTunnelType, &outIf, &nextHop), 0u);
  const auto calls = Faults().TakeRecorded();
  ASSERT_EQ(calls.size(), 1u);
  EXPECT_EQ(calls[0].args[0], reinterpret_cast<uintptr_t>(packet.get()));
  EXPECT_EQ(std::pair(calls[0].args[1], calls[0].args[2]),
            (std::pair<uint64_t, uint64_t>(kTunnel, kTunnelType)));
  EXPECT_EQ(std::pair(outIf, nextHop), std::pair(kOutIf, kNextHop));
  EXPECT_EQ(DhcpVexGetVlanId(outIf, &vlan) + DhcpVexGetWorkIfIndex(nextHop, outIf, &workIf), 0u);
  EXPECT_EQ(std::pair(vlan, workIf), std::pair(kVlan, kWorkIf));
  EXPECT_EQ(DhcpVexGetVlanId(outIf + 1, &vlan), 1u);
  EXPECT_EQ(DhcpVexGetWorkIfIndex(nextHop, outIf + 1, &workIf), 1u);
  EXPECT_EQ(workIf, 0u) << "set to 0 before the look-up";
}

// The header's fields reach the check, before the header is cut.
TEST_F(VplsTest, TheDrainAdmitsByTheHeader) {
  const Message sent = Make(kEthernet).Vpls(kTunnel, kTunnelType, 0x8000);
  const std::pair<Message, bool> cases[] = {{sent, true},
                                            {sent.Vpls(kTunnel + 1, kTunnelType), false},
                                            {sent.Vpls(kTunnel, kTunnelType + 1), false},
                                            {sent.Vpls(1, 1, 0), true}};
  for (const auto& [message, admitted] : cases) {
    Send(message);
    Drain();
    EXPECT_EQ(Moved(), (Stats{0, admitted}));
    EXPECT_EQ(Published().size(), admitted ? 1u : 0u);
  }
  Faults().StartRecording();
  Send(sent);
  Drain();
  EXPECT_EQ(Steps(Faults().TakeRecorded()), "TCRVFcRwfLU|");
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
