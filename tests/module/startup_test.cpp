// startup_test.cpp - the module as it is loaded, constructed and started, on every board and with every step
// failing. In:  board types, capabilities, failing imports. Out: the record's bytes, what was registered, the
// log lines in their order.
#include <cstring>
#include <thread>

#include "dhcp_vex_api_patch.h"
#include "dhcp_vex_pkt.h"
#include "dhcp_vex_rate_limit.h"
#include "dhcp_vex_rate_limit_notify.h"
#include "platform/channel_events.h"
#include "tests/module/module_test.h"

namespace vex::module_test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint32_t kNoChannel = 0xFFFF'FFFF;

// No fixture: the module is only loaded. A test that starts it does so by itself.

template <class T>
T At(const void* record, size_t offset) {
  T value;
  std::memcpy(&value, static_cast<const uint8_t*>(record) + offset, sizeof(value));
  return value;
}

TEST(Load, TheRecordAndItsBytes) {
  const void* record = mod_plugin_register();
  ASSERT_EQ(record, &mod_vex_dhcp);
  EXPECT_EQ(g_pluginModRegHead, record);
  EXPECT_EQ(At<void*>(record, 16), nullptr);  // nobody registered before
  EXPECT_STREQ(At<const char*>(record, 24), "vex_dhcp");
  EXPECT_EQ(At<uint32_t (*)()>(record, 40), DhcpVexInit);
  EXPECT_EQ(At<uint64_t>(record, 72), 2u);
  EXPECT_EQ(At<uint32_t>(record, 120), 720u);
  EXPECT_EQ(At<void (*)()>(record, 128), orb_mod_ctr_mod_vex_dhcp);
  EXPECT_EQ(At<void (*)()>(record, 136), orb_mod_localctr_mod_vex_dhcp);
  EXPECT_EQ(At<void (*)()>(record, 144), orb_mod_dtr_mod_vex_dhcp);
  EXPECT_EQ(At<void (*)()>(record, 152), orb_mod_localdtr_mod_vex_dhcp);
  Bytes rest(176);
  std::memcpy(rest.data(), record, rest.size());
  for (const auto& [from, to] : {std::pair{16, 32}, {40, 48}, {72, 80}, {120, 124}, {128, 160}}) {
    std::fill(rest.begin() + from, rest.begin() + to, uint8_t{0});
  }
  EXPECT_EQ(rest, Bytes(176, 0));
}

TEST(Load, EverythingIsOff) {
  EXPECT_EQ(g_dhcpVexCfgBitMap + g_dhcpPktDump + g_dhcpVexDebugSwitch + g_dhcpVexPatchDbgSwitch, 0u);
  EXPECT_EQ(g_dhcpVexcurTimeSec + g_dhcpVexcurTimeMilSec, 0u);
  EXPECT_EQ(g_dhcpToVexChn & g_dhcpVexSnpInfoNotifyTimerId & g_dhcpVexPeerLinkNotifyTimerId, 0xFFFF'FFFFu);
  EXPECT_EQ(ReadStats(), Stats{});
  EXPECT_EQ(mod_vex_dhcp_id | mod_vex_dhcp_usrctx_len | per_lcore_mod_vex_dhcp_usrid, 0u);
  EXPECT_EQ(mod_vex_dhcp_usrctx, nullptr);
  for (const DhcpVexSpec& spec : g_dhcpVexSpecs) EXPECT_EQ(spec.value, 0u);
  EXPECT_THAT(platform::Hooks().All(), IsEmpty());
}

TEST(Load, IdsAreCopiedPerThread) {
  mod_vex_dhcp.id = 42;
  orb_mod_ctr_mod_vex_dhcp();
  orb_mod_localctr_mod_vex_dhcp();
  EXPECT_EQ(mod_vex_dhcp_id, 42u);
  EXPECT_EQ(per_lcore_mod_vex_dhcp_usrid, 42u);
  std::thread([] {
    EXPECT_EQ(per_lcore_mod_vex_dhcp_usrid, 0u);
    orb_mod_localctr_mod_vex_dhcp();
    EXPECT_EQ(per_lcore_mod_vex_dhcp_usrid, 42u);
    orb_mod_localdtr_mod_vex_dhcp();
    EXPECT_EQ(per_lcore_mod_vex_dhcp_usrid, 0u);
  }).join();
  EXPECT_EQ(per_lcore_mod_vex_dhcp_usrid, 42u);
  orb_mod_localdtr_mod_vex_dhcp();
  orb_mod_dtr_mod_vex_dhcp();
  EXPECT_EQ(mod_vex_dhcp_id | per_lcore_mod_vex_dhcp_usrid, 0u);
}

TEST(StartUp, Boards) {
  std::vector<uint32_t> types = {0x101, 0x8000'0001, 0xFFFF'FFFF};
  for (uint32_t type = 0; type <= 45; ++type) types.push_back(type);
  for (const uint32_t type : types) {
    SCOPED_TRACE(type);
    const bool supported = type == 1 || type == 4 || type == 9 || type == 10;
    platform::Reset();
    platform::TheBoard().SetType(type);
    const LogCapture log;
    EXPECT_EQ(DhcpCheckBoardType(), supported ? 0u : 1u);
    EXPECT_EQ(DhcpVexInit(), 0u);
    const char* const text = supported ? "DHCP vex module init ok." : "DhcpCheckBoardType not ok.";
    ASSERT_EQ(log.Lines().size() > 1, supported);
    EXPECT_EQ(log.Lines().back(), (LogCapture::Line{LogOutput::kFrameworkLog, 3, text, "", 0, 0}));
    for (const size_t opened : {platform::Hooks().All().size(), platform::Channels().All().size(),
                                platform::TheBoard().RpcServices().size()})
      EXPECT_EQ(opened, supported ? 1u : 0u);
  }
}

std::vector<std::string> CapabilityLines(const std::vector<uint32_t>& values) {
  const char* const names[] = {"DHCP_MULTICORE_SVC_NUM", "DHCP_CAUSID_TYPE",
                               "DHCP_FEATURE_SUPP_NO_CHECK_CFG_PROC_PKT", "DHCP_MLAG_IPV4_PKT_RATE",
                               "DHCP_MLAG_IPV6_PKT_RATE"};
  std::vector<std::string> lines;
  for (size_t i = 0; i < values.size(); ++i)
    lines.push_back(std::string("[DHCP] vex capset ") + names[i] + " value: " + std::to_string(values[i]));
  return lines;
}

TEST(StartUp, StepsInTheirOrder) {
  platform::TheBoard().SetCapability("DHCP_MULTICORE_SVC_NUM", 7);
  platform::TheBoard().SetCapability("DHCP_MLAG_IPV6_PKT_RATE", 0xFFFF'FFFF);
  Faults().StartRecording();
  const LogCapture log;
  EXPECT_EQ(DhcpVexInit(), 0u);
  std::vector<Import> order;
  for (const auto& call : Faults().TakeRecorded()) {
    if (call.import != Import::syslog && call.import != Import::OrbLog) order.push_back(call.import);
  }
  const auto query = Import::OrbCapabilityQueryItem;
  EXPECT_THAT(order, ElementsAre(Import::OrbCurrentBoard, Import::sprintf_s, Import::RegTavriRpcServerToVex,
                                 query, query, query, query, query, Import::OrbChnEvtCallbackRegister,
                                 Import::ORB_ChannelCreate, Import::HostHookRegister, Import::memset_s,
                                 Import::memset_s, Import::OrbSpinlockInit));
  auto syslog = log.Texts(LogOutput::kSyslog);
  ASSERT_GE(syslog.size(), 6u);
  EXPECT_EQ(syslog[0], "[DHCP] VEX lumo server init ok.");
  EXPECT_EQ(std::vector(syslog.begin() + 1, syslog.begin() + 6), CapabilityLines({7, 0, 0, 0, 0xFFFF'FFFF}));
  for (size_t i = 0; i < 6; ++i) EXPECT_EQ(log.Lines()[i].level, 6u);
  EXPECT_THAT(log.Texts(LogOutput::kFrameworkLog), ElementsAre("DHCP vex module init ok."));
  EXPECT_EQ(DhcpVexGetSpecs(0), 7u);
  EXPECT_EQ(DhcpVexGetSpecs(4), 0xFFFF'FFFFu);
  EXPECT_EQ(DhcpVexGetSpecs(5) + DhcpVexGetSpecs(0xFFFF'FFFF), 0u);
  const auto* channel = platform::Channels().Find("channel/dhcp2vex");
  ASSERT_NE(channel, nullptr);
  EXPECT_EQ(channel->Depth(), 4096u);
  EXPECT_EQ(channel->Id(), g_dhcpToVexChn);
  EXPECT_TRUE(platform::Events().Write(2));
  const auto services = platform::TheBoard().RpcServices();
  ASSERT_EQ(services.size(), 1u);
  Bytes record(48, 0);
  record[12] = 0x2D, record[13] = 0x4E;
  std::memcpy(record.data() + 14, "DhcpCfgService", 14);
  EXPECT_EQ(Bytes(services[0].record.begin(), services[0].record.end()), record);
  EXPECT_EQ(g_dhcpDegradeInfo.degradeRate, 0xFFFF'FFFFu);
  EXPECT_EQ(g_dhcpSnpGblInfo.v6Cfg.pktRate, 5000);
}

TEST(StartUp, EachStepFailing) {
  const std::string start = "DhcpVexStart not ok.", done = "DHCP vex module init ok.";
  const Fault serviceFault{.import = Import::RegTavriRpcServerToVex, .code = 4294967295},
      hookFault{.import = Import::HostHookRegister, .code = 0x1234'5678'9ABC};
  const std::string event = "DHCP Regist dhcp2vex channel event callback failed.";
  const struct {
    Fault fault;
    uint32_t ret;
    std::vector<std::string> logged;  // framework log
    size_t services, hooks;           // left registered
  } cases[] = {
      {serviceFault, 1, {"DhcpVexTavriRpcServersCreate not ok."}, 0, 0},
      {{.import = Import::OrbChnEvtCallbackRegister}, 1, {event, start}, 1, 0},
      {{.import = Import::ORB_ChannelCreate}, 1, {start}, 1, 0},
      {hookFault, 1, {"DHCP regist vex hook failed. (ret=123456789abc)", start}, 1, 0},
      {{.import = Import::OrbSpinlockInit}, 0, {done}, 1, 1},
      {{.import = Import::OrbCapabilityQueryItem}, 0, {done}, 1, 1},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(ImportName(c.fault.import));
    platform::Reset();
    Faults().Arm(c.fault);
    const LogCapture log;
    EXPECT_EQ(DhcpVexInit(), c.ret);
    EXPECT_EQ(log.Texts(LogOutput::kFrameworkLog), c.logged);
    EXPECT_EQ(log.Lines().back().level, 3u);
    if (c.logged.size() == 2) {
      EXPECT_EQ(log.Lines()[log.Lines().size() - 2].level, 1u);
    }
    const std::string last = c.services == 0 ? "Vex dhcp tavri rpc server create failed, ret:4294967295."
                                             : "[DHCP] vex capset DHCP_MLAG_IPV6_PKT_RATE value: 0";
    EXPECT_THAT(log.Texts(LogOutput::kSyslog), testing::Contains(last));
    EXPECT_EQ(platform::TheBoard().RpcServices().size(), c.services);
    EXPECT_EQ(platform::Hooks().All().size(), c.hooks);
    EXPECT_TRUE(g_dhcpToVexChn == kNoChannel || c.fault.import != Import::ORB_ChannelCreate);
  }
}

TEST(StartUp, CapabilitiesByName) {
  auto& board = platform::TheBoard();
  board.SetCapability("ANYTHING", 77);
  board.SetCapability("DHCP_CAUSID_TYPE", 1);
  uint32_t value = 5;
  Faults().Arm({.import = Import::OrbCapabilityQueryItem, .times = 1, .code = 99});
  EXPECT_EQ(DhcpVexGetSpecsByDescr("ANYTHING", &value), 99u);
  EXPECT_EQ(DhcpVexGetSpecsByDescr("UNKNOWN", &value), 1u);
  EXPECT_EQ(value, 5u);
  EXPECT_EQ(DhcpVexGetSpecsByDescr("ANYTHING", &value), 0u);
  EXPECT_EQ(value, 77u);
  EXPECT_EQ(DhcpVexGetSpecsByDescr("DHCP_CAUSID_TYPE", &value), 0u);
  EXPECT_EQ(DhcpVexGetSpecs(1), 0u);  // the table is not touched
  DhcpVexCapsetCfg();
  Faults().FailAlways(Import::OrbCapabilityQueryItem);
  const LogCapture log;
  DhcpVexCapsetCfg();  // what failed keeps its value
  EXPECT_EQ(log.Texts(LogOutput::kSyslog), CapabilityLines({0, 1, 0, 0, 0}));
}

}  // namespace
}  // namespace vex::module_test
