// Loading, starting and unloading the built library as the framework does.
#include "platform/module_loader.h"

#include <gtest/gtest.h>

#include "platform/board.h"
#include "platform/channel.h"
#include "platform/channel_events.h"
#include "platform/clock.h"
#include "platform/event_thread.h"
#include "platform/faults.h"
#include "platform/findings.h"
#include "platform/logs.h"
#include "platform/platform.h"
#include "test_paths.h"

namespace vex::platform {
namespace {

TEST(ModuleLoader, StartsTheModuleAndDispatchesConfigurationOnlyAfterItsStartUp) {
  OpenServicePorts();
  const auto module = Module::Load(VEX_MODULE_PATH, {.init = false});
  EXPECT_STREQ(module->Record().name, "vex_dhcp");
  EXPECT_EQ(module->Record().word120, 720u);
  EXPECT_EQ(*module->Var<uint32_t>("mod_vex_dhcp_id"), module->Record().id);
  const uint32_t request[3] = {1, 0, 0};
  EXPECT_THROW(module->Configure("DhcpCfg", request), ModuleError);
  ASSERT_EQ(module->Init(), 0u);
  EXPECT_EQ(module->Configure("DhcpCfg", request), 0u);
  EXPECT_THROW(module->Configure("NoSuchHandler", request), ModuleError);
  ASSERT_EQ(Hooks().All().size(), 1u);
  EXPECT_EQ(Hooks().All()[0].point, HookTable::kHostPacketPoint);
  EXPECT_EQ(Hooks().All()[0].value, 100u);
  ASSERT_EQ(TheBoard().RpcServices().size(), 1u);
  EXPECT_EQ(TheBoard().RpcServices()[0].number, 20013);
  EXPECT_EQ(TheBoard().RpcServices()[0].name, "DhcpCfgService");
}

TEST(ModuleLoader, UnloadsCleanlyAndLoadsAFreshModule) {
  for (int round = 0; round < 3; ++round) {
    const auto module = Module::Load(VEX_MODULE_PATH, {.lcores = 2, .optionalDirs = {VEX_OPTIONAL_DIR}});
    uint32_t& bitmap = *module->Var<uint32_t>("g_dhcpVexCfgBitMap");
    EXPECT_EQ(bitmap, 0u) << "state of round " << round - 1 << " survived";
    EXPECT_NE(*module->Var<void*>("g_dhcp_mlag_vex_hookEgress"), nullptr);
    bitmap = 0xFFFF;
    module->Fn<void()>("DhcpVexStartSnpNotifyTimer")();
    EXPECT_EQ(TheClock().Timers().size(), 1u);
    module->Unload();
    EXPECT_TRUE(Hooks().All().empty());
    EXPECT_TRUE(TheClock().Timers().empty());
    EXPECT_FALSE(Events().Write(2));
    EXPECT_EQ(g_pluginModRegHead, nullptr);
  }
  EXPECT_TRUE(Audit().empty());
}

TEST(ModuleLoader, RunsTheLcoreConstructorsOnEveryLcore) {
  const auto module = Module::Load(VEX_MODULE_PATH, {.lcores = 3, .moduleId = 77});
  std::mutex mutex;
  std::vector<uint32_t> ids;
  module->Lcores().RunOnEach([&] {
    const uint32_t id = *module->Var<uint32_t>("per_lcore_mod_vex_dhcp_usrid");
    const std::lock_guard lock(mutex);
    ids.push_back(id);
  });
  EXPECT_EQ(ids, (std::vector<uint32_t>{77, 77, 77}));
  EXPECT_EQ(*module->Var<uint32_t>("per_lcore_mod_vex_dhcp_usrid"), 0u);
}

struct OptionalCase {
  const char* name;
  std::vector<std::string> dirs;
  bool arp;
  bool mlag;
  const char* line;  // of the system log
};

TEST(ModuleLoader, OffersTheOptionalLibrariesOfTheChosenDirectories) {
  const std::vector<OptionalCase> cases = {
      {"none", {}, false, false, "[VEX-DHCP-DYNSO]dlopen libdb_arp.so error."},
      {"both", {VEX_OPTIONAL_DIR}, true, true, "[VEX-DHCP-DYNSO] db mlag symbol init ok."},
      {"no create",
       {VEX_OPTIONAL_NO_CREATE_DIR},
       false,
       false,
       "[VEX-DHCP-DYNSO] dlsym db_create_arp_obj failed."},
      {"no release", {VEX_OPTIONAL_NO_RELEASE_DIR}, false, false, "dlsym db_release_arp_object failed."},
      {"no get, M-LAG",
       {VEX_OPTIONAL_NO_GET_DIR, VEX_OPTIONAL_DIR},
       false,
       true,
       "dlsym db_get_arp_work_if_index failed."},
      {"no send", {VEX_OPTIONAL_NO_MLAG_DIR}, false, false, "[VEX-DHCP-DYNSO] dlsym mlag failed."},
      {"both again", {VEX_OPTIONAL_DIR}, true, true, "[VEX-DHCP-DYNSO] db arp symbol init.(ret:0)"},
  };
  for (const OptionalCase& c : cases) {
    SCOPED_TRACE(c.name);
    const LogCapture log(MaskOf(LogOutput::kSyslog));
    const auto module = Module::Load(VEX_MODULE_PATH, {.optionalDirs = c.dirs});
    EXPECT_EQ(*module->Var<void*>("g_dhcp_db_create_arp_obj") != nullptr, c.arp);
    EXPECT_EQ(*module->Var<void*>("g_dhcp_mlag_vex_hookEgress") != nullptr, c.mlag);
    std::string all;
    for (const std::string& text : log.Texts(LogOutput::kSyslog)) all += text + "\n";
    EXPECT_NE(all.find(c.line), std::string::npos) << all;
  }
}

std::string LoadError(const std::string& path, const ModuleOptions& options = {}) {
  try {
    Module::Load(path, options);
  } catch (const ModuleError& error) {
    return error.what();
  }
  return "";
}

TEST(ModuleLoader, SaysWhatIsWrongWithALibraryItCannotStart) {
  EXPECT_NE(LoadError("/nonexistent/libvex_dhcp.so").find("/nonexistent/libvex_dhcp.so: cannot open"),
            std::string::npos);
  const std::string foreign = std::string(VEX_OPTIONAL_DIR) + "/libvex_mlag.so";
  EXPECT_NE(LoadError(foreign).find("registered no module record"), std::string::npos);
  const auto loaded = Module::Load(VEX_MODULE_PATH);
  EXPECT_NE(LoadError(VEX_MODULE_PATH).find("loaded already"), std::string::npos);
  EXPECT_THROW(Module::Linked({}, "no_such_module"), ModuleError);
}

TEST(ModuleLoader, KeepsRunningModulesApartFromFailedStartUps) {
  Faults().FailAlways(Import::HostHookRegister);
  const auto module = Module::Load(VEX_MODULE_PATH);
  EXPECT_EQ(module->InitResult(), 1u);
  EXPECT_TRUE(Hooks().All().empty());
}

TEST(ModuleLoader, NamesTheBoardWhenTheModuleStaysInactive) {
  TheBoard().SetType(2);
  const auto module = Module::Load(VEX_MODULE_PATH);
  EXPECT_EQ(module->InitResult(), 0u);
  const uint32_t request[3] = {};
  try {
    module->Configure("DhcpCfg", request);
    FAIL() << "configuration was dispatched to an inactive module";
  } catch (const ModuleError& error) {
    EXPECT_NE(std::string(error.what()).find("unsupported board 2"), std::string::npos);
  }
}

}  // namespace
}  // namespace vex::platform
