// Loading, starting and unloading the built library as the framework does.
#include "platform/module_loader.h"

#include <gmock/gmock.h>

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

using testing::HasSubstr;

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

// What a library that lacks a symbol leads to: tests/module/optional_library_test.cpp.
TEST(ModuleLoader, OffersTheOptionalLibrariesOfTheChosenDirectories) {
  const struct {
    std::vector<std::string> dirs;
    bool arp, mlag;
    const char* line;  // of the system log
  } cases[] = {
      {{}, false, false, "[VEX-DHCP-DYNSO]dlopen libdb_arp.so error."},
      {{VEX_OPTIONAL_DIR}, true, true, "[VEX-DHCP-DYNSO] db mlag symbol init ok."},
      {{VEX_OPTIONAL_NO_GET_DIR, VEX_OPTIONAL_DIR}, false, true, "dlsym db_get_arp_work_if_index failed."},
      {{VEX_OPTIONAL_DIR}, true, true, "[VEX-DHCP-DYNSO] db arp symbol init.(ret:0)"},  // again
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.line);
    const LogCapture log(MaskOf(LogOutput::kSyslog));
    const auto module = Module::Load(VEX_MODULE_PATH, {.optionalDirs = c.dirs});
    EXPECT_EQ(*module->Var<void*>("g_dhcp_db_create_arp_obj") != nullptr, c.arp);
    EXPECT_EQ(*module->Var<void*>("g_dhcp_mlag_vex_hookEgress") != nullptr, c.mlag);
    EXPECT_THAT(log.Texts(LogOutput::kSyslog), testing::Contains(HasSubstr(c.line)));
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
  EXPECT_THAT(LoadError("/nonexistent/libvex_dhcp.so"),
              HasSubstr("/nonexistent/libvex_dhcp.so: cannot open"));
  EXPECT_THAT(LoadError(VEX_OPTIONAL_DIR "/libvex_mlag.so"), HasSubstr("registered no module record"));
  const auto loaded = Module::Load(VEX_MODULE_PATH);
  EXPECT_THAT(LoadError(VEX_MODULE_PATH), HasSubstr("loaded already"));
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
  std::string refused;
  try {
    module->Configure("DhcpCfg", request);
  } catch (const ModuleError& error) {
    refused = error.what();
  }
  EXPECT_THAT(refused, HasSubstr("unsupported board 2"));
}

}  // namespace
}  // namespace vex::platform
