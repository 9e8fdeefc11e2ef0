// config_test.cpp - the TOML reader: what it takes, and the one line it gives for everything it does not
// take.
#include "host/config.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>

#include "host/error.h"
#include "host/settings.h"

namespace vex::host::testing {
namespace {

std::string ErrorOf(std::string_view toml) {
  try {
    ParseConfig(toml, "f.toml");
  } catch (const InputError& error) {
    return error.what();
  }
  return "no error";
}

TEST(Config, AnEmptyFileIsTheDefaults) {
  const Config config = ParseConfig("", "f.toml");
  EXPECT_EQ(config.module.switches, 0x7FFFu);
  EXPECT_EQ(config.capabilities.instances, 4u);
  EXPECT_EQ(config.module, Config{}.module);
}

TEST(Config, EveryKeyReachesItsField) {
  const Config config = ParseConfig(R"(
board = 9
degrade_rate = 300
[capabilities]
instances = 2
causeid_type = 1
no_check_cfg = true
mlag_v4_rate = 10
mlag_v6_rate = 20
[switches]
v4_req = false
mlag_peerlink = true
[snooping.global]
v4 = {enable = 2, rate = 1, aux_enable = true, aux = 3}
[snooping.interface.7]
v6 = {enable = true, rate = 65535}
trusted = true
[snooping.vlan.30]
v4.rate = 5
trusted = [8, 7]
[[port]]
index = 3
name = "up"
capture_interface = 2
mac = ["02:00:00:00:00:0a", "02-00-00-00-00-0B"]
vlan = 30
trusted = true
management = true
peer_link = true
cause = 123
[[port]]
capture_interface = 0
mac = "02:00:00:00:00:0c"
)",
                                    "f.toml");
  EXPECT_EQ(config.board, 9u);
  EXPECT_EQ(config.capabilities, (Capabilities{2, 1, 1, 10, 20}));
  service::Settings want = service::WithSwitches(0xFFFE);
  want.degrade_rate = 300;
  want.global.v4 = {2, 1, 1, 3};
  want.interfaces[7] = {{}, {1, 65535, 0, 100}, 1};
  want.interfaces[3].trusted = 1;
  want.vlans[30] = {{0, 5, 0, 100}, {}, {7, 8}};
  EXPECT_EQ(config.module, want);
  ASSERT_EQ(config.ports.size(), 2u);
  const PortRecord& up = config.ports[0];
  EXPECT_EQ(up.name, "up");
  EXPECT_EQ(up.capture_interface, 2u);
  EXPECT_EQ(up.macs, (std::vector<MacAddress>{{2, 0, 0, 0, 0, 10}, {2, 0, 0, 0, 0, 11}}));
  EXPECT_EQ(up.vlan, 30);
  EXPECT_EQ(up.cause, 123u);
  EXPECT_TRUE(up.trusted && up.management && up.peer_link);
  EXPECT_EQ(config.ports[1].index, 1u) << "capture interface + 1";
  EXPECT_EQ(config.ports[1].name, "port 1");
}

TEST(Config, DotsInCommentsAndTextAreNoParts) {
  const Config config = ParseConfig(R"(# limits .................... below
board = 9 # "............................
[[port]]
index = 1
name = "a\"....................'z"
[[port]]
index = 2
name = '''
#...................."""
x............................''''
[[port]]
index = 3
name = 'c\' # .....................
)",
                                    "f.toml");
  ASSERT_EQ(config.ports.size(), 3u);
  EXPECT_EQ(config.board, 9u);
  EXPECT_EQ(config.ports[0].name, "a\"....................'z");
  EXPECT_TRUE(config.ports[1].name.ends_with("....'"));
  EXPECT_EQ(config.ports[2].name, "c\\");
}

TEST(Config, EveryMistakeIsOneLineWithPlaceRangeAndNearestKey) {
  constexpr struct {
    const char* toml;
    const char* error;
  } kCases[] = {
      {"bord = 1", R"(f.toml:1:1: unknown key "bord", the nearest valid key is "board")"},
      {"\n[switches]\nv4_rec = true",
       R"(f.toml:3:1: unknown key "switches.v4_rec", the nearest valid key is "switches.v4_req")"},
      {"snooping.global.v4 = {rat = 1}",
       R"(f.toml:1:23: unknown key "snooping.global.v4.rat", the nearest valid key is "snooping.global.v4.rate")"},
      {"[[port]]\nindex = 1\npeerlink = true",
       R"(f.toml:3:1: unknown key "port.peerlink", the nearest valid key is "port.peer_link")"},
      {"[snooping.global]\nv4 = {rate = 65536}",
       "f.toml:2:14: snooping.global.v4.rate: 65536 is out of range, allowed 0 to 65535 (packets per second, "
       "5000: no limit)"},
      {"degrade_rate = -1",
       "f.toml:1:16: degrade_rate: -1 is out of range, allowed 0 to 4294967295 (packets per second, "
       "4294967295: no limit)"},
      {"board = \"x\"",
       "f.toml:1:9: board: a string where a whole number 0 to 4294967295 (board type that the platform "
       "reports) is expected"},
      {"board = 1.0",
       "f.toml:1:9: board: a decimal number where a whole number 0 to 4294967295 (board type that the "
       "platform reports) is expected"},
      {"degrade = 300", R"(f.toml:1:1: unknown key "degrade", the nearest valid key is "degrade_rate")"},
      {"[switches]\nsw2 = 1", "f.toml:2:7: switches.sw2: a whole number where true or false is expected"},
      {"snooping.interface.1.trusted = 'yes'",
       "f.toml:1:32: snooping.interface.1.trusted: a string where true, false or 0 to 4294967295 (any "
       "non-zero value: trusted) is expected"},
      {"[snooping.vlan.4095]\ntrusted = []",
       "f.toml:1:16: snooping.vlan.4095: \"4095\" is not a VLAN id, allowed 1 to 4094"},
      {"[snooping.interface.01]\ntrusted = true",
       "f.toml:1:21: snooping.interface.01: \"01\" is not a port index, allowed 1 to 4294967294"},
      {"snooping.vlan.7.trusted = 3",
       "f.toml:1:27: snooping.vlan.7.trusted: a whole number where a list of numbers 1 to 4294967294 "
       "(indexes of the ports trusted in this VLAN) is expected"},
      {"snooping.vlan.7.trusted = [3, 3]", "f.toml:1:31: snooping.vlan.7.trusted: port 3 is listed twice"},
      {"snooping.vlan.7.trusted = [3, 0]",
       "f.toml:1:31: snooping.vlan.7.trusted: 0 is out of range, allowed 1 to 4294967294 (a port index)"},
      {"snooping.global.v4 = 3",
       "f.toml:1:22: snooping.global.v4: a whole number where a table is expected, with enable, rate, "
       "aux_enable, aux"},
      {"snooping.vlan = 3",
       "f.toml:1:17: snooping.vlan: a whole number where a table is expected, with a VLAN id 1 to 4094 as "
       "key"},
      {"[port]\nindex = 1",
       "f.toml:1:1: port: a table where tables [[port]] are expected, with index, name, capture_interface, "
       "mac, vlan, trusted, management, peer_link, cause"},
      {"[[port]]\nname = 'x'", "f.toml:1:1: port: needs an index, allowed 1 to 4294967294"},
      {"[[port]]\nindex = 1\n[[port]]\nindex = 1", "f.toml:3:1: port.index: 1 is already used in line 1"},
      {"[[port]]\nindex = 1\nmac = '02:00:00:00:00'",
       R"(f.toml:3:7: port.mac: "02:00:00:00:00" is not a MAC address, write six hex bytes like "02:00:00:00:00:0a")"},
      {"[[port]]\nindex = 1\nmac = ['02:00:00:00:00:01', '02:00:00:00:00:01']",
       "f.toml:3:29: port.mac: 02:00:00:00:00:01 is already used in line 3"},
      {"[[port]]\nindex = 1\nvlan = 4095",
       "f.toml:3:8: port.vlan: 4095 is out of range, allowed 1 to 4094 (VLAN id of untagged frames)"},
      {"board = 1\nboard = 4", "f.toml:2:9: Error while parsing key-value pair: cannot redefine"},
      {"board = ", "f.toml:1:9: "},
      {"x.x.x.x.x.x.x.x.x.x.x.x.x.x.x.x.x = 1", "f.toml:1:32: a key of more than 16 parts"},
      {R"(x."x".'x'."x".x.x.x.x.x.x.x.x.x.x.x.x.x = 1)", "f.toml:1:38: a key of more than 16 parts"},
      {"a = ['''x''''', {x.x.x.x.x.x.x.x.x.x.x.x.x.x.x.x.x = 1}]",
       "f.toml:1:49: a key of more than 16 parts"},
      {"zz = 1\nboard = 'x'\naa = 1", R"(f.toml:1:1: unknown key "zz")"},
      {"\"a\\nb\" = 1", R"(f.toml:1:1: unknown key "a\x0ab")"},
  };
  for (const auto& test : kCases) {
    const std::string error = ErrorOf(test.toml);
    EXPECT_TRUE(error.starts_with(test.error))
        << test.toml << "\n  gives " << error << "\n  not   " << test.error;
    EXPECT_EQ(error.find('\n'), std::string::npos) << error;
  }
}

TEST(Config, AnyBytesGiveAnErrorOrAConfiguration) {
  std::string deep = "a = ";
  deep.append(100000, '[');
  std::string dotted, quoted;
  for (int i = 0; i < 100000; ++i) {
    dotted += "a.";
    quoted += "'a'.";
  }
  std::string tables;
  for (int i = 0; i < 15; ++i) tables += "{a=";
  for (const std::string& text : {deep, dotted + "a = 1", quoted + "a = 1", "[" + quoted + "a]",
                                  "a = " + tables, std::string("\0\xff\xfe", 3), "[" + dotted + "a]"})
    EXPECT_NE(ErrorOf(text), "no error");
}

TEST(Config, AFileThatCannotBeReadIsNamed) {
  const std::string path = ::testing::TempDir() + "config_test_" + std::to_string(getpid()) + ".toml";
  const auto error_of_file = [](const std::string& file) -> std::string {
    try {
      LoadConfig(file);
    } catch (const InputError& error) {
      return error.what();
    }
    return "no error";
  };
  EXPECT_EQ(error_of_file("/nonexistent/f.toml"),
            "/nonexistent/f.toml: cannot open: No such file or directory");
  EXPECT_EQ(error_of_file("/"), "/: cannot read: Is a directory");
  for (const size_t size : {1048576, 1048577}) {
    std::ofstream(path) << std::string(size, '\n');
    EXPECT_EQ(error_of_file(path),
              size == 1048576 ? "no error" : path + ": larger than 1048576 bytes, not a configuration file");
  }
  std::filesystem::remove(path);
}

TEST(Settings, EachIsReadBackWhereItWasWritten) {
  for (const Setting& setting : AllSettings()) {
    Config config;
    const std::vector<uint32_t> value = {setting.max == 1 ? 1U - setting.get(setting, config, 9)[0] : 42U};
    setting.set(setting, config, 9, value);
    for (const Setting& other : AllSettings()) {
      const bool same = &other == &setting;
      EXPECT_EQ(other.get(other, config, 9) == value &&
                    other.get(other, config, 9) != other.get(other, Config{}, 9),
                same)
          << setting.path << " written, " << other.path << " read";
      EXPECT_EQ(other.get(other, config, 8),
                other.get(other, same && other.path.find('N') == std::string::npos ? config : Config{}, 8));
    }
  }
}

TEST(Settings, PathsAreResolvedOrExplained) {
  const SettingRef ref = ResolveSetting("snooping.vlan.30.v6.aux_enable");
  EXPECT_EQ(ref.key, 30u);
  EXPECT_EQ(ref.setting->path, "snooping.vlan.N.v6.aux_enable");
  for (const auto& [path, part] : std::vector<std::pair<std::string, std::string>>{
           {"snooping.vlan.0.v4.rate", "allowed 1 to 4094"},
           {"snooping.vlan.5.v5.rate", "nearest is \"snooping.vlan.N.v4\""},
           {"snooping.vlan.5", "name one of its settings: v4, v6, trusted"},
           {"", "name one of its settings"}}) {
    try {
      ResolveSetting(path);
      ADD_FAILURE() << path;
    } catch (const InputError& error) {
      EXPECT_NE(std::string(error.what()).find(part), std::string::npos) << error.what();
    }
  }
}

TEST(Settings, OverridesReplaceWhatTheFileSays) {
  Config config = ParseConfig("[capabilities]\ninstances = 2\ncauseid_type = 1", "f.toml");
  ApplyOverrides({.instances = 3, .causeid_type = std::nullopt, .switches = 0x11, .no_check_cfg = true},
                 config);
  EXPECT_EQ(config.capabilities, (Capabilities{3, 1, 1, 0, 0}));
  EXPECT_EQ(config.module.switches, 0x11u);
}

}  // namespace
}  // namespace vex::host::testing
